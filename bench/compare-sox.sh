#!/usr/bin/env bash
# Compares the speed of vandrel with its peers on the same 60-second stereo
# 44.1 kHz file, whole process (start-up, reading, effect, writing), several
# runs of each, median wall and processor time (user + system):
#   1. vandrel against sox's own flanger and phaser, and against the LADSPA
#      flangers and phasers that Debian packages ship (tap-plugins,
#      swh-plugins, caps), run through sox's ladspa effect; "x faster" is the
#      peer's processor time over vandrel's;
#   2. vandrel with a parameter ramped over the whole file (-r) against the
#      same preset without automation; "x fixed" is the ratio.
# The LV2 peers are compared plugin-only by bench/compare-lv2.sh.
# Usage: bench/compare-sox.sh [runs]   (default 7; builds the plain preset and
# installs sox and the LADSPA packages when they are missing)
set -euo pipefail
cd "$(dirname "$0")/.."
runs=${1:-7}

scripts/deps.sh ladspa-sdk tap-plugins swh-plugins caps
export LADSPA_PATH=${LADSPA_PATH:-/usr/lib/ladspa}

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

ours() { measure "$vandrel" --quiet "$input" -o "$work/out-vandrel.wav" "$@"; }
# The sox effect and its arguments are split into words on purpose; all
# programs write 32-bit float WAV.
theirs() { measure sox "$input" -e floating-point -b 32 "$work/out-sox.wav" $1; }

row() { # label, peer, ours "wall cpu", theirs "wall cpu"
  local ow oc tw tc
  read -r ow oc <<<"$3"
  read -r tw tc <<<"$4"
  printf '%-8s %-40s | %8s %8s | %8s %8s | %8s\n' "$1" "$2" "$ow" "$tw" "$oc" "$tc" "$(ratio "$tc" "$oc")"
}

printf '%-8s %-40s | %8s %8s | %8s %8s | %8s\n' effect "vandrel preset / peer" "wall us" "wall" \
  "cpu us" "cpu" "x faster"
echo "--- fixed costs: vandrel --bypass / sox conversion without an effect"
row none "--bypass / (none)" "$(ours --bypass)" "$(theirs "")"

compare() { # label, preset, peer effects...
  local label=$1 preset=$2 mine
  shift 2
  mine=$(ours -p "$preset")
  for effect in "$@"; do
    row "$label" "$preset / ${effect}" "$mine" "$(theirs "$effect")"
  done
}
echo "--- sox's own effects, then LADSPA plug-ins through sox"
compare flanger "Flange - 1 Hz" "flanger" \
  "ladspa tap_chorusflanger" "ladspa -r flanger_1191 flanger" \
  "ladspa -r retro_flange_1208 retroFlange" "ladspa -r dj_flanger_1438 djFlanger 0 1 4 50"
compare phaser "Phaser 2" "phaser 0.8 0.74 3 0.4 0.5 -t" \
  "ladspa -r phasers_1217 lfoPhaser" "ladspa -r caps PhaserII"
compare wah-wah "Wah-Wah 1" "phaser 0.8 0.74 3 0.4 1 -s"

echo
printf '%-8s %-40s | %8s %8s | %8s %8s | %8s\n' effect "vandrel preset and ramp" "wall ramp" \
  "wall" "cpu ramp" "cpu" "x fixed"
ramp() { # label, preset, ramp
  local rw rc fw fc
  read -r rw rc <<<"$(ours -p "$2" -r "$3")"
  read -r fw fc <<<"$(ours -p "$2")"
  printf '%-8s %-40s | %8s %8s | %8s %8s | %8s\n' "$1" "$2 -r $3" "$rw" "$fw" "$rc" "$fc" \
    "$(ratio "$rc" "$fc")"
}
ramp flanger "Flange - 1 Hz" "Modulation rate:0.2:6:0:60s"
ramp phaser "Phaser 2" "Modulation rate:0.2:6:0:60s"
ramp phaser "Phaser 2" "Center frequency:300:3000:0:60s"
ramp wah-wah "Wah-Wah 1" "Center frequency:300:3000:0:60s"
echo "($runs runs each, medians in seconds; input 60 s stereo 44.1 kHz; \"us\" is vandrel;"
echo " x faster = peer cpu / vandrel cpu; x fixed = cpu with the ramp / cpu without)"
