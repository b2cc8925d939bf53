#!/usr/bin/env bash
# Fails when a C++ file of the project differs from the repository's .clang-format style, and names
# each such file. Usage: scripts/check-format.sh [clang-format binary] (default: clang-format).
set -euo pipefail
cd "$(dirname "$0")/.."
formatter=${1:-${CLANG_FORMAT:-clang-format}}
if ! command -v "$formatter" >/dev/null; then
  echo "check-format: $formatter not found" >&2
  exit 2
fi
mapfile -t files < <(git ls-files -- include src tools tests fuzz bench examples python | grep -E '\.(cpp|hpp|h|cc)$')
unformatted=()
for file in "${files[@]}"; do
  if ! "$formatter" --dry-run --Werror --style=file "$file" >/dev/null 2>&1; then
    unformatted+=("$file")
  fi
done
if ((${#unformatted[@]})); then
  echo "check-format: ${#unformatted[@]} of ${#files[@]} files differ from .clang-format:" >&2
  printf '  %s\n' "${unformatted[@]}" >&2
  echo "run: $formatter -i <file>" >&2
  exit 1
fi
echo "check-format: ${#files[@]} files formatted"
