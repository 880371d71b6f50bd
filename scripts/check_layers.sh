#!/usr/bin/env bash
# Fails when a lower layer of the tool includes a higher one. (The build links each layer on
# its own, so a call upwards fails there; this check catches the include, which may bring an
# inline function or a type along without a call.) From the bottom up:
#   base/                      includes nothing of the tool's own
#   log/, config/, device/     may include base/ and each other's headers, never cmdline/,
#                              commands/, tls/ or main/
#   cmdline/                   the command contract and its helpers: never commands/, tls/, main/
#   commands/, tls/            never main/
#   platform/kopa_platform.h   is included only by device/ and the driver-log channel
# main/ sits on top. vornctl/, a second program on the same layers, sits on top like main/: it
# may include every layer below it, and no layer includes vornctl/.
# Usage: scripts/check_layers.sh [source root]
set -uo pipefail
root=${1:-$(dirname "$0")/..}
cd "$root" || exit 2

status=0
fail() { printf 'layering: %s\n' "$*" >&2; status=1; }

includes() { # dir -> "file:line:included path" for every project include below dir
  grep -rnE --include='*.cpp' --include='*.hpp' --include='*.h' '^[[:space:]]*#[[:space:]]*include[[:space:]]*"' "$1" 2>/dev/null |
    sed -E 's/^([^:]*:[0-9]+):[[:space:]]*#[[:space:]]*include[[:space:]]*"([^"]*)".*/\1:\2/'
}

while IFS=: read -r file line inc; do
  [[ -n "$file" ]] || continue
  [[ "$inc" == base/* ]] || fail "$file:$line includes $inc (base/ includes nothing above it)"
done < <(includes base)

for dir in log config device; do
  while IFS=: read -r file line inc; do
    [[ -n "$file" ]] || continue
    case "$inc" in
      main/* | cmdline/* | commands/* | tls/* | vornctl/*) fail "$file:$line includes $inc ($dir/ must not reach upwards)" ;;
    esac
  done < <(includes "$dir")
done

while IFS=: read -r file line inc; do
  [[ -n "$file" ]] || continue
  case "$inc" in
    main/* | commands/* | tls/*) fail "$file:$line includes $inc (cmdline/ must not reach upwards)" ;;
  esac
done < <(includes cmdline)

for dir in commands tls; do
  while IFS=: read -r file line inc; do
    [[ -n "$file" ]] || continue
    case "$inc" in
      main/*) fail "$file:$line includes $inc (main/ is the top of the tool)" ;;
    esac
  done < <(includes "$dir")
done

for dir in main cmdline commands tls; do
  while IFS=: read -r file line inc; do
    [[ -n "$file" ]] || continue
    case "$inc" in
      vornctl/*) fail "$file:$line includes $inc (vornctl/ is a program on top, not a layer)" ;;
    esac
  done < <(includes "$dir")
done

for dir in base log config cmdline commands main tls vornctl; do
  while IFS=: read -r file line inc; do
    [[ -n "$file" ]] || continue
    [[ "$inc" == platform/kopa_platform.h ]] || continue
    case "$file" in
      log/driver_log.hpp | log/driver_log.cpp) ;;
      *) fail "$file:$line includes $inc (only device/ and the driver-log channel do)" ;;
    esac
  done < <(includes "$dir")
done

((status == 0)) && echo "layering: no upward include"
exit $status
