#!/usr/bin/env bash
# Builds and runs the whole test suite: plain, under AddressSanitizer +
# UndefinedBehaviorSanitizer, and the concurrency tests under ThreadSanitizer.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh
# One style for the whole tree: a file clang-format would change fails the run.
git ls-files -z '*.c' '*.cpp' '*.h' '*.hpp' | xargs -0 clang-format --dry-run --Werror
jobs=$(nproc)
for preset in plain asan-ubsan tsan; do
  echo "=== $preset ==="
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset" -j "$jobs"
  # ThreadSanitizer needs a fixed address-space layout on recent kernels.
  if [ "$preset" = tsan ] && command -v setarch >/dev/null; then
    setarch "$(uname -m)" -R ctest --preset "$preset" -j "$jobs"
  else
    ctest --preset "$preset" -j "$jobs"
  fi
done
