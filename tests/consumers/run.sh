#!/usr/bin/env bash
# Builds the consumer projects against an installed SDK only, and runs them against the
# installed tavik-sandbox: the core program with CMake (find_package) and with pkg-config,
# the Qt Quick window with CMake.
#   tests/consumers/run.sh BUILD_DIR                 installs BUILD_DIR into a fresh prefix
#                                                    first (cmake --install), and checks
#                                                    the add_subdirectory use as well
#   tests/consumers/run.sh --prefix PREFIX WORK_DIR  uses what is installed in PREFIX (the
#                                                    Debian packages unpacked in a fresh root)
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
if [ "${1:-}" = --prefix ]; then
  prefix=$(cd "$2" && pwd)
  mkdir -p "$3"
  work=$(cd "$3" && pwd)
  build=""
else
  build=$(cd "$1" && pwd)
  work=$build/consumers
  prefix=$work/prefix
  rm -rf "$work"
  mkdir -p "$work"
  echo "== install $build into $prefix"
  cmake --install "$build" --prefix "$prefix" >"$work/install.log"
fi

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

# A build without CMake: the compiler and tavik-core.pc only. The run path is only needed
# because the prefix is not one the dynamic loader searches.
echo "== consumer: core with pkg-config"
pc_dir=$(dirname "$(find "$prefix" -name tavik-core.pc | head -1)")
if [ "$pc_dir" = . ]; then
  echo "no tavik-core.pc under $prefix"
  status=1
else
  flags=$(PKG_CONFIG_PATH="$pc_dir" pkg-config --cflags --libs tavik-core)
  libdir=$(PKG_CONFIG_PATH="$pc_dir" pkg-config --variable=libdir tavik-core)
  # shellcheck disable=SC2086  # the flags are words
  if c++ -std=c++20 -o "$work/core_pkgconfig" "$here/core/main.cpp" $flags -Wl,-rpath,"$libdir"; then
    "$work/core_pkgconfig" "$host" "$work/ca.pem" || status=1
  else
    status=1
  fi
fi

if [ -n "$build" ]; then
  echo "== consumer: add_subdirectory (configure only)"
  cmake -S "$here/subdirectory" -B "$work/subdirectory" -G Ninja \
    -DTAVIK_SOURCE_DIR="$here/../.." >"$work/subdirectory.configure.log" ||
    { cat "$work/subdirectory.configure.log"; status=1; }
  if grep -qE '^CMAKE_BUILD_TYPE:STRING=.+' "$work/subdirectory/CMakeCache.txt"; then
    echo "the SDK wrote a build type into the host's cache"
    status=1
  fi
fi
exit $status
