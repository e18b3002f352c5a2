#!/usr/bin/env bash
# A quick tour of the SDK for a new integrator: starts the local sandbox, fetches and
# renders ads through the SDK with the `tavik` tool, sends a few tracking events and
# shows what the sandbox received. Everything stays on 127.0.0.1.
#
#   tools/tour.sh BUILD_DIR        (after: cmake --build BUILD_DIR --target tavik)
set -euo pipefail

if [[ $# -ne 1 ]]; then
  echo "usage: $0 BUILD_DIR" >&2
  exit 2
fi
tavik="$1/tools/tavik"
if [[ ! -x "$tavik" ]]; then
  echo "$0: no $tavik; build it first: cmake --build $1 --target tavik" >&2
  exit 2
fi

work="$(mktemp -d "${TMPDIR:-/tmp}/tavik-tour.XXXXXX")"
sandbox_pid=""
cleanup() {
  if [[ -n "$sandbox_pid" ]]; then
    kill -TERM "$sandbox_pid" 2>/dev/null || true
    wait "$sandbox_pid" 2>/dev/null || true
  fi
  rm -rf "$work"
}
trap cleanup EXIT
trap 'exit 130' INT TERM

if [[ -t 1 ]]; then bold=$'\033[1m' plain=$'\033[0m'; else bold="" plain=""; fi
heading() {
  printf '\n%s== %s%s\n' "$bold" "$1" "$plain"
}
# Shows the exact command, then runs it.
show() {
  printf '$ tavik'
  printf ' %q' "$@"
  printf '\n'
  "$tavik" "$@"
}

heading "Start the sandbox: a local HTTPS stand-in for the three ad services"
echo "\$ tavik sandbox --port 0 --cert-out $work/sandbox.pem &"
"$tavik" sandbox --port 0 --cert-out "$work/sandbox.pem" >"$work/sandbox.out" 2>"$work/sandbox.err" &
sandbox_pid=$!

# The first line the sandbox prints is its address.
base=""
for _ in $(seq 1 100); do
  if [[ -s "$work/sandbox.out" ]]; then
    base="$(head -n 1 "$work/sandbox.out")"
    [[ "$base" == https://* ]] && break
  fi
  if ! kill -0 "$sandbox_pid" 2>/dev/null; then
    echo "the sandbox did not start:" >&2
    cat "$work/sandbox.err" >&2
    exit 1
  fi
  sleep 0.1
done
if [[ "$base" != https://* ]]; then
  echo "the sandbox did not print its address in time" >&2
  exit 1
fi
echo "sandbox at $base"

heading "Point the tool at it (it never talks to the production services by default)"
export TAVIK_HOST="$base"
export TAVIK_CA_BUNDLE="$work/sandbox.pem"
echo "\$ export TAVIK_HOST=$TAVIK_HOST TAVIK_CA_BUNDLE=$TAVIK_CA_BUNDLE"

heading "Product-listing ads for the home page (the service's answer, as JSON)"
show pla --page HOME --count 3

heading "A banner ad, decoded by the SDK's renderer"
show banner --au au_home_banner --page HOME

heading "A carousel ad: one row per card"
show carousel --au au_carousel --page HOME

heading "Every ad of a multi-ad unit"
show multi --au au_multi --page HOME --count 4

heading "Report an impression of the banner"
show event impression --uclid uc-home-banner-1 --position 1

heading "Report a click on it"
show event click --uclid uc-home-banner-1

heading "Report a purchase with two product lines"
show event purchase --sales 204.48 --order ORDER-1001 \
  --product SKU-1001:89.99:2:merchant-7 --product SKU-1002:24.5:1

heading "What the event-tracking service received"
show sandbox-log

heading "Done"
echo "Try 'tavik --help' for every command; the sandbox stops now."
