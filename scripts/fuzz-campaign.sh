#!/usr/bin/env bash
# The long fuzzing campaign: every target for PSDKIT_FUZZ_SECONDS (default 720) seconds, two
# targets at a time (one per core), so the default run is one CPU-hour. Targets run in libFuzzer's
# fork mode and carry on after a finding; what they find is kept:
#   fuzz/out/corpus/<target>/     the grown corpus (reused by the next campaign)
#   fuzz/out/artifacts/<target>/  crash-*, leak-*, timeout-*, oom-* inputs
#   fuzz/out/logs/<target>.log    libFuzzer's output
# Ends with a table of executions per second, coverage (cov) and features (ft) per target, and
# fails when any target left a finding.
#   scripts/fuzz-campaign.sh [TARGET...]
set -euo pipefail
cd "$(dirname "$0")/.."
seconds="${PSDKIT_FUZZ_SECONDS:-720}"
targets=("$@")
((${#targets[@]})) || targets=(document descriptor channels propertylist metadata)
out=fuzz/out
[[ "${PSDKIT_FUZZ_SKIP_BUILD:-0}" == 1 ]] || fuzz/build.sh build/fuzz
/usr/bin/python3 fuzz/make-seeds.py "${PSDKIT_CORPUS_DIR:-../shared/corpus}" >/dev/null
mkdir -p "$out/logs"

run_target() {
  local target=$1 dict=fuzz/psd.dict
  [[ -f fuzz/$target.dict ]] && dict=fuzz/$target.dict
  mkdir -p "$out/corpus/$target" "$out/artifacts/$target"
  build/fuzz/fuzz/fuzz_"$target" "$out/corpus/$target" "fuzz/seeds/$target" -dict="$dict" \
    -fork=1 -ignore_crashes=1 -ignore_timeouts=1 -ignore_ooms=1 -use_value_profile=1 \
    -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -malloc_limit_mb=2048 \
    -artifact_prefix="$out/artifacts/$target/" -print_final_stats=1 >"$out/logs/$target.log" 2>&1 || true
}

pids=()
for target in "${targets[@]}"; do
  run_target "$target" & pids+=($!)
  if ((${#pids[@]} == 2)); then
    wait "${pids[0]}"
    pids=("${pids[1]}")
  fi
done
for pid in "${pids[@]}"; do wait "$pid"; done

findings=0
printf '%-13s %10s %8s %8s %8s %8s %s\n' target execs exec/s cov ft corpus findings
for target in "${targets[@]}"; do
  # The last progress line of fork mode:
  # "#<execs>: cov: C ft: F corp: N exec/s E oom/timeout/crash: a/b/c time: Ts job: …";
  # its exec/s is the last job's, so the rate shown is executions over the whole run.
  line=$(grep -E '^#[0-9]+: cov:' "$out/logs/$target.log" | tail -1 || true)
  read -r execs cov ft corp time <<<"$(sed -E \
    's/^#([0-9]+): cov: ([0-9]+) ft: ([0-9]+) corp: ([0-9]+) .* time: ([0-9]+)s.*/\1 \2 \3 \4 \5/' <<<"$line")"
  rate='?'
  [[ "${time:-0}" =~ ^[1-9][0-9]*$ ]] && rate=$((execs / time))
  found=$(find "$out/artifacts/$target" -type f | wc -l)
  findings=$((findings + found))
  printf '%-13s %10s %8s %8s %8s %8s %s\n' "$target" "${execs:-?}" "$rate" "${cov:-?}" "${ft:-?}" "${corp:-?}" "$found"
done
((findings == 0))
