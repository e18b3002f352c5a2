#!/usr/bin/env bash
# Runs Qt's qmllint over the QML module's own files, with the import paths and resource
# mapping qt_add_qml_module gives its lint target, and fails on any warning (infos, such
# as an unused import, are shown but allowed).
#   tests/qmllint.sh BUILD_DIR
set -euo pipefail
build=$1
if ! grep -q "^build src/CMakeFiles/tavik_quick_qmllint " "$build/build.ninja" 2>/dev/null; then
  echo "qmllint: no tavik_quick in $build, nothing to lint"
  exit 0
fi
log=$build/qmllint.log
status=0
cmake --build "$build" --target tavik_quick_qmllint >"$log" 2>&1 || status=$?
warnings=$(grep -c "^Warning: " "$log" || true)
grep -E "^(Warning|Info): |^    " "$log" || true
echo "qmllint: $warnings warnings"
[ "$status" -eq 0 ] && [ "$warnings" -eq 0 ]
