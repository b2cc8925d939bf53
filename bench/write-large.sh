#!/usr/bin/env bash
# Memory and time of writing at scale (not part of CI):
#
#   bench/write-large.sh [--side N] [--layers N] [--out FOLDER] [--build FOLDER] [--big8 FILE]
#
# 1. builds psdkit_write_large_document and the psdkit tool (RelWithDebInfo, default build/dev);
# 2. writes a SIDE² 8-bit PSB of LAYERS noise layers (default 16384², 5 layers: about 6.3 GB) to
#    --out (default build/large) through a file-descriptor sink and reads it back, then writes it
#    through the vector API (without reading back: at the default size that run alone needs about
#    13 GiB); prints each step's time, peak memory and page faults, and the whole process's
#    figures from /usr/bin/time -v;
# 3. with --big8 FILE (for example build/compare/documents/bench-8bit-rle.psd, which
#    bench/compare.sh makes), times `psdkit rewrite FILE` under /usr/bin/time -v.
set -euo pipefail
cd "$(dirname "$0")/.."

side=16384
layers=5
out=build/large
build=build/dev
big8=
while (($#)); do
  case $1 in
    --side) side=$2; shift 2 ;;
    --layers) layers=$2; shift 2 ;;
    --out) out=$2; shift 2 ;;
    --build) build=$2; shift 2 ;;
    --big8) big8=$2; shift 2 ;;
    *) echo "usage: $0 [--side N] [--layers N] [--out FOLDER] [--build FOLDER] [--big8 FILE]" >&2; exit 2 ;;
  esac
done

cmake -S . -B "$build" -G Ninja -DPSDKIT_BUILD_BENCH=ON >/dev/null
cmake --build "$build" --target psdkit_write_large_document psdkit_cli -j 2 >/dev/null
program=$build/bench/psdkit_write_large_document
tool=$build/tools/psdkit/psdkit
mkdir -p "$out"

summary() { grep -E "Elapsed|Maximum resident|Minor \(reclaiming|Major \(requiring|System time|User time" "$1" | sed 's/^\s*/    /'; }

for mode in sink vector; do
  flag=
  [[ $mode == vector ]] && flag="--vector --no-read"
  echo "== $side² × $layers layers, written through the $mode"
  /usr/bin/time -v -o "$out/time-$mode.txt" "$program" "$out/large.psb" --side "$side" --layers "$layers" $flag
  summary "$out/time-$mode.txt"
done
rm -f "$out/large.psb"

if [[ -n $big8 ]]; then
  echo "== psdkit rewrite $big8"
  /usr/bin/time -v -o "$out/time-rewrite.txt" "$tool" rewrite "$big8" "$out/rewritten.psd" >/dev/null
  summary "$out/time-rewrite.txt"
  echo "    file: $(stat -c %s "$big8") bytes"
  rm -f "$out/rewritten.psd"
fi
