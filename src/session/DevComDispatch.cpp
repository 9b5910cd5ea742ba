// Routing of every received frame by envelope type and command.
#include <cstdlib>
#include <cstring>

#include "base/FuncLog.h"
#include "base/SDKLog.h"
#include "session/DevComControl.h"
#include "session/MediaEnvelope.h"
#include "session/PlainEnvelope.h"
#include "xml/xmlutil.h"
#include "session/Protocol.h"

namespace {
// Holds the body GetMessageBody would cut out of a message: a short one (the heartbeat
// answer's, every ten seconds on every session) in a room of its own, a longer one as
// GetMessageBody returns it (freed with delete[]). No heap call for the short ones keeps
// an idle session's worker off its allocator's pages.
struct BodyHolder {
  char* p = nullptr;
  bool owned = false;
  char shortRoom[128];
  ~BodyHolder() {
    if (owned) delete[] p;
  }
  bool Take(const char* msg) {
    const char* begin;
    const char* end;
    bool isNull;
    if (!FindMessageBody(msg, &begin, &end, &isNull)) return false;
    if (isNull) {
      std::memcpy(shortRoom, "null", 5);
      p = shortRoom;
      return true;
    }
    size_t n = static_cast<size_t>(end - begin) - 13;  // without "<body>" and "</body>"
    if (n < sizeof(shortRoom)) {
      std::memcpy(shortRoom, begin + 6, n);
      shortRoom[n] = 0;
      p = shortRoom;
      return true;
    }
    owned = GetMessageBody(msg, &p) == 0 && p;
    return owned;
  }
  const char* OrEmpty() const { return p ? p : ""; }
};

// The head of a received text into three 256-byte buffers, as GetMessageHeader reads it.
// An envelope with an empty body (the heartbeat answer) is read without the XML parser.
int ReadHead(const char* msg, size_t size, char* type, char* cmd, char* result) {
  PlainEnvelope plain;
  if (!ReadPlainEnvelope(msg, size, &plain)) return GetMessageHeader(msg, type, 256, cmd, 256, result, 256);
  std::memcpy(type, plain.type, sizeof(plain.type));
  std::memcpy(cmd, plain.cmd, sizeof(plain.cmd));
  std::memcpy(result, plain.result, sizeof(plain.result));
  return 0;
}
}  // namespace

void CDevComControl::PostAux(const char* cmd, const char* result, const char* body) {
  if (m_pSink)
    m_pSink->OnPostAuxRspMsg(this, static_cast<unsigned int>(std::atol(cmd)),
                              static_cast<int>(std::atol(result)), body);
}

void CDevComControl::DispatchPayload(const char* payload, uint32_t length) {
  if (!m_pRecvBuf || length > QXNET_RECV_BUF_SIZE - 4) return;
  std::memset(m_pRecvBuf, 0, length + 4);
  std::memcpy(m_pRecvBuf, payload, length);
  m_nRecvLen = length;
  ParserRecvData();
}

