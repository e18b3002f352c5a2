#!/usr/bin/env bash
# Renders the screenshot references anew into tests/quick/references/ (after a deliberate
# change of the views or of the sandbox's creatives). Open each PNG and look at it before
# committing: the regression test trusts them.
#   tests/quick/update_references.sh [BUILD_DIR]     (default: build)
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
build=${1:-$root/build}
cmake --build "$build" --target screenshot_xvfb_test
TAVIK_UPDATE_REFERENCES=1 QT_QPA_PLATFORM=xcb \
  xvfb-run -a -s "-screen 0 1280x1024x24" "$build/tests/quick/screenshot_xvfb_test"
git -C "$root" status --short tests/quick/references
