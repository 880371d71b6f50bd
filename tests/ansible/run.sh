#!/usr/bin/env bash
# The Ansible collection vorn.fabric (ansible/ansible_collections/vorn/fabric) with ansible-core
# against emulated hosts, all on this machine (connection: local), each host in its own sandbox
# under $TMPDIR (its VORN_TEST_ROOT and KOPA_EMU_DIR reach the modules through `environment:`):
#
#   docs        ansible-doc renders every module; DOCUMENTATION, EXAMPLES and RETURN are YAML
#   check mode  the example fleet playbook in check mode reports what would change and changes
#               nothing (kopa-emu show, the emulator's device files and /etc/vorn.conf unchanged)
#   apply       the fleet playbook applied twice: changed on the first run, changed=0 in the
#               play recap of the second, which leaves everything as it was; no drift after
#   states      deleted removes a saved line and warns that the device keeps its value;
#               gathered returns the saved settings in the form of config
#   bad value   the play fails with the tool's own message naming the item, and the host is
#               exactly as before (the changes made before the refusal are undone)
#
# Usage: run.sh VORN_TOOL VORNCTL KOPA_EMU   (the test build's binaries). Exit 77 (skipped) when
# ansible-core is not installed (scripts/deps.sh installs it).
set -uo pipefail

if ! command -v ansible-playbook >/dev/null 2>&1 || ! command -v ansible-doc >/dev/null 2>&1; then
  echo "SKIP: ansible-playbook is not installed (scripts/deps.sh installs Debian's ansible-core)"
  exit 77
