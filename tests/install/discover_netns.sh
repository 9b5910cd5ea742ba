#!/bin/bash
# The discover example on the namespace bench, run through tests/netns/lan_netns.sh:
# qxdevsim plays N LAN devices in the LAN namespace and the example, in the host
# namespace, must print each of them as it answers and again in its table.
#   lan_netns.sh bash discover_netns.sh DISCOVER QXDEVSIM OUTPUT N
set -u
discover=${1:?discover} sim=${2:?qxdevsim} out=${3:?output} n=${4:?count}
fail() { echo "FAIL: $*" >&2; exit 1; }

ip netns exec "$QXNET_LAN_NS" "$sim" --lan "$n" --lan-first-ip 10.77.0.100 \
  --lan-gateway "$QXNET_LAN_GATEWAY" --listen 127.0.0.1:0 --control off --quiet &
sim_pid=$!
trap 'kill $sim_pid 2>/dev/null; wait $sim_pid 2>/dev/null' EXIT
# The search must not start before the devices listen.
for _ in $(seq 100); do
  ip netns exec "$QXNET_LAN_NS" ss -Hlun 'sport = :2018' | grep -q . && break
  sleep 0.05
done

"$discover" 2 >"$out" || { cat "$out"; fail "discover exit $?"; }
[ "$(grep -c '^found ' "$out")" -eq "$n" ] || { cat "$out"; fail "discover: not $n devices reported as found"; }
grep -qx "$n device(s) found" "$out" || { cat "$out"; fail "discover: table count"; }
[ "$(awk '$1=="device" {print $3}' "$out" | sort -u | wc -l)" -eq "$n" ] || { cat "$out"; fail "discover: table UIDs"; }
for i in $(seq 0 $((n - 1))); do
  awk -v ip="10.77.0.$((100 + i))" '$1=="device" && $4==ip {ok=1} END {exit !ok}' "$out" ||
    { cat "$out"; fail "discover: no device at 10.77.0.$((100 + i)) in the table"; }
done
echo "discover example found $n devices"
