#!/usr/bin/env bash
# Builds the Debian packages (scripts/package.sh, which also runs lintian where it is installed)
# and checks them in fresh roots under a temporary directory, with dpkg --root and the
# maintainer scripts run outside a chroot (DPKG_ROOT): works as root and unprivileged, and never
# touches the host's dpkg database, /etc, /var/log or /run. Checked:
#   - contents: no /etc/vorn.conf nor conffile shipped; emulator libraries only in their private
#     directory; the installed tool names both driver libraries by soname, with no RPATH/RUNPATH;
#   - installation creates /etc/vorn.conf (empty, 0640) and enables vorn-recovery.service; an
#     existing file (content and mode) or symbolic link is kept; a reinstallation of the same
#     version and an upgrade keep the file and an administrator's "disable";
#   - remove and purge are clean and keep /etc/vorn.conf; purge removes /var/log/vorn_tool;
#   - both manual pages render without warnings; the completion parses and completes;
#   - then, as root, the installed-package tests (scripts/check_installed.sh): the installed
#     programs on the installed emulator, in a throw-away overlay of the host.
# Usage: scripts/check_package.sh [build dir]   (default build-pkgcheck)
# Skips (status 0) where the dpkg tools are missing.
# The checks run as bash -c '...' with their values as arguments, expanded inside on purpose:
# shellcheck disable=SC2016
set -euo pipefail
cd "$(dirname "$0")/.."
dir=${1:-build-pkgcheck}

skip() {
  echo "package check: skipped: $*"
  exit 0
}
for t in dpkg dpkg-deb dpkg-query dpkg-buildflags dpkg-shlibdeps readelf ldd cpack; do
  command -v "$t" >/dev/null || skip "$t is not installed"
done

