// Firmware and configuration-file upload: announced with a request, streamed by the
// worker in 163,840-byte chunks behind an XML header once the device accepts.
//
// The transfer state is shared between application threads (start, cancel, progress)
// and the worker (answers, streaming); m_opLock guards it and the open file. The lock is
// never held while a chunk is on the socket or while a status event is posted: a stalled
// device would otherwise hold a cancelling application thread until logout, and the core
// calls the status callbacks under its own mutex, so a callback that reached into another
// session's transfer could deadlock against that session's worker.
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "base/FileOpen.h"
#include "base/FuncLog.h"
#include "base/Locker.h"
#include "base/SDKThread.h"
#include "session/DevComControl.h"
#include "session/FileRecver.h"
#include "session/Protocol.h"

namespace {
const char kChunkHeader[] =
    "<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n<PrivateProto>\n<head>\n<type>%s</type>\n<cmd>%d</cmd>\n"
    "<result>0</result>\n</head>\n<body><startPos>%d</startPos>\n<dataLength>%d</dataLength>\n</body>\n"
    "</PrivateProto>";
const char kOpenFailed[] = "<RESPONSE_PARAM\nFileType=\"%d\" errormsg=\"can not open input file\" \nFileName=\"%s\"\n/>";
// The cancel text names the firmware chunk command also for a configuration file and
// leaves <head> open: devices in the field match it as it stands.
const char kCancelText[] =
    "\n\r\n<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n<PrivateProto>\n<head>\n<type>%s</type>\n<cmd>%d</cmd>\n"
    "<result>0</result>\n<body>\n<startPos>0</startPos>\n<dataLength>-1</dataLength>\n</body>\n</PrivateProto>";
const int kShortChunkBuf = 165888;
// Event texts carry the path: a wide path of 511 characters is up to 2,044 bytes once
// converted to UTF-8, and it must not be cut out of the middle of the XML.
const int kEventTextSize = 2600;

class OpGuard {
 public:
  explicit OpGuard(pthread_mutex_t* m) : m_(m) { pthread_mutex_lock(m_); }
  ~OpGuard() { pthread_mutex_unlock(m_); }

 private:
  pthread_mutex_t* m_;
};
}  // namespace

void CDevComControl::ClearTransferState() {
  m_upload.Reset();
  m_nIdle = 0;
  m_portDownload.flag = 0;
}

void CDevComControl::EndUploadLocked() {
  if (m_upload.file) {
    std::fclose(m_upload.file);
    m_upload.file = nullptr;
  }
  ClearTransferState();
  m_nIdle = 1;
}

void CDevComControl::FailStreamingUploadLocked(int ret) {
  fLog(0, "[SendUploadFileData] send upload file data failed, ret=%d \n", ret);
  EndUploadLocked();
}

const char* CDevComControl::UploadPathForLog() const {
  static thread_local std::string wide;
  if (m_upload.path[0]) return m_upload.path;
  WideToUtf8(m_upload.widePath, wide);
  return wide.c_str();
}

