// Builds the documents of the end-to-end benchmark with ag-psd, an independent PSD writer:
//
//   bench-8bit-rle.psd   4096 × 4096, 8-bit, 24 pixel layers in three groups (one nested), four
//                        user masks, every channel PackBits-compressed
//   bench-8bit-zip.psd   the same document with ZIP-compressed layer channels
//
// Content is deterministic (a seeded generator): photographic layers are smooth colour gradients
// with a vignette and sensor-like noise, graphic layers are flat shapes with soft edges on a
// transparent background, masks are soft ramps and ellipses. The composite is the layers blended
// with "normal" over each other (opacity and masks applied), as a viewer would show them.
//
// Usage: node bench/make-documents.mjs OUTPUT_FOLDER
// ag-psd comes from tests/interop/node_modules (npm ci there installs the locked version).
import { mkdirSync, writeFileSync } from 'node:fs';
import { join } from 'node:path';
import { writePsdBuffer } from '../tests/interop/agpsd.mjs';

const SIDE = 4096;

// mulberry32: a small, fast generator with a fixed seed, so every run writes the same bytes.
function generator(seed) {
    let state = seed >>> 0;
    return () => {
        state = (state + 0x6d2b79f5) >>> 0;
        let t = state;
        t = Math.imul(t ^ (t >>> 15), t | 1);
        t ^= t + Math.imul(t ^ (t >>> 7), t | 61);
        return ((t ^ (t >>> 14)) >>> 0) / 4294967296;
    };
}

// Normally distributed noise (σ = 1) from a table, indexed by a cheap per-pixel hash.
const noiseTable = (() => {
    const random = generator(7);
    const table = new Float32Array(1 << 16);
    for (let i = 0; i < table.length; i += 2) {
        const u = Math.max(random(), 1e-12);
        const v = random();
        const r = Math.sqrt(-2 * Math.log(u));
        table[i] = r * Math.cos(2 * Math.PI * v);
        table[i + 1] = r * Math.sin(2 * Math.PI * v);
    }
    return table;
})();

const clamp8 = (v) => (v < 0 ? 0 : v > 255 ? 255 : v + 0.5) | 0;

function imageData(width, height) {
    return { width, height, data: new Uint8ClampedArray(width * height * 4) };
}

// Smooth gradients (a few low-frequency waves per axis), a vignette and noise of σ ≈ 2.2 levels.
function photo(width, height, seed) {
    const random = generator(seed);
    const image = imageData(width, height);
    const columns = [[], [], []];
    const rows = [[], [], []];
    for (let c = 0; c < 3; ++c) {
        const base = 60 + 140 * random();
        const waves = Array.from({ length: 3 }, () => ({
            fx: (0.5 + 3 * random()) * 2 * Math.PI / width,
            fy: (0.5 + 3 * random()) * 2 * Math.PI / height,
            px: 6.3 * random(),
            py: 6.3 * random(),
            amplitude: 10 + 25 * random(),
        }));
        columns[c] = new Float32Array(width);
        rows[c] = new Float32Array(height);
        for (let x = 0; x < width; ++x) {
            let v = base / 2;
            for (const w of waves) v += w.amplitude * Math.sin(w.fx * x + w.px);
            columns[c][x] = v;
        }
        for (let y = 0; y < height; ++y) {
            let v = base / 2;
            for (const w of waves) v += w.amplitude * Math.cos(w.fy * y + w.py);
            rows[c][y] = v;
        }
    }
    const vx = new Float32Array(width);
    const vy = new Float32Array(height);
    for (let x = 0; x < width; ++x) vx[x] = 1 - 0.35 * ((2 * x) / width - 1) ** 2;
    for (let y = 0; y < height; ++y) vy[y] = 1 - 0.35 * ((2 * y) / height - 1) ** 2;
    const data = image.data;
    let hash = (seed * 2654435761) >>> 0;
    let i = 0;
    for (let y = 0; y < height; ++y) {
        const r0 = rows[0][y], g0 = rows[1][y], b0 = rows[2][y], vignette = vy[y];
        for (let x = 0; x < width; ++x) {
            const v = vignette * vx[x];
            hash = (Math.imul(hash, 1664525) + 1013904223) >>> 0;
            const n = hash >>> 16;
            data[i] = clamp8((r0 + columns[0][x]) * v + 2.2 * noiseTable[n]);
            data[i + 1] = clamp8((g0 + columns[1][x]) * v + 2.2 * noiseTable[(n + 21845) & 0xffff]);
            data[i + 2] = clamp8((b0 + columns[2][x]) * v + 2.2 * noiseTable[(n + 43690) & 0xffff]);
            data[i + 3] = 255;
            i += 4;
        }
    }
    return image;
}

