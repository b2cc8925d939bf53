#!/usr/bin/env bash
# Builds psdkit and runs the whole test suite twice: once in a normal build (with the tool's tests,
# the interop tests and the installed-package test), and once more under AddressSanitizer +
# UndefinedBehaviorSanitizer in a separate build folder; then the concurrency tests under
# ThreadSanitizer; then a one-minute fuzzing run per target.
set -euo pipefail
cd "$(dirname "$0")/.."
PSDKIT_SETUP_FUZZ=1 scripts/setup.sh

jobs=$(nproc)
run_suite() {
  local dir=$1; shift
  cmake -S . -B "$dir" -G Ninja -DPSDKIT_WARNINGS_AS_ERRORS=ON "$@" >/dev/null
  cmake --build "$dir" -j "$jobs"
  ctest --test-dir "$dir" --output-on-failure -j "$jobs"
}

echo "== formatting: every C++ file as .clang-format says"
scripts/check-format.sh

echo "== build and test (RelWithDebInfo)"
run_suite build/release -DCMAKE_BUILD_TYPE=RelWithDebInfo -DPSDKIT_PYTHON=ON
scripts/test-package.sh build/release
echo "== Python package: the README's offline install into build/venv, then import it"
/usr/bin/python3 -m venv --system-site-packages build/venv
build/venv/bin/pip install -q --no-build-isolation ./python
(cd build && venv/bin/python -c 'import psdkit; psdkit.Document(1, 1).to_bytes()')

echo "== build and test under AddressSanitizer + UndefinedBehaviorSanitizer"
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
  run_suite build/sanitize -DCMAKE_BUILD_TYPE=Debug -DPSDKIT_SANITIZE=ON -DPSDKIT_BUILD_TOOLS=OFF
echo "== concurrency tests under ThreadSanitizer (their program only)"
cmake -S . -B build/tsan -G Ninja -DPSDKIT_WARNINGS_AS_ERRORS=ON -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DPSDKIT_BUILD_TOOLS=OFF -DCMAKE_CXX_FLAGS=-fsanitize=thread \
  -DCMAKE_EXE_LINKER_FLAGS=-fsanitize=thread -DCMAKE_SHARED_LINKER_FLAGS=-fsanitize=thread >/dev/null
cmake --build build/tsan -j "$jobs" --target psdkit_tests_concurrency
TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1 build/tsan/tests/psdkit_tests_concurrency
echo "== fuzzing smoke run (clang-14, libFuzzer)"
scripts/fuzz-smoke.sh
echo "== all tests passed"
