// The session protocol's names: the frame flags, the message types carried in the
// envelope's <type> and the commands carried in its <cmd>. Every other file uses these
// names; none spells the numbers.
#ifndef QXNET_SESSION_PROTOCOL_H
#define QXNET_SESSION_PROTOCOL_H

#include <cstdint>
#include <cstdio>
#include <cstring>

namespace proto {

// Frame flags: sent as kFrameFlag; either is accepted.
constexpr uint32_t kFrameFlag = 0x20180307u;
constexpr uint32_t kFrameFlagAlt = 0x70308102u;

// Message types, as the envelope carries them (text).
constexpr const char kTypeConfig[] = "10000";        // authentication, configuration requests
constexpr const char kTypeControl[] = "20000";       // system control, file transfers
constexpr const char kTypeDevice[] = "30000";        // heartbeat, camera status, device messages
constexpr const char kTypeConfigAnswer[] = "40000";  // configuration answers of the second family
constexpr const char kTypeMedia[] = "90000";         // media packs and replay parameters
constexpr const char kTypeUserData[] = "SYSTEM_CONTROL_MESSAGE";  // the user-data pair
constexpr const char kTypePtz[] = "PTZ_CONTROL_MESSAGE";
constexpr const char kCmdPtz[] = "PTZ_CMD";
constexpr const char kCodeAlarmReport[] = "CMD_REPORT_ALARM";  // Msg_code of an alarm report

// Commands.
enum Command : int {
  kCmdReboot = 14008,
  kCmdRestoreConfig = 14011,
  kCmdAuth = 14012,
  kCmdCapabilities = 14020,
  kCmdPortDownload = 14023,  // the port-answer download and its re-request
  kCmdSetUserData = 14033,
  kCmdGetUserData = 14034,
  kCmdStartSerial = 14035,
  kCmdRecordSearch = 14300,     // by day or by month
  kCmdRecordPlay = 14301,       // replay from a time, or download a span
  kCmdRecordStop = 14302,       // ends a replay or a download
  kCmdReplaySeek = 14304,
  kCmdReplayAction4 = 14306,    // replay actions 4 and 5 carry the caller's speed
  kCmdReplayAction5 = 14307,
  kCmdReplayAction7 = 14308,
  kCmdReplayAction2 = 14309,
  kCmdReplayAction1 = 14310,
  kCmdDownloadEnd = 14312,      // the library's own answer: the span ends before its first frame
  kCmdFirmwareAnnounce = 20001,
  kCmdFirmwareChunk = 20002,  // also the cancel of either upload
  kCmdConfigFileAnnounce = 20004,
  kCmdConfigFileChunk = 20005,
  kCmdConfigFileGet = 20006,
  kCmdConfigFileData = 20007,
  kCmdHeartbeat = 35001,
  kCmdCameraStatus = 35003,
  kCmdReplayParams = 90000,
  kCmdReplayMedia = 90001,
  kCmdDownloadMedia = 90002,
};

// A command as the envelope carries it.
class CmdText {
 public:
  explicit CmdText(int cmd) { std::snprintf(m_text, sizeof(m_text), "%d", cmd); }
  operator const char*() const { return m_text; }

 private:
  char m_text[16];
};

// True when a received <cmd> text is exactly this command.
inline bool IsCmd(const char* text, int cmd) { return text && std::strcmp(text, CmdText(cmd)) == 0; }
inline bool IsType(const char* text, const char* type) { return text && std::strcmp(text, type) == 0; }

}  // namespace proto

#endif
