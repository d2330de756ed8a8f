#!/usr/bin/env bash
# Builds the Debian packages libnbbase0, libnbbase-dev and nbctl (CMake preset "deb": optimised,
# installed under /usr, no tests) into build/deb/packages, and installs them on this machine with apt,
# which also installs the system packages they depend on. Run as root, or with sudo available.
#   scripts/install-packages.sh             build and install
#   scripts/install-packages.sh --no-install   build only
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake --preset deb >/dev/null
cmake --build --preset deb -j "$(nproc)"
rm -rf build/deb/packages
cpack --preset deb >/dev/null
packages=(build/deb/packages/*.deb)
for deb in "${packages[@]}"; do
  echo "== $(dpkg-deb -f "$deb" Package) $(dpkg-deb -f "$deb" Version): $(dpkg-deb -f "$deb" Depends)"
done
[[ "${1:-}" == "--no-install" ]] && exit 0

sudo=""
if [[ $(id -u) -ne 0 ]]; then
  command -v sudo >/dev/null || { echo "install-packages: run as root or install sudo" >&2; exit 1; }
  sudo=sudo
fi
# Paths with a slash make apt install these files rather than look the names up in its archives.
DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --reinstall --allow-downgrades \
  "${packages[@]/#/./}" >/dev/null
echo "installed: $(dpkg-query -W -f='${Package} ${Version}  ' libnbbase0 libnbbase-dev nbctl)"
