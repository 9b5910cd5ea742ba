#!/bin/sh
# Runs the fuzz targets of one area (xml, media, search) one after the other, each on a fresh
# copy of its seeds in a scratch directory, and appends one line per finished run to the
# area's RUNS.md.
#
#   fuzz/run_fuzzers.sh AREA BUILD_DIR SCRATCH_DIR [SECONDS] TARGET...
#
# BUILD_DIR is a build configured with -DQXNET_BUILD_FUZZ=ON; the seeds of each target are
# read from its fuzz/AREA/fuzz_AREA_targets.txt. A run that finds a crash, leak or timeout
# stops the series (exit status 1); its input is left in SCRATCH_DIR.
set -u
area=$1
here=$(cd "$(dirname "$0")/$area" && pwd) || { echo "no fuzz area $area" >&2; exit 2; }
build=$2
scratch=$3
shift 3
seconds=600
case ${1:-} in
  ''|*[!0-9]*) ;;
  *) seconds=$1; shift ;;
esac
list="$build/fuzz/$area/fuzz_${area}_targets.txt"
runs="$here/RUNS.md"
[ -f "$list" ] || { echo "no $list: build the fuzz targets first" >&2; exit 2; }
if [ ! -f "$runs" ]; then
  cat > "$runs" <<HEAD
# Fuzz runs: $area

One line per finished run: each target alone, on a fresh copy of its seeds, with
\`-max_total_time=<seconds> -rss_limit_mb=2048 -timeout=30 -print_final_stats=1\`.
Executions are libFuzzer's final \`stat::number_of_executed_units\`.

| date (UTC) | target | seconds | executions | crashes | leaks | timeouts | ooms | notes |
|---|---|---|---|---|---|---|---|---|
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
  nice -n 10 "$build/fuzz/$area/$target" -max_total_time="$seconds" -rss_limit_mb=2048 -timeout=30 \
    -print_final_stats=1 -artifact_prefix="$dir/artifacts/" "$dir/corpus" > "$dir/log" 2>&1
  rc=$?
  took=$(( $(date -u +%s) - started ))
  execs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$dir/log" | tail -1)
  count() { ls "$dir/artifacts" | grep -c "^$1-" ; }
  crashes=$(count crash); leaks=$(count leak); timeouts=$(count timeout); ooms=$(count oom)
  note="exit $rc, log $dir/log"
  [ "$took" -lt "$seconds" ] && note="$note, ended before $seconds s"
  echo "| $day | $target | $took | ${execs:-?} | $crashes | $leaks | $timeouts | $ooms | $note |" >> "$runs"
  tail -1 "$runs"
  if [ $((crashes + leaks + timeouts + ooms)) -gt 0 ] || [ "$rc" -ne 0 ]; then
    echo "stopping: $target found something (see $dir)" >&2
    exit 1
  fi
done
