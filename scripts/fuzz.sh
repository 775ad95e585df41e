#!/usr/bin/env bash
# Builds the fuzz targets (the fuzz preset: clang, libFuzzer, AddressSanitizer
# and UndefinedBehaviorSanitizer) and runs each for SECONDS (default 60),
# starting from its committed seeds and regression inputs, then prints the
# executions and coverage of each run. New inputs go to a working corpus under
# build/fuzz/corpus/<target>; a failure leaves its input in
# build/fuzz/crashes/<target>/ (copy it into fuzz/crashes/<target>/ once fixed).
# Usage: scripts/fuzz.sh [SECONDS] [TARGET...]
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}
shift || true
scripts/deps.sh clang libfuzzer-14-dev
cmake --preset fuzz >/dev/null
declare -A corpus=([StateFuzzer]=state [PropertyFuzzer]=property
                   [HostSequenceFuzzer]=host [ToolParserFuzzer]=tool)
targets=("$@")
[ ${#targets[@]} -gt 0 ] || targets=(StateFuzzer PropertyFuzzer HostSequenceFuzzer ToolParserFuzzer)
cmake --build --preset fuzz -j 2 --target "${targets[@]}"
status=0
summary=""
for target in "${targets[@]}"; do
  name=${corpus[$target]}
  work=build/fuzz/corpus/$name
  crashes=build/fuzz/crashes/$name
  log=build/fuzz/$target.log
  mkdir -p "$work" "$crashes"
  echo "=== $target: ${seconds}s ==="
  if ! build/fuzz/fuzz/"$target" -max_total_time="$seconds" -print_final_stats=1 \
      -artifact_prefix="$crashes/" "$work" "fuzz/corpus/$name" "fuzz/crashes/$name" >"$log" 2>&1; then
    status=1
    grep -E "ERROR|runtime error|SUMMARY" "$log" | head -5 || true
  fi
  runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
  cov=$(grep -E '^#[0-9]+' "$log" | grep -o 'cov: [0-9]*' | tail -1 | cut -d' ' -f2)
  summary+=$(printf '%-20s %10s executions %6s edges %s' "$target" "${runs:-?}" "${cov:-?}" \
    "$( [ -n "$(ls -A "$crashes")" ] && echo "FAILED: see $crashes" )")$'\n'
done
echo "=== summary ==="
printf '%s' "$summary"
exit $status
