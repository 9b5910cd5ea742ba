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

# recorder: the day's spans of channel 1, then four seconds of the first one into an MP4
# that must decode without a message, with the pictures the simulator sent.
# run_recorder_example EXAMPLES_BUILD_DIR WORK_DIR
run_recorder_example() {
  local bin="$1" work="$2" day file="$2/span.mp4" sent in_span frames msg
  day="$(date +%Y%m%d)"
  # Channel 1 records every day but every ninth (the simulator's empty days).
  [ $(( (10#$(date +%d) + 1) % 9 )) -ne 0 ] || day="$(date -d yesterday +%Y%m%d)"
  devsim_ctl "RECSPANS 1 000010-000030,120000-123000" | grep '^OK' >/dev/null || fail "RECSPANS"
  devsim_ctl "SET rec_pace fast" | grep '^OK' >/dev/null || fail "SET rec_pace"
  "$bin/recorder" 127.0.0.1 "$DEVSIM_PORT" admin secret 1 "$day" 4 "$file" >"$work/recorder.out" \
    || { cat "$work/recorder.out"; fail "recorder example"; }
  grep -qx "span 00:00:10 - 00:00:30" "$work/recorder.out" && grep -qx "span 12:00:00 - 12:30:00" "$work/recorder.out" \
    || { cat "$work/recorder.out"; fail "recorder: spans"; }
  grep -qx "downloading ${day}000010..${day}000014 into $file" "$work/recorder.out" || fail "recorder: span asked"
  grep -qx "download: 100%" "$work/recorder.out" || { cat "$work/recorder.out"; fail "recorder: no progress to 100%"; }
  sent="$(devsim_ctl RECSTREAM)"
  in_span="$(printf '%s\n' "$sent" | tr ' ' '\n' | sed -n 's/^video_in_span=//p')"
  # Four seconds at 25 pictures a second.
  [ -n "$in_span" ] && [ "$in_span" -ge 95 ] && [ "$in_span" -le 105 ] || fail "recorder: the simulator sent: $sent"
  [ "$(ffprobe -v error -select_streams v -show_entries stream=codec_name,width,height -of csv=p=0 "$file")" = "h264,320,240" ] \
    || fail "recorder: video stream of $file: $(ffprobe -v error -show_streams "$file" 2>&1 | head -20)"
  frames="$(ffprobe -v error -count_frames -select_streams v -show_entries stream=nb_read_frames -of csv=p=0 "$file")"
  [ "$frames" = "$in_span" ] || fail "recorder: $frames pictures in the file, the simulator sent $in_span"
  msg="$(ffmpeg -nostdin -v error -i "$file" -f null - 2>&1)" || fail "recorder: $file does not decode: $msg"
  [ -z "$msg" ] || fail "recorder: ffmpeg printed: $msg"
  devsim_ctl "WAITCONN 0 10000 atmost=1" >/dev/null
  echo "recorder example: $frames pictures, 320x240"
}

# discover: only inside private network namespaces (lan_netns.sh makes them, skips with
# a message where it cannot, fails instead where QXNET_REQUIRE_NETNS=1).
# run_discover_example EXAMPLES_BUILD_DIR WORK_DIR QXDEVSIM SOURCE_DIR
run_discover_example() {
  local bin="$1" work="$2" sim="$3" src="$4" rc=0
  bash "$src/tests/netns/lan_netns.sh" bash "$src/tests/install/discover_netns.sh" \
    "$bin/discover" "$sim" "$work/discover.out" 6 || rc=$?
  [ "$rc" -eq 77 ] && { echo "discover example SKIPPED (see the reason above)"; return 0; }
  [ "$rc" -eq 0 ] || fail "discover example (exit $rc)"
}
