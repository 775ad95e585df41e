#!/usr/bin/env bash
# Compares the speed of vandrel with sox's own flanger and phaser on the same
# 60-second stereo 44.1 kHz file: several runs of each, median wall time, and
# the ratio vandrel / sox (below 1: vandrel is faster).
# Usage: bench/compare-sox.sh [runs]   (default 7; builds the plain preset)
set -euo pipefail
cd "$(dirname "$0")/.."
runs=${1:-7}
cmake --preset plain >/dev/null
cmake --build --preset plain --target vandrel Vandrel >/dev/null
vandrel=build/plain/tools/vandrel/vandrel

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
input=$work/input.wav
# Chords of sawtooth waves over pink noise: 60 s, stereo, 44.1 kHz, 16-bit.
sox -q -n -r 44100 -c 2 -b 16 "$input" synth 60 sawtooth 110 sawtooth 165 pinknoise vol 0.3

# Median wall time in seconds of a command run $runs times.
median_time() {
  local times=()
  for ((i = 0; i < runs; i++)); do
    local start end
    start=$(date +%s.%N)
    "$@" >/dev/null 2>&1
    end=$(date +%s.%N)
    times+=("$(awk -v a="$start" -v b="$end" 'BEGIN { printf "%.6f", b - a }')")
  done
  printf '%s\n' "${times[@]}" | sort -n | awk '{ t[NR] = $1 } END { printf "%.3f", (NR % 2) ? t[(NR + 1) / 2] : (t[NR / 2] + t[NR / 2 + 1]) / 2 }'
}

# Both write 32-bit float WAV, so neither saves time on the output format.
printf '%-10s %-34s %10s %10s %8s\n' effect "vandrel preset / sox effect" "vandrel s" "sox s" ratio
compare() {
  local label=$1 preset=$2 sox_effect=$3
  local ours theirs
  ours=$(median_time "$vandrel" --quiet "$input" -p "$preset" -o "$work/vandrel.wav")
  # The sox effect and its arguments are split into words on purpose.
  theirs=$(median_time sox "$input" -e floating-point -b 32 "$work/sox.wav" $sox_effect)
  printf '%-10s %-34s %10s %10s %8.2f\n' "$label" "$preset / $sox_effect" "$ours" "$theirs" \
    "$(awk -v a="$ours" -v b="$theirs" 'BEGIN { print a / b }')"
}
compare flanger "Flange - 1 Hz" "flanger"
compare phaser "Phaser 2" "phaser 0.8 0.74 3 0.4 0.5 -t"
compare wah-wah "Wah-Wah 1" "phaser 0.8 0.74 3 0.4 1 -s"
echo "($runs runs each; median wall time; input 60 s stereo 44.1 kHz)"
