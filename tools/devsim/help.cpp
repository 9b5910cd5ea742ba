#include "help.h"

namespace devsim {

std::string optionsHelpText() {
  return R"(Usage: qxdevsim [options]

Simulates one or more cameras / recorders speaking the device side of the
session protocol (length-framed PrivateProto XML over TCP), for the library's
tests, demo and benchmarks. Everything listens on 127.0.0.1 unless told
otherwise; the simulator never connects anywhere.

Options:
  --listen ADDR:PORT   device address and first port (default 127.0.0.1:0;
                       port 0 = ephemeral ports, else devices take PORT,
                       PORT+1, ...)
  --devices N          number of simulated devices, one listening port each
                       (default 1)
  --account USER:PASS  accepted account (repeatable; default admin:admin)
  --max-channels N     MAXChannels in the authentication answer (default 16;
                       negative: the answer has no body)
  --auth-refusal CODE  result code used to refuse bad accounts (default 2;
                       the library treats 2, 3, 4, -1 as bad credentials)
  --control PORT       line-based control channel on 127.0.0.1:PORT
                       (default 0 = ephemeral; "off" = none)
  --port-file FILE     once listening, write the ports to FILE atomically:
                         pid PID
                         control PORT
                         device INDEX PORT      (one line per device)
                         ports PORT0 PORT1 ...
  --upload-dir DIR     where finished uploads are written
                       (upload_<dev>_<n>.bin unless SET upload_name is used;
                       without it uploads are only checksummed)
  --script FILE        control commands run once at start, before the port
                       file is written (one per line, '#' comments; WAIT
                       commands are evaluated once, without waiting); any ERR
                       reply aborts with exit code 2
  --quiet              errors only
  --verbose            log every connection and message
  --help               this text

Exit: 0 after QUIT or SIGTERM/SIGINT, 1 on a setup failure, 2 on a bad
script or bad options.

)" + controlHelpText();
}

