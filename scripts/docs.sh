#!/usr/bin/env bash
# Builds the API reference into BUILD_DIR/api/html: the C++ reference of the public
# headers (Doxygen) and one page per public QML type, written from the module's type
# information and the types' doc comments (docs/reference/qmldoc.cpp).
#   scripts/docs.sh [BUILD_DIR]     BUILD_DIR: a configured build with the views (default: build)
#
# Any Doxygen warning fails, except the undocumented symbols listed in
# docs/reference/undocumented.txt, the debt from before the reference existed: that list
# may only shrink (a symbol documented since must leave it), so a new public symbol without
# documentation fails the build. TAVIK_DOCS_UPDATE_BASELINE=1 rewrites the list.
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

# Warnings without their line numbers, so the list survives edits around them.
baseline=docs/reference/undocumented.txt
sed -E "s|^$TAVIK_ROOT/||; s|^([^:]+):[0-9]+: |\1: |" "$out/warnings.log" | sort -u >"$out/warnings.txt"
if [ "${TAVIK_DOCS_UPDATE_BASELINE:-0}" = 1 ]; then
  grep "is not documented" "$out/warnings.txt" >"$baseline" || true
fi
status=0
new=$(comm -23 "$out/warnings.txt" <(sort -u "$baseline"))
if [ -n "$new" ]; then
  echo "docs: warnings (document the symbol, or fix the comment):"
  echo "$new"
  status=1
fi
gone=$(comm -13 "$out/warnings.txt" <(sort -u "$baseline"))
if [ -n "$gone" ]; then
  echo "docs: documented now, remove from $baseline:"
  echo "$gone"
  status=1
fi
echo "docs: $out/html/index.html ($(wc -l <"$baseline") undocumented symbols left from before)"
exit $status
