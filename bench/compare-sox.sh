#!/usr/bin/env bash
# Compares the speed of vandrel with sox's own flanger and phaser on the same
# 60-second stereo 44.1 kHz file: several runs of each, the median wall time
# and the median processor time (user + system), and the ratio vandrel / sox
# of each (below 1: vandrel is faster).
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

median() { sort -n | awk '{ t[NR] = $1 } END { printf "%.3f", (NR % 2) ? t[(NR + 1) / 2] : (t[NR / 2] + t[NR / 2 + 1]) / 2 }'; }

# Runs a command $runs times; prints "wall cpu", each the median in seconds.
# Outputs are removed before each run, so every run writes a new file.
measure() {
  local walls=() cpus=() line
  for ((i = 0; i < runs; i++)); do
    rm -f "$work"/out-*.wav
    sync
    line=$( { TIMEFORMAT='%R %U %S'; time "$@" >/dev/null 2>&1; } 2>&1 )
    read -r real user sys <<<"$line"
    walls+=("$real")
    cpus+=("$(awk -v u="$user" -v s="$sys" 'BEGIN { print u + s }')")
  done
  echo "$(printf '%s\n' "${walls[@]}" | median) $(printf '%s\n' "${cpus[@]}" | median)"
}

ratio() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.2f", (b > 0) ? a / b : 0 }'; }

printf '%-8s %-30s | %9s %9s %6s | %9s %9s %6s\n' effect "vandrel preset / sox effect" \
  "wall us" "wall sox" ratio "cpu us" "cpu sox" ratio
compare() {
  local label=$1 preset=$2 sox_effect=$3 ours theirs
  read -r ours_wall ours_cpu <<<"$(measure "$vandrel" --quiet "$input" -p "$preset" -o "$work/out-vandrel.wav")"
  # The sox effect and its arguments are split into words on purpose; both
  # programs write 32-bit float WAV.
  read -r sox_wall sox_cpu <<<"$(measure sox "$input" -e floating-point -b 32 "$work/out-sox.wav" $sox_effect)"
  printf '%-8s %-30s | %9s %9s %6s | %9s %9s %6s\n' "$label" "$preset / ${sox_effect%% *}" \
    "$ours_wall" "$sox_wall" "$(ratio "$ours_wall" "$sox_wall")" \
    "$ours_cpu" "$sox_cpu" "$(ratio "$ours_cpu" "$sox_cpu")"
}
compare flanger "Flange - 1 Hz" "flanger"
compare phaser "Phaser 2" "phaser 0.8 0.74 3 0.4 0.5 -t"
compare wah-wah "Wah-Wah 1" "phaser 0.8 0.74 3 0.4 1 -s"
echo "($runs runs each, medians in seconds; input 60 s stereo 44.1 kHz; \"us\" is vandrel)"
