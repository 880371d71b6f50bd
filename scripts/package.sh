#!/usr/bin/env bash
# Builds the Debian packages vorn-tool and vorn-tool-emulator and checks them with lintian.
#
# Usage: scripts/package.sh [--no-deps] [build dir]      (default build dir: build-deb)
#
# The build dir is configured as a production build for /usr with the Debian build flags
# (dpkg-buildflags, hardening=+all), built, and packed by CPack:
#   <build dir>/vorn-tool_<version>_<arch>.deb, <build dir>/vorn-tool-emulator_<version>_<arch>.deb
# scripts/check_unpackaged.sh checks that everything the build installs is in them (or
# deliberately left out), then lintian checks both; an error fails the script (warnings are
# listed in README.md).
# VORN_WERROR=ON makes compiler warnings errors (CI sets it).
# --no-deps skips installing the tools (scripts/deps.sh, scripts/package_deps.sh); without
# lintian the check is skipped. JOBS sets the build's parallel jobs (default: nproc).
set -euo pipefail
cd "$(dirname "$0")/.."

deps=1
if [[ ${1:-} == --no-deps ]]; then
  deps=0
  shift
fi
dir=${1:-build-deb}

if ((deps)); then
  scripts/deps.sh
  scripts/package_deps.sh
fi
for tool in cmake ninja cpack dpkg-buildflags dpkg-shlibdeps gzip; do
  command -v "$tool" >/dev/null || { echo "package: $tool is not installed" >&2; exit 2; }
done

export DEB_BUILD_MAINT_OPTIONS=hardening=+all
cppflags=$(dpkg-buildflags --get CPPFLAGS)
ldflags=$(dpkg-buildflags --get LDFLAGS)
# Where this release's systemd wants units (/lib/systemd/system on Debian 12).
unitdir=$(pkg-config --variable=systemdsystemunitdir systemd 2>/dev/null || true)
[[ -n $unitdir ]] || unitdir=/lib/systemd/system

cmake -S . -B "$dir" -G Ninja \
  -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DCMAKE_INSTALL_PREFIX=/usr \
  -DVORN_SYSTEMD_UNIT_DIR="$unitdir" \
  -DVORN_TEST_PATHS=OFF -DVORN_BUILD_TESTS=OFF -DVORN_BUILD_BENCH=OFF \
  -DVORN_WERROR="${VORN_WERROR:-OFF}" \
  -DCMAKE_C_FLAGS="$cppflags $(dpkg-buildflags --get CFLAGS)" \
  -DCMAKE_CXX_FLAGS="$cppflags $(dpkg-buildflags --get CXXFLAGS)" \
  -DCMAKE_EXE_LINKER_FLAGS="$ldflags" \
  -DCMAKE_SHARED_LINKER_FLAGS="$ldflags" \
  -DCMAKE_MODULE_LINKER_FLAGS="$ldflags" >/dev/null
cmake --build "$dir" -j"${JOBS:-$(nproc)}"

rm -f "$dir"/*.deb
(cd "$dir" && cpack -G DEB >cpack.log 2>&1) || { cat "$dir/cpack.log" >&2; exit 1; }
shopt -s nullglob
debs=("$dir"/*.deb)
((${#debs[@]} == 2)) || { echo "package: expected two packages in $dir" >&2; exit 1; }
printf 'package: %s\n' "${debs[@]}"
scripts/check_unpackaged.sh "$dir" "${debs[@]}"

if command -v lintian >/dev/null; then
  # Errors fail; warnings and notes are shown (README.md lists and justifies them).
  # lintian leaves cache files in TMPDIR: give it a directory of its own.
  lintian_tmp=$(mktemp -d "${TMPDIR:-/tmp}/vorn-lintian-XXXXXX")
  trap 'rm -rf "$lintian_tmp"' EXIT
  rc=0
  out=$(TMPDIR=$lintian_tmp lintian --display-info --fail-on error "${debs[@]}" 2>&1) || rc=$?
  grep -v '^running with root privileges is not recommended!$' <<<"$out" || true
  ((rc == 0)) || { echo "package: lintian reports errors (status $rc)" >&2; exit 1; }
  echo "package: lintian reports no error"
else
  echo "package: lintian is not installed: lintian check skipped"
fi
