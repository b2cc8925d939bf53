// Reads one document with ag-psd (every layer's pixels and the composite), then times writePsd on
// it alone: the peer of psdkit_read_document FILE --write OUT, which times its own writing alone.
//
// Usage: node bench/write-agpsd.mjs FILE OUT
// Prints "write S s (C s CPU), N bytes written" on standard error: the steady-clock and the CPU
// seconds (every thread's) of writePsd.
import { readFileSync, writeFileSync } from 'node:fs';
import { readPsd, writePsdBuffer } from '../tests/interop/agpsd.mjs';

const psd = readPsd(readFileSync(process.argv[2]), { useImageData: true });
const started = process.hrtime.bigint();
const cpuStarted = process.cpuUsage();
const bytes = writePsdBuffer(psd);
const seconds = Number(process.hrtime.bigint() - started) / 1e9;
const cpu = process.cpuUsage(cpuStarted);
writeFileSync(process.argv[3], bytes);
const cpuSeconds = (cpu.user + cpu.system) / 1e6;
console.error(`write ${seconds.toFixed(3)} s (${cpuSeconds.toFixed(3)} s CPU), ${bytes.length} bytes written`);
