// ag-psd as installed here (npm ci in this folder), set up for Node without a canvas package:
// pixels are plain RGBA arrays (`useImageData`), so ag-psd only needs a way to make empty ones.
import { createRequire } from 'node:module';

const require = createRequire(import.meta.url);
const agpsd = require('ag-psd');

agpsd.initializeCanvas(
    () => {
        throw new Error('no canvas in this environment: read with useImageData');
    },
    (width, height) => ({ width, height, data: new Uint8ClampedArray(width * height * 4) }),
);

export const { readPsd, writePsdBuffer } = agpsd;
