#!/usr/bin/env bash
# Builds the libFuzzer targets with clang (AddressSanitizer and UndefinedBehaviorSanitizer) in
# build-fz and runs each in turn for a while (default 60 s), starting from its seeds in
# fuzz/corpus/<target>/ (never written to) and from what earlier runs found in
# build-fz/corpus/<target>/ (where new inputs go), with fuzz/<target>.dict as its dictionary when
# there is one. An input that breaks a target is kept in
# build-fz/crashes/<target>/ and the script fails; the log of each target is build-fz/<target>.log.
# Usage: scripts/fuzz.sh [seconds] [target ...]
# Exits 77 without running anything when clang cannot build a libFuzzer target.
set -euo pipefail
cd "$(dirname "$0")/.."

secs=${1:-60}
if (($# > 0)); then shift; fi
targets=("$@")
((${#targets[@]} > 0)) || targets=(cmdline_fuzz reply_fuzz table_print_fuzz store_fuzz saved_lines_fuzz run_log_fuzz
  ssh_client_fuzz checkers_fuzz)
build=build-fz

# Each target works in a directory of its own under $TMPDIR and removes it when it ends; one
# that crashes cannot, so they all work under one directory of this run, removed at the end. A
# memory file system keeps the rewrites of the configuration file from reaching the disk.
base=${TMPDIR:-}
if [[ -z "$base" ]]; then
  base=/tmp
  [[ -d /dev/shm && -w /dev/shm ]] && base=/dev/shm
fi
work=$(mktemp -d "$base/vorn-fuzz-run.XXXXXX")
trap 'rm -rf "$work"' EXIT

probe="$work/probe.cpp"
echo 'extern "C" int LLVMFuzzerTestOneInput(const unsigned char *, unsigned long) { return 0; }' >"$probe"
if ! command -v clang++ >/dev/null ||
  ! clang++ -fsanitize=fuzzer,address,undefined "$probe" -o "$work/probe" 2>/dev/null; then
  echo "fuzz: clang++ with libFuzzer is not available, nothing run"
  exit 77
fi

CC=clang CXX=clang++ cmake -S . -B "$build" -G Ninja -DVORN_TEST_PATHS=ON -DVORN_FUZZ=ON \
  -DVORN_BUILD_TESTS=OFF -DVORN_BUILD_BENCH=OFF -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DVORN_WERROR="${VORN_WERROR:-OFF}" >/dev/null
cmake --build "$build" -j"${VORN_JOBS:-2}" --target "${targets[@]}"

status=0
for f in "${targets[@]}"; do
  mkdir -p "$build/corpus/$f" "$build/crashes/$f"
  echo "== $f ($secs s)"
  dict=()
  [[ -f "fuzz/$f.dict" ]] && dict=(-dict="fuzz/$f.dict")
  if ! TMPDIR=$work "$build/fuzz/$f" -max_total_time="$secs" -timeout=30 -print_final_stats=1 \
    "${dict[@]}" -artifact_prefix="$build/crashes/$f/" "$build/corpus/$f" "fuzz/corpus/$f" \
    >"$build/$f.log" 2>&1; then
    status=1
    grep -E '_fuzz: |ERROR|SUMMARY|Test unit written' "$build/$f.log" || tail -20 "$build/$f.log"
  fi
  grep -E '^#[0-9]+[[:space:]]+DONE|stat::(number_of_executed_units|new_units_added)' "$build/$f.log" || true
done
exit $status
