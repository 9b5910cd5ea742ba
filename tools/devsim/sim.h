// qxdevsim: a simulated camera / recorder speaking the device side of the session
// protocol. One thread, one epoll loop, non-blocking sockets throughout.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "lan.h"
#include "proto.h"
#include "rec_stream.h"

struct sockaddr_in;
struct epoll_event;

namespace devsim {

int64_t nowMs();

enum class LogLevel { Quiet = 0, Normal = 1, Verbose = 2 };

// One piece of outgoing bytes. A piece waits delayMs after the previous one has
// been written before it starts, which is how split and slow frames are produced.
struct Segment {
  std::string data;
  int delayMs = 0;
  bool closeAfter = false;  // close the connection once this piece is written
  bool rst = false;         // ... with a reset instead of a FIN
  bool midFrame = false;    // the piece ends inside a frame: nothing may come between
  int paceMs = 0;           // > 0: one byte at a time, paceMs apart (data repeated up to total)
  size_t total = 0;         // bytes of a paced piece
  int64_t due = -1;         // set when the piece reaches the head of the queue
  size_t off = 0;
};

// Modifiers for the next frames sent on a connection (ARM command).
struct FrameFault {
  int count = 0;          // frames still to modify; 0 = inactive
  size_t garbage = 0;     // filler bytes (never forming a flag) before the frame, same write
  size_t split = 0;       // write the frame in pieces of this many bytes
  int delayMs = 20;       // pause between split pieces
  bool hasFlag = false;
  uint32_t flag = 0;      // flag to use instead of the device's
  long long cut = -1;     // send header + this many payload bytes, then close
  bool rst = false;       // the cut closes with a reset
  bool drop = false;      // do not send the frame at all
};

struct UploadReport {
  int index = -1;
  std::string state = "active";  // active, done, cancelled, refused, abandoned, waiting
  std::string kind;              // firmware or config
  std::string requestCmd;        // 20001 or 20004
  int conn = 0;
  long long announced = -1;
  std::string data;        // bytes while open; released when finished
  long long size = 0;      // bytes received, kept after the data is released
  int chunks = 0;
  std::vector<std::string> errors;
  std::string file;              // where the bytes were written ("" = memory only)
  uint64_t fnv = 0;
  uint32_t crc = 0;
  bool accepted = false;
  int64_t startedMs = 0, endedMs = 0;
};

struct DownloadReport {
  int index = -1;
  int conn = 0;
  long long announced = 0;
  long long sent = 0;     // data bytes put on the wire
  int chunks = 0;         // data answers
  std::string fault;
  uint64_t fnv = 0;       // of the whole served content
  uint32_t crc = 0;
  std::string source;
};

struct Settings {
  std::string authMode = "normal";  // normal, silent, refuse, close
  long long authRefusal = 2;
  long long maxChannels = 16;       // < 0: authentication answer carries no body
  bool heartbeatAnswer = true;
  bool requireAuth = false;
  std::string configAnswerType = "10000";
  long long configMissingResult = -1;
  long long rebootPauseMs = 3000;
  std::string frontReplay = "plain";  // none, plain, spaced
  std::string caps = "ptz,audio,serial";
  long long serialResult = 0;
  bool ptzAnswer = false;
  bool userDataAnswer = true;
  bool sysctlAnswerUnknown = true;
  std::string uploadMode = "accept";  // accept, refuse, late, twice
  long long uploadRefuseCode = -1;
  std::string uploadName;             // "" = upload_<dev>_<n>.bin in the upload dir
  std::string dlFile;                 // "" = generated content of dlSize bytes
  long long dlSize = 10000;
  long long dlChunk = 4096;
  std::string dlFault = "none";       // none badsep zerolen nolength extra short twice drop
  long long dlExtra = 100;
  long long dlDelayMs = 0;
  bool mute = false;                  // send nothing at all
  // recorder: media of replays and downloads
  std::string recVideo = "h264";      // h264 h265
  std::string recSize = "320x240";    // 320x240 1920x1080
  std::string recAudio = "aac";       // none pcmu pcma aac
  std::string recPace = "realtime";   // realtime fast
  long long recVideoLayout = 536;     // 536 537
  long long recAudioLayout = 276;     // 276 57
  long long recPack = 4096;           // largest pack payload
  uint32_t answerFlag = kFlagLibrary;
};

// CHAOS: random faults every period, one random sequence per device.
struct Chaos {
  bool on = false;
  long long periodMs = 1000;
  long long drop = 0, garbage = 0, reboot = 0, stall = 0;  // per mille
  long long stallMs = 3000;
  uint64_t seed = 0;
  uint64_t rng = 0;       // state of the device's sequence
  unsigned gen = 0;       // a new CHAOS or CHAOS off cancels the pending round
};

struct Device {
  int index = 0;
  std::string host = "127.0.0.1";
  uint16_t port = 0;
  int listenFd = -1;
  bool rebooting = false;
  Settings s;
  std::map<std::string, std::string> accounts;
  std::map<std::string, std::string> config;
  std::string userData;
  std::vector<UploadReport> uploads;      // finished, cancelled or refused
  std::vector<DownloadReport> downloads;
  std::set<int> connIds;                  // its open connections
  Chaos chaos;
  RecorderSpans spans;                    // recordings per channel
  std::vector<RecFault> recFaults;        // armed for the next stream
  std::deque<StreamReport> streams;       // every replay and download, in order
};

struct Conn {
  int id = 0;
  int fd = -1;
  int dev = 0;
  std::string peer;
  bool auth = false;
  std::string user;
  std::string in;
  size_t inOff = 0;
  std::list<Segment> out;  // a list: an idle connection holds no buffer (a deque would)
  bool wantOut = false;
  bool midFrameOut = false;  // the last piece written ended inside a frame
  bool closed = false;
  bool peerClosed = false;  // peer sent FIN: no more reading, pending output still goes
  bool parsing = false;     // its received frames are being handled
  bool peerGone = false;    // reset or unwritable: closed once the frames are handled
  std::string goneWhy;
  bool timerArmed = false;
  bool watched = true;      // registered with epoll (not while stalled)
  bool stalled = false;     // CHAOS stall: neither read nor written until stalledUntil
  int64_t stalledUntil = 0;
  FrameFault fault;
  long long rxFrames = 0, txFrames = 0, rxBytes = 0, txBytes = 0, badBytes = 0;
  std::unique_ptr<UploadReport> upload;
  std::unique_ptr<RecorderStream> rec;  // the replay or download being streamed
  int recReport = -1;                   // its index in the device's streams
  int64_t openedMs = 0;
};

struct MsgRecord {
  uint64_t seq = 0;
  int conn = 0;
  int dev = 0;
  std::string type, cmd, result, body;
  size_t size = 0;
};

class Sim;

// A control-channel client: lines in, one reply line per command out. A WAIT
// command parks the client until its condition holds or its deadline passes.
struct ControlClient {
  int fd = -1;
  std::string in;
  std::string out;
  bool closed = false;
  bool closeAfterFlush = false;
  std::function<bool(std::string&)> waitCheck;  // true + reply when satisfied
  std::string waitTimeoutReply;                 // computed by waitOnTimeout
  std::function<std::string()> waitOnTimeout;
  int64_t waitDeadline = 0;
};

struct Options {
  std::string listenHost = "127.0.0.1";
  uint16_t listenPort = 0;
  int devices = 1;
  std::vector<std::pair<std::string, std::string>> accounts;
  long long maxChannels = 16;
  long long authRefusal = 2;
  std::string controlHost = "127.0.0.1";
  int controlPort = 0;  // -1: no control channel
  std::string portFile;
  std::string uploadDir;
  std::string script;
  std::string clipDir;                                          // "" = the default folder
  std::vector<std::pair<std::string, std::string>> settings;    // --set NAME=VALUE
  int maxConns = 10000;  // open device connections at most; more are closed on accept
  LogLevel log = LogLevel::Normal;
  LanOptions lan;  // --lan: discoverable devices on UDP
};

class Sim {
 public:
  explicit Sim(const Options& o);
  ~Sim();
  int setup();  // listening sockets, control channel, script, port file; 0 or exit code
  int run();    // until QUIT or a signal; returns the exit code

