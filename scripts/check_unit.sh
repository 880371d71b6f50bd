#!/usr/bin/env bash
# Verifies the recovery unit with systemd-analyze, its ExecStart pointed at the binary given
# (the installed path does not exist in a build tree) and, when a manual page is given and man is
# installed, its Documentation= resolved to that page. Usage: check_unit.sh UNIT TOOL [MANPAGE]
set -euo pipefail
unit=$1 tool=$2 page=${3:-}
command -v systemd-analyze >/dev/null || { echo "systemd-analyze is not installed: skipped"; exit 77; }
dir=$(mktemp -d "${TMPDIR:-/tmp}/vorn-unit-XXXXXX") || exit 2
trap 'rm -rf "$dir"' EXIT
sed "s#^ExecStart=[^ ]*vorn_tool#ExecStart=$tool#" "$unit" >"$dir/$(basename "$unit")"
if [[ -n $page ]] && command -v man >/dev/null; then
  mkdir -p "$dir/man/man8" && cp "$page" "$dir/man/man8/" || exit 2
  MANPATH=$dir/man systemd-analyze verify "$dir/$(basename "$unit")"
else
  systemd-analyze verify --man=no "$dir/$(basename "$unit")"
fi
