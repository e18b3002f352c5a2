#!/usr/bin/env bash
# Installs the Debian packages the project needs, only those missing (idempotent and
# quick when everything is there). Sourced by demo.sh and test.sh.
set -euo pipefail

TAVIK_PACKAGES=(
  build-essential cmake ninja-build pkg-config curl ca-certificates
  libcurl4-openssl-dev nlohmann-json3-dev libcpp-httplib-dev libssl-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  clang libclang-rt-14-dev
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
