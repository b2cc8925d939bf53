#!/usr/bin/env bash
# End-to-end comparison of psdkit with two independent PSD readers, psd-tools (Debian's
# python3-psd-tools) and ag-psd (npm), on the same large documents in the same run.
#
#   bench/compare.sh [--runs N] [--slow-runs N] [--out FOLDER] [--build FOLDER]
#
# 1. installs ag-psd into tests/interop/node_modules from the committed lockfile (npm ci);
# 2. builds psdkit_read_document in a Release build (default build/compare);
# 3. makes the documents once (kept in --out, default build/compare/documents): ag-psd writes a
#    4096 × 4096 8-bit document with 24 pixel layers, once with PackBits and once with ZIP layer
#    channels; psdkit turns the first into a 16-bit one (ZIP with prediction), since ag-psd writes
#    only 8-bit documents;
# 4. times, as whole processes with hyperfine: psdkit (document from the bytes, every layer image,
#    the composite), ag-psd (readPsd with useImageData) and psd-tools (topil() of every layer and
#    of the composite); --runs for psdkit and ag-psd (default 10), --slow-runs for psd-tools
#    (default 3; it needs half a minute per run on the 16-bit document);
# 5. measures each tool's peak resident memory with /usr/bin/time, and prints psdkit's speed as a
#    ratio to each peer and its peak memory against 1.1 × (2 × file size + decoded pixels).
#
# Needs hyperfine, node/npm and python3-psd-tools: PSDKIT_SETUP_BENCH=1 scripts/setup.sh installs them.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)

runs=10
slow_runs=3
build=build/compare
out=
while (($#)); do
  case $1 in
    --runs) runs=$2; shift 2 ;;
    --slow-runs) slow_runs=$2; shift 2 ;;
    --out) out=$2; shift 2 ;;
    --build) build=$2; shift 2 ;;
    *) echo "usage: $0 [--runs N] [--slow-runs N] [--out FOLDER] [--build FOLDER]" >&2; exit 2 ;;
  esac
done
out=${out:-$build/documents}

for tool in hyperfine node npm /usr/bin/time; do
  if ! command -v "$tool" >/dev/null; then
    echo "compare: $tool is missing (PSDKIT_SETUP_BENCH=1 scripts/setup.sh)" >&2
    exit 1
  fi
done
/usr/bin/python3 -c 'import psd_tools' 2>/dev/null ||
  { echo "compare: psd-tools is missing (scripts/setup.sh installs python3-psd-tools)" >&2; exit 1; }

if [[ ! -d tests/interop/node_modules/ag-psd ]]; then
  echo "== installing ag-psd (npm ci)"
  (cd tests/interop && npm ci --no-audit --no-fund --loglevel=error)
fi

echo "== building psdkit_read_document (Release) in $build"
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DPSDKIT_BUILD_BENCH=ON \
  -DPSDKIT_BUILD_TESTS=OFF -DPSDKIT_BUILD_TOOLS=OFF >/dev/null
cmake --build "$build" --target psdkit_read_document -j 2 >/dev/null
reader=$root/$build/bench/psdkit_read_document

mkdir -p "$out"
if [[ ! -f $out/bench-8bit-rle.psd || ! -f $out/bench-8bit-zip.psd ]]; then
  echo "== writing the 8-bit documents with ag-psd"
  node bench/make-documents.mjs "$out"
fi
if [[ ! -f $out/bench-16bit-zip.psd ]]; then
  echo "== widening the PackBits document to 16 bits with psdkit"
  "$reader" "$out/bench-8bit-rle.psd" --widen16 "$out/bench-16bit-zip.psd"
fi

results=$build/results
mkdir -p "$results"
for name in bench-8bit-rle bench-8bit-zip bench-16bit-zip; do
  file=$out/$name.psd
  agpsd_args=()
  # ag-psd refuses the composite of 16- and 32-bit files with merged transparency (which psdkit
  # writes): it reads the layers only there, doing less work than the others.
  [[ $name == bench-16bit-zip ]] && agpsd_args=(--skip-composite)
  psdkit_cmd="$reader $file"
  agpsd_cmd="node $root/bench/read-agpsd.mjs $file ${agpsd_args[*]:-}"
  psdtools_cmd="/usr/bin/python3 $root/bench/read-psdtools.py $file"
  echo "== $name.psd ($(du -m "$file" | cut -f1) MB)"
  hyperfine -N --style basic --warmup 1 --runs "$runs" --export-json "$results/$name-fast.json" \
    -n psdkit "$psdkit_cmd" -n ag-psd "$agpsd_cmd"
  hyperfine -N --style basic --runs "$slow_runs" --export-json "$results/$name-slow.json" \
    -n psd-tools "$psdtools_cmd"
  for tool in psdkit ag-psd psd-tools; do
    case $tool in
      psdkit) cmd=$psdkit_cmd ;;
      ag-psd) cmd=$agpsd_cmd ;;
      psd-tools) cmd=$psdtools_cmd ;;
    esac
    # shellcheck disable=SC2086
    /usr/bin/time -f %M -o "$results/$name-$tool.rss" $cmd
  done
  "$reader" "$file" --stats >"$results/$name.stats"
done

/usr/bin/python3 bench/report.py "$results" bench-8bit-rle:10 bench-8bit-zip:5 bench-16bit-zip:5
