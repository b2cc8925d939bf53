#!/usr/bin/env bash
# Builds psdkit and runs the whole test suite twice: once in a normal build, and once more
# under AddressSanitizer + UndefinedBehaviorSanitizer in a separate build folder.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh

jobs=$(nproc)
run_suite() {
  local dir=$1; shift
  cmake -S . -B "$dir" -G Ninja -DPSDKIT_WARNINGS_AS_ERRORS=ON "$@" >/dev/null
  cmake --build "$dir" -j "$jobs"
  ctest --test-dir "$dir" --output-on-failure -j "$jobs"
}

echo "== build and test (RelWithDebInfo)"
run_suite build/release -DCMAKE_BUILD_TYPE=RelWithDebInfo
if [[ -x scripts/test-tool.sh ]]; then scripts/test-tool.sh build/release/tools/psdkit/psdkit; fi
scripts/test-package.sh build/release

echo "== build and test under AddressSanitizer + UndefinedBehaviorSanitizer"
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
  run_suite build/sanitize -DCMAKE_BUILD_TYPE=Debug -DPSDKIT_SANITIZE=ON -DPSDKIT_BUILD_TOOLS=OFF
if command -v clang++-14 >/dev/null; then echo "== fuzzing smoke run"; scripts/fuzz-smoke.sh; fi
echo "== all tests passed"