std::string controlHelpText() {
  return R"(Control channel: one command per line, one reply line per command, starting
with "OK" or "ERR". Free text in commands and values in replies are escaped:
\n \r \t \\ \s (space) \0 \xHH. CONN is a connection id, "last" (newest open
connection) or, for commands that send, "all". "dev=K" selects a device
(default: setters act on all devices, getters read device 0). TYPE and CMD may
be "*" in COUNT, WAIT, LASTMSG and MSGS. Options (key=value words) may also
come right after the command word; SEND, SENDTEXT, SENDHEX, RAW and CONFIG SET
end in free text, so their options (dev=K) must come before it, e.g.
CONFIG dev=1 SET 14001 <x a="1" b="2"/>

  HELP                          this text (escaped)
  PING                          OK pong
  QUIT | STOP                   stop the simulator
  PORTS                         OK control=P devices=P0,P1,...
  CONNS [dev=K] [auth=1]        OK N id=..,dev=..,auth=0|1,user=..,peer=..,
                                rxframes=..,txframes=..,badbytes=..,pending=..,
                                upload=none|waiting|active ...
  STATS                         OK name=value ... (connections_accepted,
                                auth_ok, auth_refused, heartbeats, frames_rx,
                                uploads_done, downloads, reboots, ...)
Received messages:
  COUNT TYPE CMD [conn=ID] [dev=K]            OK N
  WAIT TYPE CMD N TIMEOUT_MS [conn=ID] [dev=K]
                                OK count once at least N are received,
                                else ERR timeout count (no sleeps in tests)
  LASTMSG [TYPE [CMD]] [conn=ID] [dev=K]
                                OK seq= conn= dev= type= cmd= result= size= body=
  MSG SEQ                       the same for one message
  MSGS [TYPE [CMD]] [conn=ID] [dev=K] [max=N]
                                OK N seq=..,conn=..,dev=..,type=..,cmd=..,
                                result=..,size=..,body=.. ... (oldest first)
  CLEARMSGS                     forget recorded messages and counts
  WAITCONN N TIMEOUT_MS [auth=1] [atmost=1] [dev=K]
                                wait for at least N open connections (authenticated
                                ones with auth=1), or with atmost=1 for N or fewer
  WAITCLOSED CONN TIMEOUT_MS    wait until a connection is closed
  WAITSTAT NAME VALUE TIMEOUT_MS              wait until a STATS counter >= VALUE
Settings (SET NAME VALUE [dev=K], GET NAME [dev=K], SETTINGS [dev=K]):
  auth_mode normal|silent|refuse   silent: never answer authentication;
                                   refuse: refuse every account
  auth_refusal CODE                result for refused accounts (default 2)
  max_channels N                   MAXChannels (negative: no body)
  heartbeat_answer 0|1             answer heartbeats (default 1)
  require_auth 0|1                 ignore requests before authentication (0)
  config_answer_type T             type of configuration answers (10000; or 40000)
  config_missing_result N          result of reading an unset command (-1)
  reboot_pause_ms N                listener closed this long on reboot (3000)
  front_replay none|plain|spaced   marker in the 14020 capability text
                                   (plain "+front_replay+", spaced "+ front_replay +")
  caps TEXT                        rest of the capability text (escaped)
  serial_result N                  result of 14035 (start serial)
  ptz_answer 0|1                   answer PTZ commands (0)
  userdata_answer 0|1              answer 14033 (1)
  sysctl_answer_unknown 0|1        answer other type 20000 commands with 0 (1)
  upload_mode accept|refuse|late|twice
                                   late: answer only on UPLOAD ACCEPT
  upload_refuse_code N             result used by refuse (-1)
  upload_name NAME|-               file for the next finished uploads
                                   (relative to --upload-dir)
  dl_file PATH|-                   configuration file served on 20006
  dl_size N                        size of the generated file when no dl_file (10000)
  dl_chunk N                       data bytes per 20007 answer (4096)
  dl_fault none|badsep|zerolen|nolength|extra|short|twice|drop
                                   badsep: first data answer with separator bytes
                                   00 ff ff ff; zerolen: a dataLength 0 answer after
                                   the first chunk; nolength: no 20006 answer;
                                   extra: dl_extra more bytes than announced;
                                   short: announce dl_extra more than sent;
                                   twice: length answer twice; drop: close the
                                   connection in the middle of the second answer
  dl_extra N                       bytes for extra/short (100)
  dl_delay_ms N                    pause before each data answer (0)
  mute 0|1                         send nothing at all
  answer_flag X                    frame flag of the device (0x20180307 or 0x70308102)
Accounts and stores:
  ACCOUNT ADD USER PASS | ACCOUNT DEL USER | ACCOUNT LIST    [dev=K]
  CONFIG GET CMD | CONFIG SET CMD BODY | CONFIG DEL CMD | CONFIG CLEAR | CONFIG DUMP
                                configuration store (BODY escaped, rest of line)
  USERDATA [HEX|-]              get (OK hex=..) or set the stored user data
  UPLOAD [INDEX]                OK index= state=done|cancelled|refused|abandoned|
                                active|waiting kind=firmware|config conn= announced=
                                size= chunks= fnv=(FNV-1a 64) crc32= file= errors= err=
  UPLOAD COUNT                  finished uploads
  UPLOAD ACCEPT [CONN]          send the acceptance now (late mode, or after a cancel)
  UPLOAD REFUSE CODE [CONN]     send a refusal now
  DOWNLOAD [INDEX|COUNT]        OK index= conn= announced= sent= chunks= fault=
                                fnv= crc32= source=   (checksums of the file)
  REBOOT [dev=K]                as a 14008 request: close the device's
                                connections and its listener for reboot_pause_ms
Sending (faults for the library's framing):
  SEND CONN TYPE CMD RESULT [BODY]   PrivateProto frame (BODY escaped, rest of line)
  SENDTEXT CONN TEXT            frame whose payload is TEXT (escaped)
  SENDHEX CONN HEX              frame whose payload is the given bytes
  RAW CONN HEX                  bytes as they are, no framing
  FRAME CONN [flag=X] [len=N] [hex=H | text=T] [shift=S]
                                explicit header (any flag and length), S filler
                                bytes first, all in one write
  GARBAGE CONN N                N filler bytes (0x5a, never a flag)
  LEN8 CONN                     a frame of length 8 with 8 payload bytes
  OVERSIZE CONN [len=0xF00009] [bytes=64]    header with a huge length, then bytes
  CUTFRAME CONN [n=20] [rst=1]  header + n payload bytes of a heartbeat answer, close
  ARM CONN|any [count=K] [garbage=N] [shift=S] [split=N] [delay=MS] [flag=X]
           [cut=N] [rst=1] [drop=1]
                                modify the next K frames the device sends (answers
                                included): filler before the frame in the same write,
                                the frame in N-byte writes DELAY ms apart, another
                                flag, only header + cut payload bytes then close, or
                                not sent at all. "any": next frames on any connection
  DISARM CONN|any               cancel ARM
  CAMSTAT CONN TEXT [TEXT...] [type=30000] [cmd=35003]
                                camera status, one Ipcs_stat per TEXT (escaped)
  ALARM CONN [form=good|badquote|emptybody|emptybody_nl] [items=N] [type=30000]
             [cmd=35010] [msgcode=CMD_REPORT_ALARM] [msgflag=0] [year= month= day=
             wday= hour= minute= second=] [acode=1] [aflag=1] [level=2]
             [data=TEXT] [datalen=N] [notime=1] [noinfo=1] [wrap=body|root|private]
                                alarm report (badquote: contains "0""; emptybody:
                                <MESSAGE_BODY></MESSAGE_BODY>). wrap=body: inside the
                                PrivateProto body; root: MESSAGE_HEADER/MESSAGE_BODY
                                as children of the PrivateProto root; private: a bare
                                PRIVATE_PROTO document
  HB CONN                       an unsolicited heartbeat answer
  AUTHANSWER CONN [result=N] [maxch=N]       an authentication answer now
  CLOSE CONN|all [rst=1]        close connections
)";
}

}  // namespace devsim
