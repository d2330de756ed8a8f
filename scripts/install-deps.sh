#!/usr/bin/env bash
# Installs the Debian packages that building, testing and running NBBase need. This is the one place
# the package list lives; the README's commands call it, and it does nothing when all are present.
#   scripts/install-deps.sh          the build, test and benchmark packages
#   scripts/install-deps.sh --fuzz   those plus clang's libFuzzer runtime, for the "fuzz" preset
set -euo pipefail

packages=(
  build-essential cmake ninja-build pkg-config gettext dpkg-dev file
  libfmt-dev rapidjson-dev libplist-dev libsqlite3-dev libasio-dev libcli11-dev libcurl4-openssl-dev libssl-dev libicu-dev libxml2-dev libnl-genl-3-dev
  libgtest-dev libgmock-dev libbenchmark-dev libcpp-httplib-dev
)
if [[ "${1:-}" == "--fuzz" ]]; then
  packages+=(clang libclang-rt-14-dev)
fi

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[[ ${#missing[@]} -eq 0 ]] && exit 0

echo "Installing: ${missing[*]}" >&2
sudo=""
if [[ $(id -u) -ne 0 ]]; then
  command -v sudo >/dev/null || { echo "install-deps: run as root or install sudo" >&2; exit 1; }
  sudo=sudo
fi
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
