#!/usr/bin/env bash
# Installs the SDK from a build tree into a fresh prefix, builds the two consumer projects
# against that install only, and runs them against the installed tavik-sandbox.
#   tests/consumers/run.sh BUILD_DIR
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
build=$(cd "$1" && pwd)
work=$build/consumers
prefix=$work/prefix
rm -rf "$work"
mkdir -p "$work"

echo "== install $build into $prefix"
cmake --install "$build" --prefix "$prefix" >"$work/install.log"

"$prefix/bin/tavik-sandbox" --quiet --cert-out "$work/ca.pem" >"$work/sandbox.out" &
sandbox=$!
trap 'kill $sandbox 2>/dev/null || true' EXIT
for _ in $(seq 100); do
  [ -s "$work/sandbox.out" ] && break
  sleep 0.1
done
base=$(head -1 "$work/sandbox.out")
host=${base#https://}
echo "== sandbox at $base"

consumers=(core)
if find "$prefix" -name TavikQuickTargets.cmake | grep -q .; then consumers+=(quick); fi
status=0
for consumer in "${consumers[@]}"; do
  echo "== consumer: $consumer"
  cmake -S "$here/$consumer" -B "$work/$consumer" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" \
    -DCMAKE_BUILD_TYPE=Release >"$work/$consumer.configure.log" ||
    { cat "$work/$consumer.configure.log"; status=1; continue; }
  cmake --build "$work/$consumer" || { status=1; continue; }
  if [ "$consumer" = quick ]; then
    QT_QPA_PLATFORM=offscreen "$work/quick/quick_consumer" "$host" "$work/ca.pem" || status=1
  else
    (cd "$work" && "$work/core/core_consumer" "$host" "$work/ca.pem") || status=1
  fi
done
echo "== consumer: add_subdirectory (configure only)"
cmake -S "$here/subdirectory" -B "$work/subdirectory" -G Ninja \
  -DTAVIK_SOURCE_DIR="$here/../.." >"$work/subdirectory.configure.log" ||
  { cat "$work/subdirectory.configure.log"; status=1; }
if grep -qE '^CMAKE_BUILD_TYPE:STRING=.+' "$work/subdirectory/CMakeCache.txt"; then
  echo "the SDK wrote a build type into the host's cache"
  status=1
fi
exit $status
