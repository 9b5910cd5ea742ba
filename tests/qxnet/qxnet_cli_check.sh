#!/usr/bin/env bash
# qxnet as a script sees it, against qxdevsim on 127.0.0.1: every command's help, usage errors,
# exit codes, and the --json documents of the data commands (parsed by Python's json module).
# Usage: qxnet_cli_check.sh QXNET QXDEVSIM WORKDIR
set -uo pipefail
qxnet="$1" sim="$2" work="$3"
here="$(cd "$(dirname "$0")" && pwd)"
rm -rf "$work" && mkdir -p "$work"
source "$here/../install/devsim.sh"
fails=0
fail() { echo "FAIL: $*"; fails=$((fails + 1)); }
ok() { echo "ok   $*"; }
expect_rc() { # NAME WANT GOT
  if [ "$2" = "$3" ]; then ok "$1 (exit $3)"; else fail "$1: exit $3, expected $2"; fi
}
# json_check NAME FILE PYTHON-EXPRESSION: FILE holds one JSON document (or JSON Lines with
# lines=1 in the environment); the expression sees it as `d` (or the list `docs`) and must hold.
json_check() {
  python3 - "$2" "$3" "${lines:-0}" <<'PY' && ok "$1" || fail "$1: $(head -c 600 "$2")"
import json, sys
text = open(sys.argv[1], encoding="utf-8").read()
if sys.argv[3] == "1":
    docs = [json.loads(l) for l in text.splitlines()]
    d = docs[-1] if docs else None
else:
    d = json.loads(text)
    docs = [d]
if not eval("(" + sys.argv[2] + ")"):
    sys.exit(1)
PY
}

commands="help version login config reboot restore ptz userdata upgrade config-file records replay download
  discover set-ip free-ip netinfo"

# --- help: the whole list, every command's own, without connecting -----------------------------
"$qxnet" --help >"$work/help.txt" 2>"$work/help.err"
expect_rc "qxnet --help" 0 $?
"$qxnet" help >"$work/help2.txt"
expect_rc "qxnet help" 0 $?
cmp -s "$work/help.txt" "$work/help2.txt" || fail "qxnet help and --help differ"
[ -s "$work/help.err" ] && fail "--help wrote to stderr"
for c in $commands; do
  grep -Eq "^  $c +[a-z]" "$work/help.txt" || fail "--help lists no '$c' with a summary"
done
for code in 0 1 2 3 4 5; do
  grep -Eq "^  $code  [a-z]" "$work/help.txt" || fail "--help does not explain exit code $code"
done
grep -q -- "--json" "$work/help.txt" || fail "--help names no --json"

for c in $commands; do
  for flag in --help -h; do
    out="$("$qxnet" "$c" "$flag" 2>&1)"
    rc=$?
    [ $rc = 0 ] || fail "qxnet $c $flag: exit $rc"
    grep -q "usage: qxnet.* $c" <<<"$out" || fail "qxnet $c $flag does not show its usage: $out"
  done
  out="$("$qxnet" help "$c")" || fail "qxnet help $c: exit $?"
  grep -q "^$c: " <<<"$out" || fail "qxnet help $c does not name it"
done
ok "every command's --help, -h and help COMMAND"

# Operation help after HOST PORT USER PASS must not connect: a listener on 127.0.0.1 counts the
# connections it accepts while every operation's help runs against its port.
python3 - "$work/listener.port" "$work/listener.count" <<'PY' &
import socket, sys, time
s = socket.socket(); s.bind(("127.0.0.1", 0)); s.listen(16); s.settimeout(0.2)
open(sys.argv[1] + ".tmp", "w").write(str(s.getsockname()[1]))
import os; os.rename(sys.argv[1] + ".tmp", sys.argv[1])
n = 0; end = time.time() + 120
while time.time() < end and not os.path.exists(sys.argv[1] + ".stop"):
    try:
        c, _ = s.accept(); n += 1; c.close()
    except socket.timeout:
        pass
