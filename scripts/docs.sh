#!/usr/bin/env bash
# Builds the API reference into BUILD_DIR/api/html: the C++ reference of the public
# headers (Doxygen) and one page per public QML type, written from the module's type
# information and the types' doc comments (docs/reference/qmldoc.cpp).
#   scripts/docs.sh [BUILD_DIR]     BUILD_DIR: a configured build with the views (default: build)
#
# Any Doxygen warning fails, an undocumented public symbol included.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/setup.sh"
tavik_install_packages
cd "$TAVIK_ROOT"
build=$(cd "${1:-build}" && pwd)
out=$build/api
rm -rf "$out"
mkdir -p "$out/qml"

cmake --build "$build" --target tavik_qmldoc >"$out/build.log" 2>&1 || { cat "$out/build.log"; exit 1; }
# The views talk to the audio and display stacks while they are made; only the tool's
# own lines matter.
if ! "$build/docs/reference/tavik_qmldoc" "$TAVIK_ROOT" "$out/qml" >"$out/qmldoc.log" 2>&1; then
  grep -vE "^(ALSA lib|AL lib|PulseAudio|QStandardPaths)" "$out/qmldoc.log" >&2
  exit 1
fi
tail -1 "$out/qmldoc.log"

version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "$build/CMakeCache.txt")
TAVIK_VERSION=$version TAVIK_DOCS_OUT=$out TAVIK_QML_PAGES=$out/qml doxygen docs/reference/Doxyfile

if [ -s "$out/warnings.log" ]; then
  echo "docs: warnings (document the symbol, or fix the comment):"
  sed "s|^$TAVIK_ROOT/||" "$out/warnings.log"
  exit 1
fi
echo "docs: $out/html/index.html"
