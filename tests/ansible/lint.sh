#!/usr/bin/env bash
# The Ansible collection vorn.fabric and the example playbooks under ansible-lint's production
# profile, and the collection under the `ansible-test sanity` tests that need no Python package
# beyond ansible-core (compile, shebang, line endings, boilerplate, ...). Both run on a copy in
# a sandbox under $TMPDIR, since they write their caches and results beside what they check.
#
# Usage: lint.sh. Exit 77 (skipped) when ansible-lint or ansible-test is not installed
# (scripts/deps.sh installs Debian's ansible-lint and ansible-core).
set -uo pipefail

if ! command -v ansible-lint >/dev/null 2>&1 || ! command -v ansible-test >/dev/null 2>&1; then
  echo "SKIP: ansible-lint or ansible-test is not installed (scripts/deps.sh installs them)"
  exit 77
fi
repo=$(cd "$(dirname "$0")/../.." && pwd)
work=$(mktemp -d "${TMPDIR:-/tmp}/vorn-ansible-lint-XXXXXX") || exit 1
trap 'rm -rf "$work"' EXIT
cp -r "$repo/ansible" "$work/ansible"
export HOME=$work/home ANSIBLE_HOME=$work/home/.ansible ANSIBLE_COLLECTIONS_PATH=$work/ansible
export ANSIBLE_NOCOLOR=1 NO_COLOR=1 ANSIBLE_LOCAL_TEMP=$work/tmp
mkdir -p "$HOME"
status=0

echo "== ansible-lint, production profile: the collection"
(cd "$work/ansible/ansible_collections/vorn/fabric" && ansible-lint --offline -p --profile production) ||
  status=1
echo "== ansible-lint, production profile: the example playbooks"
(cd "$work/ansible/examples/fleet" && ansible-lint --offline -p --profile production site.yml recover.yml) ||
  status=1

# The tests of ansible-test sanity that run without pip (the others install their own tools).
tests=(action-plugin-docs compile empty-init future-import-boilerplate ignores
  line-endings metaclass-boilerplate no-assert no-basestring no-dict-iteritems no-dict-iterkeys
  no-dict-itervalues no-get-exception no-illegal-filenames no-main-display no-smart-quotes
  no-unicode-literals replace-urlopen shebang symlinks use-argspec-type-path use-compat-six)
echo "== ansible-test sanity: ${tests[*]}"
(cd "$work/ansible/ansible_collections/vorn/fabric" && git init -q . &&
  ansible-test sanity --python "$(python3 -c 'import sys; print("%d.%d" % sys.version_info[:2])')" \
    --color no "${tests[@]/#/--test=}") || status=1
((status == 0)) && echo "lint: passed"
exit "$status"
