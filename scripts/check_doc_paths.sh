#!/usr/bin/env bash
# Fails on a path of the source tree that a document names but that does not exist: the targets
# of its links (relative to the document) and the words in backquotes that begin with a
# top-level directory of the tree (relative to the tree), such as `tests/ansible/run.sh`. Paths
# of the installed system (/etc/...), build directories and patterns (<id>, *, $VAR) are not
# paths of the tree and are left alone.
# Usage: check_doc_paths.sh SOURCE_DIR DOCUMENT...
set -euo pipefail
src=$1
shift

tops=$(find "$src" -mindepth 1 -maxdepth 1 -type d ! -name '.*' ! -name 'build*' -printf '%f\n' | xargs)
# shellcheck disable=SC2016 # backquotes are the text looked for, not a command
quoted='`[^`]+`'
fails=0
for doc in "$@"; do
  dir=$(dirname "$doc")
  # Link targets, without an anchor; web and in-page links are not files.
  while read -r target; do
    target=${target%%#*}
    [[ -z $target || $target == *://* || $target == mailto:* ]] && continue
    [[ -e $dir/$target ]] || {
      echo "$doc: the link $target names no file" >&2
      fails=$((fails + 1))
    }
  done < <(grep -oE '\]\([^) ]+\)' "$doc" | sed -E 's/^\]\((.*)\)$/\1/')
  # Backquoted words that begin with a top-level directory of the tree.
  while read -r word; do
    [[ $word == *[\<\>\*\$\{]* ]] && continue
    top=${word%%/*}
    [[ " $tops " == *" $top "* ]] || continue
    [[ -e $src/$word ]] || {
      echo "$doc: \`$word\` names no file of the tree" >&2
      fails=$((fails + 1))
    }
  done < <(grep -oE "$quoted" "$doc" | tr -d '`' | awk '$1 ~ /^[A-Za-z0-9_.-]+\// {print $1}')
done
((fails == 0)) || exit 1
echo "doc paths: every path of the tree named in $# documents exists"