  // Control commands (control.cpp). Returns the reply line without newline.
  // When the command must wait, sets *wait on the client and returns "".
  std::string command(const std::string& line, ControlClient* client);

 private:
  friend struct Cmd;
  // event loop (sim.cpp)
  void addTimer(int64_t at, std::function<void()> fn);
  void runTimers();
  int64_t nextTimer() const;
  int loopTimeout() const;
  void dispatch(const epoll_event& ev);
  void onConnEvent(int id, uint32_t events);
  void onSignal();
  void reapClosed();
  void flushControlsOnExit();
  void logf(LogLevel lvl, const char* fmt, ...) __attribute__((format(printf, 3, 4)));
  // start-up (setup.cpp)
  void setupSignals();
  bool setupDevices();
  bool setupControl();
  bool runScript();
  bool writePortFile();
  bool setupLan();
  bool openListener(Device& d);
  void closeListener(Device& d);
  // device connections (conn.cpp)
  void onAccept(Device& d);
  void pauseAccept(Device& d);
  void addConn(Device& d, int fd, const sockaddr_in& peer);
  void onConnReadable(Conn& c);
  void onPeerClosed(Conn& c);
  void flushConn(Conn& c);
  enum class Wrote { All, Later, Blocked };
  Wrote writeSegment(Conn& c, Segment& s);
  Wrote writePaced(Conn& c, Segment& s);
  void armFlushTimer(Conn& c, int64_t due);
  void updateConnEvents(Conn& c);
  void sendFailed(Conn& c, const std::string& why);
  void closeConn(Conn& c, bool rst, const std::string& why);
  void stallConn(Conn& c, long long ms);
  void resumeConn(Conn& c);
  bool insertFiller(Conn& c, size_t n);
  // CHAOS (chaos.cpp)
  void startChaos(Device& d, const Chaos& cfg);
  void stopChaos(Device& d);
  void scheduleChaos(Device& d);
  void chaosRound(Device& d);
  void chaosOnConn(Chaos& ch, Conn& c);
  // control clients (control_io.cpp)
  void onControlAccept();
  void onControlReadable(ControlClient& cc);
  void processControl(ControlClient& cc);
  void flushControl(ControlClient& cc);
  void checkWaits();

