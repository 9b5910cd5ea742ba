#!/bin/sh
# Writes the seed corpus of fuzz_session_receive into corpus/ next to this script.
#
#   make_seeds.sh
#
# A seed is one input of the target: a byte k, k chunk sizes (1..255, or 0 for one read of
# whatever the receiver asks), then the bytes a device sends. Every frame is built here
# from its message text, so its length field always matches what it carries unless a seed
# sets a bad one on purpose.
set -eu
here=$(cd "$(dirname "$0")" && pwd)
out="$here/corpus"
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
mkdir -p "$out"
rm -f "$out"/seed_*

FLAG=538444551     # 0x20180307, sent by the library and most devices
FLAG_ALT=1882227970  # 0x70308102, accepted as well

byte() { printf "\\$(printf %03o "$(($1 & 255))")"; }
le32() { byte "$1"; byte "$(($1 >> 8))"; byte "$(($1 >> 16))"; byte "$(($1 >> 24))"; }
size() { wc -c < "$1" | tr -d ' '; }

# seed NAME [CHUNK...]: starts the seed NAME with its chunk sizes.
seed() {
  cur="$out/seed_$1"
  shift
  byte $# > "$cur"
  for s in "$@"; do byte "$s" >> "$cur"; done
}

# envelope TYPE CMD RESULT BODY: a message text as devices send it (no body: empty element).
envelope() {
  printf '<?xml version="1.0" encoding="utf-8" ?>\n<PrivateProto>\n<head>\n<type>%s</type>\n' "$1"
  printf '<cmd>%s</cmd>\n<result>%s</result>\n</head>\n' "$2" "$3"
  if [ -n "$4" ]; then printf '<body>\n%s\n</body>\n</PrivateProto>' "$4"; else printf '<body>\n</body>\n</PrivateProto>'; fi
}

# frame FILE [FLAG [LENGTH]]: appends a frame carrying FILE; LENGTH overrides the true one.
frame() {
  le32 "${2:-$FLAG}" >> "$cur"
  le32 "${3:-$(size "$1")}" >> "$cur"
  cat "$1" >> "$cur"
}

# msg TYPE CMD RESULT BODY [FLAG]: appends a frame carrying that message.
msg() {
  envelope "$1" "$2" "$3" "$4" > "$tmp/m"
  frame "$tmp/m" "${5:-}"
}

# binary N: N bytes of a repeating pattern that holds zeros and high bytes.
binary() {
  i=0
  while [ "$i" -lt "$1" ]; do byte $((i * 37 + 1)); i=$((i + 1)); done
}

# data_msg TYPE CMD LENGTH_BODY N: a message text, four zero bytes, then N data bytes.
data_msg() {
  { envelope "$1" "$2" 0 "$3"; le32 0; binary "$4"; } > "$tmp/d"
  frame "$tmp/d"
}

alarm_items() {
  printf '<MESSAGE_HEADER Msg_type="ALARM_REPORT_MESSAGE" Msg_code="CMD_REPORT_ALARM" Msg_flag="0" />'
  printf '<MESSAGE_BODY><ALARM_REPORT_PARAM>'
  for code in 1 3; do
    printf '<ALARM_ITEM><ALARM_TIME Year="2024" Month="5" Day="17" WDay="5" Hour="13" Minute="45" Second="30"/>'
    printf '<ALARM_INFO Alarm_code="%s" Alarm_flag="1" Alarm_level="2" Alarm_data="motion zone %s"/></ALARM_ITEM>' \
      "$code" "$code"
  done
  printf '</ALARM_REPORT_PARAM></MESSAGE_BODY>'
}

