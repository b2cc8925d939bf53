// The ag-psd side of the interop tests (driven by run.py).
//
//   node agpsd-oracle.mjs dump FILE FOLDER [--skip-composite]
//       reads FILE with ag-psd and writes what it decodes into FOLDER in the same shape as
//       psdkit_interop_tool's dump: document.json and one file per channel, samples big-endian.
//       Groups come before their content in ag-psd's tree; the layers are listed in file order
//       (a group record after its content), without section dividers, which ag-psd does not show.
//   node agpsd-oracle.mjs write FOLDER
//       writes small layered documents with ag-psd into FOLDER (PackBits, ZIP and PSB variants, and
//       one with a document-level pattern) and dumps of the pixels it was given, to compare with
//       what psdkit reads.
//   node agpsd-oracle.mjs tree FILE...
//       prints, as one JSON object by file name, the layer tree ag-psd reads from each FILE (depth,
//       what the layer is, name, hidden, text) or {"error": message} where ag-psd refuses the file.
import { mkdirSync, readFileSync, writeFileSync } from 'node:fs';
import { join } from 'node:path';
import { readPsd, writePsdBuffer } from './agpsd.mjs';

// One channel (offset 0…3 in an RGBA array) as big-endian samples of `depth` bits.
function plane(data, offset, step, depth) {
    const count = data.length / step;
    const bytesPerSample = depth / 8;
    const out = Buffer.alloc(count * bytesPerSample);
    for (let i = 0; i < count; ++i) {
        const v = data[i * step + offset];
        if (depth === 8) out[i] = v;
        else if (depth === 16) out.writeUInt16BE(v, i * 2);
        else out.writeFloatBE(v, i * 4);
    }
    return out;
}

// top, left, bottom, right; a layer that was only given pixels (the written source) takes its size.
function boundsOf(layer) {
    const top = layer.top ?? 0;
    const left = layer.left ?? 0;
    const bottom = layer.bottom ?? top + (layer.imageData?.height ?? 0);
    const right = layer.right ?? left + (layer.imageData?.width ?? 0);
    return [top, left, bottom, right];
}

function dumpDocument(psd, folder, depth) {
    mkdirSync(folder, { recursive: true });
    let written = 0;
    const writePlane = (bytes) => {
        const name = `p${written++}.bin`;
        writeFileSync(join(folder, name), bytes);
        return name;
    };
    const layers = [];
    const visit = (children) => {
        for (const layer of children ?? []) {
            if (layer.children) visit(layer.children);
            const entry = {
                name: layer.name ?? '',
                kind: layer.children ? 'group' : 'layer',
                bounds: boundsOf(layer),
                mask: null,
                channels: {},
            };
            if (layer.imageData) {
                ['0', '1', '2', '-1'].forEach((id, c) => {
                    entry.channels[id] = writePlane(plane(layer.imageData.data, c, 4, depth));
                });
            }
            if (layer.mask) {
                const m = layer.mask;
                entry.mask = boundsOf(m);
                if (m.imageData) entry.channels['-2'] = writePlane(plane(m.imageData.data, 0, 4, depth));
            }
            layers.push(entry);
        }
    };
    visit(psd.children);
    const composite = psd.imageData
        ? [0, 1, 2, 3].map((c) => writePlane(plane(psd.imageData.data, c, 4, depth)))
        : [];
    const patterns = (psd.patterns ?? []).map((p) => ({
        name: p.name,
        size: [p.bounds.w, p.bounds.h],
        pixels: writePlane(Buffer.from(p.data.buffer, p.data.byteOffset, p.data.byteLength)),
    }));
    const summary = { width: psd.width, height: psd.height, depth, layers, composite, patterns };
    writeFileSync(join(folder, 'document.json'), JSON.stringify(summary, null, 1));
}

function dump(file, folder, skipComposite) {
    const psd = readPsd(readFileSync(file), { useImageData: true, skipCompositeImageData: skipComposite });
    dumpDocument(psd, folder, psd.bitsPerChannel ?? 8);
}

