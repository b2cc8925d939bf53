#!/usr/bin/env bash
# The Python package against psd-tools on the 8-bit 4096 × 4096 benchmark document (24 layers),
# the one bench/compare.sh writes with ag-psd. Installs the package into build/venv with the
# README's line (Debian's /usr/bin/python3), makes the document when missing, and prints times,
# ratios and peak memory (bench/python_bench.py).
#
#   bench/python-compare.sh [--runs N] [--slow-runs N]
set -euo pipefail
cd "$(dirname "$0")/.."
documents=build/compare/documents
file=$documents/bench-8bit-rle.psd
if [[ ! -f $file ]]; then
  if [[ ! -d tests/interop/node_modules/ag-psd ]]; then
    (cd tests/interop && npm ci --no-audit --no-fund --loglevel=error)
  fi
  mkdir -p "$documents"
  node bench/make-documents.mjs "$documents"
fi
if [[ ! -x build/venv/bin/python ]]; then
  /usr/bin/python3 -m venv --system-site-packages build/venv
fi
build/venv/bin/pip install -q --no-build-isolation ./python
build/venv/bin/python bench/python_bench.py "$file" "$@"