// Coverage of a soft-edged ellipse or rounded rectangle at (x, y): 1 inside, 0 outside, a linear
// ramp `feather` pixels wide across the edge.
function coverage(shape, x, y) {
    const dx = (x - shape.cx) / shape.rx;
    const dy = (y - shape.cy) / shape.ry;
    let distance;
    if (shape.round) {
        distance = (Math.sqrt(dx * dx + dy * dy) - 1) * Math.min(shape.rx, shape.ry);
    } else {
        distance = Math.max(Math.abs(dx) - 1, Math.abs(dy) - 1) * Math.min(shape.rx, shape.ry);
    }
    const t = 0.5 - distance / shape.feather;
    return t <= 0 ? 0 : t >= 1 ? 1 : t;
}

// Flat-coloured shapes with soft edges on a transparent background.
function shapes(width, height, seed, count) {
    const random = generator(seed);
    const image = imageData(width, height);
    const list = Array.from({ length: count }, () => {
        const rx = (0.12 + 0.25 * random()) * width;
        const ry = (0.12 + 0.25 * random()) * height;
        return {
            cx: rx + random() * Math.max(1, width - 2 * rx),
            cy: ry + random() * Math.max(1, height - 2 * ry),
            rx,
            ry,
            round: random() < 0.6,
            feather: 2 + 10 * random(),
            color: [255 * random(), 255 * random(), 255 * random()],
        };
    });
    const data = image.data;
    for (const shape of list) {
        const x0 = Math.max(0, Math.floor(shape.cx - shape.rx - shape.feather));
        const x1 = Math.min(width, Math.ceil(shape.cx + shape.rx + shape.feather));
        const y0 = Math.max(0, Math.floor(shape.cy - shape.ry - shape.feather));
        const y1 = Math.min(height, Math.ceil(shape.cy + shape.ry + shape.feather));
        for (let y = y0; y < y1; ++y) {
            let i = (y * width + x0) * 4;
            for (let x = x0; x < x1; ++x, i += 4) {
                const a = coverage(shape, x + 0.5, y + 0.5);
                if (a === 0) continue;
                // "Over" with straight alpha.
                const below = data[i + 3] / 255;
                const out = a + below * (1 - a);
                for (let c = 0; c < 3; ++c) {
                    data[i + c] = clamp8((shape.color[c] * a + data[i + c] * below * (1 - a)) / out);
                }
                data[i + 3] = clamp8(out * 255);
            }
        }
    }
    return image;
}

// Masks are grey images; ag-psd takes their first (red) channel.
function maskImage(width, height, kind) {
    const image = imageData(width, height);
    const data = image.data;
    let i = 0;
    for (let y = 0; y < height; ++y) {
        for (let x = 0; x < width; ++x, i += 4) {
            let v;
            if (kind === 'ramp') {
                v = 255 * Math.min(1, Math.max(0, 1.4 - (1.6 * y) / height));
            } else {
                const dx = (2 * x) / width - 1;
                const dy = (2 * y) / height - 1;
                v = 255 * Math.min(1, Math.max(0, (1 - Math.sqrt(dx * dx + dy * dy)) * 3));
            }
            data[i] = data[i + 1] = data[i + 2] = clamp8(v);
            data[i + 3] = 255;
        }
    }
    return image;
}

let nextSeed = 1000;
function pixelLayer(name, kind, left, top, width, height, extra = {}) {
    const seed = nextSeed++;
    const content =
        kind === 'photo' ? photo(width, height, seed) : shapes(width, height, seed, 4 + (seed % 5));
    const layer = { name, left, top, imageData: content, opacity: 1, blendMode: 'normal', ...extra };
    if (extra.mask) {
        const m = extra.mask;
        layer.mask = {
            left: left + m.left,
            top: top + m.top,
            right: left + m.left + m.width,
            bottom: top + m.top + m.height,
            defaultColor: 0,
            imageData: maskImage(m.width, m.height, m.kind),
        };
    }
    return layer;
}

// A mask over the whole layer.
function wholeMask(width, height, kind) {
    return { left: 0, top: 0, width, height, kind };
}

function group(name, children, extra = {}) {
    return { name, opened: true, children, ...extra };
}