int CDevComControl::StartUpload(const char* tag, unsigned int fileType, int kind, const char* path,
                                const wchar_t* widePath) {
  OpGuard guard(&m_opLock);
  if (m_nIdle == 0) {
    if (m_upload.uploading)
      fLog(0, "%sjust now is uploading file %s, new file can't be upload \n", tag, UploadPathForLog());
    else
      fLog(0, "%sjust now is downloading file %s, new file can't be upload \n", tag, m_cfgDownload.fileName);
    return QXNET_E_BUSY;
  }
  std::string shown;
  if (path)
    shown = path;
  else
    WideToUtf8(widePath, shown);
  if ((path && std::strlen(path) >= sizeof(m_upload.path)) ||
      (widePath && std::wcslen(widePath) >= sizeof(m_upload.widePath) / sizeof(wchar_t))) {
    // The path would not fit its 512-character field: refused rather than cut.
    fLog(0, "%s Open file %s failed \n", tag, shown.c_str());
    return QXNET_E_BAD_ARG;
  }
  FILE* f = path ? OpenFile(path, "rb") : OpenWideFile(widePath, "rb");
  if (!f) {
    fLog(0, "%s Open file %s failed \n", tag, shown.c_str());
    return QXNET_E_FILE;
  }
  std::fseek(f, 0, SEEK_END);
  long length = std::ftell(f);
  std::fclose(f);
  if (length < 0 || length > INT_MAX) {
    fLog(0, "%s Open file %s failed \n", tag, shown.c_str());
    return QXNET_E_FILE;
  }
  if (m_upload.file) {
    std::fclose(m_upload.file);
    m_upload.file = nullptr;
  }
  ClearTransferState();
  m_upload.fileType = kind == 1 ? static_cast<int32_t>(fileType) : -1;
  m_upload.fileLength = static_cast<int32_t>(length);
  if (path)
    std::memcpy(m_upload.path, path, std::strlen(path));
  else
    std::wmemcpy(m_upload.widePath, widePath, std::wcslen(widePath));
  m_upload.uploading = 1;
  m_upload.kind = kind;
  m_upload.startTick = GetTickCount();
  char body[64];
  if (kind == 1) {
    std::snprintf(body, sizeof(body), "<firmwareLength>%d</firmwareLength>", m_upload.fileLength.load());
    return WriteAUXStringEx(proto::kTypeControl, proto::kCmdFirmwareAnnounce, 0, body);
  }
  std::snprintf(body, sizeof(body), "<fileLength>%d</fileLength>", m_upload.fileLength.load());
  return WriteAUXStringEx(proto::kTypeControl, proto::kCmdConfigFileAnnounce, 0, body);
}

int CDevComControl::UploadFile(unsigned int fileType, const char* path) {
  if (!path) return QXNET_E_FILE;
  return StartUpload("[UploadFile]", fileType, 1, path, nullptr);
}

int CDevComControl::UploadFileEx(unsigned int fileType, const wchar_t* path) {
  if (!path) return QXNET_E_FILE;
  return StartUpload("[UploadFileEx]", fileType, 1, nullptr, path);
}

int CDevComControl::SetConfigFile(const char* path) {
  if (!path) return QXNET_E_FILE;
  return StartUpload("[UploadFile]", 0, 0, path, nullptr);
}

int CDevComControl::GetUploadProgress() {
  if (m_upload.uploading == 0) return 0;
  int32_t length = m_upload.fileLength;
  if (length <= 0) return 0;
  return static_cast<int>(static_cast<double>(m_upload.bytesSent.load()) * 100.0 / length);
}

int CDevComControl::GetUploadState() {
  if (m_upload.uploading) return 0;
  return m_nIdle ? -1 : 0;
}

int CDevComControl::CloseUploadHandle() {
  OpGuard guard(&m_opLock);
  char* buf = new char[2048]();
  std::snprintf(buf, 2048, kCancelText, proto::kTypeControl, proto::kCmdFirmwareChunk);
  PutToSendData(NetSDKSendData_t{static_cast<uint32_t>(std::strlen(buf)), buf});
  EndUploadLocked();
  return 0;
}

void CDevComControl::AbortTransfersOnDisconnect() {
  // An upload that was streaming cannot go on over a new connection (the device has
  // forgotten it); one that is only announced waits for its answer as before.
  bool uploadLost = false;
  {
    OpGuard guard(&m_opLock);
    if (m_upload.uploading && m_upload.sending) {
      FailStreamingUploadLocked(-1);
      uploadLost = true;
    }
  }
  if (uploadLost) PostStatus(QXNET_EV_CFGFILE_SET_FAILED, "send upload file failed.");
  // The rest of a configuration file does not come over a new connection: the file keeps
  // what arrived and the download ends as cut short.
  if (m_cfgDownload.recver) {
    delete m_cfgDownload.recver;
    m_cfgDownload.recver = nullptr;
    PostStatus(QXNET_EV_CFGFILE_GET_PROGRESS, "\n<downProgress>-2</downProgress>\n");
  }
}

// The failure event of the running kind (firmware 16, configuration file 81).
int CDevComControl::UploadFailedEvent() const {
  return m_upload.kind == 1 ? QXNET_EV_UPGRADE_FAILED : QXNET_EV_CFGFILE_SET_FAILED;
}

