#!/usr/bin/env bash
# A representative administrator session against eight emulated devices. Builds the test build
# first; the tool's absolute paths (/etc/vorn.conf, /var/log/vorn_tool) and the emulator's state
# live in a temporary directory, so nothing of the host's own configuration is touched.
set -uo pipefail
cd "$(dirname "$0")/.." || exit 1

scripts/deps.sh
cmake -S . -B build-test -G Ninja -DVORN_TEST_PATHS=ON >/dev/null || exit 1
cmake --build build-test -j"$(nproc)" --target vorn_tool vornctl kopa-emu >/dev/null || exit 1

work=$(mktemp -d /tmp/vorn-demo-XXXXXX)
export VORN_TEST_ROOT=$work/root KOPA_EMU_DIR=$work/emu
mkdir -p "$VORN_TEST_ROOT/etc" && install -m 0640 /dev/null "$VORN_TEST_ROOT/etc/vorn.conf"

tool=$PWD/build-test/vorn_tool
emu=$PWD/build-test/kopa-emu
ctl=$PWD/build-test/vornctl

say() { printf '\n\033[1m# %s\033[0m\n' "$*"; }
# Shows a command line as typed, runs it, and says its exit status when it is not 0.
show_run() {
  local name=$1 bin=$2; shift 2
  printf '$ %s %s\n' "$name" "$*"
  "$bin" "$@"
  local rc=$?
  ((rc != 0)) && printf '(exit status %d)\n' "$rc"
  return 0
}
run() { show_run vorn_tool "$tool" "$@"; }
ctl() { show_run vornctl "$ctl" "$@"; }

say "An emulated host with eight devices on one server board (groups 0-3 and 4-7)"
"$emu" init --devices 8
"$emu" show | head -n 12

say "Help lists the $("$tool" -h | grep -c '^vorn_tool') commands"
"$tool" -h | grep '^vorn_tool' | head -n 6
echo "..."

say "Addresses on two devices of one group"
run -i 0 -ip -s address 10.0.0.2 netmask 255.255.255.0
run -i 1 -ip -s netmask 255.255.255.0 address 10.0.0.3
run -i 1 -ip -g
say "The same address on another device of the group is refused; the host-link segment is reserved"
run -i 0 -ip -s address 10.0.0.3 netmask 255.255.255.0
run -i 2 -ip -s address 192.168.1.5 netmask 255.255.255.0

say "A default gateway on device 0, then moved to device 1 of the same group"
run -i 0 -gateway -s gateway 10.0.0.1
run -i 1 -gateway -g
run -i 1 -gateway -s gateway 10.0.0.254
run -i 0 -gateway -g
printf 'emulator: device 0 gateway %s, device 1 gateway %s\n' "$("$emu" get 0 gateway)" "$("$emu" get 1 gateway)"

say "Static routes: add, list, delete; the default route belongs to -gateway"
run -i 1 -route -a address 20.0.0.0 netmask 255.0.0.0 gateway 10.0.0.254
run -i 1 -route -a address 30.1.0.0 netmask 255.255.0.0 gateway 10.0.0.254
run -i 1 -route -g
run -i 1 -route -d address 20.0.0.0 netmask 255.0.0.0
run -i 1 -route -a address 0.0.0.0 netmask 0.0.0.0 gateway 10.0.0.254

say "Network detection and its health"
run -i 1 -netdetect -s address 10.0.0.100
run -i 1 -netdetect -g
"$emu" set 1 net-health 8
run -i 1 -net_health -g

say "MAC, MTU, link, RoCE UDP port"
run -i 1 -mac -s mac 00:11:22:33:44:55
run -i 1 -mac -g
run -i 1 -mac -s mac 01:80:c2:00:00:0E
run -i 1 -mtu -s size 9000
run -i 1 -mtu -g
run -i 1 -mtu -s size 9703
run -i 1 -udp -s port 4791
run -i 1 -udp -g
run -i 1 -link -g
run -i 1 -vnic -g
run -i 1 -lldp -g

say "RoCE QoS: DSCP 26 to class 3, PFC on priority 3, class bandwidths, priority map, shaper"
run -i 1 -dscp_to_tc -s dscp 26 tc 3
run -i 1 -pfc -s bitmap 0,0,0,1,0,0,0,0
run -i 1 -pfc -g
run -i 1 -tc_cfg -s tc_bw 0,10,10,40,10,10,10,10 tc_mode 0,1,1,1,1,1,1,1
run -i 1 -tc_cfg -g
run -i 1 -prio_tc -s prio_tc 0,1,2,3,4,5,6,7
run -i 1 -prio_tc -g
run -i 1 -shaping -s bw_limit 50000
run -i 1 -dscp_to_tc -s dscp 64 tc 3

say "ARP entries, gratuitous ARP, FEC"
run -i 1 -arp -a dev eth0 ip 10.0.0.50 mac 00:11:22:33:44:50
run -i 1 -arp -g
run -i 1 -send_arp -s period 30 status 1
run -i 1 -fec -s mode 1
run -i 1 -fec -g

say "A device that refuses: permission denied on the next MTU change"
"$emu" fault add --op set_mtu --result -13 --count 1
run -i 1 -mtu -s size 1500

say "What was saved for recovery ($VORN_TEST_ROOT/etc/vorn.conf)"
cat "$VORN_TEST_ROOT/etc/vorn.conf"

say "A reset of every device loses the settings; the recovery replays the saved ones"
"$emu" wipe --all
run -i 1 -mtu -g
run -i 1 -cfg status
run -a -cfg recovery
run -i 1 -mtu -g
run -i 1 -mac -g
run -i 1 -route -g
run -i 1 -pfc -g
run -i 1 -arp -g
run -i 1 -cfg status

say "vornctl: the whole host at a glance; a device loses its MTU, verify sees it, --recover cures it"
ctl show --brief
"$emu" set 1 mtu 1500
ctl verify -i 1
ctl verify --recover -i 1
ctl lint

say "vornctl apply: MTU 4200 on devices 4 and 5 as one transaction, checked first, then made"
printf '%s\n' '{"schema": "vornctl-show", "schema_version": 2, "devices": [' \
  '  {"phy_id": 4, "items": {"mtu": {"saved": 4200}}},' \
  '  {"phy_id": 5, "items": {"mtu": {"saved": 4200}}}]}' >"$work/desired.json"
cat "$work/desired.json"
ctl apply "$work/desired.json" --check
ctl apply "$work/desired.json"
run -i 5 -mtu -g

say "The audit trail ($VORN_TEST_ROOT/var/log/vorn_tool/vorn.log, last lines)"
tail -n 8 "$VORN_TEST_ROOT/var/log/vorn_tool/vorn.log"

rm -rf "$work"
