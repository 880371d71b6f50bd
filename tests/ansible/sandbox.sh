# Sourced by the Ansible tests and the fleet benchmark: a sandbox directory under $TMPDIR
# (removed at the exit unless the variable named by $1 is set), in which Ansible keeps
# everything it writes, reading no configuration of the machine and the collection from the
# repository.
#
#   ansible_sandbox KEEP_VARIABLE PREFIX REPO   sets $work and exports Ansible's environment
ansible_sandbox() {
  work=$(mktemp -d "${TMPDIR:-/tmp}/$2-XXXXXX") || exit 1
  if [[ -n ${!1:-} ]]; then
    trap 'echo "sandbox kept: $work"' EXIT
  else
    trap 'rm -rf "$work"' EXIT
  fi
  export ANSIBLE_COLLECTIONS_PATH=$3/ansible
  export ANSIBLE_HOME=$work/ansible-home ANSIBLE_LOCAL_TEMP=$work/ansible-tmp
  export ANSIBLE_REMOTE_TEMP=$work/ansible-remote ANSIBLE_CONFIG=$work/ansible.cfg
  export ANSIBLE_NOCOLOR=1 ANSIBLE_FORCE_COLOR=0 ANSIBLE_RETRY_FILES_ENABLED=0
  export ANSIBLE_PIPELINING=1
  printf '[defaults]\n' >"$ANSIBLE_CONFIG"
}
