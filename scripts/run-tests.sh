#!/usr/bin/env bash
# Builds and runs the whole test suite twice: in the normal build, then under AddressSanitizer and
# UndefinedBehaviorSanitizer. Set NBBASE_PRESETS to choose others, e.g. NBBASE_PRESETS="tsan".
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
jobs=$(nproc)
for preset in ${NBBASE_PRESETS:-default asan}; do
  echo "== ${preset} build =="
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset" -j "$jobs"
  ctest --preset "$preset" -j "$jobs"
done
