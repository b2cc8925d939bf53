#!/usr/bin/env bash
# Tests psdkit as an installed package, the way a host project meets it:
#  1. installs a build into a temporary prefix;
#  2. compiles every installed header on its own against that prefix alone, and checks that none
#     of them reaches a header of a dependency (Exiv2, libplist, lcms2, libdeflate, utf8proc);
#  3. builds examples/ against the prefix four ways: CMake find_package (static and shared
#     library) and pkg-config (shared and static);
#  4. runs each on a corpus document, checks that all four write the same bytes, and reads the
#     written file back with the installed psdkit tool and with psd-tools;
#  5. builds the API reference, which fails on any undocumented public member.
# usage: scripts/test-package.sh [BUILD_DIR]   (default build/release, already built)
set -euo pipefail
cd "$(dirname "$0")/.."
repo=$PWD
build=$(realpath "${1:-build/release}")
corpus_file=$repo/../shared/corpus/oiio-psd-Layers_8bit_RGB.psd
jobs=$(nproc)

work=$(mktemp -d "${TMPDIR:-/tmp}/psdkit-package.XXXXXX")
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix
fail() { echo "test-package: $*" >&2; exit 1; }

echo "== install into a temporary prefix"
cmake --install "$build" --prefix "$prefix" >/dev/null
libdir=$(dirname "$(find "$prefix" -name libpsdkit.a)")
[[ -f $libdir/libpsdkit.a ]] || fail "no static library installed"
version=$(sed -n 's/^project(psdkit VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
[[ -n $version ]] || fail "no version in CMakeLists.txt"
soversion=$(cut -d. -f1-2 <<<"$version")
[[ $version == 0.* ]] || soversion=${version%%.*}
soname=$(readelf -d "$libdir/libpsdkit.so" | sed -n 's/.*Library soname: \[\(.*\)\]/\1/p')
[[ $soname == "libpsdkit.so.$soversion" ]] || fail "shared library SONAME is '$soname'"
[[ $("$prefix/bin/psdkit" --version) == "psdkit $version" ]] || fail "psdkit --version does not say $version"

echo "== every installed header compiles alone and includes no dependency's header"
headers=$(cd "$prefix/include" && find psdkit -name '*.hpp' | sort)
[[ $(wc -l <<<"$headers") -ge 40 ]] || fail "too few headers installed"
check_header() { # $1: header relative to the include root
    local name=${1//\//_}
    echo "#include <$1>" >"$work/$name.cpp"
    c++ -std=c++20 -fsyntax-only -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror \
        -I"$prefix/include" -MD -MF "$work/$name.d" "$work/$name.cpp" || { echo "$1 does not compile alone" >&2; return 1; }
    local outside
    outside=$(tr -s ' \\' '\n' <"$work/$name.d" | grep '^/' | grep -v "^$prefix/\|^$work/" \
        | grep -E '/(exiv2|plist|lcms2?|libdeflate|utf8proc|spng|nlohmann)' || true)
    [[ -z $outside ]] || { echo "$1 reaches a dependency's header: $outside" >&2; return 1; }
}
export -f check_header
export prefix work
xargs -P "$jobs" -I{} bash -c 'check_header "$@"' _ {} <<<"$headers" || fail "public header check failed"

echo "== the umbrella header names every public header, and the install holds nothing else"
for header in $headers; do
    case $header in psdkit/psdkit.hpp) continue ;; esac
    grep -qx "#include \"$header\"" "$prefix/include/psdkit/psdkit.hpp" \
        || fail "psdkit/psdkit.hpp does not include $header"
done
(cd include && find psdkit -name '*.hpp' | sort) | diff - <(grep -v '^psdkit/Version.hpp$' <<<"$headers") \
    || fail "the installed headers differ from include/psdkit"

echo "== the shared library exports psdkit's public API and nothing else"
exported=$(nm -DC --defined-only "$libdir/libpsdkit.so" | cut -d' ' -f3-)
strays=$(grep -v '^\(typeinfo for \|typeinfo name for \|vtable for \)\?psdkit::' <<<"$exported" \
    | grep -v '^PSDKIT_\|^_init$\|^_fini$' || true)
[[ -z $strays ]] || fail "the shared library exports symbols outside psdkit: $(head -5 <<<"$strays")"
internal=$(grep -E 'psdkit::([A-Za-z]+::)*detail::' <<<"$exported" || true)
[[ -z $internal ]] || fail "the shared library exports internal symbols: $(head -5 <<<"$internal")"

echo "== build the example: find_package (static, shared) and pkg-config (shared, static)"
for kind in static shared; do
    shared=OFF; [[ $kind == shared ]] && shared=ON
    cmake -S examples -B "$work/cmake-$kind" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" \
        -DPSDKIT_EXAMPLE_SHARED=$shared -DCMAKE_BUILD_TYPE=Release >/dev/null
    cmake --build "$work/cmake-$kind" >/dev/null
    cp "$work/cmake-$kind/edit_layers" "$work/edit_layers-cmake-$kind"
done
export PKG_CONFIG_PATH=$libdir/pkgconfig
[[ $(pkg-config --modversion psdkit) == "$version" ]] || fail "psdkit.pc does not say $version"
make -s -C examples OUT="$work/edit_layers-pkgconfig-shared" >/dev/null
make -s -C examples OUT="$work/edit_layers-pkgconfig-static" STATIC=1 >/dev/null
for program in "$work"/edit_layers-*-static; do
    ! readelf -d "$program" | grep -q 'libpsdkit\.so' || fail "$program links the shared library"
done

echo "== run the example on a corpus document"
for program in "$work"/edit_layers-*; do
    LD_LIBRARY_PATH=$libdir "$program" "$corpus_file" "$program.psd" >"$program.log"
done
for written in "$work"/edit_layers-*.psd; do
    cmp -s "$written" "$work/edit_layers-cmake-static.psd" || fail "$written differs from the others"
done
out=$work/edit_layers-cmake-static.psd
grep -q '^  Layer2 ' "$work/edit_layers-cmake-static.log" || fail "the example listed no layers"

echo "== read the written file back with the psdkit tool and with psd-tools"
"$prefix/bin/psdkit" info --json "$out" | /usr/bin/python3 -c '
import json, sys
doc = json.load(sys.stdin)
layers = doc["layers"]
names = [layer["name"] for layer in layers]
assert names == ["Blue_Lagoon", "Layer", "Layer2", "Painted ramp"], names
assert abs(layers[2]["opacity"] - 0.5) < 1 / 255 and layers[1]["opacity"] == 1.0, layers[2]["opacity"]
assert layers[3]["contentsRect"] == [0, 0, 27, 32], layers[3]["contentsRect"]
'
/usr/bin/python3 - "$out" <<'EOF'
import sys
from psd_tools import PSDImage
psd = PSDImage.open(sys.argv[1])
layers = list(psd)
assert [layer.name for layer in layers] == ["Blue_Lagoon", "Layer", "Layer2", "Painted ramp"]
assert [layer.opacity for layer in layers] == [255, 255, 127, 255], [layer.opacity for layer in layers]
ramp = layers[3]
assert ramp.bbox == (0, 0, 32, 27), ramp.bbox
pixels = (ramp.numpy() * 255).round().astype(int)
assert pixels.shape == (27, 32, 4), pixels.shape
for (x, y) in [(0, 0), (31, 0), (0, 26), (31, 26), (17, 9)]:
    expected = [x * 255 // 32, y * 255 // 27, 96, 255]
    assert list(pixels[y, x]) == expected, (x, y, list(pixels[y, x]), expected)
EOF
echo "== API reference"
scripts/docs.sh
echo "== package test passed"
