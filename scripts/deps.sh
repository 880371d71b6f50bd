#!/usr/bin/env bash
# Installs what the build, the tests and the benchmarks need, when it is missing (Debian 12).
set -euo pipefail

need=()
have_pkg() { dpkg-query -W -f='${Status}' "$1" 2>/dev/null | grep -q 'install ok installed'; }
# nlohmann-json3-dev builds vornctl's JSON; python3-jsonschema and python3-prometheus-client
# check vornctl's JSON against its schema and parse its metrics in the tests.
for pkg in g++ cmake ninja-build pkg-config libssl-dev openssl libgtest-dev libgmock-dev \
           libbenchmark-dev iproute2 clang-format nlohmann-json3-dev python3 python3-jsonschema \
           python3-prometheus-client dpkg-dev man-db; do
  have_pkg "$pkg" || need+=("$pkg")
done

if ((${#need[@]})); then
  echo "installing: ${need[*]}"
  if [[ $(id -u) -ne 0 ]]; then SUDO=sudo; else SUDO=; fi
  $SUDO apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq "${need[@]}"
fi

# promtool (Debian's prometheus) checks vornctl's metrics and tests the shipped alerting rules.
if ! command -v promtool >/dev/null 2>&1 && ! have_pkg prometheus; then
  echo "installing: prometheus (for promtool)"
  if [[ $(id -u) -ne 0 ]]; then SUDO=sudo; else SUDO=; fi
  ((${#need[@]})) || $SUDO apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends prometheus
fi

# ansible-core runs the Ansible collection (ansible/) and its test, ansible-lint checks it; their
# recommendations (the whole community collection set, WinRM, cloud libraries) are not needed.
ansible=()
for pkg in ansible-core ansible-lint; do
  have_pkg "$pkg" || ansible+=("$pkg")
done
if ((${#ansible[@]})); then
  echo "installing: ${ansible[*]}"
  if [[ $(id -u) -ne 0 ]]; then SUDO=sudo; else SUDO=; fi
  ((${#need[@]})) || $SUDO apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends "${ansible[@]}"
fi
