// The ag-psd side of the interop tests (driven by run.py).
//
//   node agpsd-oracle.mjs dump FILE [--skip-composite]
//       prints what ag-psd decodes from FILE as JSON in the shape of psdkit_interop_tool's dump
//       (channels as hex text of big-endian samples). Layers are listed in file order (a group
//       record after its content), without section dividers, which ag-psd does not show.
//   node agpsd-oracle.mjs write FOLDER
//       writes small layered documents into FOLDER (PackBits, ZIP and PSB variants, and one with a
//       document-level pattern) and the dump of the pixels ag-psd was given (agpsd-small-source.json).
//   node agpsd-oracle.mjs tree FILE...
//       prints, as one JSON object by file name, the layer tree ag-psd reads from each FILE (depth,
//       what the layer is, name, hidden, text) or {"error": message} where ag-psd refuses the file.
import { mkdirSync, readFileSync, writeFileSync } from 'node:fs';
import { join } from 'node:path';
import { readPsd, writePsdBuffer } from './agpsd.mjs';

// One channel (offset 0…3 in an RGBA array) as hex text of big-endian samples of `depth` bits.
function plane(data, offset, depth) {
    const out = Buffer.alloc((data.length / 4) * (depth / 8));
    for (let i = 0; i < data.length / 4; ++i) {
        const v = data[i * 4 + offset];
        if (depth === 8) out[i] = v;
        else if (depth === 16) out.writeUInt16BE(v, i * 2);
        else out.writeFloatBE(v, i * 4);
    }
    return out.toString('hex');
}

// top, left, bottom, right; a layer that was only given pixels (the written source) takes its size.
function boundsOf({ top = 0, left = 0, bottom, right, imageData }) {
    return [top, left, bottom ?? top + (imageData?.height ?? 0), right ?? left + (imageData?.width ?? 0)];
}

function dumpDocument(psd, depth) {
    const planes = (image, ids) => Object.fromEntries(ids.map((id, c) => [id, plane(image.data, c, depth)]));
    const layers = [];
    const visit = (children) => {
        for (const layer of children ?? []) {
            if (layer.children) visit(layer.children);
            const { mask } = layer;
            layers.push({
                name: layer.name ?? '',
                kind: layer.children ? 'group' : 'layer',
                bounds: boundsOf(layer),
                mask: mask ? boundsOf(mask) : null,
                channels: {
                    ...(layer.imageData ? planes(layer.imageData, ['0', '1', '2', '-1']) : {}),
                    ...(mask?.imageData ? planes(mask.imageData, ['-2']) : {}),
                },
            });
        }
    };
    visit(psd.children);
    const composite = psd.imageData ? Object.values(planes(psd.imageData, ['0', '1', '2', '3'])) : [];
    const patterns = (psd.patterns ?? []).map((p) => ({
        name: p.name,
        size: [p.bounds.w, p.bounds.h],
        pixels: Buffer.from(p.data.buffer, p.data.byteOffset, p.data.byteLength).toString('hex'),
    }));
    return JSON.stringify({ depth, layers, composite, patterns });
}

const pixels = (width, height, f) => {
    const data = new Uint8ClampedArray(width * height * 4);
    for (let i = 0; i < width * height; ++i) data.set(f(i % width, Math.floor(i / width), i), i * 4);
    return { width, height, data };
};

// What hosts meet most: an opaque background, a half-transparent layer, a group holding a layer
// with a soft mask and an empty layer, a hidden layer and one partly outside the canvas.
function smallDocument() {
    const background = pixels(67, 45, (x, y) => [(x * 255) / 67, (y * 255) / 45, (x * y) % 256, 255]);
    const disc = pixels(25, 25, (x, y) => {
        const d = Math.hypot(x - 12, y - 12);
        return [20, 180, 240, d < 10 ? 255 : d < 12 ? 128 : 0];
    });
    const glass = pixels(30, 20, (x, y) => [200, 40 + x, 90 + y, (x * 8 + y * 3) % 256]);
    const mask = pixels(25, 25, (x) => [x * 10, x * 10, x * 10, 255]);
    const discMask = { left: 30, top: 12, right: 55, bottom: 37, defaultColor: 0, imageData: mask };
    const outside = pixels(20, 15, (x, y) => [x * 12, 255 - y * 16, 128, 255]);
    const children = [
        { name: 'Background', left: 0, top: 0, imageData: background },
        { name: 'Glass ½', left: 5, top: 7, opacity: 0.5, imageData: glass },
        { name: 'Group', opened: true, children: [
            { name: 'Disc', left: 30, top: 12, imageData: disc, mask: discMask },
            { name: 'Empty', left: 0, top: 0 },
        ] },
        { name: 'Hidden', left: 2, top: 30, hidden: true, imageData: pixels(10, 10, () => [1, 2, 3, 255]) },
        { name: 'Past the edge', left: 55, top: 35, imageData: outside },
    ];
    return { width: 67, height: 45, children, imageData: background };
}

// A document-level pattern of 9 × 7 RGBA pixels, stored with PackBits by ag-psd.
function patternDocument() {
    const { data } = pixels(9, 7, (x, y, i) => [(i * 29) % 256, (i * 53) % 256, i % 3 === 0 ? 255 : 10, 255 - i]);
    const image = pixels(16, 12, () => [200, 200, 200, 200]);
    const id = '6a7c2e10-4b1d-11ee-9c1a-0242ac120002';
    const bounds = { x: 0, y: 0, w: 9, h: 7 };
    const pattern = { name: 'Woven', id, x: 0, y: 0, bounds, data: new Uint8Array(data.buffer) };
    return { width: 16, height: 12, children: [{ name: 'Paper', left: 0, top: 0, imageData: image }], imageData: image,
        patterns: [pattern] };
}

function write(folder) {
    mkdirSync(folder, { recursive: true });
    writeFileSync(join(folder, 'agpsd-pattern.psd'), writePsdBuffer(patternDocument()));
    const document = smallDocument();
    writeFileSync(join(folder, 'agpsd-small-rle.psd'), writePsdBuffer(document));
    writeFileSync(join(folder, 'agpsd-small-zip.psd'), writePsdBuffer(document, { compress: true }));
    writeFileSync(join(folder, 'agpsd-small.psb'), writePsdBuffer(document, { psb: true }));
    writeFileSync(join(folder, 'agpsd-small-source.json'), dumpDocument(document, 8));
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
    const skip = { skipLayerImageData: true, skipCompositeImageData: true, skipThumbnail: true };
    for (const file of files) {
        try {
            const psd = readPsd(readFileSync(file), skip);
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
if (command === 'dump' && rest.length >= 1) {
    const skipCompositeImageData = rest.includes('--skip-composite');
    const psd = readPsd(readFileSync(rest[0]), { useImageData: true, skipCompositeImageData });
    console.log(dumpDocument(psd, psd.bitsPerChannel ?? 8));
} else if (command === 'write' && rest.length === 1) {
    write(rest[0]);
} else if (command === 'tree') {
    trees(rest);
} else {
    console.error('usage: node agpsd-oracle.mjs dump FILE [--skip-composite] | write FOLDER | tree FILE...');
    process.exit(2);
}
