#!/usr/bin/env bash
# Installs what the package build needs, when it is missing (Debian 12): dpkg-dev
# (dpkg-buildflags, dpkg-shlibdeps), lintian, and man-db for checking the manual pages.
# The build's own tools come from scripts/deps.sh.
set -euo pipefail

need=()
have_pkg() { dpkg-query -W -f='${Status}' "$1" 2>/dev/null | grep -q 'install ok installed'; }
for pkg in dpkg-dev lintian man-db; do
  have_pkg "$pkg" || need+=("$pkg")
done

if ((${#need[@]})); then
  echo "installing: ${need[*]}"
  if [[ $(id -u) -ne 0 ]]; then SUDO=sudo; else SUDO=; fi
  $SUDO apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq "${need[@]}"
fi
