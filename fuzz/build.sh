#!/usr/bin/env bash
# Builds the fuzz targets with clang-14, libFuzzer, AddressSanitizer and UndefinedBehaviorSanitizer
# in a build folder of their own (default build/fuzz), leaving the main g++ build untouched.
# Every library source is instrumented for coverage; the targets are fuzz_<name> (libFuzzer) and
# fuzz_<name>_replay (runs a target on files, for the debugger).
#   fuzz/build.sh [BUILD-DIR]
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
build="${1:-$root/build/fuzz}"

PSDKIT_SETUP_FUZZ=1 "$root/scripts/setup.sh" # clang-14 and the libFuzzer runtime, when missing

sanitizers="-fsanitize=address,undefined -fno-sanitize-recover=undefined"
CC=clang-14 CXX=clang++-14 cmake -S "$root" -B "$build" -G Ninja \
  -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DCMAKE_CXX_FLAGS="-fsanitize=fuzzer-no-link $sanitizers -fno-omit-frame-pointer -gline-tables-only" \
  -DCMAKE_EXE_LINKER_FLAGS="$sanitizers" \
  -DPSDKIT_FUZZ=ON -DPSDKIT_BUILD_TESTS=OFF -DPSDKIT_BUILD_TOOLS=OFF -DPSDKIT_SANITIZE=OFF -DPSDKIT_BUILD_SHARED=OFF >/dev/null
cmake --build "$build" -j "${PSDKIT_FUZZ_JOBS:-2}"
