#!/usr/bin/env bash
# Recorder downloads end to end, as a user runs them: qxnet downloads spans from qxdevsim
# playing a recorder, and every file must play. For H.264 and H.265, with each audio codec and
# without audio: ffmpeg decodes the file without a message, the picture count, size and
# duration are what the simulator sent, audio and video start within 100 ms. A download killed
# midway (the process) leaves a file that decodes; a parameter change mid-download gives a
# second part beside a whole first one; two hours of recording give two files that add up.
# Usage: recorder_e2e.sh QXNET QXDEVSIM WORKDIR [CASE...]   (CASE: matrix kill params hours)
set -euo pipefail
qxnet="$1" sim="$2" work="$3"
shift 3
cases=("$@")
[ ${#cases[@]} -gt 0 ] || cases=(matrix kill params hours)
here="$(cd "$(dirname "$0")" && pwd)"
rm -rf "$work" && mkdir -p "$work"
fail() { echo "FAIL: $*" >&2; exit 1; }
source "$here/../install/devsim.sh"

day="$(date +%Y%m%d)"
# Channel 1 records every day but every ninth (the simulator's empty days).
[ $(( (10#$(date +%d) + 1) % 9 )) -ne 0 ] || day="$(date -d yesterday +%Y%m%d)"

probe() { # FILE STREAM ENTRY
  ffprobe -v error -count_frames -select_streams "$2" -show_entries "stream=$3" -of csv=p=0 "$1" | head -1
}
stat_of() { # RECSTREAM-LINE KEY
  printf '%s\n' "$1" | tr ' ' '\n' | sed -n "s/^$2=//p"
}
decodes_silently() { # FILE
  local msg
  msg="$(ffmpeg -nostdin -v error -i "$1" -f null - 2>&1)" || fail "$1 does not decode: $msg"
  [ -z "$msg" ] || fail "$1: ffmpeg printed: $msg"
}
near() { # A B TOLERANCE
  awk -v a="$1" -v b="$2" -v t="$3" 'BEGIN { d = a - b; if (d < 0) d = -d; exit !(d <= t) }'
}

one_download() { # VIDEO AUDIO
  local v="$1" a="$2" dir="$work/$1_$2" file
  devsim_start "$sim" "$dir" --account admin:admin --set rec_video="$v" --set rec_audio="$a" \
    --set rec_pace=fast --quiet
  file="$dir/span.mp4"
  "$qxnet" 127.0.0.1 "$DEVSIM_PORT" admin admin download 1 "${day}000010" "${day}000016" "$file" \
    --timeout 30 >"$dir/qxnet.log" 2>&1 || { cat "$dir/qxnet.log"; fail "$v+$a: qxnet download failed"; }
  local sent
  sent="$(devsim_ctl "RECSTREAM")"
  [[ "$sent" == OK* ]] || fail "$v+$a: RECSTREAM: $sent"
  decodes_silently "$file"
  local want_codec="h264"; [ "$v" = h265 ] && want_codec="hevc"
  [ "$(probe "$file" v codec_name)" = "$want_codec" ] || fail "$v+$a: video codec $(probe "$file" v codec_name)"
  [ "$(probe "$file" v width),$(probe "$file" v height)" = "320,240" ] || fail "$v+$a: picture size"
  local frames in_span
  frames="$(probe "$file" v nb_read_frames)"
  in_span="$(stat_of "$sent" video_in_span)"
  [ "$frames" = "$in_span" ] || fail "$v+$a: $frames pictures in the file, the simulator sent $in_span in the span ($sent)"
  near "$(probe "$file" v duration)" "$(awk -v n="$in_span" 'BEGIN{print n*0.04}')" 0.05 \
    || fail "$v+$a: video duration $(probe "$file" v duration) for $in_span frames"
  if [ "$a" = none ]; then
    [ -z "$(probe "$file" a codec_name)" ] || fail "$v+none: an audio track appeared"
  else
    local want_audio="aac"; [ "$a" = pcmu ] && want_audio="pcm_mulaw"; [ "$a" = pcma ] && want_audio="pcm_alaw"
    [ "$(probe "$file" a codec_name)" = "$want_audio" ] || fail "$v+$a: audio codec $(probe "$file" a codec_name)"
    near "$(probe "$file" a start_time)" "$(probe "$file" v start_time)" 0.1 \
      || fail "$v+$a: audio starts at $(probe "$file" a start_time), video at $(probe "$file" v start_time)"
    [ "$(probe "$file" a nb_read_frames)" -gt 0 ] || fail "$v+$a: no audio frames"
  fi
  echo "ok   $v+$a: $frames pictures, $(probe "$file" v duration) s, audio $(probe "$file" a nb_read_frames) frames"
  kill "$DEVSIM_PID"; wait "$DEVSIM_PID" 2>/dev/null || true
}

killed_download() {
  local dir="$work/killed" file
  devsim_start "$sim" "$dir" --account admin:admin --set rec_video=h264 --set rec_audio=aac \
    --set rec_pace=realtime --quiet
  file="$dir/span.mp4"
  "$qxnet" 127.0.0.1 "$DEVSIM_PORT" admin admin download 1 "${day}000010" "${day}000110" "$file" \
    --timeout 120 >"$dir/qxnet.log" 2>&1 &
  local pid=$! frames=0
  # Killed once two seconds of fragments are on disk, however slowly the machine runs.
  for _ in $(seq 120); do
    sleep 0.25
    frames="$(ffprobe -v quiet -count_packets -select_streams v -show_entries stream=nb_read_packets \
      -of csv=p=0 "$file" 2>/dev/null || true)"
    [ "${frames:-0}" -ge 50 ] 2>/dev/null && break
  done
  kill -0 "$pid" 2>/dev/null || fail "killed download: qxnet ended before the kill ($(cat "$dir/qxnet.log"))"
  kill -9 "$pid"; wait "$pid" 2>/dev/null || true
  [ -s "$file" ] || fail "killed download left no file"
  decodes_silently "$file"
  frames="$(probe "$file" v nb_read_frames)"
  # A minute of real time was asked for: the file holds what came before the kill, whole.
  [ "$frames" -ge 50 ] && [ "$frames" -lt 1500 ] || fail "killed download: $frames pictures on disk"
  echo "ok   killed midway: $frames pictures decode"
  kill "$DEVSIM_PID"; wait "$DEVSIM_PID" 2>/dev/null || true
}

param_change() {
  local dir="$work/params" file
  devsim_start "$sim" "$dir" --account admin:admin --set rec_video=h264 --set rec_audio=none \
    --set rec_pace=fast --quiet
  [ "$(devsim_ctl "RECFAULT param_change at_ms=2000 to=h264_1920x1080")" = OK ] || fail "RECFAULT"
  file="$dir/span.mp4"
  "$qxnet" 127.0.0.1 "$DEVSIM_PORT" admin admin download 1 "${day}000010" "${day}000016" "$file" \
    --timeout 30 >"$dir/qxnet.log" 2>&1 || { cat "$dir/qxnet.log"; fail "param change: qxnet failed"; }
  local sent; sent="$(devsim_ctl "RECSTREAM")"
  [ -s "$dir/span_1.mp4" ] || fail "param change: no second part ($(ls "$dir"))"
  decodes_silently "$file"; decodes_silently "$dir/span_1.mp4"
  [ "$(probe "$file" v width)x$(probe "$file" v height)" = 320x240 ] || fail "first part size"
  [ "$(probe "$dir/span_1.mp4" v width)x$(probe "$dir/span_1.mp4" v height)" = 1920x1080 ] || fail "second part size"
  local f0 f1; f0="$(probe "$file" v nb_read_frames)"; f1="$(probe "$dir/span_1.mp4" v nb_read_frames)"
  [ "$f0" -ge 50 ] || fail "param change: the first part kept $f0 pictures"
  [ $((f0 + f1)) = "$(stat_of "$sent" video_in_span)" ] || fail "param change: $f0 + $f1 pictures, sent: $sent"
  echo "ok   parameter change: parts of $f0 and $f1 pictures"
  kill "$DEVSIM_PID"; wait "$DEVSIM_PID" 2>/dev/null || true
}

# Channel 1's recording of 05:09-07:07 (1 h 58 min without a gap): the writer begins a new
# file at the first key frame after each hour of video, and no picture is lost between them.
two_hours() {
  local dir="$work/hours" file
  devsim_start "$sim" "$dir" --account admin:admin --set rec_video=h264 --set rec_audio=pcmu \
    --set rec_pace=fast --quiet
  file="$dir/long.mp4"
  "$qxnet" 127.0.0.1 "$DEVSIM_PORT" admin admin download 1 "${day}050900" "${day}070700" "$file" \
    --timeout 900 >"$dir/qxnet.log" 2>&1 || { cat "$dir/qxnet.log"; fail "two hours: qxnet failed"; }
  local sent; sent="$(devsim_ctl "RECSTREAM")"
  [ -s "$dir/long_1.mp4" ] || fail "two hours: no second file ($(ls "$dir"))"
  [ ! -e "$dir/long_2.mp4" ] || fail "two hours: a third file"
  local f0 f1
  for f in "$file" "$dir/long_1.mp4"; do decodes_silently "$f"; done
  f0="$(ffprobe -v error -count_packets -select_streams v -show_entries stream=nb_read_packets -of csv=p=0 "$file")"
  f1="$(ffprobe -v error -count_packets -select_streams v -show_entries stream=nb_read_packets -of csv=p=0 "$dir/long_1.mp4")"
  # The first file holds the first hour: 90,000 pictures and the rest of its last second.
  [ "$f0" -ge 90000 ] && [ "$f0" -le 90025 ] || fail "two hours: first file has $f0 pictures"
  [ $((f0 + f1)) = "$(stat_of "$sent" video_in_span)" ] || fail "two hours: $f0 + $f1 pictures, sent: $sent"
  echo "ok   two hours: files of $f0 and $f1 pictures"
  rm -f "$dir"/long*.mp4
  kill "$DEVSIM_PID"; wait "$DEVSIM_PID" 2>/dev/null || true
}

for c in "${cases[@]}"; do
  case "$c" in
    matrix) for v in h264 h265; do for a in pcmu pcma aac none; do one_download "$v" "$a"; done; done ;;
    kill) killed_download ;;
    params) param_change ;;
    hours) two_hours ;;
    *) fail "unknown case $c" ;;
  esac
done
echo "recorder end to end: all passed"
