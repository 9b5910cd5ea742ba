// The table of control verbs, in the order the help text lists them: each row
// names its handler (ctl_*.cpp) and carries its lines of the help text.
#include "control.h"

namespace devsim {

const std::vector<Verb>& verbTable() {
  static const std::vector<Verb> table = {
      {"HELP", &Cmd::help, 0, nullptr,
       "  HELP                          this text (escaped)\n"},
      {"PING", &Cmd::ping, 0, nullptr,
       "  PING                          OK pong\n"},
      {"QUIT", &Cmd::quit, 0, nullptr,
       "  QUIT | STOP                   stop the simulator\n"},
      {"STOP", &Cmd::quit, 0, nullptr, ""},
      {"PORTS", &Cmd::ports, 0, nullptr,
       "  PORTS                         OK control=P devices=P0,P1,...\n"},
      {"CONNS", &Cmd::conns, 0, nullptr,
       "  CONNS [dev=K] [auth=1]        OK N id=..,dev=..,auth=0|1,user=..,peer=..,\n"
       "                                rxframes=..,txframes=..,badbytes=..,pending=..,\n"
       "                                upload=none|waiting|active ...\n"},
      {"STATS", &Cmd::stats, 0, nullptr,
       "  STATS                         OK name=value ... (connections_accepted,\n"
       "                                auth_ok, auth_refused, heartbeats, frames_rx,\n"
       "                                uploads_done, downloads, reboots, ...)\n"},
      {nullptr, nullptr, 0, nullptr,
       "Received messages:\n"},
      {"COUNT", &Cmd::count, 0, nullptr,
       "  COUNT TYPE CMD [conn=ID] [dev=K]            OK N\n"},
      {"WAIT", &Cmd::wait, 0, nullptr,
       "  WAIT TYPE CMD N TIMEOUT_MS [conn=ID] [dev=K]\n"
       "                                OK count once at least N are received,\n"
       "                                else ERR timeout count (no sleeps in tests)\n"},
      {"LASTMSG", &Cmd::lastMsg, 0, nullptr,
       "  LASTMSG [TYPE [CMD]] [conn=ID] [dev=K]\n"
       "                                OK seq= conn= dev= type= cmd= result= size= body=\n"},
      {"MSG", &Cmd::msg, 0, nullptr,
       "  MSG SEQ                       the same for one message\n"},
      {"MSGS", &Cmd::msgs, 0, nullptr,
       "  MSGS [TYPE [CMD]] [conn=ID] [dev=K] [max=N]\n"
       "                                OK N seq=..,conn=..,dev=..,type=..,cmd=..,\n"
       "                                result=..,size=..,body=.. ... (oldest first)\n"},
      {"CLEARMSGS", &Cmd::clearMsgs, 0, nullptr,
       "  CLEARMSGS                     forget recorded messages and counts\n"},
      {"WAITCONN", &Cmd::waitConn, 0, nullptr,
       "  WAITCONN N TIMEOUT_MS [auth=1] [atmost=1] [dev=K]\n"
       "                                wait for at least N open connections (authenticated\n"
       "                                ones with auth=1), or with atmost=1 for N or fewer\n"},
      {"WAITCLOSED", &Cmd::waitClosed, 0, nullptr,
       "  WAITCLOSED CONN TIMEOUT_MS    wait until a connection is closed\n"},
      {"WAITSTAT", &Cmd::waitStat, 0, nullptr,
       "  WAITSTAT NAME VALUE TIMEOUT_MS              wait until a STATS counter >= VALUE\n"},
      {"SET", &Cmd::set, 0, nullptr, settingsHelpText()},
      {"GET", &Cmd::get, 0, nullptr, ""},
      {"SETTINGS", &Cmd::settings, 0, nullptr, ""},
      {nullptr, nullptr, 0, nullptr,
       "Accounts and stores:\n"},
      {"ACCOUNT", &Cmd::account, 0, nullptr,
       "  ACCOUNT ADD USER PASS | ACCOUNT DEL USER | ACCOUNT LIST    [dev=K]\n"},
      {"CONFIG", &Cmd::config, 2, "SET",
       "  CONFIG GET CMD | CONFIG SET CMD BODY | CONFIG DEL CMD | CONFIG CLEAR | CONFIG DUMP\n"
       "                                configuration store (BODY escaped, rest of line)\n"},
      {"USERDATA", &Cmd::userData, 0, nullptr,
       "  USERDATA [HEX|-]              get (OK hex=..) or set the stored user data\n"},
      {"UPLOAD", &Cmd::upload, 0, nullptr,
       "  UPLOAD [INDEX]                OK index= state=done|cancelled|refused|abandoned|\n"
       "                                active|waiting kind=firmware|config conn= announced=\n"
       "                                size= chunks= fnv=(FNV-1a 64) crc32= file= errors= err=\n"
       "  UPLOAD COUNT                  finished uploads\n"
       "  UPLOAD ACCEPT [CONN]          send the acceptance now (late mode, or after a cancel)\n"
       "  UPLOAD REFUSE CODE [CONN]     send a refusal now\n"},
      {"DOWNLOAD", &Cmd::download, 0, nullptr,
       "  DOWNLOAD [INDEX|COUNT]        OK index= conn= announced= sent= chunks= fault=\n"
       "                                fnv= crc32= source=   (checksums of the file)\n"},
      {"REBOOT", &Cmd::reboot, 0, nullptr,
       "  REBOOT [dev=K]                as a 14008 request: close the device's\n"
       "                                connections and its listener for reboot_pause_ms\n"},
      {nullptr, nullptr, 0, nullptr,
       "Sending (faults for the library's framing):\n"},
      {"SEND", &Cmd::send, 4, nullptr,
       "  SEND CONN TYPE CMD RESULT [BODY]   PrivateProto frame (BODY escaped, rest of line)\n"},
      {"SENDTEXT", &Cmd::sendText, 1, nullptr,
       "  SENDTEXT CONN TEXT            frame whose payload is TEXT (escaped)\n"},
      {"SENDHEX", &Cmd::sendHex, 1, nullptr,
       "  SENDHEX CONN HEX              frame whose payload is the given bytes\n"},
      {"RAW", &Cmd::sendHex, 1, nullptr,
       "  RAW CONN HEX                  bytes as they are, no framing\n"},
      {"FRAME", &Cmd::frame, 0, nullptr,
       "  FRAME CONN [flag=X] [len=N] [hex=H | text=T] [shift=S]\n"
       "                                explicit header (any flag and length), S filler\n"
       "                                bytes first, all in one write\n"},
      {"GARBAGE", &Cmd::garbage, 0, nullptr,
       "  GARBAGE CONN N                N filler bytes (0x5a, never a flag)\n"},
      {"LEN8", &Cmd::len8, 0, nullptr,
       "  LEN8 CONN                     a frame of length 8 with 8 payload bytes\n"},
      {"OVERSIZE", &Cmd::oversize, 0, nullptr,
       "  OVERSIZE CONN [len=0xF00009] [bytes=64]    header with a huge length, then bytes\n"},
      {"CUTFRAME", &Cmd::cutFrame, 0, nullptr,
       "  CUTFRAME CONN [n=20] [rst=1]  header + n payload bytes of a heartbeat answer, close\n"},
      {"ARM", &Cmd::arm, 0, nullptr,
       "  ARM CONN|any [count=K] [garbage=N] [shift=S] [split=N] [delay=MS] [flag=X]\n"
       "           [cut=N] [rst=1] [drop=1]\n"
       "                                modify the next K frames the device sends (answers\n"
       "                                included): filler before the frame in the same write,\n"
       "                                the frame in N-byte writes DELAY ms apart, another\n"
       "                                flag, only header + cut payload bytes then close, or\n"
       "                                not sent at all. \"any\": next frames on any connection\n"},
      {"DISARM", &Cmd::arm, 0, nullptr,
       "  DISARM CONN|any               cancel ARM\n"},
      {"CAMSTAT", &Cmd::camstat, 0, nullptr,
       "  CAMSTAT CONN TEXT [TEXT...] [type=30000] [cmd=35003]\n"
       "                                camera status, one Ipcs_stat per TEXT (escaped)\n"},
      {"ALARM", &Cmd::alarm, 0, nullptr,
       "  ALARM CONN [form=good|badquote|emptybody|emptybody_nl] [items=N] [type=30000]\n"
       "             [cmd=35010] [msgcode=CMD_REPORT_ALARM] [msgflag=0] [year= month= day=\n"
       "             wday= hour= minute= second=] [acode=1] [aflag=1] [level=2]\n"
       "             [data=TEXT] [datalen=N] [notime=1] [noinfo=1] [wrap=body|root|private]\n"
       "                                alarm report (badquote: contains \"0\"\"; emptybody:\n"
       "                                <MESSAGE_BODY></MESSAGE_BODY>). wrap=body: inside the\n"
       "                                PrivateProto body; root: MESSAGE_HEADER/MESSAGE_BODY\n"
       "                                as children of the PrivateProto root; private: a bare\n"
       "                                PRIVATE_PROTO document\n"},
      {"HB", &Cmd::hb, 0, nullptr,
       "  HB CONN                       an unsolicited heartbeat answer\n"},
      {"AUTHANSWER", &Cmd::authAnswer, 0, nullptr,
       "  AUTHANSWER CONN [result=N] [maxch=N]       an authentication answer now\n"},
      {"CLOSE", &Cmd::close, 0, nullptr,
       "  CLOSE CONN|all [rst=1]        close connections\n"},
      {"TRICKLE", &Cmd::trickle, 0, nullptr,
       "  TRICKLE CONN BYTES INTERVAL_MS [hex=H]\n"
       "                                BYTES filler bytes (0x5a), or the bytes of H\n"
       "                                repeated, one at a time INTERVAL_MS apart; what\n"
       "                                is sent later waits behind them\n"},
      {"LAN", &Cmd::lan, 0, nullptr,
       "  LAN [STATS]                   OK devices= port= target= sent= ... cmdNNNNN=count\n"
       "  LAN LIST [from=K] [max=N]     OK N idx=..,uid=..,ip=..,hw=..,mac=..,token=.. ...\n"
       "  LAN SET K|all key=value...    answer fields (uid hw model ip mask gw dns1 dns2\n"
       "                                mac osd fw sdk token user pass group rtsp http dhcp,\n"
       "                                escaped) and auth=0|1 result=N|auto mute=0|1 repeat=N\n"
       "  LAN GET K FIELD               OK value\n"
       "  LAN COUNT CMD | LAN WAIT CMD N TIMEOUT_MS   requests received with that cmd\n"
       "  LAN LAST [CMD]                OK cmd= from= size= body=\n"
       "  LAN PACE MICROSECONDS         pause between the answers of one burst\n"
       "  LAN ANSWER [to=ADDR:PORT]     answer a search now (default: the last searcher)\n"
       "  LAN FLOOD N [distinct=1] [hw=TYPE] [to=]    N search answers at once\n"
       "  LAN BAD KIND [count=N] [to=]  truncated noclose noopen badxml noresult nobody\n"
       "                                empty binary search unknownuid\n"
       "  LAN OVERSIZE [bytes=65507] [k=K] [field=osd] [to=]   one answer of exactly BYTES\n"},
      {nullptr, nullptr, 0, nullptr,
       "Recorder (replay and download; settings rec_*):\n"},
      {"RECFAULT", &Cmd::recFault, 0, nullptr,
       "  RECFAULT KIND [at_ms=2000] [value=N] [to=X] [rst=1] [params=1] [dev=K]\n"
       "                                arm a fault for the device's next stream, applied\n"
       "                                once at_ms of media after its first frame. KIND:\n"
       "                                lose_pack (second pack of a multi-pack frame not\n"
       "                                sent), seq_jump (pack_seq jumps by value, 1000, inside\n"
       "                                a frame), seq_wrap (a frame's packs 65535, 0, ...),\n"
       "                                audio_first (an audio frame before the first video\n"
       "                                frame), param_change (at a key frame: new parameters\n"
       "                                then video of to=CODEC_SIZE, default the other size),\n"
       "                                audio_change (audio becomes to=CODEC; params=1\n"
       "                                announces it), drop (close, rst=1 reset), stall\n"
       "                                (no media for value ms, 3000), refuse (answer the\n"
       "                                next 14301 with flag value, -16)\n"
       "  RECFAULT [dev=K]              OK N KIND@at_ms ...     RECFAULT off: disarm all\n"},
      {"RECSPANS", &Cmd::recSpans, 0, nullptr,
       "  RECSPANS CH [hhmmss-hhmmss,...|-] [dev=K]\n"
       "                                show or set the channel's daily spans (- generated)\n"},
      {"RECSTREAM", &Cmd::recStream, 0, nullptr,
       "  RECSTREAM [INDEX|COUNT] [dev=K]\n"
       "                                OK index= conn= mode=replay|download state=streaming|\n"
       "                                ended|stopped|dropped|refused|closed ch= video= audio=\n"
       "                                start= end= video_frames= key_frames= audio_frames=\n"
       "                                video_in_span= audio_in_span= packs= bytes=\n"
       "                                first_video_ms= last_video_ms= last_in_span_ms=\n"
       "                                first_audio_ms= parts=N/N.. faults=KIND@ts,..\n"
       "                                STATS: rec_searches rec_streams rec_streams_ended ...\n"},
      {nullptr, nullptr, 0, nullptr,
       "Chaos (hostile devices, soak tests):\n"},
      {"CHAOS", &Cmd::chaos, 0, nullptr,
       "  CHAOS [dev=K] [period_ms=1000] [drop=N] [garbage=N] [reboot=N] [stall=N]\n"
       "        [stall_ms=3000] [seed=S]\n"
       "                                every period, for each open connection of the\n"
       "                                device, with probability N/1000 each: drop (close,\n"
       "                                1 in 8 with a reset), garbage (1..4096 filler bytes\n"
       "                                between frames), stall (neither read nor write for\n"
       "                                stall_ms, then the queued output); and per device\n"
       "                                with probability reboot/1000, a REBOOT. One seed\n"
       "                                gives one sequence (random when absent).\n"
       "                                OK devices=N seed=S. STATS: chaos_rounds,\n"
       "                                chaos_drops, chaos_garbage, chaos_reboots,\n"
       "                                chaos_stalls\n"
       "  CHAOS [dev=K]                 OK off | OK on period_ms= drop= garbage= reboot=\n"
       "                                stall= stall_ms= seed=\n"
       "  CHAOS off [dev=K]             stop\n"},
  };
  return table;
}

const Verb* findVerb(const std::string& upperName) {
  static const std::map<std::string, const Verb*> byName = [] {
    std::map<std::string, const Verb*> m;
    for (const Verb& v : verbTable())
      if (v.name) m.emplace(v.name, &v);
    return m;
  }();
  auto it = byName.find(upperName);
  return it == byName.end() ? nullptr : it->second;
}

}  // namespace devsim
