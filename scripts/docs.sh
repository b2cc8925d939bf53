#!/usr/bin/env bash
# Builds the psdkit API reference with Doxygen into build/docs/html (open index.html).
# The reference is generated from the headers `cmake --install` installs, so it covers exactly the
# public interface. Fails when Doxygen reports any warning, an undocumented public member included.
# Doxygen comes from Debian's doxygen package (PSDKIT_SETUP_DOCS=1 scripts/setup.sh installs it).
set -euo pipefail
cd "$(dirname "$0")/.."
repo=$PWD
PSDKIT_SETUP_DOCS=1 scripts/setup.sh

build=$repo/build/docs
cmake -S . -B "$build/cmake" -G Ninja -DPSDKIT_BUILD_TESTS=OFF -DPSDKIT_BUILD_TOOLS=OFF >/dev/null
rm -rf "$build/include" "$build/html"
cmake --install "$build/cmake" --component psdkit_headers --prefix "$build" >/dev/null

export PSDKIT_VERSION=$(sed -n 's/^project(psdkit VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
export PSDKIT_DOCS_OUTPUT=$build
export PSDKIT_DOCS_INCLUDE=$build/include
export PSDKIT_DOCS_MAINPAGE=$repo/docs/api/mainpage.md
export PSDKIT_DOCS_MAINPAGE_DIR=$repo/docs/api
doxygen docs/Doxyfile

if [[ -s $build/warnings.log ]]; then
    echo "docs: Doxygen warnings ($(wc -l <"$build/warnings.log")):" >&2
    cat "$build/warnings.log" >&2
    exit 1
fi
echo "docs: $build/html/index.html"
