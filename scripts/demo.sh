#!/usr/bin/env bash
# The main job: installs what is missing, builds, starts the local sandbox and runs a
# short tour of the SDK against it (the quick-start program, then the `tavik` tool).
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/setup.sh"
tavik_install_packages
cd "$TAVIK_ROOT"
tavik_build build -DCMAKE_BUILD_TYPE=RelWithDebInfo -DTAVIK_BUILD_TESTS=OFF

echo "== quick start: examples/quickstart.cpp against a sandbox it starts itself"
build/examples/quickstart
if [ -x build/examples/quick_views/quick_views ]; then
  echo
  echo "== Qt Quick: examples/quick_views (an image and a video banner) against its own sandbox"
  echo "   scripted: appear, scroll away and back, two taps, a mute toggle; then the event log"
  if [ -n "${DISPLAY:-}" ]; then
    build/examples/quick_views/quick_views --tour
  else
    xvfb-run -a -s "-screen 0 1280x1024x24" build/examples/quick_views/quick_views --tour
  fi 2> >(grep -vE "^(ALSA|AL lib|PulseAudio|QStandardPaths|qt.multimedia)" >&2)
fi
if [ -x tools/tour.sh ]; then
  echo
  echo "== tour: the tavik command-line tool against the sandbox"
  tools/tour.sh build
fi
