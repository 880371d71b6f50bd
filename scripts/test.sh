#!/usr/bin/env bash
# Builds and runs every test: the test build (absolute paths under a test root, with a subset of
# the end-to-end tests under valgrind when it is installed), then the same suite under
# AddressSanitizer and UndefinedBehaviorSanitizer, then every fuzz target for a few seconds
# (when clang has libFuzzer), then the production build, packed as the Debian packages, checked
# in fresh roots under a temporary directory and installed in a throw-away overlay of the host,
# where the installed programs run on the installed emulator (scripts/check_package.sh,
# lintian, scripts/check_unpackaged.sh and scripts/check_installed.sh included). Compiler
# warnings are errors in every build.
# Usage: scripts/test.sh [--quick]   (--quick skips the sanitizer pass and the fuzz targets)
set -euo pipefail
cd "$(dirname "$0")/.."

quick=0
[[ "${1:-}" == "--quick" ]] && quick=1

scripts/deps.sh
jobs=$(nproc)
# Every build of CI treats a compiler warning as an error (scripts/package.sh and
# scripts/fuzz.sh read it too).
export VORN_WERROR=ON

run_suite() {
  local dir=$1; shift
  cmake -S . -B "$dir" -G Ninja -DVORN_TEST_PATHS=ON -DVORN_WERROR="$VORN_WERROR" "$@" >/dev/null
  cmake --build "$dir" -j"$jobs"
  ctest --test-dir "$dir" -j"$jobs" --output-on-failure --timeout 300
}

echo "== test build =="
run_suite build-test -DCMAKE_BUILD_TYPE=RelWithDebInfo

if ((!quick)); then
  echo "== sanitizer build (ASan + UBSan) =="
  ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1 \
    run_suite build-asan -DCMAKE_BUILD_TYPE=Debug -DVORN_SANITIZE=ON -DVORN_BUILD_BENCH=OFF

  # Each fuzz target for a few seconds from its seeds: the inputs of fixed faults stay fixed.
  echo "== fuzz targets (5 s each) =="
  fuzz=0
  scripts/fuzz.sh 5 || fuzz=$?
  if ((fuzz == 77)); then
    echo "fuzz targets skipped"
  elif ((fuzz != 0)); then
    exit "$fuzz"
  fi
fi

# The package check builds the production build itself (the system's exact paths, no run path).
echo "== production build, Debian packages and the installed-package tests =="
scripts/package_deps.sh
JOBS=$jobs scripts/check_package.sh build-pkgcheck
echo "all tests passed"
