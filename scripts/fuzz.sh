#!/usr/bin/env bash
# Builds the libFuzzer targets with clang and runs each for a while (default 60 s each).
# Usage: scripts/fuzz.sh [seconds]
set -euo pipefail
cd "$(dirname "$0")/.."
secs=${1:-60}
CC=clang CXX=clang++ cmake -S . -B build-fuzz -G Ninja -DVORN_TEST_PATHS=ON -DVORN_FUZZ=ON \
  -DVORN_BUILD_TESTS=OFF -DVORN_BUILD_BENCH=OFF -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build-fuzz -j"$(nproc)" --target store_fuzz checkers_fuzz
for f in store_fuzz checkers_fuzz; do
  mkdir -p "build-fuzz/corpus/$f"
  echo "== $f ($secs s) =="
  "build-fuzz/fuzz/$f" -max_total_time="$secs" -print_final_stats=1 "build-fuzz/corpus/$f" 2>&1 |
    grep -E 'stat::number_of_executed_units|ERROR|SUMMARY|Done' || true
done
rm -f /tmp/vorn-store-fuzz-*.conf
