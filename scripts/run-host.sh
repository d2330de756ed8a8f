#!/usr/bin/env bash
# Builds NBBase and runs the reference host: nbctl playing a client's start-up. Extra arguments go to
# `nbctl host`.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake --preset default >/dev/null
cmake --build --preset default --target nbctl
exec build/default/nbctl host "$@"
