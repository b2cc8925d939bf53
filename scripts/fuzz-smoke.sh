#!/usr/bin/env bash
# Fuzzing smoke run for CI: builds the fuzz targets (fuzz/build.sh), makes the seed corpora and
# runs every target for PSDKIT_FUZZ_SECONDS (default 60) seconds on its seeds, two at a time.
# Fails on any crash, sanitizer report, leak, timeout or memory-limit hit; the inputs that did it
# are left in build/fuzz-smoke/<target>/ (replay them with build/fuzz/fuzz/fuzz_<target>_replay).
set -euo pipefail
cd "$(dirname "$0")/.."
seconds="${PSDKIT_FUZZ_SECONDS:-60}"
out=build/fuzz-smoke
fuzz/build.sh build/fuzz
/usr/bin/python3 fuzz/make-seeds.py "${PSDKIT_CORPUS_DIR:-../shared/corpus}" >/dev/null
rm -rf "$out"

run_target() {
  local target=$1 dict=fuzz/psd.dict
  [[ -f fuzz/$target.dict ]] && dict=fuzz/$target.dict
  mkdir -p "$out/$target/corpus"
  if build/fuzz/fuzz/fuzz_"$target" "$out/$target/corpus" "fuzz/seeds/$target" -dict="$dict" \
      -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -malloc_limit_mb=2048 \
      -artifact_prefix="$out/$target/" -print_final_stats=1 >"$out/$target.log" 2>&1; then
    echo "fuzz smoke: $target: $(grep -E '^stat::(number_of_executed_units|peak_rss_mb)' "$out/$target.log" |
      tr '\n' ' ')"
  else
    echo "fuzz smoke: $target FAILED; log $out/$target.log:" >&2
    grep -E 'ERROR|SUMMARY|psdkit .* target|artifact' "$out/$target.log" >&2 || tail -20 "$out/$target.log" >&2
    return 1
  fi
}

failed=0
pids=()
for target in document descriptor channels propertylist metadata render; do
  run_target "$target" & pids+=($!)
  if ((${#pids[@]} == 2)); then
    wait "${pids[0]}" || failed=1
    pids=("${pids[1]}")
  fi
done
for pid in "${pids[@]}"; do wait "$pid" || failed=1; done
exit "$failed"
