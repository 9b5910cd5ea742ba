#!/usr/bin/env bash
# Builds the Debian packages with CPack and checks their contents and control fields with
# dpkg-deb, then lets lintian judge them (errors fail the test).
# usage: run_package_test.sh BUILD_DIR WORK_DIR VERSION SOVERSION
set -euo pipefail
build="$1" work="$2" version="$3" soversion="$4"
fail() { echo "FAIL: $*" >&2; exit 1; }
rm -rf "$work"
mkdir -p "$work"
cpack --config "$build/CPackConfig.cmake" -G DEB -B "$work" >"$work/cpack.log" 2>&1 \
  || { cat "$work/cpack.log"; fail "cpack"; }

arch="$(dpkg --print-architecture)"
runtime="$work/libqxnetsdk${soversion}_${version}-1_${arch}.deb"
dev="$work/libqxnetsdk-dev_${version}-1_${arch}.deb"
tools="$work/qxnet-tools_${version}-1_${arch}.deb"
for d in "$runtime" "$dev" "$tools"; do [ -f "$d" ] || { ls "$work"; fail "missing $d"; }; done

# has DEB PATH: the package lists PATH (a regular file or a link).
has() { dpkg-deb -c "$1" | awk '{print $6}' | grep -x "./$2" >/dev/null || fail "$(basename "$1") lacks $2"; }
hasnt() { ! dpkg-deb -c "$1" | awk '{print $6}' | grep -x "./$2" >/dev/null || fail "$(basename "$1") has $2"; }
lib=usr/lib
has "$runtime" "$lib/libQXNetSDK.so.$version"
has "$runtime" "$lib/libQXNetSDK.so.$soversion"
hasnt "$runtime" "$lib/libQXNetSDK.so"
has "$runtime" "usr/share/doc/libqxnetsdk$soversion/copyright"
has "$dev" "$lib/libQXNetSDK.so"
has "$dev" "$lib/libQXNetSDK.a"
has "$dev" "usr/include/QXNetSDK.h"
has "$dev" "$lib/cmake/QXNetSDK/QXNetSDKConfig.cmake"
has "$dev" "$lib/cmake/QXNetSDK/QXNetSDKConfigVersion.cmake"
has "$dev" "$lib/pkgconfig/qxnetsdk.pc"
hasnt "$dev" "$lib/libQXNetSDK.so.$version"
has "$tools" "usr/bin/qxnet"
has "$tools" "usr/bin/qxdevsim"
hasnt "$tools" "$lib/libQXNetSDK.so.$version"

# field DEB NAME: one control field.
field() { dpkg-deb -f "$1" "$2"; }
[ "$(field "$runtime" Package)" = "libqxnetsdk$soversion" ] || fail "runtime package name"
field "$runtime" Depends | grep "libc6" >/dev/null || fail "runtime Depends lacks libc6 (shlibdeps): $(field "$runtime" Depends)"
field "$runtime" Depends | grep "libstdc++6" >/dev/null || fail "runtime Depends lacks libstdc++6"
field "$runtime" Depends | grep "libtinyxml" >/dev/null || fail "runtime Depends lacks TinyXML"
dpkg-deb -I "$runtime" shlibs | grep "^libQXNetSDK $soversion libqxnetsdk$soversion (>= $version\(-1\)\?)$" >/dev/null \
  || fail "shlibs: $(dpkg-deb -I "$runtime" shlibs 2>&1)"
field "$dev" Depends | grep "libqxnetsdk$soversion (= $version" >/dev/null || fail "dev Depends: $(field "$dev" Depends)"
field "$dev" Depends | grep "libtinyxml-dev" >/dev/null || fail "dev Depends lacks libtinyxml-dev"
field "$tools" Depends | grep "libqxnetsdk$soversion (= $version" >/dev/null || fail "tools Depends: $(field "$tools" Depends)"
field "$tools" Depends | grep "libc6" >/dev/null || fail "tools Depends lacks libc6 (shlibdeps)"
for d in "$runtime" "$dev" "$tools"; do
  echo "$(field "$d" Package): Depends: $(field "$d" Depends)"
done

if command -v lintian >/dev/null; then
  lintian --no-tag-display-limit "$runtime" "$dev" "$tools" >"$work/lintian.log" 2>&1 || true
  cat "$work/lintian.log"
  ! grep -q '^E: ' "$work/lintian.log" || fail "lintian reports errors"
else
  echo "lintian is not installed (scripts/setup installs it): not run"
fi
echo "package test passed"
