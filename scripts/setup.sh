#!/usr/bin/env bash
# Installs the Debian packages the project needs, only those missing (idempotent and
# quick when everything is there). Sourced by demo.sh and test.sh.
set -euo pipefail

TAVIK_PACKAGES=(
  build-essential cmake ninja-build pkg-config curl ca-certificates
  libcurl4-openssl-dev libsqlite3-dev libsimdjson-dev nlohmann-json3-dev libcpp-httplib-dev libssl-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  clang libclang-rt-14-dev
  # tavik::quick: Qt 6.4 Quick and Multimedia, the QML modules the views and tests import,
  # the SVG image plug-in for the control icons.
  qt6-base-dev qt6-declarative-dev qt6-multimedia-dev qt6-svg-dev libqt6svg6
  qml6-module-qtquick qml6-module-qtquick-window qml6-module-qtqml-workerscript
  qml6-module-qtmultimedia qml6-module-qttest qt6-qpa-plugins
  # QtQml's type information, which qmllint needs to check the module's QML (the Qt
  # namespace, value types such as point and size).
  qml6-module-qtqml
  # The Debian packages: dpkg-shlibdeps works out their library dependencies.
  dpkg-dev
  # The API reference (scripts/docs.sh).
  doxygen
  # Video through Qt Multimedia's GStreamer back end: MP4 demuxing (good), the H.264
  # parser (bad) and decoder (libav).
  gstreamer1.0-plugins-base gstreamer1.0-plugins-good gstreamer1.0-plugins-bad gstreamer1.0-libav
  # Real frames in tests and headless screenshots: Xvfb with Mesa's software renderer.
  xvfb xauth libgl1-mesa-dri
)

tavik_install_packages() {
  local missing=()
  for package in "${TAVIK_PACKAGES[@]}" "$@"; do
    dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed" ||
      missing+=("$package")
  done
  if [ ${#missing[@]} -eq 0 ]; then return 0; fi
  echo "Installing: ${missing[*]}"
  local sudo=""
  if [ "$(id -u)" -ne 0 ]; then sudo="sudo"; fi
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
}

# Configures and builds into $1 with the remaining arguments passed to CMake.
tavik_build() {
  local dir=$1
  shift
  cmake -S "$TAVIK_ROOT" -B "$dir" -G Ninja "$@" >/dev/null
  cmake --build "$dir" -j"$(nproc)"
}

TAVIK_ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
export TAVIK_ROOT
