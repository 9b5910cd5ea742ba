// Usage texts: the command-line options, and the control commands taken from
// the verb table (verbs.cpp) so that the list and the commands cannot drift apart.
#include "help.h"

#include "control.h"

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
                         lan PORT               (with --lan)
                         ports PORT0 PORT1 ...
  --upload-dir DIR     where finished uploads are written
                       (upload_<dev>_<n>.bin unless SET upload_name is used;
                       without it uploads are only checksummed)
  --max-conns N        device connections open at once, at most (default
                       10000); more are closed as soon as accepted. The
                       descriptor limit is raised to the hard limit; when
                       that is below N + devices + 100, a warning says so
                       and fewer connections are served
  --script FILE        control commands run once at start, before the port
                       file is written (one per line, '#' comments; WAIT
                       commands are evaluated once, without waiting); any ERR
                       reply aborts with exit code 2
  --lan N              also simulate N devices found by LAN discovery: one UDP
                       socket answering search (30001), modify (30003) and
                       restore (30005) requests; driven by the LAN command
  --lan-listen A:P     its UDP address (default 0.0.0.0:2018)
  --lan-first-ip IP    address advertised by LAN device 0, the next ones
                       count up (default 127.168.1.100)
  --lan-mask M, --lan-gateway G   their advertised netmask and gateway
  --lan-kinds A,B,...  hardware types cycled over the LAN devices (default
                       8 IPC, 1 NVR-16, 1 NVS: the library drops NVS)
  --quiet              errors only
  --verbose            log every connection and message
  --help               this text

Exit: 0 after QUIT or SIGTERM/SIGINT, 1 on a setup failure, 2 on a bad
script or bad options.

)" + controlHelpText();
}

std::string controlHelpText() {
  std::string h =
      "Control channel: one command per line, one reply line per command, starting\n"
      "with \"OK\" or \"ERR\". Free text in commands and values in replies are escaped:\n"
      "\\n \\r \\t \\\\ \\s (space) \\0 \\xHH. CONN is a connection id, \"last\" (newest open\n"
      "connection) or, for commands that send, \"all\". \"dev=K\" selects a device\n"
      "(default: setters act on all devices, getters read device 0). TYPE and CMD may\n"
      "be \"*\" in COUNT, WAIT, LASTMSG and MSGS. Options (key=value words) may also\n"
      "come right after the command word; SEND, SENDTEXT, SENDHEX, RAW and CONFIG SET\n"
      "end in free text, so their options (dev=K) must come before it, e.g.\n"
      "CONFIG dev=1 SET 14001 <x a=\"1\" b=\"2\"/>\n"
      "\n";
  for (const Verb& v : verbTable()) h += v.help;
  return h;
}

}  // namespace devsim