scripts/package.sh --no-deps "$dir"
shopt -s nullglob
tool_debs=("$dir"/vorn-tool_*.deb)
emu_debs=("$dir"/vorn-tool-emulator_*.deb)
shopt -u nullglob
((${#tool_debs[@]} == 1 && ${#emu_debs[@]} == 1)) || {
  echo "package check: expected one package of each in $dir" >&2
  exit 1
}
tool_deb=${tool_debs[0]}
emu_deb=${emu_debs[0]}
version=$(dpkg-deb -f "$tool_deb" Version)
multiarch=$(dpkg-architecture -qDEB_HOST_MULTIARCH 2>/dev/null || gcc -print-multiarch)
emu_dir=/usr/lib/$multiarch/vorn-emu
unit=vorn-recovery.service

tmp=$(mktemp -d "${TMPDIR:-/tmp}/vorn-pkgcheck-XXXXXX")
trap 'rm -rf "$tmp"' EXIT

fails=0
ok() { echo "package check: ok: $*"; }
bad() {
  echo "package check: FAIL: $*" >&2
  fails=$((fails + 1))
}
check() { # check DESCRIPTION COMMAND...
  local what=$1
  shift
  if "$@"; then ok "$what"; else bad "$what"; fi
}

# ---- the host must come out as it went in ----
host_paths=(/etc/vorn.conf /usr/sbin/vorn_tool "/lib/systemd/system/$unit"
  "/usr/lib/systemd/system/$unit" "/etc/systemd/system/multi-user.target.wants/$unit"
  "/etc/systemd/system/$unit" "/var/lib/systemd/deb-systemd-helper-enabled/multi-user.target.wants/$unit"
  /var/log/vorn_tool "$emu_dir")
host_state() {
  md5sum /var/lib/dpkg/status
  local p
  for p in "${host_paths[@]}"; do
    if [[ -e $p || -L $p ]]; then echo "present $p"; else echo "absent $p"; fi
  done
}
host_state >"$tmp/host.before"

# ---- contents of the packages ----
dpkg-deb -c "$tool_deb" | awk '{print $NF}' >"$tmp/tool.list"
dpkg-deb -c "$emu_deb" | awk '{print $NF}' >"$tmp/emu.list"
check "vorn-tool ships nothing under /etc" bash -c '! grep -q "^\./etc/" "$1"' _ "$tmp/tool.list"
check "vorn-tool has no conffiles" bash -c '! dpkg-deb -I "$1" conffiles >/dev/null 2>&1' _ "$tool_deb"
check "vorn-tool ships no driver library" bash -c '! grep -q "lib\(drvkopa_host\|kelvar_hal\)" "$1"' _ \
  "$tmp/tool.list"
for f in ./usr/sbin/vorn_tool ./usr/sbin/vornctl "./usr/lib/$multiarch/vorn_tool/vorn_tls.so" \
  ./usr/share/man/man8/vorn_tool.8.gz ./usr/share/man/man8/vornctl.8.gz \
  ./usr/share/bash-completion/completions/vorn_tool ./usr/share/bash-completion/completions/vornctl \
  ./usr/share/doc/vorn-tool/copyright ./usr/share/doc/vorn-tool/changelog.gz \
  ./usr/share/vorn-tool/prometheus/vorn.rules.yml; do
  check "vorn-tool ships $f" grep -qx -- "$f" "$tmp/tool.list"
done
for u in "$unit" vornctl-metrics.service vornctl-metrics.timer; do
  check "vorn-tool ships the unit $u" grep -qx "\./lib/systemd/system/$u" "$tmp/tool.list"
done
check "vorn-tool depends on libc6 and on libssl3 (the TLS module's libcrypto)" bash -c \
  'deps=$(dpkg-deb -f "$1" Depends); [[ $deps == *libc6* && $deps == *libssl3* ]]' _ "$tool_deb"
for f in ".$emu_dir/libdrvkopa_host.so" ".$emu_dir/libkelvar_hal.so" ".$emu_dir/libkopa_emu_tls.so" \
  ./usr/bin/kopa-emu ./usr/share/man/man1/kopa-emu.1.gz ./usr/share/doc/vorn-tool-emulator/README; do
  check "vorn-tool-emulator ships $f" grep -qx -- "$f" "$tmp/emu.list"
done
check "vorn-tool-emulator puts libraries in $emu_dir only" bash -c \
  '! grep "\.so" "$1" | grep -qv "^\.$2/[^/]*\.so$"' _ "$tmp/emu.list" "$emu_dir"
check "the changelog's version is the package's ($version)" bash -c \
  '[[ $(head -n1 dist/debian/changelog) == "vorn-tool ($1) "* ]]' _ "$version"
check "the manual page's version is the package's ($version)" \
  grep -q "^\.TH VORN_TOOL 8 .*\"vorn_tool $version\"" dist/man/vorn_tool.8

# ---- fresh roots ----
new_root() {
  local r=$tmp/$1
  mkdir -p "$r/var/lib/dpkg/info" "$r/var/lib/dpkg/updates" "$r/var/lib/dpkg/triggers"
  : >"$r/var/lib/dpkg/status"
  : >"$r/var/lib/dpkg/available"
  echo "$r"
}
# dpkg on a root: scripts run outside a chroot with DPKG_ROOT; dependencies (libc6 ...) are not
# in the fresh database; path filters of the host's dpkg.cfg.d are undone.
dpkg_in() {
  local r=$1
  shift
  if ! dpkg --root="$r" --log="$tmp/dpkg.log" --force-not-root --force-bad-path \
    --force-script-chrootless --force-depends --path-include='*' "$@" >"$tmp/dpkg.out" 2>&1; then
    cat "$tmp/dpkg.out" >&2
    bad "dpkg $*"
    return 1
  fi
}
state_of() { # the package's status and version in root $1, or "absent" (unknown or purged)
  local s
  s=$(dpkg-query --admindir="$1/var/lib/dpkg" -W -f='${db:Status-Abbrev}${Version}' "$2" 2>/dev/null) ||
    s=
  case $s in
  "" | "un "* | "pn "*) echo absent ;;
  *) echo "$s" ;;
  esac
}
mode_of() { stat -c '%a %u:%g %s' "$1"; }
me="$(id -u):$(id -g)"
[[ $(id -u) -eq 0 ]] && me=0:0
have_dsh=0
command -v deb-systemd-helper >/dev/null && have_dsh=1
wants() { echo "$1/etc/systemd/system/multi-user.target.wants/$unit"; }

# Root A: installation on a host without /etc/vorn.conf, reinstallation, upgrade, remove, purge.
a=$(new_root a)
dpkg_in "$a" -i "$tool_deb" "$emu_deb"
check "both packages installed" bash -c '[[ $1 == "ii $2" && $3 == "ii $2" ]]' _ \
  "$(state_of "$a" vorn-tool)" "$version" "$(state_of "$a" vorn-tool-emulator)"
check "a missing /etc/vorn.conf is created empty, mode 0640, owner $me" \
  bash -c '[[ -f $1 && ! -L $1 && $(stat -c "%a %u:%g %s" "$1") == "640 $2 0" ]]' _ "$a/etc/vorn.conf" "$me"
if ((have_dsh)); then
  check "vorn-recovery.service is enabled" \
    bash -c '[[ $(readlink "$1") == */lib/systemd/system/$2 ]]' _ "$(wants "$a")" "$unit"
else
  echo "package check: deb-systemd-helper is not installed: unit enablement not checked"
fi

tool=$a/usr/sbin/vorn_tool
readelf -d "$tool" >"$tmp/dynamic"
check "the tool needs libdrvkopa_host.so by soname" grep -q 'NEEDED.*\[libdrvkopa_host\.so\]' "$tmp/dynamic"
check "the tool needs libkelvar_hal.so by soname" grep -q 'NEEDED.*\[libkelvar_hal\.so\]' "$tmp/dynamic"
check "the tool has no RPATH nor RUNPATH" bash -c '! grep -qE "\((RPATH|RUNPATH)\)" "$1"' _ "$tmp/dynamic"
for lib in libdrvkopa_host.so libkelvar_hal.so; do
  check "the emulated $lib has the soname $lib" bash -c \
    'readelf -d "$1" | grep -q "SONAME.*\[$2\]"' _ "$a$emu_dir/$lib" "$lib"
  check "LD_LIBRARY_PATH=$emu_dir binds the tool to the emulated $lib" bash -c \
    'LD_LIBRARY_PATH="$1" ldd "$2" | grep -q "$3 => $1/$3 "' _ "$a$emu_dir" "$tool" "$lib"
done
check "kopa-emu runs (init, show)" bash -c \
  'KOPA_EMU_DIR="$1/emu-state" "$2" init --devices 2 >/dev/null && KOPA_EMU_DIR="$1/emu-state" "$2" show >/dev/null' \
  _ "$tmp" "$a/usr/bin/kopa-emu"
if command -v man >/dev/null; then
  for page in usr/share/man/man8/vorn_tool.8.gz usr/share/man/man8/vornctl.8.gz \
    usr/share/man/man1/kopa-emu.1.gz; do
    check "man renders $page without warnings" bash -c \
      'err=$(MANWIDTH=80 man --warnings -l "$1" 2>&1 >/dev/null); [[ -z $err ]] || { echo "$err" >&2; false; }' \
      _ "$a/$page"
  done
  check "the manual page documents exit status, files, locks, environment and the unit" bash -c \
    'txt=$(MANWIDTH=80 man -l "$1" 2>/dev/null); for w in "EXIT STATUS" FILES LOCKS ENVIRONMENT SSH_CLIENT \
      /run/vorn_tool.lock vorn.log.old vorn_weak_dict.conf CdrReg 0x300B vorn-recovery.service; do
      grep -qF -- "$w" <<<"$txt" || { echo "missing: $w" >&2; exit 1; }; done' _ "$a/usr/share/man/man8/vorn_tool.8.gz"
else
  echo "package check: man is not installed: manual pages not rendered"
fi

completion=$a/usr/share/bash-completion/completions/vorn_tool
check "the completion parses (bash -n)" bash -n "$completion"
check "vornctl's completion parses (bash -n)" bash -n "$a/usr/share/bash-completion/completions/vornctl"
complete_words() { # the completion's answer for COMP_WORDS = the arguments, cursor on the last
  bash -c 'source "$1"; shift; COMP_WORDS=("$@"); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _vorn_tool
    echo "${COMPREPLY[*]}"' _ "$completion" "$@"
}
check "completion of 'vorn_tool -i 0 -' lists the commands" bash -c \
  '[[ " $1 " == *" -ip "* && " $1 " == *" -mtu "* && " $1 " == *" -send_arp "* && " $1 " != *" -s "* ]]' \
  _ "$(complete_words vorn_tool -i 0 -)"
check "completion of 'vorn_tool -i 0 -mtu -s ' is 'size'" \
  test "$(complete_words vorn_tool -i 0 -mtu -s '')" = size
check "completion of 'vorn_tool -i ' lists the device ids 0-15" \
  test "$(complete_words vorn_tool -i '')" = "0 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15"

# Reinstallation of the same version keeps the saved settings and their mode.
printf 'mtu_0=9000\n' >"$a/etc/vorn.conf"
chmod 0600 "$a/etc/vorn.conf"
before=$(mode_of "$a/etc/vorn.conf")
dpkg_in "$a" -i "$tool_deb"
check "a reinstallation keeps /etc/vorn.conf (content and mode)" bash -c \
  '[[ $(stat -c "%a %u:%g %s" "$1") == "$2" && $(cat "$1") == mtu_0=9000 ]]' _ "$a/etc/vorn.conf" "$before"

# An upgrade keeps the file and an administrator's "systemctl disable" (which removes the link).
if ((have_dsh)); then
  rm "$(wants "$a")"
fi
bump=$version+check1
dpkg-deb -R "$tool_deb" "$tmp/bump"
sed -i "s/^Version: .*/Version: $bump/" "$tmp/bump/DEBIAN/control"
dpkg-deb --root-owner-group -b "$tmp/bump" "$tmp/vorn-tool_bump.deb" >/dev/null
dpkg_in "$a" -i "$tmp/vorn-tool_bump.deb"
check "an upgrade to $bump is installed" test "$(state_of "$a" vorn-tool)" = "ii $bump"
check "an upgrade keeps /etc/vorn.conf (content and mode)" bash -c \
  '[[ $(stat -c "%a %u:%g %s" "$1") == "$2" && $(cat "$1") == mtu_0=9000 ]]' _ "$a/etc/vorn.conf" "$before"
if ((have_dsh)); then
  check "an upgrade keeps the unit disabled by the administrator" bash -c '[[ ! -e $1 && ! -L $1 ]]' _ \
    "$(wants "$a")"
  ln -s "/lib/systemd/system/$unit" "$(wants "$a")"
fi
dpkg_in "$a" -i "$tool_deb"
check "a downgrade back to $version is installed" test "$(state_of "$a" vorn-tool)" = "ii $version"

# Remove, then purge: the saved settings stay, the run log of root goes.
dpkg_in "$a" -r vorn-tool
check "remove leaves the configuration state" test "$(state_of "$a" vorn-tool)" = "rc $version"
check "remove takes the tool and the unit away" bash -c '[[ ! -e $1/usr/sbin/vorn_tool && ! -e $1/lib/systemd/system/$2 ]]' \
  _ "$a" "$unit"