void CDevComControl::ParserRecvData() {
  if (!m_pRecvBuf) {
    fLog(0, "[ParserRecvData] parser receive data error, m_pRecvBuf is null \n");
    return;
  }
  const char* msg = m_pRecvBuf;
  // A media pack in its usual envelope goes to the media path without the XML parser:
  // its head is type "90000", which no other branch below takes.
  MediaEnvelope media;
  if (ReadMediaEnvelope(msg, m_nRecvLen + 1, &media) && proto::IsType(media.type, proto::kTypeMedia)) {
    m_pCurMsg = msg;
    OnMediaMessage(media.cmd, media.result, msg, &media);
    m_pCurMsg = nullptr;
    return;
  }
  char type[256], cmd[256], result[256];
  type[0] = cmd[0] = result[0] = 0;
  static_assert(sizeof(type) == 256 && sizeof(cmd) == 256 && sizeof(result) == 256, "ReadHead fills 256 bytes");
  int rc = ReadHead(msg, m_nRecvLen + 1, type, cmd, result);
  // Media comes many times a second and is never logged here.
  if (!proto::IsType(type, proto::kTypeMedia))
    mlogLevel(3, "-----szMsgType = %s,szMsgCode = %s,m_pRecvBuf = %s dev=%s \n", type, cmd, msg, m_szDevAddr);
  if (rc < 0) {
    fLog(3, "[ParserRecvData] dev=%s get message header failed, ret=%d, xml=%s \n", m_szDevAddr, rc, msg);
    return;
  }
  m_pCurMsg = msg;
  BodyHolder body;

  if (proto::IsType(type, proto::kTypeDevice)) {
    if (proto::IsCmd(cmd, proto::kCmdCameraStatus)) {
      char status[256];
      std::memset(status, 0, sizeof(status));
      if (GetNVRIPCStatus(msg, status, sizeof(status)) == 0) PostStatus(QXNET_EV_IPC_STATUS, status);
      m_nFailCount = 0;
    } else {
      body.Take(msg);
      PostStatus(QXNET_EV_MESSAGE, const_cast<char*>(body.OrEmpty()));
    }
  } else if (proto::IsType(type, proto::kTypeControl)) {
    fLog(0, "recv dev=%s SYSTEM_CONTROL_MESSAGE xml=%s \n", m_szDevAddr, msg);
    long code = std::atol(cmd);
    long flag = std::atol(result);
    if (body.Take(msg)) {
      fLog(3, "[ParserRecvData] Get system control message=\n%s \n", body.p);
      bool post = code != proto::kCmdFirmwareAnnounce && code != proto::kCmdPortDownload;
      if (code == proto::kCmdFirmwareAnnounce && flag < 0) post = true;
      if (post) PostAux(cmd, result, body.p);
      OnSysControlMsgRsp(cmd, result, body.p);
    } else if (code == proto::kCmdFirmwareChunk && flag < 0) {
      PostAux(cmd, result, nullptr);
    } else {
      OnSysControlMsgRsp(cmd, result, "");
    }
  } else if (proto::IsType(type, proto::kTypeConfig) && proto::IsCmd(cmd, proto::kCmdAuth)) {
    fLog(3, "recv dev=%s USER_AUTH_MESSAGE 2 xml=%s \n", m_szDevAddr, msg);
    OnAuthMsgRsp(result);
  } else if (proto::IsType(type, proto::kTypeConfig) && IsDownloadAnswer(cmd)) {
    // The device answers download and stop requests as type "10000": while a download
    // runs they belong to the download path (events 52, 53, 54 and the end flag -16).
    fLog(0, "recv dev=%s SYSTEM_CONFIG_GET_MESSAGE xml=%s\n", m_szDevAddr, msg);
    OnNVRReplayControlMsgRsp(cmd, result);
  } else if (proto::IsType(type, proto::kTypeMedia)) {
    OnMediaMessage(cmd, result, msg, nullptr);
  } else if (proto::IsType(type, proto::kTypeConfigAnswer) || proto::IsType(type, proto::kTypeConfig)) {
    fLog(0, "recv dev=%s SYSTEM_CONFIG_GET_MESSAGE xml=%s\n", m_szDevAddr, msg);
    body.Take(msg);
    PostAux(cmd, result, body.OrEmpty());
  } else {
    body.Take(msg);
    PostAux(cmd, result, body.OrEmpty());
    fLog(1, "recv unknow xml=%s \n", msg);
  }
  m_pCurMsg = nullptr;
}

int CDevComControl::OnAuthMsgRsp(const char* cmd, const char* result) {
  if (!proto::IsCmd(cmd, proto::kCmdAuth)) return 0;
  return OnAuthMsgRsp(result);
}

void CDevComControl::OnAlmMsgRsp(const char* code, const char* /*body*/) {
  if (!proto::IsType(code, proto::kCodeAlarmReport)) return;
  ALARM_ITEM* items = nullptr;
  int n = GetAlarmList(m_pRecvBuf, &items);
  for (int i = 0; i < n; ++i) PostStatus(QXNET_EV_ALARM, reinterpret_cast<char*>(&items[i]));
  delete[] items;
}

void CDevComControl::OnHeartbeatMsgRsp(const char*, const char*) {}
