# Sourced by the installed-package tests: the installed emulator behind the installed programs,
# a fresh emulated host, and the checks' counters.
set -uo pipefail
: "${AUTOPKGTEST_TMP:?run by scripts/check_installed.sh or autopkgtest}"
test_name=$(basename "$0")
tool=/usr/sbin/vorn_tool
ctl=/usr/sbin/vornctl
# The emulator's libraries are outside the loader's path: named here, as an evaluation host does.
emu_libdir=$(dirname "$(dpkg -L vorn-tool-emulator | grep '/libdrvkopa_host\.so$')")
export LD_LIBRARY_PATH=$emu_libdir KOPA_EMU_DIR=$AUTOPKGTEST_TMP/emu

passed=0 failed=0
ok() { passed=$((passed + 1)); echo "ok: $*"; }
bad() {
  failed=$((failed + 1))
  echo "FAIL: $*"
  return 1
}
check() { # check DESCRIPTION COMMAND...
  local what=$1
  shift
  if "$@"; then ok "$what"; else bad "$what"; fi
}
finish() {
  echo "$test_name: $passed passed, $failed failed"
  ((failed == 0))
}

# A host of N emulated devices and an empty /etc/vorn.conf (the one the postinst made).
fresh_host() {
  kopa-emu init --devices "$1" >/dev/null || { bad "kopa-emu init"; exit 1; }
  : >/etc/vorn.conf
}

# The ExecStart= command of an installed unit.
exec_start() { sed -n 's/^ExecStart=//p' "/lib/systemd/system/$1"; }
