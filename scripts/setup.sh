#!/usr/bin/env bash
# Installs the Debian packages psdkit needs to build, test and fuzz, when they are missing.
# Idempotent: a machine that has everything runs no apt-get at all.
set -euo pipefail

packages=(
  cmake ninja-build g++ pkg-config
  libdeflate-dev liblcms2-dev libplist-dev libexiv2-dev libutf8proc-dev
  libspng-dev nlohmann-json3-dev
  libgtest-dev libgmock-dev libbenchmark-dev libssl-dev clang-format
  python3-psd-tools imagemagick
  chromium
  python3-dev python3-pybind11 pybind11-dev python3-numpy python3-pytest python3-setuptools python3-wheel python3-venv
)
# chromium: the export page's screenshot test loads index.html headless.
# The interop tests run ag-psd under Node.js; a Node.js the machine already has is used as it is.
if ! command -v node >/dev/null || ! command -v npm >/dev/null; then
  packages+=(nodejs npm)
fi
if [[ "${PSDKIT_SETUP_BENCH:-0}" == 1 ]]; then
  packages+=(hyperfine)
fi
if [[ "${PSDKIT_SETUP_FUZZ:-0}" == 1 ]]; then
  packages+=(clang-14 libclang-rt-14-dev libfuzzer-14-dev)
fi
if [[ "${PSDKIT_SETUP_DOCS:-0}" == 1 ]]; then
  packages+=(doxygen)
fi

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done

if ((${#missing[@]})); then
  echo "setup: installing ${missing[*]}" >&2
  sudo_cmd=()
  if [[ $(id -u) -ne 0 ]]; then sudo_cmd=(sudo); fi
  export DEBIAN_FRONTEND=noninteractive
  "${sudo_cmd[@]}" apt-get update -qq
  "${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi
