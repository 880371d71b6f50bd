#!/usr/bin/env bash
# Tests of the installed packages, in the manner of Debian's autopkgtest: the packages are
# installed with `dpkg -i` inside a private mount namespace whose /usr, /etc, /var and /run are
# copy-on-write overlays on a scratch tmpfs, then each test of dist/debian/tests/control runs the
# installed programs, from the source tree, with AUTOPKGTEST_TMP a fresh directory of its own.
# Every overlay is checked in place (a probe written through it lands in the scratch layer and
# not in the host's tree) before dpkg runs; the host's dpkg database and the packages' paths are
# compared before and after.
# Usage: scripts/check_installed.sh DEB...   (as root; scripts/check_package.sh runs it)
# VORN_INSTALLED_TESTS="tls vornctl" runs only those tests of the control file.
# Exits 77 (skipped) where a mount namespace or an overlay cannot be made.
set -euo pipefail
cd "$(dirname "$0")/.."
layers=(usr etc var run)

if [[ ${1:-} != --inside ]]; then
  (($# >= 1)) || { echo "usage: $0 DEB..." >&2; exit 2; }
  skip() { echo "installed: skipped: $*"; exit 77; }
  [[ $(id -u) -eq 0 ]] || skip "needs root (a mount namespace and dpkg -i)"
  command -v unshare >/dev/null || skip "unshare is not installed"
  unshare --mount --propagation private true 2>/dev/null || skip "no mount namespace can be made here"
  debs=()
  for deb in "$@"; do debs+=("$(realpath "$deb")"); done
  host_state() {
    md5sum /var/lib/dpkg/status
    for deb in "${debs[@]}"; do
      dpkg-deb --fsys-tarfile "$deb" | tar -t | sed -n 's#^\./\(.*[^/]\)$#/\1#p'
    done | while read -r p; do
      if [[ -e $p || -L $p ]]; then echo "present $p"; else echo "absent $p"; fi
    done
    ls -d /etc/vorn.conf /var/log/vorn_tool /var/lib/vorn_tool /run/vorn_tool.lock 2>/dev/null || true
  }
  scratch=$(mktemp -d "${TMPDIR:-/tmp}/vorn-installed-XXXXXX")
  trap 'rm -rf "$scratch"' EXIT
  before=$(host_state)
  rc=0
  unshare --mount --propagation private "$0" --inside "$scratch" "${debs[@]}" || rc=$?
  if [[ $(host_state) != "$before" ]]; then
    echo "installed: FAIL: the host's dpkg database or files changed" >&2
    exit 1
  fi
  echo "installed: the host's dpkg database and files are untouched"
  exit "$rc"
fi

# ---- inside the private mount namespace ----
scratch=$2
shift 2
mount -t tmpfs -o mode=0755 vorn-scratch "$scratch"
for d in "${layers[@]}"; do
  mkdir -p "$scratch/host/$d" "$scratch/upper/$d" "$scratch/work/$d"
  mount --bind "/$d" "$scratch/host/$d" # the host's own tree, to check the overlay against
  mount -t overlay "vorn-$d" -o "lowerdir=/$d,upperdir=$scratch/upper/$d,workdir=$scratch/work/$d" "/$d"
done
for d in "${layers[@]}"; do
  probe=/$d/.vorn-installed-probe
  opts=$(findmnt -n -o FSTYPE,OPTIONS --mountpoint "/$d" | tail -n 1)
  if [[ $opts != overlay*"upperdir=$scratch/upper/$d,"* ]] || ! : >"$probe" ||
    [[ ! -e $scratch/upper/$d/.vorn-installed-probe || -e $scratch/host/$d/.vorn-installed-probe ]]; then
    echo "installed: FAIL: /$d is not a copy-on-write overlay on the scratch tmpfs ($opts): dpkg not run" >&2
    exit 1
  fi
  rm -f "$probe"
  echo "installed: /$d is an overlay on the scratch tmpfs"
done

mkdir -p "$scratch/tmp" "$scratch/home"
export TMPDIR=$scratch/tmp
if ! DEBIAN_FRONTEND=noninteractive dpkg -i "$@" >"$scratch/dpkg.log" 2>&1; then
  cat "$scratch/dpkg.log" >&2
  echo "installed: FAIL: dpkg -i" >&2
  exit 1
fi
for deb in "$@"; do
  pkg=$(dpkg-deb -f "$deb" Package)
  [[ $(dpkg-query -W -f='${db:Status-Abbrev}' "$pkg") == "ii " ]] || {
    echo "installed: FAIL: $pkg is not installed" >&2
    exit 1
  }
  echo "installed: $pkg $(dpkg-query -W -f='${Version}' "$pkg") installed by dpkg -i"
done

# The tests of the control file, each on its own with a clean environment.
failed=()
tests=${VORN_INSTALLED_TESTS:-$(sed -n 's/^Tests: *//p' dist/debian/tests/control | xargs)}
for t in $tests; do
  tmp=$(mktemp -d "$scratch/tmp/$t-XXXXXX")
  start=$SECONDS
  echo "installed: == $t"
  if env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME="$scratch/home" TMPDIR="$scratch/tmp" LANG=C.UTF-8 \
    AUTOPKGTEST_TMP="$tmp" bash "dist/debian/tests/$t"; then
    echo "installed: $t: PASS ($((SECONDS - start)) s)"
  else
    echo "installed: $t: FAIL ($((SECONDS - start)) s)"
    failed+=("$t")
  fi
done
if ((${#failed[@]})); then
  echo "installed: failed: ${failed[*]}" >&2
  exit 1
fi
echo "installed: all tests passed: $tests"