open(sys.argv[2], "w").write(str(n))
PY
listener=$!
fails_before=$fails
for _ in $(seq 100); do [ -s "$work/listener.port" ] && break; sleep 0.1; done
lport="$(cat "$work/listener.port" 2>/dev/null || echo 9)"
for c in config reboot restore ptz userdata upgrade config-file records replay download; do
  out="$("$qxnet" 127.0.0.1 "$lport" admin admin "$c" --help 2>&1)"
  rc=$?
  [ $rc = 0 ] && grep -q "^$c: " <<<"$out" || fail "qxnet HOST PORT USER PASS $c --help: exit $rc: $out"
done
touch "$work/listener.port.stop"
wait "$listener"
[ "$(cat "$work/listener.count" 2>/dev/null)" = 0 ] ||
  fail "operation help connected to the device ($(cat "$work/listener.count" 2>/dev/null) connections)"
[ "$fails" = "$fails_before" ] && ok "operation --help after HOST PORT USER PASS, no connection"

# --- usage errors: exit 2, the command's usage on stderr, nothing on stdout ---------------------
usage_case() { # NAME COMMAND-NAME ARGS...   (stderr must hold "qxnet ... COMMAND-NAME")
  local name="$1" cmd="$2"
  shift 2
  "$qxnet" "$@" >"$work/u.out" 2>"$work/u.err"
  local rc=$?
  expect_rc "$name" 2 $rc
  [ -s "$work/u.out" ] && fail "$name: wrote to stdout: $(cat "$work/u.out")"
  grep -Eq "^(usage: | *)qxnet .*$cmd" "$work/u.err" || fail "$name: no usage of $cmd on stderr: $(cat "$work/u.err")"
}
usage_case "no command" "COMMAND"
usage_case "unknown command" "COMMAND" frobnicate
usage_case "unknown operation" "OPERATION" 127.0.0.1 9 admin admin frobnicate
usage_case "help of an unknown command" "COMMAND" help frobnicate
usage_case "login without its arguments" login login 127.0.0.1
usage_case "login with a bad port" login login 127.0.0.1 port admin admin
usage_case "login with a bad option" login login 127.0.0.1 9 admin admin --bogus
usage_case "records without a channel" records 127.0.0.1 9 admin admin records 20260101
usage_case "records with a bad day" records 127.0.0.1 9 admin admin records 2026-01-01 1
usage_case "config get without a number" config 127.0.0.1 9 admin admin config get abc
usage_case "config set without a body" config 127.0.0.1 9 admin admin config set 14001
usage_case "download without a file" download 127.0.0.1 9 admin admin download 1 20260101000000 20260101000010
usage_case "replay with a bad start" replay 127.0.0.1 9 admin admin replay 1 yesterday
usage_case "operation with a bad timeout" reboot 127.0.0.1 9 admin admin reboot --timeout soon
usage_case "operation with a bad port" reboot 127.0.0.1 99999 admin admin reboot
usage_case "version with an argument" version version extra
usage_case "netinfo with an argument" netinfo netinfo x
usage_case "discover with a bad option" discover discover --seconds
usage_case "free-ip with a bad option" free-ip free-ip --seconds -1
usage_case "set-ip without its address" set-ip set-ip UID 127.0.0.9
usage_case "restore without a UID" restore restore

# --- connection failures: exit 3 ----------------------------------------------------------------
# The library reports a refused connect only after its connect attempts (about half a minute):
# within a shorter --timeout the login is not done, which is a failed login too.
closed=$(python3 -c 'import socket; s=socket.socket(); s.bind(("127.0.0.1",0)); print(s.getsockname()[1])')
"$qxnet" 127.0.0.1 "$closed" admin admin reboot --timeout 3 >"$work/c.out" 2>"$work/c.err"
expect_rc "operation on a closed port" 3 $?
"$qxnet" login 127.0.0.1 "$closed" admin admin --seconds 3 --no-reconnect >"$work/c.out" 2>"$work/c.err"
expect_rc "login on a closed port" 3 $?