  // device behaviour (device.cpp, upload.cpp, download.cpp)
  void parseFrames(Conn& c);
  void handleMessage(Conn& c, const char* payload, size_t size);
  void handleAuth(Conn& c, Device& d, const Message& m);
  void handleConfig(Conn& c, Device& d, const Message& m);
  void handleUserData(Conn& c, Device& d, const Message& m);
  void handleSysctl(Conn& c, Device& d, const Message& m, const char* payload, size_t size);
  void handleUploadAnnounce(Conn& c, Device& d, const Message& m);
  void handleUploadChunk(Conn& c, Device& d, const Message& m, const char* payload, size_t size);
  UploadReport& uploadForChunk(Conn& c, const std::string& cmd);
  void checkChunk(UploadReport& u, const Message& m, const char* payload, size_t size, long long pos,
                  long long len);
  void finishUpload(Conn& c, Device& d, const std::string& state);
  void completeUpload(Device& d, UploadReport& u);
  void endUploadOnClose(Conn& c, Device& d);
  void serveDownload(Conn& c, Device& d);
  bool downloadContent(Conn& c, Device& d, std::string& content, std::string& source);
  void sendDownloadData(Conn& c, Device& d, const std::string& served,
                        const std::vector<std::pair<size_t, size_t>>& pieces, DownloadReport& r);
  // recorder (recorder.cpp, rec_pump.cpp)
  void handleRecorder(Conn& c, Device& d, const Message& m);
  void recSearch(Conn& c, Device& d, const Message& m);
  void recStart(Conn& c, Device& d, const Message& m);
  void recControl(Conn& c, Device& d, const Message& m);
  void recEnd(Conn& c, const std::string& state);
  bool pumpRecorder(Conn& c);
  void queueFrame(Conn& c, const std::string& payload);  // framed, appended without flushing
  std::string streamLine(const StreamReport& r) const;
  void reboot(Device& d, Conn* requester);
  void reopenAfterReboot(int idx);
  void answer(Conn& c, const std::string& type, const std::string& cmd, long long result,
              const std::string& body = std::string());
 public:
  // also used by the control commands
  void sendPayload(Conn& c, const std::string& payload);  // framed, with faults applied
  void sendRaw(Conn& c, const std::string& bytes, int delayMs = 0, bool closeAfter = false,
               bool rst = false, bool midFrame = false);
  // total bytes of pattern (repeated), one every paceMs, driven by the loop's timers
  void sendPaced(Conn& c, const std::string& pattern, size_t total, int paceMs);
  std::string alarmBody(const std::map<std::string, std::string>& kv, std::string& err) const;

 private:
  void record(Conn& c, const Message& m);
  void bump(const std::string& stat, long long by = 1) { stats_[stat] += by; }
  Conn* findConn(int id);
  Conn* resolveConn(const std::string& which, int dev, std::string& err);
  std::vector<Conn*> resolveConns(const std::string& which, int dev, std::string& err);
  std::string uploadLine(const UploadReport& u) const;
  std::string downloadLine(const DownloadReport& r) const;
  bool setSetting(Settings& s, const std::string& name, const std::string& value, std::string& err);
  bool getSetting(const Settings& s, const std::string& name, std::string& out) const;
  std::string settingsLine(const Settings& s) const;
  std::string connLine(const Conn& c) const;

  Options opt_;
  int epfd_ = -1;
  int sigfd_ = -1;
  int controlFd_ = -1;
  uint16_t controlPort_ = 0;
  bool quit_ = false;
  int exitCode_ = 0;
  int nextConnId_ = 1;
  int openConns_ = 0;
  uint64_t nextSeq_ = 1;
  int lastConnId_ = 0;
  std::vector<Device> devices_;
  std::map<int, std::unique_ptr<Conn>> conns_;  // by id
  std::vector<int> closedConns_;                  // ids closed since the last reap
  std::map<int, int> fdToConn_;                   // fd -> conn id
  std::map<int, std::unique_ptr<ControlClient>> controls_;  // by fd
  std::multimap<int64_t, std::function<void()>> timers_;
  std::deque<MsgRecord> records_;
  size_t maxRecords_ = 200000;
  // received-message counts by (connection, type, cmd); kept after a connection closes
  std::map<std::tuple<int, std::string, std::string>, long long> counts_;
  std::map<int, int> connDev_;  // connection id -> device index, for every connection seen
  long long countMsgs(const std::string& type, const std::string& cmd, int conn, int dev) const;
  std::map<std::string, long long> stats_;
  std::unique_ptr<LanNet> lan_;  // null without --lan
  FrameFault anyFault_;  // applies to the next frames sent on any connection
  ClipStore clips_;
};

}  // namespace devsim
