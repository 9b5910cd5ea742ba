# Starts qxdevsim on 127.0.0.1 for a shell test and stops it when the shell exits.
# devsim_start BINARY DIR [options...] sets DEVSIM_PORT (device 0) and DEVSIM_CONTROL;
# devsim_ctl LINE sends one control command and prints the reply.
devsim_start() {
  local bin="$1" dir="$2"
  shift 2
  mkdir -p "$dir"
  "$bin" --listen 127.0.0.1:0 --control 0 --port-file "$dir/ports" --upload-dir "$dir" "$@" \
    >"$dir/sim.log" 2>&1 &
  DEVSIM_PID=$!
  trap 'kill "$DEVSIM_PID" 2>/dev/null || true; wait "$DEVSIM_PID" 2>/dev/null || true' EXIT
  for _ in $(seq 200); do [ -s "$dir/ports" ] && break; sleep 0.05; done
  DEVSIM_PORT="$(awk '$1=="device" && $2==0 {print $3}' "$dir/ports")"
  DEVSIM_CONTROL="$(awk '$1=="control" {print $2}' "$dir/ports")"
  [ -n "$DEVSIM_PORT" ] && [ -n "$DEVSIM_CONTROL" ] || { cat "$dir/sim.log"; echo "FAIL: qxdevsim did not start" >&2; exit 1; }
}

devsim_ctl() {
  local reply
  exec 3<>"/dev/tcp/127.0.0.1/$DEVSIM_CONTROL"
  printf '%s\n' "$1" >&3
  IFS= read -r reply <&3 || true
  exec 3<&- 3>&-
  printf '%s\n' "$reply"
}
