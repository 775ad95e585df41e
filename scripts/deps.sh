#!/usr/bin/env bash
# Installs the Debian 12 packages the build, the tests, the demo and the
# benchmarks need (the LV2 comparison runs other makers' plug-ins),
# skipping the ones already present.
set -euo pipefail
packages=(
  cmake ninja-build g++ pkg-config clang-format
  libgtest-dev libgmock-dev libbenchmark-dev
  libplist-dev libsndfile1-dev
  sox libsox-fmt-all
  lv2-dev liblilv-dev lilv-utils sordi sndfile-programs
  calf-plugins swh-lv2 mda-lv2 guitarix-lv2
)
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "Installing: ${missing[*]}"
  sudo_cmd=""
  [ "$(id -u)" -eq 0 ] || sudo_cmd="sudo"
  $sudo_cmd apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo_cmd apt-get install -y -qq "${missing[@]}" >/dev/null
fi