function buildDocument() {
    // children[0] is the bottom layer.
    const children = [
        pixelLayer('Background', 'photo', 0, 0, SIDE, SIDE),
        group('Landscape', [
            pixelLayer('Sky', 'photo', 0, 0, SIDE, 1700, { mask: wholeMask(SIDE, 1700, 'ramp') }),
            pixelLayer('Distant hills', 'shapes', 0, 1400, SIDE, 1400),
            pixelLayer('Haze', 'photo', 548, 1000, 3000, 1200, { opacity: 0.45, blendMode: 'screen' }),
            pixelLayer('Field', 'photo', 0, 2596, SIDE, 1500),
            pixelLayer('Trees', 'shapes', 200, 2200, 2400, 1600),
            group('Details', [
                pixelLayer('Rocks', 'shapes', 2300, 3000, 1400, 900),
                pixelLayer('Path', 'shapes', 1700, 2296, 900, 1800, { mask: wholeMask(900, 1800, 'ramp') }),
                pixelLayer('Flowers', 'shapes', 300, 3300, 1200, 700),
                pixelLayer('Shadow', 'shapes', 1200, 3400, 1600, 600, {
                    opacity: 0.6,
                    blendMode: 'multiply',
                }),
            ]),
        ]),
        group('Subject', [
            pixelLayer('Portrait', 'photo', 1150, 900, 1800, 2400, {
                mask: wholeMask(1800, 2400, 'ellipse'),
            }),
            pixelLayer('Portrait light', 'photo', 1250, 1100, 1600, 1600, {
                opacity: 0.35,
                blendMode: 'overlay',
            }),
            pixelLayer('Hair', 'shapes', 1450, 800, 1200, 900),
            pixelLayer('Clothes', 'shapes', 1200, 2500, 1700, 1300),
            pixelLayer('Reflection', 'photo', 1300, 3000, 1500, 1000, { opacity: 0.3 }),
        ], { opacity: 0.95 }),
        pixelLayer('Badge', 'shapes', 3200, 200, 700, 700),
        pixelLayer('Frame top', 'shapes', 0, 0, SIDE, 300),
        pixelLayer('Frame bottom', 'shapes', 0, SIDE - 300, SIDE, 300),
        pixelLayer('Title plate', 'shapes', 940, 3500, 2200, 500),
        pixelLayer('Logo', 'shapes', 150, 150, 500, 500),
        pixelLayer('Sticker 1', 'shapes', 3500, 3500, 400, 400, { hidden: true }),
        pixelLayer('Sticker 2', 'shapes', 3400, 1000, 450, 380),
        pixelLayer('Light leak', 'photo', 2096, 0, 2000, 1200, {
            opacity: 0.5,
            blendMode: 'screen',
            mask: wholeMask(2000, 1200, 'ellipse'),
        }),
        pixelLayer('Grain', 'photo', 1536, 1536, 1024, 1024, { opacity: 0.15 }),
    ];
    return { width: SIDE, height: SIDE, children, imageData: composite(children) };
}

// "Normal" blending of every visible layer over the ones below, in straight 8-bit alpha.
function composite(children) {
    const out = imageData(SIDE, SIDE);
    const data = out.data;
    const visit = (layers, inheritedOpacity) => {
        for (const layer of layers) {
            if (layer.hidden) continue;
            const opacity = inheritedOpacity * (layer.opacity ?? 1);
            if (layer.children) {
                visit(layer.children, opacity);
                continue;
            }
            const { width, height, data: src } = layer.imageData;
            const mask = layer.mask;
            for (let y = 0; y < height; ++y) {
                const cy = layer.top + y;
                if (cy < 0 || cy >= SIDE) continue;
                for (let x = 0; x < width; ++x) {
                    const cx = layer.left + x;
                    if (cx < 0 || cx >= SIDE) continue;
                    const s = (y * width + x) * 4;
                    let a = (src[s + 3] / 255) * opacity;
                    if (mask) {
                        const mx = cx - mask.left;
                        const my = cy - mask.top;
                        const mw = mask.right - mask.left;
                        const inside = mx >= 0 && my >= 0 && mx < mw && my < mask.bottom - mask.top;
                        a *= inside ? mask.imageData.data[(my * mw + mx) * 4] / 255 : mask.defaultColor / 255;
                    }
                    if (a === 0) continue;
                    const d = (cy * SIDE + cx) * 4;
                    const below = data[d + 3] / 255;
                    const alpha = a + below * (1 - a);
                    for (let c = 0; c < 3; ++c) {
                        data[d + c] = clamp8((src[s + c] * a + data[d + c] * below * (1 - a)) / alpha);
                    }
                    data[d + 3] = clamp8(alpha * 255);
                }
            }
        }
    };
    visit(children, 1);
    return out;
}

const folder = process.argv[2];
if (!folder) {
    console.error('usage: node bench/make-documents.mjs OUTPUT_FOLDER');
    process.exit(2);
}
mkdirSync(folder, { recursive: true });
const started = Date.now();
const document = buildDocument();
console.error(`content built in ${((Date.now() - started) / 1000).toFixed(1)} s`);
for (const [name, options] of [['bench-8bit-rle.psd', {}], ['bench-8bit-zip.psd', { compress: true }]]) {
    const t = Date.now();
    const bytes = writePsdBuffer(document, options);
    writeFileSync(join(folder, name), bytes);
    const seconds = ((Date.now() - t) / 1000).toFixed(1);
    console.error(`${name}: ${(bytes.length / 1e6).toFixed(1)} MB in ${seconds} s`);
}
