#!/usr/bin/env bash
# Checks that each platform layer includes only itself and the layers below it:
#   foundation  <  sdk  <  common  <  updater  <  the library's subsystems (core/, catalog/, ...)
# NBConstants.h (names and keys, no code) may be included from anywhere.
# Prints each include that reaches upwards and exits 1 when there is one. The test suite runs it.
set -euo pipefail
cd "$(dirname "$0")/.."
allowed_foundation="foundation"
allowed_sdk="foundation|sdk"
allowed_common="foundation|sdk|common"
allowed_updater="foundation|sdk|common|updater"
status=0
for layer in foundation sdk common updater; do
  allowed_var="allowed_${layer}"
  while IFS= read -r hit; do
    echo "layering: ${hit}" >&2
    status=1
  done < <(grep -rnE '#include "nbbase/' "platform/${layer}" "include/nbbase/${layer}" |
           grep -vE "#include \"nbbase/((${!allowed_var})/|NBConstants\.h\")" || true)
done
exit "$status"
