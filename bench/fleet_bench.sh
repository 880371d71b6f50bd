#!/usr/bin/env bash
# The example fleet playbook (ansible/examples/fleet/site.yml) on N emulated hosts of eight
# devices each, all on this machine (connection local, pipelining, 5 forks), run twice: the
# first apply, then the idempotent rerun. Reports seconds per host of each run, how many times
# each host ran vorn_tool and vornctl (counted by a thin wrapper in front of each), and how many
# command lines of the tool ran on it, in a vorn_tool process or inside vornctl apply (counted
# by their last run-log line).
#
# Usage: fleet_bench.sh [-n HOSTS] VORN_TOOL VORNCTL KOPA_EMU   (the test build's binaries)
# VORN_FLEET_KEEP=1 keeps the sandbox (inventory, playbook outputs) for a look after.
set -uo pipefail

hosts=20
if [[ ${1:-} == -n ]]; then hosts=$2; shift 2; fi
if (($# != 3)); then
  echo "usage: $0 [-n HOSTS] VORN_TOOL VORNCTL KOPA_EMU" >&2
  exit 2
fi
command -v ansible-playbook >/dev/null || { echo "ansible-playbook is not installed" >&2; exit 2; }
tool=$(realpath "$1") ctl=$(realpath "$2") emu=$(realpath "$3")
repo=$(cd "$(dirname "$0")/.." && pwd)

. "$repo/tests/ansible/sandbox.sh"
ansible_sandbox VORN_FLEET_KEEP vorn-fleet "$repo"
export ANSIBLE_FORKS=5

# Each program behind a wrapper that counts its runs, one line per run in the host's sandbox.
for prog in vorn_tool:"$tool" vornctl:"$ctl"; do
  name=${prog%%:*}
  printf '#!/bin/sh\necho >>"$VORN_FLEET_COUNT.%s"\nexec %q "$@"\n' "$name" "${prog#*:}" \
    >"$work/$name"
  chmod +x "$work/$name"
done

{
  echo "all:"
  echo "  children:"
  echo "    npu_hosts:"
  echo "      hosts:"
} >"$work/inventory.yml"
for ((i = 0; i < hosts; i++)); do
  h=$(printf 'node%02d' "$((i + 1))")
  mkdir -p "$work/$h/root/etc" && install -m 0640 /dev/null "$work/$h/root/etc/vorn.conf"
  KOPA_EMU_DIR=$work/$h/emu "$emu" init --devices 8 >/dev/null || exit 1
  cat >>"$work/inventory.yml" <<EOF
        $h:
          ansible_connection: local
          ansible_python_interpreter: "{{ ansible_playbook_python }}"
          vorn_become: false
          vorn_host_octet: $((11 + i))
          vorn_environment:
            VORN_TEST_ROOT: $work/$h/root
            KOPA_EMU_DIR: $work/$h/emu
            VORN_FLEET_COUNT: $work/$h/count
EOF
done
printf 'vorn_tool_path: %s\nvornctl_path: %s\n' "$work/vorn_tool" "$work/vornctl" >"$work/vars.yml"

runs() { # runs HOST PROGRAM: the runs counted since the last reset
  local f=$work/$1/count.$2
  [[ -f $f ]] && wc -l <"$f" || echo 0
}
lines() { # lines HOST: the command lines of the tool the host's run log records
  cat "$work/$1/root/var/log/vorn_tool/"*.log 2>/dev/null | grep -c 'vorn tool execution'
}
play() { # play NAME: runs the playbook, prints seconds per host and runs per host
  local name=$1 start end h tool_runs=0 ctl_runs=0 cmd_lines=0
  rm -f "$work"/node*/count.*
  for ((i = 0; i < hosts; i++)); do
    cmd_lines=$((cmd_lines - $(lines "$(printf 'node%02d' "$((i + 1))")")))
  done
  start=$(date +%s.%N)
  ansible-playbook -i "$work/inventory.yml" -e "@$work/vars.yml" \
    "$repo/ansible/examples/fleet/site.yml" >"$work/$name.txt" 2>&1
  local rc=$?
  end=$(date +%s.%N)
  for ((i = 0; i < hosts; i++)); do
    h=$(printf 'node%02d' "$((i + 1))")
    tool_runs=$((tool_runs + $(runs "$h" vorn_tool)))
    ctl_runs=$((ctl_runs + $(runs "$h" vornctl)))
    cmd_lines=$((cmd_lines + $(lines "$h")))
  done
  local changed
  changed=$(sed -n '/^PLAY RECAP/,$p' "$work/$name.txt" | grep -o 'changed=[0-9]*' | sort | uniq -c |
    awk '{printf "%s%s x%s", sep, $2, $1; sep=", "}')
  awk -v n="$name" -v s="$start" -v e="$end" -v h="$hosts" -v t="$tool_runs" -v c="$ctl_runs" \
    -v l="$cmd_lines" -v rc="$rc" -v ch="$changed" 'BEGIN {
      printf "%-6s %6.1f s total  %5.2f s/host  runs/host: vorn_tool %4.1f, vornctl %4.1f, command lines %4.1f  exit %d  (%s)\n",
        n, e - s, (e - s) / h, t / h, c / h, l / h, rc, ch }'
  return "$rc"
}

echo "fleet: $hosts hosts of 8 devices, $(nproc) cores, load $(cut -d' ' -f1-3 /proc/loadavg)"
play first || { tail -n 40 "$work/first.txt"; exit 1; }
play rerun || { tail -n 40 "$work/rerun.txt"; exit 1; }
