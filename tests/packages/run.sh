#!/usr/bin/env bash
# Builds the Debian packages of a build tree (configured with CMAKE_INSTALL_PREFIX=/usr)
# and proves them the way an integrator uses them, without touching this system:
#   - CPack makes exactly the runtime, development and tools packages, all of the
#     project's version;
#   - apt resolves every dependency they declare against this Debian system (a
#     simulated `apt-get install ./*.deb`: it installs nothing);
#   - dpkg installs the three into a fresh, empty root (dpkg --root), files and all;
#   - the QML module lands in the folder this system's Qt imports from, so `import Tavik`
#     needs no import path once the packages are installed for real;
#   - the consumer projects build against that root alone and run against its
#     tavik-sandbox (tests/consumers/run.sh --prefix).
#   tests/packages/run.sh BUILD_DIR
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
build=$(cd "$1" && pwd)
work=$build/packages-test
rm -rf "$work"
mkdir -p "$work"
fail() {
  echo "packages: $*" >&2
  exit 1
}

prefix=$(sed -n 's/^CMAKE_INSTALL_PREFIX:PATH=//p' "$build/CMakeCache.txt")
[ "$prefix" = /usr ] || fail "$build is configured for $prefix; Debian packages need -DCMAKE_INSTALL_PREFIX=/usr"
version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "$build/CMakeCache.txt")

echo "== cpack ($version)"
(cd "$build" && cpack -G DEB -B "$work/debs") >"$work/cpack.log" 2>&1 ||
  { cat "$work/cpack.log"; fail "cpack failed"; }
mapfile -t debs < <(find "$work/debs" -maxdepth 1 -name '*.deb' | sort)
runtime="libtavik${version%.*}"
expected=("$runtime" libtavik-dev tavik-tools)
names=()
for deb in "${debs[@]}"; do
  name=$(dpkg-deb -f "$deb" Package)
  names+=("$name")
  [ "$(dpkg-deb -f "$deb" Version)" = "$version" ] ||
    fail "$name has version $(dpkg-deb -f "$deb" Version), not $version"
  echo "$name $version: Depends: $(dpkg-deb -f "$deb" Depends)"
done
[ "$(printf '%s\n' "${names[@]}" | sort)" = "$(printf '%s\n' "${expected[@]}" | sort)" ] ||
  fail "packages ${names[*]}, expected ${expected[*]}"

echo "== apt-get install ./*.deb, simulated against this system"
apt-get install --simulate --no-install-recommends "${debs[@]}" >"$work/apt.log" 2>&1 ||
  { cat "$work/apt.log"; fail "apt cannot satisfy the packages' dependencies"; }
for name in "${expected[@]}"; do
  grep -q "^Inst $name " "$work/apt.log" || { cat "$work/apt.log"; fail "apt would not install $name"; }
done

echo "== dpkg --root into a fresh root"
root=$work/root
mkdir -p "$root/var/lib/dpkg/info" "$root/var/lib/dpkg/updates" "$root/var/log"
touch "$root/var/lib/dpkg/status" "$root/var/lib/dpkg/available"
# The root holds nothing else, so the packages' dependencies (checked by apt above) are
# absent in it; dpkg is told to go on without them.
# The runtime package's postinst (CPack's) only runs ldconfig, which the empty root cannot
# run: it runs outside the root, where it rebuilds this system's cache as it was.
force=(--force-depends --force-script-chrootless)
if [ "$(id -u)" -ne 0 ]; then force+=(--force-not-root); fi
dpkg --root="$root" "${force[@]}" -i "${debs[@]}" >"$work/dpkg.log" 2>&1 ||
  { cat "$work/dpkg.log"; fail "dpkg could not install the packages"; }
for name in "${expected[@]}"; do
  state=$(dpkg-query --root="$root" -W -f='${Status}' "$name")
  [ "$state" = "install ok installed" ] || fail "$name is '$state' in the fresh root"
done

qml_dir=$(qtpaths6 --query QT_INSTALL_QML 2>/dev/null || /usr/lib/qt6/bin/qtpaths6 --query QT_INSTALL_QML)
if dpkg-deb -c "$(printf '%s\n' "${debs[@]}" | grep "/${runtime}_")" | grep -q qmldir; then
  for file in qmldir tavik_quick.qmltypes libtavik_quickplugin.so; do
    [ -f "$root$qml_dir/Tavik/$file" ] || fail "$qml_dir/Tavik/$file is not in $runtime"
  done
  echo "QML module at $qml_dir/Tavik, where Qt looks"
fi

"$here/../consumers/run.sh" --prefix "$root/usr" "$work/consumers"
