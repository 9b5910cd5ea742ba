#!/bin/sh
# Runs session fuzz targets one after the other, each on a fresh copy of its seeds in a
# scratch directory (also its working directory), and appends one line per finished run to
# RUNS.md next to this script.
#
#   run_session_fuzzers.sh BUILD_DIR SCRATCH_DIR [SECONDS] TARGET...
#
# BUILD_DIR is a build configured with -DQXNET_BUILD_FUZZ=ON; the seeds of each target are
# read from its fuzz/session/fuzz_session_targets.txt. A run that finds a crash, leak or
# timeout stops the series (exit status 1); its input is left in SCRATCH_DIR.
set -u
here=$(cd "$(dirname "$0")" && pwd)
build=$(cd "$1" && pwd)
mkdir -p "$2"
scratch=$(cd "$2" && pwd)
shift 2
seconds=600
case ${1:-} in
  ''|*[!0-9]*) ;;
  *) seconds=$1; shift ;;
esac
list="$build/fuzz/session/fuzz_session_targets.txt"
runs="$here/RUNS.md"
[ -f "$list" ] || { echo "no $list: build the fuzz targets first" >&2; exit 2; }
if [ ! -f "$runs" ]; then
  cat > "$runs" <<'HEAD'
# Session fuzz runs

One line per finished run: each target alone, on a fresh copy of its seeds, with
`-max_total_time=<seconds> -rss_limit_mb=2048 -timeout=30 -print_final_stats=1`, under
`nice -n 10`. Executions and exec/s are libFuzzer's final `stat::number_of_executed_units`
and `stat::average_exec_per_sec`; coverage is the last `cov` (edges) and `ft` (features)
it printed.

| date (UTC) | target | seconds | executions | exec/s | cov / ft | result | notes |
|---|---|---|---|---|---|---|---|
HEAD
fi

for target in "$@"; do
  seeds=$(awk -v t="$target" '$1 == t { print $2 }' "$list")
  [ -n "$seeds" ] || { echo "unknown target $target" >&2; exit 2; }
  dir="$scratch/$target-$(date -u +%Y%m%dT%H%M%S)"
  mkdir -p "$dir/corpus" "$dir/artifacts"
  cp "$seeds"/* "$dir/corpus/"
  started=$(date -u +%s)
  day=$(date -u '+%Y-%m-%d %H:%M')
  (cd "$dir" && nice -n 10 "$build/fuzz/session/$target" -max_total_time="$seconds" -rss_limit_mb=2048 \
    -timeout=30 -print_final_stats=1 -artifact_prefix="$dir/artifacts/" "$dir/corpus" > "$dir/log" 2>&1)
  rc=$?
  took=$(( $(date -u +%s) - started ))
  stat() { sed -n "s/^stat::$1: *//p" "$dir/log" | tail -1; }
  execs=$(stat number_of_executed_units)
  rate=$(stat average_exec_per_sec)
  cov=$(grep -o 'cov: [0-9]* ft: [0-9]*' "$dir/log" | tail -1 | awk '{ print $2 " / " $4 }')
  found=""
  for kind in crash leak timeout oom; do
    n=$(ls "$dir/artifacts" | grep -c "^$kind-")
    [ "$n" -gt 0 ] && found="$found $n $kind"
  done
  result=${found:+found$found}
  [ -z "$result" ] && [ "$rc" -eq 0 ] && result=clean
  note="exit $rc, log $dir/log"
  [ "$took" -lt "$seconds" ] && note="$note, ended before $seconds s"
  echo "| $day | $target | $took | ${execs:-?} | ${rate:-?} | ${cov:-?} | ${result:-exit $rc} | $note |" >> "$runs"
  tail -1 "$runs"
  if [ -n "$found" ] || [ "$rc" -ne 0 ]; then
    echo "stopping: $target found something (see $dir)" >&2
    exit 1
  fi
done
