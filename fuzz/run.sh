#!/usr/bin/env bash
# Builds the fuzz targets if needed and runs each for a fixed time.
#
#   fuzz/run.sh [SECONDS]          seconds per target (default 20, or $FUZZ_SECONDS)
#
# Environment:
#   FUZZ_SECONDS     seconds per target when no argument is given
#   FUZZ_BUILD_DIR   build directory (default <repo>/build-fuzz)
#   FUZZ_TARGETS     space-separated subset of targets to run (default: all)
#   FUZZ_JOBS        parallel build jobs (default 2)
#
# Seeds in fuzz/corpus/<target>/ are only read; inputs the fuzzer finds go to
# <build>/fuzz-corpus/<target>/ and crash inputs to <build>/fuzz-artifacts/<target>/.
# Prints one summary line per target and exits non-zero if any target crashed.
set -u -o pipefail

here="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
repo="$(dirname "$here")"
seconds="${1:-${FUZZ_SECONDS:-20}}"
build="${FUZZ_BUILD_DIR:-$repo/build-fuzz}"
targets="${FUZZ_TARGETS:-fuzz_ads_documents fuzz_config fuzz_url fuzz_envelope}"
jobs="${FUZZ_JOBS:-2}"

if ! [[ "$seconds" =~ ^[0-9]+$ ]] || [ "$seconds" -lt 1 ]; then
  echo "usage: $0 [SECONDS]  (a whole number of seconds per target)" >&2
  exit 2
fi

if [ ! -f "$build/build.ninja" ] && [ ! -f "$build/Makefile" ]; then
  echo "== configuring $build"
  mkdir -p "$build"
  CC="${CC:-clang}" CXX="${CXX:-clang++}" cmake -S "$repo" -B "$build" -G Ninja \
    -DCMAKE_BUILD_TYPE=RelWithDebInfo -DTAVIK_BUILD_FUZZ=ON -DTAVIK_BUILD_TESTS=OFF \
    -DTAVIK_SANITIZE=address >"$build/configure.log" 2>&1 || {
    cat "$build/configure.log" >&2
    echo "configure failed" >&2
    exit 2
  }
fi
echo "== building $targets"
# shellcheck disable=SC2086
cmake --build "$build" --target $targets -j "$jobs" >"$build/fuzz-build.log" 2>&1 || {
  tail -n 40 "$build/fuzz-build.log" >&2
  echo "build failed (full log: $build/fuzz-build.log)" >&2
  exit 2
}

# Leaks are reported at exit by a separate pass; a short run should not fail on a
# one-off allocation kept for the life of the process (the HTTP client, log sink).
export ASAN_OPTIONS="${ASAN_OPTIONS:-detect_leaks=0:abort_on_error=1:symbolize=1}"
export UBSAN_OPTIONS="${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}"

failed=0
summary=()
for target in $targets; do
  binary="$build/fuzz/$target"
  work="$build/fuzz-corpus/$target"
  artifacts="$build/fuzz-artifacts/$target"
  log="$build/fuzz-logs/$target.log"
  mkdir -p "$work" "$artifacts" "$(dirname "$log")"
  args=(-max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -print_final_stats=1
    -artifact_prefix="$artifacts/")
  [ -f "$here/dict/$target.dict" ] && args+=(-dict="$here/dict/$target.dict")

  echo "== $target for ${seconds}s"
  "$binary" "${args[@]}" "$work" "$here/corpus/$target" >"$log" 2>&1
  status=$?

  runs="$(grep -oE 'stat::number_of_executed_units: *[0-9]+' "$log" | grep -oE '[0-9]+$' | tail -1)"
  if [ -z "$runs" ]; then
    runs="$(grep -oE 'Done [0-9]+ runs' "$log" | grep -oE '[0-9]+' | tail -1)"
  fi
  last="$(grep -E '^#[0-9]+' "$log" | tail -1)"
  cov="$(grep -oE 'cov: [0-9]+' <<<"$last" | grep -oE '[0-9]+')"
  ft="$(grep -oE 'ft: [0-9]+' <<<"$last" | grep -oE '[0-9]+')"
  corp="$(grep -oE 'corp: [0-9]+' <<<"$last" | grep -oE '[0-9]+')"
  if [ "$status" -eq 0 ]; then
    result="ok"
  else
    failed=1
    crash="$(ls -t "$artifacts" 2>/dev/null | head -1)"
    result="CRASH (exit $status${crash:+, input $artifacts/$crash}, log $log)"
    grep -E 'CONTRACT VIOLATION|ERROR: (AddressSanitizer|libFuzzer)|runtime error' -A1 "$log" |
      head -n 6 | sed 's/^/   | /'
  fi
  summary+=("$(printf '%-20s %-6s execs=%-9s cov=%-6s ft=%-6s corpus=%-5s %s' "$target" \
    "${seconds}s" "${runs:-?}" "${cov:-?}" "${ft:-?}" "${corp:-?}" "$result")")
done

echo "== summary"
printf '%s\n' "${summary[@]}"
exit "$failed"
