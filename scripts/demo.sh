#!/usr/bin/env bash
# Main job: install what is needed, build the plug-in and the vandrel program,
# and run the built-in demonstration sound through several presets into out/,
# with a spectrogram picture of each result.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh
cmake --preset plain >/dev/null
cmake --build --preset plain -j "$(nproc)" --target vandrel Vandrel

vandrel=build/plain/tools/vandrel/vandrel
mkdir -p out

# name | what the picture shows | vandrel arguments
runs=(
  "00-dry|the demonstration sound as it goes in|--bypass"
  "01-flange-1hz|Flange - 1 Hz: comb notches sweeping once a second|-p|Flange - 1 Hz|-t|1"
  "02-flange-slow|Flange - slow 1: one slow sweep over ten seconds|-p|Flange - slow 1|-t|1"
  "03-phaser|Phaser 2: notches moving at 4.5 Hz|-p|Phaser 2|-t|1"
  "04-wah|Wah-Wah 1: a resonant peak swept once a second|-p|Wah-Wah 1|-t|1"
  "05-warble|Warble 1: the flanger at 20 Hz|-p|Warble 1|-t|1"
  "06-wah-ramp|Wah-Wah 4 with its rate ramped from 0.2 Hz to 6 Hz|-p|Wah-Wah 4|-r|Modulation rate:0.2:6:0:8s|-t|1"
)

for run in "${runs[@]}"; do
  IFS='|' read -r -a fields <<<"$run"
  name=${fields[0]}
  title=${fields[1]}
  args=("${fields[@]:2}")
  "$vandrel" --quiet "${args[@]}" -o "out/$name.wav"
  # Both channels mixed to one picture of 0 to 8 kHz, where the sweeps are,
  # levels from -75 to -30 dBFS so the notches in the noise show:
  # time across, frequency up, level in colour.
  sox -V1 "out/$name.wav" -n remix - rate 16k spectrogram -x 640 -y 257 -Z -30 -z 45 -t "$title" \
    -c "vandrel ${args[*]}" -o "out/$name.png"
  echo "out/$name.wav  out/$name.png  ($title)"
done

echo
echo "Listen with: play out/01-flange-1hz.wav   (sox's player)"
echo "Process your own file: $vandrel your.wav -p \"Phaser 2\" -o phased.wav   ($vandrel --help)"
