#!/usr/bin/env bash
# Compares the speed of vandrel with its peers on the same 60-second stereo
# 44.1 kHz file, whole process (start-up, reading, effect, writing), several
# runs of each, median wall and processor time (user + system, counted by
# bench/ProcessTime.cpp for the program alone, without a shell's fork); the
# two programs of a row run turn about, so that a busy spell of the machine
# falls on both alike. Each ratio is given twice: from the medians, and from
# each program's fastest run, which busy spells cannot lengthen (on a shared
# virtual machine some runs of the same command take a third longer than the
# rest, writing to /dev/null as much as to a file):
#   1. vandrel against sox's own flanger and phaser, and against the LADSPA
#      flangers and phasers that Debian packages ship (tap-plugins,
#      swh-plugins, caps), run through sox's ladspa effect, on a 16-bit file,
#      then sox's flanger and phaser again on the same sound as 32-bit
#      floats; "x faster" is the peer's processor time over vandrel's;
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
cmake --build --preset plain --target vandrel Vandrel process-time >/dev/null
vandrel=build/plain/tools/vandrel/vandrel
timer=build/plain/bench/process-time

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
input=$work/input.wav
# Chords of sawtooth waves over pink noise: 60 s, stereo, 44.1 kHz, 16-bit.
sox -q -n -r 44100 -c 2 -b 16 "$input" synth 60 sawtooth 110 sawtooth 165 pinknoise vol 0.3
# The same sound as 32-bit floats, for the rows that read a float file.
float_input=$work/input-float.wav
sox -q "$input" -e floating-point -b 32 "$float_input"

# The median of numbers read one per line, to a tenth of a millisecond: the
# ratios below come from these, and whole milliseconds would skew them.
median() { sort -n | awk '{ t[NR] = $1 } END { printf "%.4f", (NR % 2) ? t[(NR + 1) / 2] : (t[NR / 2] + t[NR / 2 + 1]) / 2 }'; }
fastest() { sort -n | awk 'NR == 1 { printf "%.4f", $1 }'; }

# Times one run of a command; prints "wall cpu" in seconds. The output is
# removed first, so every run writes a new file.
once() {
  rm -f "$work"/out-*.wav
  "$timer" "$@"
}

# Runs the commands held in the arrays named $1 and $2 $runs times, turn
# about; prints "wall cpu fastest wall cpu fastest": the medians and the
# least processor time of the first command, then the second's.
alternate() {
  local -n first_=$1 second_=$2
  local walls1=() cpus1=() walls2=() cpus2=() w c
  for ((i = 0; i < runs; i++)); do
    sync
    read -r w c <<<"$(once "${first_[@]}")"
    walls1+=("$w") cpus1+=("$c")
    read -r w c <<<"$(once "${second_[@]}")"
    walls2+=("$w") cpus2+=("$c")
  done
  echo "$(printf '%s\n' "${walls1[@]}" | median) $(printf '%s\n' "${cpus1[@]}" | median)" \
    "$(printf '%s\n' "${cpus1[@]}" | fastest)" \
    "$(printf '%s\n' "${walls2[@]}" | median) $(printf '%s\n' "${cpus2[@]}" | median)" \
    "$(printf '%s\n' "${cpus2[@]}" | fastest)"
}

ratio() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.2f", (b > 0) ? a / b : 0 }'; }

# Fills the array named $1 with a vandrel or a sox command line. The sox
# effect and its arguments are split into words on purpose; all programs
# write 32-bit float WAV.
# shellcheck disable=SC2034  # the arrays are filled through name references
ours() {
  local -n ours_=$1
  shift
  ours_=("$vandrel" --quiet "$input" -o "$work/out-vandrel.wav" "$@")
}
# shellcheck disable=SC2034,SC2206
theirs() {
  local -n theirs_=$1
  theirs_=(sox "$input" -e floating-point -b 32 "$work/out-sox.wav" $2)
}

print_row() { printf '%-8s %-44s | %8s %8s | %8s %8s | %8s %8s\n' "$@"; }

# label, vandrel's part, the peer's part, the two commands' array names
row() {
  local ow oc of tw tc tf
  read -r ow oc of tw tc tf <<<"$(alternate "$4" "$5")"
  print_row "$1" "$2 / $3" "$ow" "$tw" "$oc" "$tc" "$(ratio "$tc" "$oc")" "$(ratio "$tf" "$of")"
}

print_row effect "vandrel preset / peer" "wall us" "wall" "cpu us" "cpu" "x faster" "fastest"
echo "--- fixed costs: vandrel --bypass / sox conversion without an effect"
ours mine --bypass
theirs peer ""
row none --bypass "(none)" mine peer

compare() { # label, preset, peer effects...
  local label=$1 preset=$2 effect
  shift 2
  ours mine -p "$preset"
  for effect in "$@"; do
    theirs peer "$effect"
    row "$label" "$preset" "$effect" mine peer
  done
}
echo "--- sox's own effects, then LADSPA plug-ins through sox"
compare flanger "Flange - 1 Hz" "flanger" \
  "ladspa tap_chorusflanger" "ladspa -r flanger_1191 flanger" \
  "ladspa -r retro_flange_1208 retroFlange" "ladspa -r dj_flanger_1438 djFlanger 0 1 4 50"
# Phaser 1 sweeps at 0.5 Hz, as sox's phaser here does; Phaser 2 at 4.5 Hz,
# where the sweep crosses a table interval every two or three frames.
compare phaser "Phaser 1" "phaser 0.8 0.74 3 0.4 0.5 -t" \
  "ladspa -r phasers_1217 lfoPhaser" "ladspa -r caps PhaserII"
compare phaser "Phaser 2" "phaser 0.8 0.74 3 0.4 0.5 -t"
compare wah-wah "Wah-Wah 1" "phaser 0.8 0.74 3 0.4 1 -s"
echo "--- sox's own flanger and phaser on the 32-bit float file: reading it costs both more"
input=$float_input
compare flanger "Flange - 1 Hz" "flanger"
compare phaser "Phaser 1" "phaser 0.8 0.74 3 0.4 0.5 -t"
input=$work/input.wav

echo
print_row effect "vandrel preset and ramp" "wall ramp" "wall" "cpu ramp" "cpu" "x fixed" "fastest"
ramp() { # label, preset, ramp
  local rw rc rf fw fc ff
  ours ramped -p "$2" -r "$3"
  ours fixed -p "$2"
  read -r rw rc rf fw fc ff <<<"$(alternate ramped fixed)"
  print_row "$1" "$2 -r $3" "$rw" "$fw" "$rc" "$fc" "$(ratio "$rc" "$fc")" "$(ratio "$rf" "$ff")"
}
ramp flanger "Flange - 1 Hz" "Modulation rate:0.2:6:0:60s"
ramp phaser "Phaser 2" "Modulation rate:0.2:6:0:60s"
ramp phaser "Phaser 2" "Center frequency:300:3000:0:60s"
ramp wah-wah "Wah-Wah 1" "Center frequency:300:3000:0:60s"
echo "($runs runs each, medians in seconds; input 60 s stereo 44.1 kHz, 16-bit unless said; \"us\" is vandrel;"
echo " x faster = peer cpu / vandrel cpu; x fixed = cpu with the ramp / cpu without; \"fastest\": the same"
echo " ratio from each program's fastest run)"
