#!/usr/bin/env bash
# Builds the view benchmarks in Release (build-bench/) and runs them: the Qt Quick views
# against plain Qt Quick items with the same pictures, in one process and one window,
# under Xvfb with Mesa when there is no display. Prints each figure with its target and
# the GStreamer warnings (criticals, warnings) counted while it ran.
#
#   bench/views.sh [--cycles N] [--long-cycles N] [--flick-seconds S]
#     --cycles         create/destroy cycles per view type for the memory figures (1000)
#     --long-cycles    the longer run of the video banner and the picture in picture (5000; 0 skips it)
#     --flick-seconds  seconds of each flicking figure (5)
set -euo pipefail
ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
BUILD="$ROOT/build-bench"
cmake -S "$ROOT" -B "$BUILD" -G Ninja -DCMAKE_BUILD_TYPE=Release -DTAVIK_BUILD_BENCH=ON \
  -DTAVIK_BUILD_TESTS=OFF >/dev/null
cmake --build "$BUILD" --target tavik_bench_views
quiet='^(ALSA|AL lib|QStandardPaths|qt.multimedia|Failed to start video surface)'
if [ -n "${DISPLAY:-}" ]; then
  "$BUILD/bench/tavik_bench_views" "$@"
else
  QT_QPA_PLATFORM=xcb xvfb-run -a -s "-screen 0 1280x1024x24" "$BUILD/bench/tavik_bench_views" "$@"
fi 2> >(grep -vE "$quiet" >&2)