check "remove keeps /etc/vorn.conf" bash -c '[[ $(cat "$1") == mtu_0=9000 ]]' _ "$a/etc/vorn.conf"
if ((have_dsh)); then
  check "remove masks the unit" bash -c '[[ $(readlink "$1") == /dev/null ]]' _ "$a/etc/systemd/system/$unit"
  dpkg_in "$a" -i "$tool_deb"
  check "a reinstallation after remove unmasks the unit and keeps it enabled" bash -c \
    '[[ ! -e $1 && ! -L $1 && -L $2 ]]' _ "$a/etc/systemd/system/$unit" "$(wants "$a")"
  dpkg_in "$a" -r vorn-tool
fi
mkdir -p "$a/var/log/vorn_tool"
echo 'PROMPT MINOR root ...' >"$a/var/log/vorn_tool/vorn.log"
dpkg_in "$a" -P vorn-tool
check "purge forgets the package" test "$(state_of "$a" vorn-tool)" = absent
check "purge keeps /etc/vorn.conf (content and mode)" bash -c \
  '[[ $(stat -c "%a %u:%g %s" "$1") == "$2" && $(cat "$1") == mtu_0=9000 ]]' _ "$a/etc/vorn.conf" "$before"
check "purge removes /var/log/vorn_tool" test ! -e "$a/var/log/vorn_tool"
check "purge leaves no unit link nor helper state" bash -c \
  '[[ -z $(find "$1/etc/systemd" "$1/var/lib/systemd" -name "*vorn*" 2>/dev/null) ]]' _ "$a"
dpkg_in "$a" -P vorn-tool-emulator
check "purge of the emulator leaves nothing of it" bash -c \
  '[[ $3 == absent && ! -e $1$2 && ! -e $1/usr/bin/kopa-emu ]]' _ "$a" "$emu_dir" "$(state_of "$a" vorn-tool-emulator)"
check "nothing but /etc/vorn.conf is left outside the dpkg database" bash -c \
  '[[ $(find "$1" -path "$1/var/lib/dpkg" -prune -o ! -type d -print) == "$1/etc/vorn.conf" ]]' _ "$a"

# Root B: an existing /etc/vorn.conf is kept as it is.
b=$(new_root b)
mkdir -p "$b/etc"
printf 'address_0=10.0.0.2\nnetmask_0=255.255.255.0\n' >"$b/etc/vorn.conf"
chmod 0604 "$b/etc/vorn.conf"
before=$(mode_of "$b/etc/vorn.conf")
dpkg_in "$b" -i "$tool_deb"
check "an existing /etc/vorn.conf is kept (content and mode)" bash -c \
  '[[ $(stat -c "%a %u:%g %s" "$1") == "$2" && $(head -n1 "$1") == address_0=10.0.0.2 ]]' _ \
  "$b/etc/vorn.conf" "$before"

# Root C: a symbolic link an administrator put there is kept, even a dangling one.
c=$(new_root c)
mkdir -p "$c/etc"
ln -s /srv/vorn/vorn.conf "$c/etc/vorn.conf"
dpkg_in "$c" -i "$tool_deb"
check "an administrator's link /etc/vorn.conf is kept" bash -c \
  '[[ -L $1 && $(readlink "$1") == /srv/vorn/vorn.conf && ! -e $2/srv ]]' _ "$c/etc/vorn.conf" "$c"

host_state >"$tmp/host.after"
check "the host's dpkg database, /etc, /var/log and unit links are untouched" \
  cmp -s "$tmp/host.before" "$tmp/host.after"

# The installed programs themselves, as root, in a throw-away overlay of the host.
installed=0
scripts/check_installed.sh "$tool_deb" "$emu_deb" || installed=$?
case $installed in
0) ok "the installed-package tests" ;;
77) echo "package check: the installed-package tests were skipped" ;;
*) bad "the installed-package tests" ;;
esac

if ((fails)); then
  echo "package check: $fails check(s) failed" >&2
  exit 1
fi
echo "package check: all checks passed"
