#!/bin/bash
# Runs bench_search in a private host namespace beside a LAN namespace of simulated devices.
#   bench/search/run_bench_search.sh BUILD_DIR [bench options]
set -u
here="$(cd "$(dirname "$0")/../.." && pwd)"
build="$(cd "${1:?build dir}" && pwd)"
shift
export QXNET_DEVSIM="$build/tools/devsim/qxdevsim"
exec "$here/tests/netns/lan_netns.sh" "$build/bench/search/bench_search" "$@"
