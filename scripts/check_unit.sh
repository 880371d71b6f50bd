#!/usr/bin/env bash
# Verifies the recovery unit with systemd-analyze, its ExecStart pointed at the binary given
# (the installed path does not exist in a build tree). Usage: check_unit.sh UNIT TOOL
set -uo pipefail
unit=$1 tool=$2
command -v systemd-analyze >/dev/null || { echo "systemd-analyze is not installed: skipped"; exit 77; }
dir=$(mktemp -d "${TMPDIR:-/tmp}/vorn-unit-XXXXXX") || exit 2
trap 'rm -rf "$dir"' EXIT
sed "s#^ExecStart=[^ ]*vorn_tool#ExecStart=$tool#" "$unit" >"$dir/$(basename "$unit")"
# The manual page is checked by the package build, not here.
systemd-analyze verify --man=no "$dir/$(basename "$unit")"