devsim_start "$sim" "$work/sim" --account admin:admin --set rec_pace=fast --quiet
qx=("$qxnet" 127.0.0.1 "$DEVSIM_PORT")
"${qx[@]}" admin wrong reboot --timeout 10 >"$work/c.out" 2>"$work/c.err"
expect_rc "operation with a wrong password" 3 $?

# --- --json of the data commands ----------------------------------------------------------------
"$qxnet" version --json >"$work/v.json"
expect_rc "version --json" 0 $?
json_check "version --json" "$work/v.json" 'isinstance(d["version"], str) and d["version"] != ""'

body='<cfg name="lobby &quot;east&quot;" value="42"/>'
"${qx[@]}" admin admin config set 14001 "$body" --json --timeout 10 >"$work/set.json"
expect_rc "config set --json" 0 $?
json_check "config set --json" "$work/set.json" 'd["command"] == 14001 and d["flag"] >= 0 and d["ok"] is True'
"${qx[@]}" admin admin config get 14001 --json --timeout 10 >"$work/get.json"
expect_rc "config get --json" 0 $?
json_check "config get --json reads the setting back" "$work/get.json" \
  'd["command"] == 14001 and d["ok"] is True and "value=\"42\"" in d["body"] and "lobby" in d["body"]'
"${qx[@]}" admin admin config get 14999 --json --timeout 10 >"$work/miss.json" 2>/dev/null
expect_rc "config get of an unset command" 1 $?
json_check "config get --json of an unset command" "$work/miss.json" 'd["command"] == 14999 and d["ok"] is False and d["flag"] < 0'

"${qx[@]}" admin admin userdata set 'note "A"\ tab	end' --json --timeout 10 >"$work/ud.json"
expect_rc "userdata set --json" 0 $?
json_check "userdata set --json" "$work/ud.json" 'd["ok"] is True'

day="$(date +%Y%m%d)"
spans="$(devsim_ctl 'RECSPANS 1 000010-000020,013000-014500')"
[[ "$spans" == OK* ]] || fail "RECSPANS: $spans"
"${qx[@]}" admin admin records "$day" 1 --json --timeout 10 >"$work/rec.json" 2>"$work/rec.err"
expect_rc "records --json" 0 $?
json_check "records --json lists the simulated spans" "$work/rec.json" \
  "d['channel'] == 1 and d['records'] == [
     {'day': '$day', 'start': '00:00:10', 'end': '00:00:20', 'seconds': 10},
     {'day': '$day', 'start': '01:30:00', 'end': '01:45:00', 'seconds': 900}]"
"${qx[@]}" admin admin records "$day" 1 --timeout 10 >"$work/rec.txt"
grep -Eq "^$day +01:30:00 01:45:00 0h15m00s$" "$work/rec.txt" || fail "records text table changed: $(cat "$work/rec.txt")"

"${qx[@]}" admin admin download 1 "${day}000010" "${day}000014" "$work/span.mp4" --json --timeout 30 \
  >"$work/dl.json" 2>"$work/dl.err"
expect_rc "download --json" 0 $?
json_check "download --json: one document, progress on stderr" "$work/dl.json" \
  "d == {'operation': 'download', 'status': 'finished', 'file': '$work/span.mp4'}"
[ -s "$work/span.mp4" ] || fail "download wrote no file"
"${qx[@]}" admin admin download 1 "${day}000010" "${day}000014" "$work/no/such/dir/x.mp4" --timeout 10 \
  >/dev/null 2>&1
expect_rc "download into a missing folder" 4 $?
"${qx[@]}" admin admin upgrade "$work/no-such-firmware.bin" --timeout 10 >/dev/null 2>&1
expect_rc "upgrade of a missing file" 4 $?
"${qx[@]}" admin admin config-file save "$work/no/such/dir/cfg.bin" --timeout 10 >/dev/null 2>&1
expect_rc "config-file save into a missing folder" 4 $?
"${qx[@]}" admin admin config-file save "$work/cfg.bin" --json --timeout 10 >"$work/cfg.json" 2>/dev/null
expect_rc "config-file save --json" 0 $?
json_check "config-file save --json" "$work/cfg.json" \
  "d == {'operation': 'config-file save', 'status': 'finished', 'file': '$work/cfg.bin'}"
