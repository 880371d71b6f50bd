#!/usr/bin/env bash
# What debhelper's `dh_missing --fail-missing` does, for the CPack packages: every file that an
# install component of the build installs (each component into a staging directory, the ones
# installed on request included) is in one of the packages or in dist/unpackaged.list; every
# program and shared library the build makes is in a package under its file name, or in the
# list; and every line of the list still names something installed or made.
# Usage: scripts/check_unpackaged.sh BUILD_DIR DEB...   (scripts/package.sh runs it)
set -euo pipefail
cd "$(dirname "$0")/.."
(($# >= 2)) || { echo "usage: $0 BUILD_DIR DEB..." >&2; exit 2; }
dir=$1
shift
for f in install-components.txt built-files.txt; do
  [[ -f $dir/$f ]] || { echo "unpackaged: $dir/$f is missing (configure the build first)" >&2; exit 2; }
done

tmp=$(mktemp -d "${TMPDIR:-/tmp}/vorn-unpackaged-XXXXXX")
trap 'rm -rf "$tmp"' EXIT
while read -r component; do
  [[ -z $component ]] || DESTDIR=$tmp/stage cmake --install "$dir" --component "$component" >/dev/null
done <"$dir/install-components.txt"
(cd "$tmp/stage" && find . ! -type d | sed 's#^\.##' | sort -u) >"$tmp/installed"
for deb in "$@"; do
  dpkg-deb --fsys-tarfile "$deb" | tar -t
done | sed -n 's#^\./#/#p' | grep -v '/$' | sort -u >"$tmp/packaged"
sed -e 's/#.*//' -e 's/[[:space:]]*$//' -e '/^$/d' dist/unpackaged.list | sort -u >"$tmp/excluded"
sed '/^$/d' "$dir/built-files.txt" | sort -u >"$tmp/built"

fails=0
fail() {
  echo "unpackaged: $*" >&2
  fails=$((fails + 1))
}
while read -r path; do
  fail "$path is installed but in no package (ship it, or list it with its reason in dist/unpackaged.list)"
done < <(sort -u "$tmp/packaged" "$tmp/excluded" | comm -23 "$tmp/installed" -)
while read -r name; do
  grep -q "/$name\$" "$tmp/packaged" || grep -qx -- "$name" "$tmp/excluded" ||
    fail "$name is built but in no package (install it into a packaged component, or list it in dist/unpackaged.list)"
done <"$tmp/built"
while read -r entry; do
  grep -qx -- "$entry" "$tmp/installed" || grep -qx -- "$entry" "$tmp/built" ||
    fail "dist/unpackaged.list names $entry, which the build neither installs nor makes"
done <"$tmp/excluded"

((fails == 0)) || { echo "unpackaged: $fails problem(s)" >&2; exit 1; }
echo "unpackaged: every installed file and built program is packaged or listed ($(wc -l <"$tmp/installed") installed, $(wc -l <"$tmp/built") built)"