fi
if (($# != 3)); then
  echo "usage: $0 VORN_TOOL VORNCTL KOPA_EMU" >&2
  exit 2
fi

here=$(cd "$(dirname "$0")" && pwd)
repo=$(cd "$here/../.." && pwd)
tool=$1 ctl=$2 emu=$3
fleet=$repo/ansible/examples/fleet

# VORN_ANSIBLE_KEEP=1 keeps the sandbox (inventory, outputs of every run) for a look after.
. "$here/sandbox.sh"
ansible_sandbox VORN_ANSIBLE_KEEP vorn-ansible "$repo"
export ANSIBLE_STDOUT_CALLBACK=default ANSIBLE_LOAD_CALLBACK_PLUGINS=0
cd "$work" || exit 1

passed=0 failed=0
pass() { passed=$((passed + 1)); echo "ok: $*"; }
fail() { failed=$((failed + 1)); echo "FAIL: $*"; }
check() { # check DESCRIPTION COMMAND...
  local what=$1; shift
  if "$@"; then pass "$what"; else fail "$what"; fi
}

# One emulated host per inventory host: node01 and node02 (eight devices on a server board) run
# the example fleet playbook, lab01 (four devices) the case-by-case checks.
hosts=(node01 node02 lab01)
host_env() { echo "VORN_TEST_ROOT=$work/$1/root KOPA_EMU_DIR=$work/$1/emu"; }
for h in "${hosts[@]}"; do
  mkdir -p "$work/$h/root/etc" && install -m 0640 /dev/null "$work/$h/root/etc/vorn.conf"
  n=8; [[ $h == lab01 ]] && n=4
  env $(host_env "$h") "$emu" init --devices "$n" >/dev/null || { echo "kopa-emu init failed"; exit 1; }
done

inventory_host() {
  cat <<EOF
      $1:
        ansible_connection: local
        ansible_python_interpreter: "{{ ansible_playbook_python }}"
        vorn_become: false
        vorn_environment:
          VORN_TEST_ROOT: $work/$1/root
          KOPA_EMU_DIR: $work/$1/emu
EOF
}
{
  echo "all:"
  echo "  children:"
  echo "    npu_hosts:"
  echo "      hosts:"
  inventory_host node01 | sed 's/^/    /'
  inventory_host node02 | sed 's/^/    /'
  echo "    lab:"
  echo "      hosts:"
  inventory_host lab01 | sed 's/^/    /'
} >"$work/inventory.yml"
cat >"$work/vars.yml" <<EOF
vorn_tool_path: $tool
vornctl_path: $ctl
kopa_emu: $emu
EOF

playbook() { # playbook OUTPUT_FILE ARGS...: ansible-playbook's exit status, its output in the file
  local out=$1; shift
  ansible-playbook -i "$work/inventory.yml" -e "@$work/vars.yml" "$@" >"$out" 2>&1
}
# recap OUTPUT HOST FIELD: the number after FIELD= on HOST's line of the play recap.
recap() {
  sed -n '/^PLAY RECAP/,$p' "$1" | awk -v h="$2" -v f="$3" '$1 == h {
    for (i = 2; i <= NF; i++) { split($i, kv, "="); if (kv[1] == f) print kv[2] } }'
}
recap_is() { [[ "$(recap "$1" "$2" "$3")" == "$4" ]]; }
recap_positive() { local v; v=$(recap "$1" "$2" "$3"); [[ -n $v && $v -gt 0 ]]; }
show_on_failure() { # show_on_failure OUTPUT: the output, when the check before failed
  ((failed > ${1%%:*})) && { echo "---- ${1#*:}"; cat "${1#*:}"; echo "----"; }
}
# The state of a host: its saved file, the emulator's device files and what kopa-emu shows.
snapshot() {
  local h
  for h in node01 node02; do
    sha256sum "$work/$h/root/etc/vorn.conf" "$work/$h/emu/"*.bin
    env $(host_env "$h") "$emu" show
  done
}
py=$(head -n 1 "$(command -v ansible-playbook)" | sed -n 's/^#! *//p' | awk '{print $NF}')
[[ -x $py ]] || py=python3

echo "== docs: ansible-doc renders every module ($SECONDS s)"
modules=(vorn_devices vorn_facts vorn_recover)
fqcns=("${modules[@]/#/vorn.fabric.}")
f0=$failed
ansible-doc -t module "${fqcns[@]}" >"$work/doc.txt" 2>&1
check "ansible-doc exits 0" [ $? -eq 0 ]
for m in "${modules[@]}"; do
  check "$m: rendered with options, examples and return values" \
    bash -c "grep -q '^> VORN.FABRIC.${m^^} ' '$work/doc.txt' && grep -q '^EXAMPLES:' '$work/doc.txt' && grep -q '^RETURN VALUES:' '$work/doc.txt'"
done
check "no warning nor error from ansible-doc" bash -c "! grep -Eq '\\[WARNING\\]|ERROR' '$work/doc.txt'"
ansible-doc --json -t module "${fqcns[@]}" >"$work/doc.json" 2>"$work/doc.err"
check "documentation, examples and return values are YAML, the examples tasks of the module" \
  "$py" - "$work/doc.json" "${modules[@]}" <<'EOF'
import json, sys, yaml
docs = json.load(open(sys.argv[1]))
ok = True
for m in sys.argv[2:]:
    fqcn = 'vorn.fabric.' + m
    d = docs.get(fqcn)
    if not d or not d.get('doc', {}).get('options') or not d.get('return'):
        print('%s: no documentation or no return values' % fqcn); ok = False; continue
    tasks = yaml.safe_load(d.get('examples') or '')
    if not isinstance(tasks, list) or not tasks:
        print('%s: EXAMPLES is not a list of tasks' % fqcn); ok = False; continue
    if not any(fqcn in t for t in tasks):
        print('%s: no example runs the module' % fqcn); ok = False
    for t in tasks:
        args = t.get(fqcn)
        for key in (args or {}):
            if key not in d['doc']['options']:
                print('%s: example option %s is not documented' % (fqcn, key)); ok = False
sys.exit(0 if ok else 1)
EOF
show_on_failure "$f0:$work/doc.txt"

echo "== check mode: the fleet playbook reports what would change, and changes nothing ($SECONDS s)"
f0=$failed
snapshot >"$work/before.txt"
playbook "$work/check.txt" "$fleet/site.yml" --check --diff -v
check "check mode run exits 0" [ $? -eq 0 ]
snapshot >"$work/after.txt"
check "nothing changed on the devices nor in /etc/vorn.conf" cmp -s "$work/before.txt" "$work/after.txt"
for h in node01 node02; do
  check "$h: recap changed > 0, failed=0" bash -c "$(declare -f recap recap_positive recap_is); \
    recap_positive '$work/check.txt' $h changed && recap_is '$work/check.txt' $h failed 0"
done
check "the commands that would run are reported" bash -c "
  grep -q 'vorn_tool -i 0 -ip -s address 10.10.0.11 netmask 255.255.255.0' '$work/check.txt' &&
  grep -q 'vorn_tool -i 7 -route -a address 10.20.0.0 netmask 255.255.0.0 gateway 10.10.7.1' '$work/check.txt' &&
  grep -q 'vorn_tool -i 4 -gateway -s gateway 10.10.4.1' '$work/check.txt' &&
  grep -q 'vorn_tool -i 3 -pfc -s bitmap 0,0,0,1,0,0,0,0' '$work/check.txt' &&
  grep -q 'vorn_tool -i 5 -mtu -s size 4200' '$work/check.txt'"
check "the diff shows the values before and after" bash -c "
  grep -Eq '^- +\"live\": \"1500\"' '$work/check.txt' && grep -Eq '^\\+ +\"saved\": \"4200\"' '$work/check.txt'"
for h in node01 node02; do
  check "$h: one module run, one vornctl run" bash -c "
    [[ \$(grep -c '^changed: \\[$h\\]' '$work/check.txt') == 1 ]]"
done
show_on_failure "$f0:$work/check.txt"

echo "== apply: the fleet playbook twice ($SECONDS s)"
f0=$failed
playbook "$work/apply1.txt" "$fleet/site.yml"
check "first run exits 0" [ $? -eq 0 ]
for h in node01 node02; do
  check "$h: first run changed > 0, failed=0" bash -c "$(declare -f recap recap_positive recap_is); \
    recap_positive '$work/apply1.txt' $h changed && recap_is '$work/apply1.txt' $h failed 0"
done
check "no warning" bash -c "! grep -q '\\[WARNING\\]' '$work/apply1.txt'"
check "node01 holds the settings" bash -c "
  [[ \$(env $(host_env node01) '$emu' get 6 roce-ip) == 10.10.6.11 ]] &&
  [[ \$(env $(host_env node01) '$emu' get 2 mtu) == 9000 ]] &&
  grep -qx 'route_address_10.20.0.0_netmask_255.255.0.0_5=gateway_10.10.5.1' '$work/node01/root/etc/vorn.conf' &&
  grep -qx 'dscp_tc_7=26:3,48:6' '$work/node01/root/etc/vorn.conf'"
check "node02 holds its own MTU" bash -c "[[ \$(env $(host_env node02) '$emu' get 7 mtu) == 4200 ]]"
for h in node01 node02; do
  check "$h: vornctl verify finds no drift" env $(host_env "$h") "$ctl" verify
done
snapshot >"$work/applied.txt"
playbook "$work/apply2.txt" "$fleet/site.yml"
check "second run exits 0" [ $? -eq 0 ]
for h in node01 node02; do
  check "$h: second run's recap changed=0 failed=0" bash -c "$(declare -f recap recap_is); \
    recap_is '$work/apply2.txt' $h changed 0 && recap_is '$work/apply2.txt' $h failed 0"
done
snapshot >"$work/again.txt"
check "the second run left everything as it was" cmp -s "$work/applied.txt" "$work/again.txt"
playbook "$work/recover.txt" "$fleet/recover.yml"
check "the recovery playbook on agreeing hosts: exit 0, changed=0" bash -c "$(declare -f recap recap_is); \
  recap_is '$work/recover.txt' node01 changed 0 && recap_is '$work/recover.txt' node02 changed 0"
show_on_failure "$f0:$work/apply1.txt"
show_on_failure "$f0:$work/apply2.txt"

echo "== states: deleted and gathered ($SECONDS s)"
f0=$failed
adhoc() { # adhoc OUTPUT ARGS_JSON: the module once on lab01, as an ad-hoc task
  local out=$1; shift
  env $(host_env lab01) ansible lab01 -i "$work/inventory.yml" -m vorn.fabric.vorn_devices \
    -a "$1" >"$out" 2>&1
}
paths="\"vorn_tool_path\": \"$tool\", \"vornctl_path\": \"$ctl\""
adhoc "$work/merge.txt" "{\"config\": [{\"device\": 3, \"mtu\": 4200, \"udp_port\": 5000}], $paths}"
check "merged: MTU and UDP port of device 3 set and saved" bash -c "
  grep -qx 'mtu_3=4200' '$work/lab01/root/etc/vorn.conf' &&
  [[ \$(env $(host_env lab01) '$emu' get 3 mtu) == 4200 ]]"
adhoc "$work/delete.txt" "{\"config\": [{\"device\": 3, \"mtu\": 4200}], \"state\": \"deleted\", $paths}"
check "deleted: the saved MTU line goes, the UDP port's stays, the device keeps its MTU" bash -c "
  ! grep -q '^mtu_3=' '$work/lab01/root/etc/vorn.conf' &&
  grep -qx 'roce_port_3=5000' '$work/lab01/root/etc/vorn.conf' &&
  [[ \$(env $(host_env lab01) '$emu' get 3 mtu) == 4200 ]]"
check "deleted: the warning says the device keeps its value until a reset" bash -c "
  tr '\\n' ' ' <'$work/delete.txt' |
    grep -q 'device 3 mtu: the saved line is removed; the device keeps its value until a reset'"
adhoc "$work/gathered.txt" "{\"state\": \"gathered\", $paths}"
check "gathered: the saved UDP port of device 3, in the form of config" \
  grep -Eq '\"udp_port\": 5000' "$work/gathered.txt"
show_on_failure "$f0:$work/delete.txt"
show_on_failure "$f0:$work/gathered.txt"

echo "== bad value: the play fails with the tool's own message, the host as before ($SECONDS s)"
f0=$failed
lab_state() { sha256sum "$work/lab01/root/etc/vorn.conf" "$work/lab01/emu/"*.bin; }
lab_state >"$work/lab-before.txt"
playbook "$work/bad.txt" "$here/bad_value.yml"
check "ansible-playbook exits 2" [ $? -eq 2 ]
check "the task failed with the tool's message and the item" bash -c "
  grep -q 'fatal: \\[lab01\\]: FAILED!' '$work/bad.txt' &&
  grep -q 'The value of mtu you input is out of the valid range!' '$work/bad.txt' &&
  grep -q 'dev 2 mtu failed (0x200e): every change before it is undone' '$work/bad.txt'"
check "recap failed=1" bash -c "$(declare -f recap recap_is); recap_is '$work/bad.txt' lab01 failed 1"
lab_state >"$work/lab-after.txt"
check "devices 0 and 1 and /etc/vorn.conf exactly as before" \
  cmp -s "$work/lab-before.txt" "$work/lab-after.txt"
show_on_failure "$f0:$work/bad.txt"

echo "$passed passed, $failed failed"
((failed == 0))