# --- one message family a seed -------------------------------------------------------------
seed auth_ok;             msg 10000 14012 0 '<authRsp>
<MAXChannels>16</MAXChannels>
</authRsp>'
seed auth_bad_password;   msg 10000 14012 2 ''
seed auth_refused;        msg 10000 14012 7 ''
seed heartbeat;           msg 30000 35001 0 ''
seed camera_status;       msg 30000 35003 0 '<Ipcs_stat>1,1,0,0,1,0,0,0</Ipcs_stat>'
seed alarm_in_body;       msg 30000 35010 0 "$(alarm_items)"
seed alarm_private
{ printf '<?xml version="1.0" encoding="utf-8" ?>\n<PRIVATE_PROTO>\n'; alarm_items; printf '\n</PRIVATE_PROTO>'; } > "$tmp/a"
frame "$tmp/a"
seed config_answer;       msg 40000 14002 0 '<NetConfig>
<IPAddress>127.168.1.64</IPAddress>
<HttpPort>80</HttpPort>
</NetConfig>'
seed config_answer_10000; msg 10000 14002 0 '<OSDConfig Title="Gate &amp; yard" Time="1"/>'
seed serial_started;      msg 20000 14035 0 ''
seed serial_failed;       msg 20000 14035 -3 ''
seed capabilities;        msg 20000 14020 0 '<Capability>ptz+front_replay+audio</Capability>'
seed reboot_answer;       msg 20000 14008 0 ''
seed firmware_announce;   msg 20000 20001 0 ''
seed firmware_refused;    msg 20000 20001 -1 '<reason>busy</reason>'
seed firmware_chunk_refused; msg 20000 20002 -1 ''
seed config_upload_answer;   msg 20000 20004 0 ''
seed config_upload_refused;  msg 20000 20004 -3 ''
seed download_port;       msg 20000 14023 0 '<FileTransport Port="8201" Type="1" FileLength="4096"/>'
seed download_port_refused; msg 20000 14023 -1 ''
seed config_download
msg 20000 20006 0 '<fileLength>100</fileLength>'
data_msg 20000 20007 '<startPos>0</startPos>
<dataLength>60</dataLength>' 60
data_msg 20000 20007 '<startPos>60</startPos>
<dataLength>40</dataLength>' 40
seed config_download_cut
msg 20000 20006 0 '<fileLength>100</fileLength>'
data_msg 20000 20007 '<startPos>0</startPos>
<dataLength>60</dataLength>' 60
seed config_download_refused; msg 20000 20006 -1 ''
seed config_download_empty_data
msg 20000 20006 0 '<fileLength>10</fileLength>'
data_msg 20000 20007 '<startPos>0</startPos>
<dataLength>0</dataLength>' 0
seed media_live;          data_msg 90000 90001 '<dataLen>24</dataLen>' 24
seed media_download;      data_msg 90000 90002 '<dataLen>16</dataLen>' 16
seed media_replay_params; msg 90000 90000 0 '<AVParam Width="1920" Height="1080"/>'
seed unknown_type;        msg 50000 51001 0 '<x>1</x>'
seed no_head
printf '<?xml version="1.0" encoding="utf-8" ?>\n<PrivateProto>\n<body>\n</body>\n</PrivateProto>' > "$tmp/n"
frame "$tmp/n"

# --- framing -----------------------------------------------------------------------------------
seed alt_flag;            msg 30000 35001 0 '' "$FLAG_ALT"
seed both_flags;          msg 30000 35001 0 '' "$FLAG_ALT"; msg 30000 35003 0 '<Ipcs_stat>0,1</Ipcs_stat>'
for n in 2 5 8 13 100; do
  seed "garbage_$n"
  binary "$n" >> "$cur"
  msg 30000 35001 0 ''
done
seed bad_length_8
binary 8 > "$tmp/b"; frame "$tmp/b"
msg 30000 35001 0 ''
seed bad_length_0
frame /dev/null "$FLAG" 0
msg 30000 35001 0 ''
seed bad_length_too_long
binary 8 > "$tmp/b"; frame "$tmp/b" "$FLAG" 15728649   # 0xF00009: refused before reading
msg 30000 35001 0 ''
seed beyond_buffer
binary 64 > "$tmp/b"; frame "$tmp/b" "$FLAG" 3145729   # past the 3 MiB buffer: read and dropped
seed several
msg 10000 14012 0 '<authRsp><MAXChannels>4</MAXChannels></authRsp>'
msg 30000 35001 0 ''
msg 30000 35003 0 '<Ipcs_stat>1,0,1,1</Ipcs_stat>'
msg 40000 14002 0 '<Video Bitrate="2048"/>'

# --- frames split across chunks ----------------------------------------------------------------
seed split_bytes 1;       msg 30000 35003 0 '<Ipcs_stat>1,1</Ipcs_stat>'
seed split_uneven 3 1 7 0; msg 10000 14012 0 ''; msg 30000 35001 0 ''
seed split_header 5 0;    msg 20000 14035 0 ''; msg 30000 35010 0 '<x/>'
seed split_download 9 200 0
msg 20000 20006 0 '<fileLength>50</fileLength>'
data_msg 20000 20007 '<startPos>0</startPos>
<dataLength>50</dataLength>' 50

ls "$out" | wc -l