void CDevComControl::OnUploadAnswer(const char* /*code*/, const char* flag) {
  char text[kEventTextSize];
  int event = -1;
  {
    OpGuard guard(&m_opLock);
    if (std::atol(flag ? flag : "") == 0) {
      if (m_nIdle || !m_upload.uploading) {
        fLog(0, "[OnSysControlMsgRsp] dev=%s recv upload file response, but the task has been canceled \n",
             m_szDevAddr);
        m_nIdle = 1;
        m_upload.kind = -1;
        return;
      }
      if (m_upload.sending) {
        // A second acceptance of a transfer that is already streaming would restart it
        // from byte 0 behind the device's back: it is ignored.
        fLog(0, "[OnSysControlMsgRsp] dev=%s recv upload file response again, ignored \n", m_szDevAddr);
        return;
      }
      m_upload.bytesSent = 0;
      m_upload.sending = 1;
      if (m_upload.file) std::fclose(m_upload.file);
      // The transfer only reads the file: a read-only configuration file can be sent
      // (the firmware export checks writability up front, before anything is queued).
      m_upload.file = m_upload.path[0] ? OpenFile(m_upload.path, "rb") : OpenWideFile(m_upload.widePath, "rb");
      m_upload.acceptTick = GetTickCount();
      if (m_upload.file) return;
    } else {
      fLog(0, "[OnSysControlMsgRsp] dev=%s upload file request failed msgflag=%s \n", m_szDevAddr, flag);
    }
    // Refused, or accepted but the file cannot be opened any more.
    std::snprintf(text, sizeof(text), kOpenFailed, m_upload.fileType, UploadPathForLog());
    event = UploadFailedEvent();
    // Cleared before the event goes out, so that an application reacting to the failure
    // (a retry from inside the callback) finds the session free.
    EndUploadLocked();
    m_upload.kind = -1;
  }
  PostStatus(event, text);
}

bool CDevComControl::UploadDue() const { return m_nIdle == 0 && m_upload.sending == 1 && m_upload.uploading == 1; }

int CDevComControl::SendUploadFileData() {
  for (int chunk = 0; chunk < 5; ++chunk)
    if (!SendUploadStep()) break;
  return 0;
}

// One chunk framed under the lock; see SendUploadStep.
struct CDevComControl::UploadChunk {
  const char* frame = nullptr;
  char* shortBuf = nullptr;  // a last, short chunk is framed in a buffer of its own
  int total = 0;
  int32_t got = 0;
  bool endStep = false;
  uint32_t gen = 0;
  ~UploadChunk() { delete[] shortBuf; }
};

// Under m_opLock: reads the next chunk behind its XML header into the work buffer, or
// frames the end header (dataLength 0) at the end of the file. False when no upload runs.
bool CDevComControl::FrameUploadChunk(UploadChunk* c) {
  if (!UploadDue() || !m_pWorkBuf) return false;
  c->gen = m_upload.gen;
  const int cmd = m_upload.kind == 1 ? proto::kCmdFirmwareChunk : proto::kCmdConfigFileChunk;
  m_upload.lastChunkTick = GetTickCount();
  int hlen = std::snprintf(m_pWorkBuf, 1024, kChunkHeader, proto::kTypeControl, cmd, m_upload.bytesSent.load(),
                           QXNET_UPLOAD_CHUNK);
  std::memset(m_pWorkBuf + hlen, 0, 4);
  if (m_upload.file)
    c->got = static_cast<int32_t>(std::fread(m_pWorkBuf + hlen + 4, 1, QXNET_UPLOAD_CHUNK, m_upload.file));
  c->frame = m_pWorkBuf;
  if (c->got == 0) {
    c->endStep = true;
    hlen = std::snprintf(m_pWorkBuf, 1024, kChunkHeader, proto::kTypeControl, cmd, m_upload.bytesSent.load(), 0);
    std::memset(m_pWorkBuf + hlen, 0, 4);
    c->total = hlen + 4;
  } else if (c->got == QXNET_UPLOAD_CHUNK) {
    c->total = hlen + 4 + QXNET_UPLOAD_CHUNK;
  } else {
    c->shortBuf = new char[kShortChunkBuf]();
    int shlen = std::snprintf(c->shortBuf, 1024, kChunkHeader, proto::kTypeControl, cmd,
                              m_upload.bytesSent.load(), static_cast<int>(c->got));
    std::memcpy(c->shortBuf + shlen + 4, m_pWorkBuf + hlen + 4, static_cast<size_t>(c->got));
    c->frame = c->shortBuf;
    c->total = shlen + 4 + c->got;
  }
  return true;
}

