#!/usr/bin/env bash
# The test command: installs what is missing, builds, runs the whole suite.
#   scripts/test.sh            the suite (and, under CI=true, the ASan+UBSan run and a short fuzz run)
#   scripts/test.sh --asan     also the suite under AddressSanitizer + UndefinedBehaviorSanitizer
#   scripts/test.sh --tsan     also the suite under ThreadSanitizer
#   scripts/test.sh --fuzz     also every fuzz target for a few seconds
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/setup.sh"
tavik_install_packages

asan=0 tsan=0 fuzz=0
if [ "${CI:-}" = "true" ]; then asan=1 fuzz=1; fi
for arg in "$@"; do
  case "$arg" in
    --asan) asan=1 ;;
    --tsan) tsan=1 ;;
    --fuzz) fuzz=1 ;;
    *) echo "usage: scripts/test.sh [--asan] [--tsan] [--fuzz]" >&2; exit 2 ;;
  esac
done

cd "$TAVIK_ROOT"
jobs=$(nproc)

passed=0 failed=0
run_suite() {
  local dir=$1
  shift
  echo "== build $dir"
  tavik_build "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DTAVIK_BUILD_TESTS=ON "$@"
  echo "== test $dir"
  local status=0
  (cd "$dir" && ctest -j"$jobs" --timeout 300 --output-on-failure) | tee "$dir/ctest.log" ||
    status=$?
  # "100% tests passed, 0 tests failed out of 95"
  local line
  line=$(grep -E "tests failed out of [0-9]+" "$dir/ctest.log" | tail -1 || true)
  if [ -n "$line" ]; then
    local total=${line##* out of }
    local bad
    bad=$(echo "$line" | sed -E 's/.* ([0-9]+) tests failed.*/\1/')
    passed=$((passed + total - bad))
    failed=$((failed + bad))
  fi
  return $status
}
trap 'echo "tavik: $passed passed, $failed failed"' EXIT

# Installed into /usr (the Debian packages' layout); the tests themselves install nowhere.
run_suite build -DCMAKE_INSTALL_PREFIX=/usr
check() {
  echo "== $1"
  shift
  if "$@"; then passed=$((passed + 1)); else failed=$((failed + 1)); fi
}
# The module's QML, as Qt's linter sees it: not one warning.
check qmllint tests/qmllint.sh build
# Separate projects build and run against a fresh install (find_package, pkg-config,
# import Tavik), then against the Debian packages unpacked in a fresh root.
check consumers tests/consumers/run.sh build
check packages tests/packages/run.sh build
# The API reference: not one Doxygen warning (every public symbol documented), every QML
# type documented with an example.
check docs scripts/docs.sh build
if [ $asan -eq 1 ]; then
  # Everything, views included. tests/lsan.supp lists the allocations Qt, GStreamer and
  # PulseAudio keep until exit, each with its reason.
  ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
    LSAN_OPTIONS="suppressions=$TAVIK_ROOT/tests/lsan.supp:print_suppressions=0" \
    run_suite build-asan -DTAVIK_SANITIZE=address
fi
if [ $tsan -eq 1 ]; then
  # Qt comes uninstrumented from Debian: its own memory accesses are not tracked (see
  # tests/tsan.supp).
  TSAN_OPTIONS="halt_on_error=1 ignore_noninstrumented_modules=1 suppressions=$TAVIK_ROOT/tests/tsan.supp" \
    run_suite build-tsan -DTAVIK_SANITIZE=thread
fi
if [ $fuzz -eq 1 ] && [ -x fuzz/run.sh ]; then
  echo "== fuzz"
  fuzz/run.sh "${TAVIK_FUZZ_SECONDS:-10}"
fi
[ "$failed" -eq 0 ]
