#!/bin/bash
# Runs session_keepalive_tests between two private network namespaces joined by a veth
# pair: the simulator listens in the device namespace, the library runs in its own, and
# the test takes the device's link down and up. Nothing touches the machine's interfaces.
#
#   netns_keepalive.sh TEST_BINARY QXDEVSIM [gtest options...]
#
# Exit 77 (skip) when namespaces cannot be made here, naming what is missing.
set -u

test_bin=${1:?test binary}
sim_bin=${2:?qxdevsim binary}
shift 2

lib_ns=qxka-lib-$$
dev_ns=qxka-dev-$$
lib_if=qxkl$$
dev_if=qxkd$$
lib_addr=192.0.2.1
dev_addr=192.0.2.2
tmp=
sim_pid=
test_pid=

# Where namespaces are required (CI runs as root: QXNET_REQUIRE_NETNS=1), a test that
# cannot make them fails instead of skipping, so that it is never silently left out.
skip() {
  if [ "${QXNET_REQUIRE_NETNS:-0}" = 1 ]; then
    echo "FAILED: namespaces are required here: $*" >&2
    exit 1
  fi
  echo "SKIPPED: $*" >&2
  exit 77
}

cleanup() {
  trap - EXIT INT TERM
  [ -n "$test_pid" ] && kill -KILL "$test_pid" 2>/dev/null
  [ -n "$sim_pid" ] && kill -TERM "$sim_pid" 2>/dev/null && wait "$sim_pid" 2>/dev/null
  # Deleting a namespace removes its end of the veth pair, and with it the other end.
  ip netns del "$lib_ns" 2>/dev/null
  ip netns del "$dev_ns" 2>/dev/null
  [ -n "$tmp" ] && rm -rf "$tmp"
}

# A run killed outright (a ctest timeout) leaves its namespaces behind: remove those whose
# script is gone.
remove_stale_namespaces() {
  local ns pid
  for ns in $(ip netns list 2>/dev/null | awk '{print $1}' | grep -E '^qxka-(lib|dev)-[0-9]+$'); do
    pid=${ns##*-}
    kill -0 "$pid" 2>/dev/null || ip netns del "$ns" 2>/dev/null
  done
}

check_prerequisites() {
  [ "$EUID" = 0 ] || skip "network namespaces need root (running as uid $EUID)"
  command -v ip >/dev/null || skip "no 'ip' command (install iproute2)"
  command -v setpriv >/dev/null || skip "no 'setpriv' command (install util-linux)"
  [ -x "$test_bin" ] || { echo "no test binary $test_bin" >&2; exit 1; }
  [ -x "$sim_bin" ] || { echo "no simulator binary $sim_bin" >&2; exit 1; }
}

make_namespaces() {
  local err
  err=$(ip netns add "$lib_ns" 2>&1) || skip "cannot create a network namespace: $err"
  err=$(ip netns add "$dev_ns" 2>&1) || skip "cannot create a network namespace: $err"
  # Both ends are created inside the namespaces, never in the machine's own.
  err=$(ip -n "$lib_ns" link add "$lib_if" type veth peer name "$dev_if" netns "$dev_ns" 2>&1) ||
    skip "cannot create a veth pair: $err"
  ip -n "$lib_ns" addr add "$lib_addr/24" dev "$lib_if" &&
    ip -n "$dev_ns" addr add "$dev_addr/24" dev "$dev_if" &&
    ip -n "$lib_ns" link set lo up &&
    ip -n "$dev_ns" link set lo up &&
    ip -n "$lib_ns" link set "$lib_if" up &&
    ip -n "$dev_ns" link set "$dev_if" up || { echo "cannot configure the veth pair" >&2; exit 1; }
}

# Starts the simulator in the device namespace, from this shell so that it is this
# shell's child; it dies with the script even when the script is killed outright.
start_simulator() {
  ip netns exec "$dev_ns" setpriv --pdeathsig KILL \
    "$sim_bin" --listen "$dev_addr:0" --port-file "$tmp/ports" --control off --quiet &
  sim_pid=$!
}

# Prints the device port once the simulator has written its port file.
read_device_port() {
  local i
  for i in $(seq 100); do
    if [ -s "$tmp/ports" ]; then
      awk '$1 == "device" && $2 == 0 {print $3}' "$tmp/ports"
      return 0
    fi
    kill -0 "$sim_pid" 2>/dev/null || break
    sleep 0.1
  done
  echo "the simulator did not write its port file" >&2
  return 1
}

remove_stale_namespaces
check_prerequisites
trap cleanup EXIT
trap 'exit 130' INT
trap 'exit 143' TERM
tmp=$(mktemp -d)
make_namespaces
start_simulator
port=$(read_device_port) || exit 1
[ -n "$port" ] || { echo "no device port in the port file" >&2; exit 1; }
echo "library in $lib_ns ($lib_addr), device in $dev_ns ($dev_addr:$port, link $dev_if)"

# In the background so that a signal reaches the traps at once.
QXNET_NETNS_DEVICE_NS=$dev_ns QXNET_NETNS_DEVICE_IF=$dev_if \
  QXNET_NETNS_DEVICE_ADDR=$dev_addr QXNET_NETNS_DEVICE_PORT=$port \
  ip netns exec "$lib_ns" setpriv --pdeathsig KILL "$test_bin" "$@" &
test_pid=$!
wait "$test_pid"
status=$?
test_pid=
exit "$status"
