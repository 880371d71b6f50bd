#!/usr/bin/env bash
# Keeps the bash completion and the manual page honest against the tool's own help: every
# command of `vorn_tool -h`, its operation words and the keywords of each operation must be
# what the completion offers, and every command and keyword must appear in the manual page.
# Usage: check_docs.sh TOOL COMPLETION MANPAGE, where TOOL is a test build (VORN_TEST_PATHS:
# its run log goes under a temporary VORN_TEST_ROOT).
set -euo pipefail
tool=$1 completion=$2 manpage=$3

tmp=$(mktemp -d "${TMPDIR:-/tmp}/vorn-docs-XXXXXX")
trap 'rm -rf "$tmp"' EXIT
VORN_TEST_ROOT=$tmp/root KOPA_EMU_DIR=$tmp/emu "$tool" -h >"$tmp/help"

awk -f "$(dirname "$0")/help_grammar.awk" "$tmp/help" >"$tmp/grammar"

# shellcheck source=/dev/null
source "$completion"
fails=0
bad() {
  echo "docs: $*" >&2
  fails=$((fails + 1))
}

# Commands of "-i" against the completion's list, both ways.
grep '^cmd -i ' "$tmp/grammar" | awk '{print $3}' | sort >"$tmp/help.cmds"
# shellcheck disable=SC2086,SC2154 # a blank-separated list, defined by the completion
printf '%s\n' $_vorn_tool_commands | sort >"$tmp/comp.cmds"
diff -u "$tmp/help.cmds" "$tmp/comp.cmds" >&2 || bad "the completion's commands differ from the help"
(($(wc -l <"$tmp/help.cmds") == 38)) || bad "the help lists $(wc -l <"$tmp/help.cmds") commands of -i, not 38"
grep -qx 'op -a -cfg recovery' "$tmp/grammar" || bad "the help has no -a -cfg recovery"

# Operation words and keywords per command.
while read -r cmd; do
  want=$(awk -v c="$cmd" '$1 == "op" && $2 == "-i" && $3 == c {print $4}' "$tmp/grammar" | sort | xargs)
  # shellcheck disable=SC2046 # the completion answers blank-separated words
  got=$(printf '%s\n' $(_vorn_tool_ops "$cmd") | sort | xargs)
  [[ $want == "$got" ]] || bad "$cmd: help operations '$want', completion '$got'"
  [[ $cmd == -tls ]] && continue # its keywords form a sequence; checked by hand
  for op in $want; do
    want_kw=$(awk -v c="$cmd" -v o="$op" '$1 == "kw" && $2 == "-i" && $3 == c && $4 == o {print $5}' \
      "$tmp/grammar" | sort | xargs)
    # shellcheck disable=SC2046
    got_kw=$(printf '%s\n' $(_vorn_tool_keywords "$cmd" "$op") | sort | xargs)
    [[ $want_kw == "$got_kw" ]] || bad "$cmd $op: help keywords '$want_kw', completion '$got_kw'"
  done
done <"$tmp/help.cmds"

# The manual page names every command and keyword (escapes and fonts removed).
sed -e 's/\\-/-/g' -e 's/\\f[BIRP]//g' -e 's/\\(en/-/g' "$manpage" >"$tmp/man.txt"
while read -r kind _ cmd op kw; do
  case $kind in
  cmd) grep -qE -- "(^|[][ \",])$cmd([][ \",]|$)" "$tmp/man.txt" || bad "the manual page lacks $cmd" ;;
  kw) grep -qE -- "(^|[][ \",])$kw([][ \",]|$)" "$tmp/man.txt" || bad "the manual page lacks $kw of $cmd $op" ;;
  esac
done <"$tmp/grammar"

((fails == 0)) || exit 1
echo "docs: completion and manual page follow the help ($(wc -l <"$tmp/help.cmds") commands)"