// Under m_opLock: the end header went out (or did not); the transfer is over either way
// and is cleared before the event goes out, so that an application chaining uploads can
// start the next one from the callback.
int CDevComControl::FinishUploadLocked(bool sentWhole, int sent, char* text, size_t size) {
  const bool firmware = m_upload.kind == 1;
  int event;
  if (sentWhole) {
    fLog(0, "[SendUploadFileData] send upload file success \n");
    std::snprintf(text, size, "<RESPONSE_PARAM\nFileType=\"%d\"\nFileName=\"%s\"\nStartPos=\"%d\"\nErrorCode=\"%d\"  \n/>",
                  m_upload.fileType, UploadPathForLog(), 0, 0);
    event = firmware ? QXNET_EV_UPGRADE_FINISHED : QXNET_EV_CFGFILE_SET_FINISHED;
  } else {
    fLog(0, "[SendUploadFileData] send upload file data failed, ret=%d \n", sent);
    std::snprintf(text, size,
                  "<RESPONSE_PARAM\nFileType=\"%d\"\nFileName=\"%s\"\nStartPos=\"%d\"\nErrorCode=\"%d\" "
                  "errormsg=\"send upload file failed\" \n/>",
                  m_upload.fileType, UploadPathForLog(), 0, -3);
    event = firmware ? QXNET_EV_UPGRADE_FAILED : QXNET_EV_CFGFILE_SET_FAILED;
  }
  EndUploadLocked();
  return event;
}

// Under m_opLock: a data chunk went out (or did not). Returns the event to post (-1 none);
// *more tells whether the stream goes on this turn.
int CDevComControl::AfterUploadChunkLocked(const UploadChunk& c, int sent, char* text, size_t size, bool* more) {
  if (sent < c.total) {
    // The kind is cleared before the event is chosen, so a failed chunk of a firmware
    // upload is reported as 81 too; applications rely on that code.
    FailStreamingUploadLocked(sent);
    std::snprintf(text, size, "send upload file failed.");
    return QXNET_EV_CFGFILE_SET_FAILED;
  }
  m_upload.bytesSent += c.got;
  *more = true;
  if (c.got != QXNET_UPLOAD_CHUNK) return -1;
  std::snprintf(text, size, "<upload start=\"%d\" filesize=\"%d\" filename=\"%s\" />", m_upload.bytesSent.load(),
                m_upload.fileLength.load(), UploadPathForLog());
  return m_upload.kind == 1 ? QXNET_EV_UPGRADE_PROGRESS : QXNET_EV_CFGFILE_SET_PROGRESS;
}

// One chunk (or the end header) of the running upload. Framed under the lock; the send
// runs outside it (only the worker streams, so the work buffer is not touched meanwhile).
// The chunk is sent whole within the call: a full send buffer is waited out here, never
// left for a later turn.
bool CDevComControl::SendUploadStep() {
  UploadChunk chunk;
  {
    OpGuard guard(&m_opLock);
    if (!FrameUploadChunk(&chunk)) return false;
  }
  int sent = SendData(chunk.frame, static_cast<unsigned int>(chunk.total));
  char text[kEventTextSize];
  int event = -1;
  bool more = false;
  {
    OpGuard guard(&m_opLock);
    // Cancelled (or cancelled and restarted) while the chunk was on its way: the canceller
    // has reset everything, and this transfer reports nothing more.
    if (chunk.gen != m_upload.gen) return false;
    if (chunk.endStep)
      event = FinishUploadLocked(sent >= chunk.total, sent, text, sizeof(text));
    else
      event = AfterUploadChunkLocked(chunk, sent, text, sizeof(text), &more);
  }
  if (event >= 0) PostStatus(event, text);
  return more;
}
