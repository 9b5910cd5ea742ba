#!/usr/bin/env bash
# Installs the build into a fresh prefix and uses it as a user would: checks the installed
# files, builds a consumer with CMake's find_package (shared and static) and one with
# pkg-config, builds the examples, and runs them all against the installed qxdevsim.
# usage: run_install_test.sh BUILD_DIR SOURCE_DIR WORK_DIR VERSION VERSION_TEXT SOVERSION
set -euo pipefail
build="$1" src="$2" work="$3" version="$4" vtext="$5" soversion="$6"
rm -rf "$work"
mkdir -p "$work"
prefix="$work/prefix"
fail() { echo "FAIL: $*" >&2; exit 1; }

cmake --install "$build" --prefix "$prefix" >"$work/install.log"
libdir="$(dirname "$(find "$prefix" -name qxnetsdk.pc -path '*/pkgconfig/*')")/.."
libdir="$(cd "$libdir" && pwd)"
for f in "$libdir/libQXNetSDK.so.$version" "$libdir/libQXNetSDK.so.$soversion" "$libdir/libQXNetSDK.so" \
         "$libdir/libQXNetSDK.a" "$prefix/include/QXNetSDK.h" "$prefix/bin/qxnet" "$prefix/bin/qxdevsim" \
         "$libdir/cmake/QXNetSDK/QXNetSDKConfig.cmake" "$libdir/cmake/QXNetSDK/QXNetSDKConfigVersion.cmake"; do
  [ -e "$f" ] || fail "not installed: $f"
done
soname="$(readelf -d "$libdir/libQXNetSDK.so.$version" | sed -n 's/.*(SONAME).*\[\(.*\)\]/\1/p')"
[ "$soname" = "libQXNetSDK.so.$soversion" ] || fail "SONAME is '$soname'"
exports="$(nm -D --defined-only "$libdir/libQXNetSDK.so" | awk '$2=="T"{print $3}' | grep -c '^QXNet_')"
[ "$exports" -eq 59 ] || fail "$exports QXNet_ exports, expected 59"
echo "installed: SONAME $soname, $exports exports"

# CMake consumer (find_package) and the examples, as separate projects.
cmake -S "$src/tests/install/consumer" -B "$work/consumer" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" \
  -DEXPECTED_VERSION="$version" >"$work/consumer.log" || { cat "$work/consumer.log"; fail "consumer configure"; }
cmake --build "$work/consumer" >>"$work/consumer.log" || { cat "$work/consumer.log"; fail "consumer build"; }
cmake -S "$src/examples" -B "$work/examples" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" \
  -DCMAKE_C_FLAGS="-Wall -Wextra -Werror" >"$work/examples.log" || { cat "$work/examples.log"; fail "examples configure"; }
cmake --build "$work/examples" >>"$work/examples.log" || { cat "$work/examples.log"; fail "examples build"; }

# pkg-config consumer.
export PKG_CONFIG_PATH="$libdir/pkgconfig"
[ "$(pkg-config --modversion qxnetsdk)" = "$version" ] || fail "pkg-config version"
# shellcheck disable=SC2046
cc -std=c99 -Wall -Wextra -Werror -o "$work/consumer_pc" "$src/tests/install/consumer/consumer.c" \
  $(pkg-config --cflags --libs qxnetsdk) || fail "pkg-config consumer build"
echo "consumers and examples built"

export LD_LIBRARY_PATH="$libdir"
[ "$("$prefix/bin/qxnet" version | grep -c "$vtext")" -ge 1 ] || fail "installed qxnet version"
source "$src/tests/install/devsim.sh"
devsim_start "$prefix/bin/qxdevsim" "$work/sim" --account admin:secret --quiet

for c in "$work/consumer/consumer_shared" "$work/consumer/consumer_static" "$work/consumer_pc"; do
  "$c" 127.0.0.1 "$DEVSIM_PORT" admin secret "$vtext" || fail "$c did not log in"
  ! "$c" 127.0.0.1 "$DEVSIM_PORT" admin wrong "$vtext" 2>/dev/null || fail "$c accepted a bad password"
done
ldd "$work/consumer/consumer_static" | grep libQXNetSDK >/dev/null && fail "consumer_static uses the shared library"
ldd "$work/consumer_pc" | grep "$libdir/libQXNetSDK.so.$soversion" >/dev/null || { ldd "$work/consumer_pc"; fail "consumer_pc library path"; }
echo "consumers logged in"

source "$src/tests/install/run_examples.sh"
run_examples "$work/examples" "$work"
run_recorder_example "$work/examples" "$work"
run_discover_example "$work/examples" "$work" "$prefix/bin/qxdevsim" "$src"
echo "install test passed"
