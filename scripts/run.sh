#!/usr/bin/env bash
# The main job: builds the psdkit command-line tool and shows what it does on a sample document.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DPSDKIT_BUILD_TESTS=OFF >/dev/null
cmake --build build/release -j "$(nproc)" --target psdkit_cli
build/release/tools/psdkit/psdkit --version
