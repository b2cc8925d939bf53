// Reads one document with ag-psd the way the benchmark compares it: every layer's pixels and the
// composite decoded into raw image data (no canvas).
//
// Usage: node bench/read-agpsd.mjs FILE [--skip-composite | --structure]
// --structure skips every pixel (layers, composite, thumbnail): what a listing needs.
// --skip-composite leaves the composite undecoded: ag-psd 31 refuses the composite of 16- and
// 32-bit files that store merged transparency, which is how psdkit writes every layered document.
import { readFileSync } from 'node:fs';
import { readPsd } from '../tests/interop/agpsd.mjs';

const structure = process.argv.includes('--structure');
const skipComposite = structure || process.argv.includes('--skip-composite');
const psd = readPsd(readFileSync(process.argv[2]), {
    useImageData: true,
    skipCompositeImageData: skipComposite,
    skipLayerImageData: structure,
    skipThumbnail: structure,
});
if (structure) process.exit(psd.children?.length ? 0 : 1);
let images = psd.imageData ? 1 : 0;
const visit = (layers) => {
    for (const layer of layers ?? []) {
        images += (layer.imageData ? 1 : 0) + (layer.mask?.imageData ? 1 : 0);
        visit(layer.children);
    }
};
visit(psd.children);
if (images === 0) process.exit(1);
