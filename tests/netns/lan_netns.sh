#!/bin/bash
# Runs a command in a private "host" network namespace joined by a veth pair to a private
# "LAN" namespace, for discovery, the free-address probe and the host facts. Nothing
# touches the machine's own interfaces: both ends of the pair are made inside the
# namespaces, and the namespaces are removed at the end.
#
#   lan_netns.sh COMMAND [ARGS...]
#
# host namespace: 10.77.0.1/24 on the veth, default route via 10.77.0.254, resolver file
#                 naming one DNS server (10.77.0.53)
# LAN namespace:  10.77.0.254/24 (the gateway; simulators bind here) and 10.77.0.253,
#                 10.77.0.252, which answer ping so the probe has addresses to skip
# The command runs in the host namespace with QXNET_LAN_NS (the LAN namespace's name,
# for `ip netns exec`), QXNET_LAN_HOST_IP, QXNET_LAN_GATEWAY, QXNET_LAN_MASK,
# QXNET_LAN_DNS1 and QXNET_LAN_PINGABLE (comma list) in its environment.
#
# Exit 77 (skip) when namespaces cannot be made here, naming what is missing; where
# they are required (QXNET_REQUIRE_NETNS=1, set by scripts/test as root and in CI) that
# is a failure instead.
set -u

[ $# -ge 1 ] || { echo "usage: lan_netns.sh COMMAND [ARGS...]" >&2; exit 2; }

host_ns=qxlan-h-$$
lan_ns=qxlan-l-$$
host_if=qxlh$$
lan_if=qxll$$
host_addr=10.77.0.1
gateway=10.77.0.254
pingable=10.77.0.253,10.77.0.252
dns1=10.77.0.53
cmd_pid=

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
  [ -n "$cmd_pid" ] && kill -KILL "$cmd_pid" 2>/dev/null
  ip netns pids "$lan_ns" 2>/dev/null | xargs -r kill -KILL 2>/dev/null
  ip netns del "$host_ns" 2>/dev/null
  ip netns del "$lan_ns" 2>/dev/null
  rm -rf "/etc/netns/$host_ns"
}

# Namespaces left by a run killed outright (a ctest timeout): those whose script is gone.
remove_stale_namespaces() {
  local ns pid
  for ns in $(ip netns list 2>/dev/null | awk '{print $1}' | grep -E '^qxlan-[hl]-[0-9]+$'); do
    pid=${ns##*-}
    if ! kill -0 "$pid" 2>/dev/null; then
      ip netns pids "$ns" 2>/dev/null | xargs -r kill -KILL 2>/dev/null
      ip netns del "$ns" 2>/dev/null
      rm -rf "/etc/netns/$ns"
    fi
  done
}

check_prerequisites() {
  [ "$EUID" = 0 ] || skip "network namespaces need root (running as uid $EUID)"
  command -v ip >/dev/null || skip "no 'ip' command (install iproute2)"
  command -v setpriv >/dev/null || skip "no 'setpriv' command (install util-linux)"
  command -v chrt >/dev/null || skip "no 'chrt' command (install util-linux)"
}

make_namespaces() {
  local err a
  err=$(ip netns add "$host_ns" 2>&1) || skip "cannot create a network namespace: $err"
  err=$(ip netns add "$lan_ns" 2>&1) || skip "cannot create a network namespace: $err"
  err=$(ip -n "$host_ns" link add "$host_if" type veth peer name "$lan_if" netns "$lan_ns" 2>&1) ||
    skip "cannot create a veth pair: $err"
  ip -n "$host_ns" addr add "$host_addr/24" dev "$host_if" &&
    ip -n "$lan_ns" addr add "$gateway/24" dev "$lan_if" &&
    for a in ${pingable//,/ }; do ip -n "$lan_ns" addr add "$a/24" dev "$lan_if" || exit 1; done &&
    ip -n "$host_ns" link set lo up &&
    ip -n "$lan_ns" link set lo up &&
    ip -n "$host_ns" link set "$host_if" up &&
    ip -n "$lan_ns" link set "$lan_if" up &&
    ip -n "$host_ns" route add default via "$gateway" ||
    { echo "cannot configure the veth pair" >&2; exit 1; }
  # `ip netns exec` shows this file as /etc/resolv.conf inside the host namespace.
  mkdir -p "/etc/netns/$host_ns" && echo "nameserver $dns1" > "/etc/netns/$host_ns/resolv.conf"
  # The unprivileged ping socket is off in a new namespace; allow it for every group so
  # that the probe's second socket kind can be tested too.
  ip netns exec "$host_ns" sh -c 'echo "0 2147483647" > /proc/sys/net/ipv4/ping_group_range' ||
    { echo "cannot allow the ping socket in the host namespace" >&2; exit 1; }
}

remove_stale_namespaces
check_prerequisites
trap cleanup EXIT
trap 'exit 130' INT
trap 'exit 143' TERM
make_namespaces

QXNET_LAN_NS=$lan_ns QXNET_LAN_HOST_IP=$host_addr QXNET_LAN_GATEWAY=$gateway \
  QXNET_LAN_MASK=255.255.255.0 QXNET_LAN_DNS1=$dns1 QXNET_LAN_PINGABLE=$pingable \
  ip netns exec "$host_ns" setpriv --pdeathsig KILL "$@" &
cmd_pid=$!
wait "$cmd_pid"
status=$?
cmd_pid=
exit "$status"
