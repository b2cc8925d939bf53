// Reads one document with ag-psd (every layer's pixels and the composite), then times writePsd on
// it alone: the peer of psdkit_read_document FILE --write OUT, which times its own writing alone.
//
// Usage: node bench/write-agpsd.mjs FILE OUT
// Prints "write S s, N bytes written" on standard error, S the steady-clock seconds of writePsd.
import { readFileSync, writeFileSync } from 'node:fs';
import { readPsd, writePsdBuffer } from '../tests/interop/agpsd.mjs';

const psd = readPsd(readFileSync(process.argv[2]), { useImageData: true });
const started = process.hrtime.bigint();
const bytes = writePsdBuffer(psd);
const seconds = Number(process.hrtime.bigint() - started) / 1e9;
writeFileSync(process.argv[3], bytes);
console.error(`write ${seconds.toFixed(3)} s, ${bytes.length} bytes written`);
