#!/usr/bin/env bash
# Compares the cost of the Vandrel LV2 plug-ins with the LV2 flangers, phasers
# and wah-wahs Debian ships (calf-plugins, swh-lv2, mda-lv2, guitarix-lv2),
# through lv2bench (the plug-in's run alone, 10 s of 44.1 kHz audio) at 64-
# and 512-frame blocks, side by side: nanoseconds per block-frame and per
# sample (frame of one channel). lv2bench runs each plug-in at its default
# controls, so ours run from copies of the bundle whose defaults are one
# preset of each effect. Then the wrapper's cost over the unit's own render at
# 512 frames (Lv2WrapperBench).
# Usage: bench/compare-lv2.sh [runs]   (default 5; the median is shown)
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh calf-plugins swh-lv2 mda-lv2 guitarix-lv2
runs=${1:-5}
frames=441000
cmake --preset plain >/dev/null
cmake --build --preset plain --target VandrelLv2Bundle Lv2WrapperBench vandrel >/dev/null
build=$PWD/build/plain
system_lv2=/usr/lib/lv2:/usr/local/lib/lv2

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# A copy of the bundle whose control defaults are the preset's values.
bundle_for_preset() {
  local preset=$1 folder=$work/$2
  mkdir -p "$folder"
  cp -r "$build/lv2/Vandrel.lv2" "$folder/"
  # "symbol value" lines: the name (columns 6 to 25) made a port symbol.
  LC_ALL=C "$build/tools/vandrel/vandrel" -p "$preset" --list-parameters |
    awk 'NR > 1 { name = substr($0, 6, 20); sub(/ +$/, "", name); name = tolower(name);
                  gsub(/[^a-z0-9]+/, "_", name); print name, $NF }' >"$folder.values"
  awk 'NR == FNR { value[$1] = $2; next }
       /lv2:symbol/ { symbol = $2; gsub(/"/, "", symbol) }
       /lv2:default/ && (symbol in value) { sub(/lv2:default [^ ;]+/, "lv2:default " value[symbol]) }
       { print }' "$folder.values" "$build/lv2/Vandrel.lv2/vandrel.ttl" >"$folder/Vandrel.lv2/vandrel.ttl"
  echo "$folder"
}

median() { sort -g | awk '{ t[NR] = $1 } END { print (NR % 2) ? t[(NR + 1) / 2] : (t[NR / 2] + t[NR / 2 + 1]) / 2 }'; }

# Median seconds of lv2bench for one plug-in at one block size.
seconds() {
  local path=$1 uri=$2 block=$3
  for ((i = 0; i < runs; i++)); do
    LV2_PATH=$path lv2bench -b "$block" -n "$frames" "$uri" 2>/dev/null | awk -v u="$uri" '$2 == u { print $1 }'
  done | median
}

# Audio inputs of a plug-in (its samples per frame).
channels() {
  LV2_PATH=$1 lv2info "$2" | awk '/^\tPort [0-9]+:/ { input = audio = 0 }
    /lv2core#InputPort/ { input = 1 } /lv2core#AudioPort/ { audio = 1 }
    /Symbol:/ { if (input && audio) n++ } END { print n }'
}

ours=https://vandrel.org/lv2/vandrel
rows=(
  "Vandrel flanger (Flange - 1 Hz)|$(bundle_for_preset "Flange - 1 Hz" flanger)|$ours/mono"
  "Vandrel flanger (Flange - 1 Hz)|$work/flanger|$ours/stereo"
  "Vandrel phaser (Phaser 2)|$(bundle_for_preset "Phaser 2" phaser)|$ours/mono"
  "Vandrel phaser (Phaser 2)|$work/phaser|$ours/stereo"
  "Vandrel wah-wah (Wah-Wah 1)|$(bundle_for_preset "Wah-Wah 1" wah)|$ours/mono"
  "Vandrel wah-wah (Wah-Wah 1)|$work/wah|$ours/stereo"
  "Calf Flanger|$system_lv2|http://calf.sourceforge.net/plugins/Flanger"
  "Calf Phaser|$system_lv2|http://calf.sourceforge.net/plugins/Phaser"
  "SWH Flanger|$system_lv2|http://plugin.org.uk/swh-plugins/flanger"
  "SWH DJ Flanger|$system_lv2|http://plugin.org.uk/swh-plugins/djFlanger"
  "SWH Retro Flanger|$system_lv2|http://plugin.org.uk/swh-plugins/retroFlange"
  "SWH LFO Phaser|$system_lv2|http://plugin.org.uk/swh-plugins/lfoPhaser"
  "SWH Auto Phaser|$system_lv2|http://plugin.org.uk/swh-plugins/autoPhaser"
  "MDA ThruZero (flanger)|$system_lv2|http://drobilla.net/plugins/mda/ThruZero"
  "Guitarix Flanger|$system_lv2|http://guitarix.sourceforge.net/plugins/gx_flanger#_flanger"
  "Guitarix Phaser|$system_lv2|http://guitarix.sourceforge.net/plugins/gx_phaser#_phaser"
  "Guitarix Wah|$system_lv2|http://guitarix.sourceforge.net/plugins/gxautowah#wah"
  "Guitarix Auto Wah|$system_lv2|http://guitarix.sourceforge.net/plugins/gxautowah#autowah"
)

printf '%-32s %2s | %10s %10s | %10s %10s\n' "plug-in (lv2bench, $frames frames)" ch \
  "ns/fr 64" "ns/smp 64" "ns/fr 512" "ns/smp 512"
for row in "${rows[@]}"; do
  IFS='|' read -r label path uri <<<"$row"
  if ! LV2_PATH=$path lv2info "$uri" >/dev/null 2>&1; then
    printf '%-32s    | not installed (%s)\n' "$label" "$uri"
    continue
  fi
  n=$(channels "$path" "$uri")
  line=$(printf '%-32s %2s |' "$label" "$n")
  for block in 64 512; do
    s=$(seconds "$path" "$uri" "$block")
    line+=$(awk -v s="$s" -v f="$frames" -v n="$n" 'BEGIN { printf " %10.2f %10.2f", s * 1e9 / f, s * 1e9 / (f * n) }')
    [ "$block" = 64 ] && line+=" |"
  done
  echo "$line"
done

echo
echo "The wrapper against the unit's own render (stereo, 512 frames, CPU time per sample):"
"$build/bench/Lv2WrapperBench" --benchmark_repetitions="$((runs < 3 ? 3 : runs))" --benchmark_report_aggregates_only=true \
  --benchmark_format=csv 2>/dev/null |
  awk -F, '/_median"/ { name = $1; gsub(/"/, "", name); sub(/_median/, "", name)
             split(name, part, "/"); cpu[part[1], part[2]] = $4 }
           END { split("1 Flange - 1 Hz|6 Phaser 2|8 Wah-Wah 1", presets, "|")
                 for (i = 1; i <= 3; i++) { n = substr(presets[i], 1, 1); label = substr(presets[i], 3)
                   printf "  %-14s unit %8.2f ns  wrapper %8.2f ns  ratio %.3f\n", label,
                     cpu["BM_UnitRender", n] / 1024, cpu["BM_Lv2Run", n] / 1024,
                     cpu["BM_Lv2Run", n] / cpu["BM_UnitRender", n] } }'
