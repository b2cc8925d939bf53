#!/usr/bin/env bash
# The main job: builds the psdkit command-line tool and shows what it does on the sample document
# that ships in samples/ (info, export to PNGs and an HTML page), then builds a document from PNGs
# drawn on the spot (create) and prints it as JSON (info --json).
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DPSDKIT_BUILD_TESTS=OFF >/dev/null
cmake --build build/release -j "$(nproc)" --target psdkit_cli >/dev/null
tool=build/release/tools/psdkit/psdkit
demo=build/demo
rm -rf "$demo"
mkdir -p "$demo"

step() { printf '\n== %s\n' "$*"; }

"$tool" --version
step "psdkit info samples/sample.psd"
"$tool" info samples/sample.psd
step "psdkit export samples/sample.psd $demo/sample"
"$tool" export samples/sample.psd "$demo/sample"
echo "Open $demo/sample/index.html in a browser to see the layer tree with thumbnails."

step "drawing five PNG layers into $demo/png"
/usr/bin/python3 scripts/sample_images.py "$demo/png"
ls "$demo/png"
step "psdkit create $demo/made.psd --size 240x160 (five layers, two of them in a group)"
p=$demo/png
"$tool" create "$demo/made.psd" --size 240x160 "$p/sky.png:Sky" "$p/sun.png:Sun@160,12#90" "$p/hill.png:Hill@0,90" \
  "[group:House" "$p/house.png:Walls@40,96" "$p/roof.png:Roof@34,70" "]"
if cmp -s "$demo/made.psd" samples/sample.psd; then
  echo "(the same bytes as samples/sample.psd, which was made by this command)"
fi
step "psdkit info --json $demo/made.psd"
"$tool" info --json "$demo/made.psd"

corpus_file=../shared/corpus/agpsd-groups.psd
if [[ -f $corpus_file ]]; then
  step "psdkit info $corpus_file (a file saved by another application)"
  "$tool" info "$corpus_file"
fi