// A small document with what hosts meet most: an opaque background, a half-transparent layer, a
// group holding a layer with a soft mask and an empty layer, a hidden layer and one partly outside
// the canvas.
function smallDocument() {
    const W = 67;
    const H = 45;
    const pixels = (width, height, f) => {
        const data = new Uint8ClampedArray(width * height * 4);
        for (let y = 0; y < height; ++y) {
            for (let x = 0; x < width; ++x) data.set(f(x, y), (y * width + x) * 4);
        }
        return { width, height, data };
    };
    const background = pixels(W, H, (x, y) => [(x * 255) / W, (y * 255) / H, (x * y) % 256, 255]);
    const glass = pixels(30, 20, (x, y) => [200, 40 + x, 90 + y, (x * 8 + y * 3) % 256]);
    const disc = pixels(25, 25, (x, y) => {
        const d = Math.hypot(x - 12, y - 12);
        return [20, 180, 240, d < 10 ? 255 : d < 12 ? 128 : 0];
    });
    const mask = pixels(25, 25, (x) => [x * 10, x * 10, x * 10, 255]);
    const hidden = pixels(10, 10, () => [1, 2, 3, 255]);
    const outside = pixels(20, 15, (x, y) => [x * 12, 255 - y * 16, 128, 255]);
    const children = [
        { name: 'Background', left: 0, top: 0, imageData: background },
        { name: 'Glass ½', left: 5, top: 7, imageData: glass, opacity: 0.5 },
        {
            name: 'Group',
            opened: true,
            children: [
                {
                    name: 'Disc',
                    left: 30,
                    top: 12,
                    imageData: disc,
                    mask: { left: 30, top: 12, right: 55, bottom: 37, defaultColor: 0, imageData: mask },
                },
                { name: 'Empty', left: 0, top: 0 },
            ],
        },
        { name: 'Hidden', left: 2, top: 30, imageData: hidden, hidden: true },
        { name: 'Past the edge', left: 55, top: 35, imageData: outside },
    ];
    return { width: W, height: H, children, imageData: background };
}

// A document-level pattern: 9 × 7 RGBA pixels, stored with PackBits by ag-psd.
function patternDocument() {
    const w = 9;
    const h = 7;
    const data = new Uint8Array(w * h * 4);
    for (let i = 0; i < w * h; ++i) {
        data.set([(i * 29) % 256, (i * 53) % 256, i % 3 === 0 ? 255 : 10, 255 - i], i * 4);
    }
    const image = { width: 16, height: 12, data: new Uint8ClampedArray(16 * 12 * 4).fill(200) };
    return {
        width: 16,
        height: 12,
        children: [{ name: 'Paper', left: 0, top: 0, imageData: image }],
        imageData: image,
        patterns: [
            {
                name: 'Woven',
                id: '6a7c2e10-4b1d-11ee-9c1a-0242ac120002',
                x: 0,
                y: 0,
                bounds: { x: 0, y: 0, w, h },
                data,
            },
        ],
    };
}

function write(folder) {
    mkdirSync(folder, { recursive: true });
    const pattern = patternDocument();
    writeFileSync(join(folder, 'agpsd-pattern.psd'), writePsdBuffer(pattern));
    dumpDocument(pattern, join(folder, 'agpsd-pattern-source'), 8);
    const document = smallDocument();
    for (const [name, options] of [
        ['agpsd-small-rle.psd', {}],
        ['agpsd-small-zip.psd', { compress: true }],
        ['agpsd-small.psb', { psb: true }],
    ]) {
        writeFileSync(join(folder, name), writePsdBuffer(document, options));
    }
    dumpDocument(document, join(folder, 'agpsd-small-source'), 8);
}

// What ag-psd reads a layer as: group, text, placed file, adjustment, fill, vector data, effects.
function layerKind(layer) {
    const parts = ['children', 'text', 'placedLayer', 'vectorFill', 'vectorMask', 'vectorStroke', 'effects'];
    const kind = parts.filter((part) => layer[part] !== undefined);
    if (layer.adjustment) kind.push(`adjustment:${layer.adjustment.type}`);
    return kind.join('+');
}

function trees(files) {
    const result = {};
    for (const file of files) {
        try {
            const psd = readPsd(readFileSync(file), {
                skipLayerImageData: true,
                skipCompositeImageData: true,
                skipThumbnail: true,
            });
            const entries = [];
            const visit = (children, depth) => {
                for (const layer of children ?? []) {
                    entries.push([depth, layerKind(layer), layer.name ?? '', !!layer.hidden, layer.text?.text ?? null]);
                    visit(layer.children, depth + 1);
                }
            };
            visit(psd.children, 0);
            result[file] = entries;
        } catch (error) {
            result[file] = { error: String(error?.message ?? error) };
        }
    }
    console.log(JSON.stringify(result));
}

const [command, ...rest] = process.argv.slice(2);
if (command === 'dump' && rest.length >= 2) {
    dump(rest[0], rest[1], rest.includes('--skip-composite'));
} else if (command === 'write' && rest.length === 1) {
    write(rest[0]);
} else if (command === 'tree') {
    trees(rest);
} else {
    console.error('usage: node agpsd-oracle.mjs dump FILE FOLDER [--skip-composite] | write FOLDER | tree FILE...');
    process.exit(2);
}
