#!/bin/bash
# qxnet's LAN commands on the namespace bench (run through lan_netns.sh):
#   lan_netns.sh bash qxnet_lan_check.sh QXNET QXDEVSIM
set -u
qxnet=${1:?qxnet}
sim=${2:?qxdevsim}
fail=0
check() {  # check NAME EXPECTED ACTUAL
  if [ "$2" != "$3" ]; then echo "FAIL $1: expected [$2], got [$3]"; fail=1; else echo "ok   $1"; fi
}

ip netns exec "$QXNET_LAN_NS" "$sim" --lan 10 --lan-first-ip 10.77.0.100 --lan-gateway "$QXNET_LAN_GATEWAY" \
  --listen 127.0.0.1:0 --control off --quiet &
sim_pid=$!
trap 'kill $sim_pid 2>/dev/null' EXIT
sleep 0.3

out=$("$qxnet" netinfo)
check "netinfo exit" 0 $?
check "netinfo" "$(printf 'address  %s\nnetmask  %s\ngateway  %s\ndns1     %s\ndns2     ' \
  "$QXNET_LAN_HOST_IP" "$QXNET_LAN_MASK" "$QXNET_LAN_GATEWAY" "$QXNET_LAN_DNS1")" "$out"

out=$("$qxnet" free-ip --seconds 2 2>/dev/null)
check "free-ip exit" 0 $?
check "free-ip skips the gateway and the pingable addresses" 10.77.0.251 "$out"

# --json: one document each, parsed by Python's json module.
jsonfield() {  # jsonfield PYTHON-EXPRESSION: reads a JSON document on stdin, prints the value (d is it)
  python3 -c 'import json,sys; d=json.load(sys.stdin); print(eval(sys.argv[1]))' "$1" 2>&1
}
out=$("$qxnet" netinfo --json)
check "netinfo --json exit" 0 $?
check "netinfo --json" "['$QXNET_LAN_HOST_IP', '$QXNET_LAN_MASK', '$QXNET_LAN_GATEWAY', '$QXNET_LAN_DNS1', '']" \
  "$(echo "$out" | jsonfield '[d[k] for k in ("address", "netmask", "gateway", "dns1", "dns2")]')"
out=$("$qxnet" free-ip --seconds 2 --json 2>/dev/null)
check "free-ip --json exit" 0 $?
check "free-ip --json" "10.77.0.251" "$(echo "$out" | jsonfield 'd["address"]')"

check "netinfo with an argument is a usage error" 2 "$("$qxnet" netinfo x >/dev/null; echo $?)"

out=$("$qxnet" discover --seconds 2 2>&1)
rc=$?
if echo "$out" | grep -q "(-9001)"; then
  echo "skip discover, set-ip, restore: discovery is not in this build"
else
  check "discover exit" 0 $rc
  # Ten devices: 8 cameras, 1 recorder, 1 NVS that the library drops.
  check "discover lines" 9 "$(echo "$out" | grep -c '^found ')"
  check "discover total" "9 device(s) found" "$(echo "$out" | tail -1)"
  uid=$(echo "$out" | awk '$1=="found" {print $3; exit}')
  # --json: JSON Lines, one object per found device and a last one with the count.
  out=$("$qxnet" discover --seconds 2 --json)
  check "discover --json exit" 0 $?
  check "discover --json lines" "9 9 end 9" "$(echo "$out" | python3 -c '
import json, sys
docs = [json.loads(l) for l in sys.stdin.read().splitlines()]
found = [d for d in docs if d["event"] == "found"]
ok = [d for d in found if d["ip"].startswith("10.77.0.") and d["uid"] and d["mac"] and "slot" in d]
print(len(found), len(ok), docs[-1]["event"], docs[-1]["devices"])' 2>&1)"
  out=$("$qxnet" set-ip "$uid" 10.77.0.190 255.255.255.0 "$QXNET_LAN_GATEWAY" --seconds 5)
  check "set-ip exit" 0 $?
  check "set-ip verdict" "device answered result 0: done" "$out"
  out=$("$qxnet" discover --seconds 2 | grep " $uid ")
  check "the device advertises its new address" 10.77.0.190 "$(echo "$out" | awk '{print $4}')"
  out=$("$qxnet" restore "$uid" --seconds 5 --json)
  check "restore exit" 0 $?
  check "restore --json" "$uid 0 True" "$(echo "$out" | jsonfield 'd["uid"] + " " + str(d["result"]) + " " + str(d["done"])')"
  out=$("$qxnet" set-ip NOSUCHUID 10.77.0.191 255.255.255.0 "$QXNET_LAN_GATEWAY" --seconds 1)
  check "set-ip of an unknown device" 3 $?
fi
exit $fail
