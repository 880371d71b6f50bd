#!/usr/bin/env bash
# Keeps the bash completion, the manual page and the README honest against the tool's own help:
# every command of `vorn_tool -h`, its operation words and the keywords of each operation must be
# what the completion offers; the manual page's command sections must name exactly the commands
# and operations of the help, and every keyword; the number of commands that the manual page
# and the README state must be the help's.
# Usage: check_docs.sh TOOL COMPLETION MANPAGE README, where TOOL is a test build
# (VORN_TEST_PATHS: its run log goes under a temporary VORN_TEST_ROOT).
set -euo pipefail
tool=$1 completion=$2 manpage=$3 readme=$4

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
[[ -s $tmp/help.cmds ]] || bad "no command of -i found in the help"
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

# Its command sections: the heading (the line after .TP or .TQ) of each entry under COMMANDS is
# one or more "command operation ..." forms separated by ", ", where a lone word is a further
# operation of the command before it, and "vorn_tool -a" names the major type. Their command and
# operation pairs must be exactly the help's.
awk '
  /^\.SH / { in_cmds = ($2 == "COMMANDS"); next }
  !in_cmds { next }
  /^\.T[PQ]/ { heading = 1; next }
  heading {
    heading = 0; line = $0; sub(/^\.[A-Z]+ */, "", line); gsub(/"/, "", line)
    n = split(line, parts, /, /)
    for (i = 1; i <= n; i++) {
      k = split(parts[i], w, " "); major = "-i"; first = 1
      if (w[1] == "vorn_tool") { major = w[2]; first = 3 }
      if (k - first >= 1) { cmd = w[first]; print "op", major, cmd, w[first + 1] }
      else if (k == first) print "op", major, cmd, w[first]
    }
  }
' "$tmp/man.txt" | sort -u >"$tmp/man.ops"
grep '^op ' "$tmp/grammar" | sort -u >"$tmp/help.ops"
diff -u "$tmp/help.ops" "$tmp/man.ops" >&2 ||
  bad "the manual page's command sections differ from the help's commands and operations (- help only, + manual only)"
grep -qi 'not available' "$tmp/man.txt" && bad "the manual page says a command is not available"

# The number of commands stated in the manual page and the README.
entries=$(grep -c '^vorn_tool ' "$tmp/help")
for doc in "$tmp/man.txt" "$readme"; do
  stated=$(grep -oE 'all [0-9]+ commands' "$doc" | awk '{print $2}' | sort -u | xargs)
  [[ $stated == "$entries" ]] || bad "$(basename "$doc"): states '${stated:-no}' commands, the help has $entries"
done
while read -r kind _ cmd op kw; do
  case $kind in
  cmd) grep -qE -- "(^|[][ \",])$cmd([][ \",]|$)" "$tmp/man.txt" || bad "the manual page lacks $cmd" ;;
  kw) grep -qE -- "(^|[][ \",])$kw([][ \",]|$)" "$tmp/man.txt" || bad "the manual page lacks $kw of $cmd $op" ;;
  esac
done <"$tmp/grammar"

((fails == 0)) || exit 1
echo "docs: completion and manual page follow the help ($(wc -l <"$tmp/help.cmds") commands)"
