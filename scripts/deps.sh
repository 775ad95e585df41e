#!/usr/bin/env bash
# Installs the Debian 12 packages the build, the tests and the demo need,
# and any further packages named as arguments (the benchmarks name the peers
# they compare with), skipping the ones already present.
# Usage: scripts/deps.sh [PACKAGE...]
set -euo pipefail
packages=(
  cmake ninja-build g++ pkg-config clang-format
  libgtest-dev libgmock-dev libbenchmark-dev
  libplist-dev libsndfile1-dev
  sox libsox-fmt-all
  lv2-dev liblilv-dev lilv-utils sordi sndfile-programs
  "$@"
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
