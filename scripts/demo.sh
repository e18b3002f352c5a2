#!/usr/bin/env bash
# The main job: installs what is missing, builds and opens the sample shop (demo/), a
# small store app that shows every ad format of the SDK against a local sandbox it starts
# itself, with an inspector of every request the SDK sends.
#
#   scripts/demo.sh           with a display: the shop's window
#                             without one: the scripted tour under Xvfb
#   scripts/demo.sh --tour    the tour, display or not
#
# The tour walks through every page with scripted input, saves a screenshot of each
# into build/demo/tour-screenshots, prints the inspector's log and a summary line, and
# exits non-zero when a format did not draw or an expected event did not arrive.
# The command-line side of the SDK has its own tour: tools/tour.sh build
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/setup.sh"
tavik_install_packages
cd "$TAVIK_ROOT"
tavik_build build -DCMAKE_BUILD_TYPE=RelWithDebInfo -DTAVIK_BUILD_TESTS=OFF

shop=build/demo/tavik_shop
if [ ! -x "$shop" ]; then
  echo "The sample shop needs Qt 6.4 Quick and Multimedia, which this build did not find;"
  echo "running the command-line tour instead."
  exec tools/tour.sh build
fi

# Audio and desktop-integration chatter from a headless session is not the shop's.
quiet() {
  grep --line-buffered -vE "^(ALSA|AL lib|PulseAudio|QStandardPaths|qt.multimedia.player: Warning)" >&2 || true
}

if [ "${1:-}" != "--tour" ] && [ -n "${DISPLAY:-}${WAYLAND_DISPLAY:-}" ]; then
  echo "== the sample shop (demo/): close the window to end"
  exec "$shop"
fi

echo "== the sample shop (demo/), headless: the scripted tour under Xvfb"
if [ -n "${DISPLAY:-}" ]; then
  "$shop" --tour --out build/demo/tour-screenshots 2> >(quiet)
else
  QT_QPA_PLATFORM=xcb xvfb-run -a -s "-screen 0 1280x1024x24" \
    "$shop" --tour --out build/demo/tour-screenshots 2> >(quiet)
fi