[ -s "$work/cfg.bin" ] || fail "config-file save wrote no file"

# A download at the recording's own pace repeats the same percentage for seconds on end (one
# percent of five minutes is 3 s). Each report still shows the device alive, so a --timeout of
# 2 s must not end it.
[[ "$(devsim_ctl 'SET rec_pace realtime')" == OK* ]] || fail "SET rec_pace realtime"
"${qx[@]}" admin admin download 1 "${day}013000" "${day}013500" "$work/slow.mp4" --timeout 2 \
  >/dev/null 2>"$work/slow.err" &
slow=$!
sleep 7
if kill -0 "$slow" 2>/dev/null; then
  ok "a slow download outlives a --timeout shorter than one percent"
  kill -TERM "$slow"; wait "$slow"
else
  wait "$slow"; fail "a slow download ended with exit $? within 7 s: $(tail -c 300 "$work/slow.err")"
fi
grep -Eq "^download [1-9]%" "$work/slow.err" || fail "a slow download showed no progress: $(tail -c 300 "$work/slow.err")"
devsim_ctl 'SET rec_pace fast' >/dev/null

# A device that does not answer: exit 5 once --timeout has passed.
[[ "$(devsim_ctl 'SET userdata_answer 0')" == OK* ]] || fail "SET userdata_answer 0"
"${qx[@]}" admin admin userdata set abc --timeout 2 >"$work/to.out" 2>/dev/null
expect_rc "an unanswered request" 5 $?
[ -s "$work/to.out" ] && fail "an unanswered request printed data: $(cat "$work/to.out")"
devsim_ctl 'SET userdata_answer 1' >/dev/null

"${qx[@]}" admin admin replay 1 "${day}000010" --seconds 2 --json >"$work/rp.json" 2>/dev/null
expect_rc "replay --json" 0 $?
lines=1 json_check "replay --json: JSON Lines, a line a second and the totals" "$work/rp.json" \
  'len(docs) == 3 and all(set(x) == {"second", "fps", "kbit_per_s", "video", "audio"} for x in docs[:2])
   and docs[0]["video"] == "H.264" and d["video_frames"] > 0'

# Events: a login streams JSON Lines; alarm and status texts with quotes, control characters and
# bytes that are not UTF-8 must still parse.
"$qxnet" login 127.0.0.1 "$DEVSIM_PORT" admin admin --seconds 4 --json >"$work/ev.json" 2>"$work/ev.err" &
login_pid=$!
r="$(devsim_ctl 'WAITCONN 1 3000 auth=1')"
[[ "$r" == OK* ]] || fail "the login did not authenticate: $r"
devsim_ctl 'ALARM last data=door\s"7"\x01\xff acode=3 level=4' >/dev/null
devsim_ctl 'CAMSTAT last cam\x22one\x22\x02\xfe\\end' >/dev/null
wait "$login_pid"
expect_rc "login --json" 0 $?
lines=1 json_check "login --json: events as JSON Lines, hostile texts escaped" "$work/ev.json" \
  'any(x.get("type") == "event" and x["code"] == 6 and x["name"] == "authenticated" for x in docs)
   and any(a["data"].startswith("door \"7\"") and a["code"] == 3 and a["level"] == 4
           and a["time"] == "2024-5-17 13:45:30" for x in docs for a in x.get("alarms", []))
   and any(x["code"] == 51 and "cam\"one\"\x02\ufffd\\end" in x["text"] for x in docs)'

if [ $fails -gt 0 ]; then
  echo "$fails check(s) failed"
  exit 1
fi
echo "all checks passed"
