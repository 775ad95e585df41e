#!/usr/bin/env bash
# Builds the LV2 bundle of the effect and installs it for the current user:
# Vandrel.lv2 goes into the first folder of LV2_PATH when it is set, else
# into ~/.lv2, replacing an older copy. LV2 hosts find it there at their next
# start.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh
cmake --preset plain >/dev/null
cmake --build --preset plain --target VandrelLv2Bundle
cmake --install build/plain
