# Runs the examples against the qxdevsim that devsim.sh started and checks what they print.
# run_examples EXAMPLES_BUILD_DIR WORK_DIR
run_examples() {
  local bin="$1" work="$2"
  # events: log in, then the device reports two alarms and a camera status.
  "$bin/events" 127.0.0.1 "$DEVSIM_PORT" admin secret 3 >"$work/events.out" &
  local pid=$!
  devsim_ctl "WAITCONN 1 10000 auth=1" | grep '^OK' >/dev/null || fail "events example did not log in"
  devsim_ctl "ALARM last form=good items=2 acode=3 data=motion" | grep '^OK' >/dev/null || fail "ALARM"
  devsim_ctl "CAMSTAT last 1,1,1,0" | grep '^OK' >/dev/null || fail "CAMSTAT"
  wait "$pid" || fail "events example exit $?"
  grep -q "logged in" "$work/events.out" || fail "events: no login event"
  grep -q "alarm.*motion" "$work/events.out" || { cat "$work/events.out"; fail "events: no alarm"; }
  devsim_ctl "WAITCONN 0 10000 atmost=1" >/dev/null

  # settings: write, then the value read back.
  "$bin/settings" 127.0.0.1 "$DEVSIM_PORT" admin secret 1601 '<VideoEncode><BitRate>2048</BitRate></VideoEncode>' \
    >"$work/settings.out" || { cat "$work/settings.out"; fail "settings example"; }
  grep -q "setting 1601 now reads: .*<BitRate>2048</BitRate>" "$work/settings.out" || fail "settings output"
  [ "$(devsim_ctl "CONFIG GET 1601")" != "" ] || fail "CONFIG GET"
  ! "$bin/settings" 127.0.0.1 "$DEVSIM_PORT" admin wrong 1601 '<x/>' 2>/dev/null || fail "settings with a bad password"

  # upgrade: a firmware file of a few chunks arrives whole.
  head -c 700000 /dev/urandom >"$work/firmware.bin"
  "$bin/upgrade" 127.0.0.1 "$DEVSIM_PORT" admin secret "$work/firmware.bin" >"$work/upgrade.out" \
    || { cat "$work/upgrade.out"; fail "upgrade example"; }
  grep -q "upgrade: finished" "$work/upgrade.out" || fail "upgrade output"
  devsim_ctl "UPLOAD 0" | grep "state=done.* size=700000 " >/dev/null || fail "upload on the device: $(devsim_ctl "UPLOAD 0")"
  ! "$bin/upgrade" 127.0.0.1 "$DEVSIM_PORT" admin secret "$work/missing.bin" 2>/dev/null || fail "upgrade of a missing file"
  echo "examples ran"
}
