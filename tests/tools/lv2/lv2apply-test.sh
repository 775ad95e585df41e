#!/usr/bin/env bash
# lv2apply end to end, as a user runs it: the stereo plug-in of the bundle
# processes a WAV file with a preset's control values (as `vandrel
# --list-parameters` shows them), one preset of each effect, and the result
# holds the same samples, float for float, as the file vandrel writes for that
# preset at lv2apply's block size (one frame per run).
# Usage: lv2apply-test.sh VANDREL LV2_FOLDER [RUNTIME_TO_PRELOAD]
set -euo pipefail
vandrel=$1 lv2_folder=$2 preload=${3:-}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export LC_ALL=C
sox -q -R -n -r 44100 -c 2 -e floating-point -b 32 "$work/in.wav" \
  synth 0.5 sawtooth 110 sawtooth 165 pinknoise vol 0.3
for preset in "Flange - 1 Hz" "Phaser 2" "Wah-Wah 1"; do
  # Name (columns 6 to 25) and value (last field) of each parameter; the
  # port symbol is the name in lower case, other characters as underscores.
  settings=()
  while IFS='|' read -r name value; do
    symbol=$(echo "$name" | sed 's/ *$//' | tr 'A-Z' 'a-z' | sed 's/[^a-z0-9]\{1,\}/_/g')
    settings+=(-c "$symbol" "$value")
  done < <("$vandrel" -p "$preset" --list-parameters | awk 'NR > 1 { print substr($0, 6, 20) "|" $NF }')
  # lv2apply is not built with the sanitizers: it loads their runtime first.
  LV2_PATH=$lv2_folder LD_PRELOAD=$preload ASAN_OPTIONS=detect_leaks=0 \
    lv2apply -i "$work/in.wav" -o "$work/lv2.wav" "${settings[@]}" https://vandrel.org/lv2/vandrel/stereo
  "$vandrel" -q "$work/in.wav" -p "$preset" -b 1 -o "$work/vandrel.wav"
  sndfile-cmp "$work/lv2.wav" "$work/vandrel.wav"
  echo "$preset: same samples (${settings[*]})"
done
