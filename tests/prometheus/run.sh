#!/usr/bin/env bash
# The alerting rules that the package ships (dist/prometheus/vorn.rules.yml): promtool checks
# them and runs their unit tests (vorn.rules.test.yml beside this script). Exit 77 (skipped)
# without promtool; scripts/deps.sh installs it (Debian's prometheus).
# Usage: run.sh PROMTOOL (empty when not found)
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
promtool=${1:-}
if [[ -z $promtool || ! -x $promtool ]]; then
  echo "SKIP: promtool is not installed (scripts/deps.sh installs Debian's prometheus)"
  exit 77
fi
"$promtool" check rules "$here/../../dist/prometheus/vorn.rules.yml"
"$promtool" test rules "$here/vorn.rules.test.yml"
