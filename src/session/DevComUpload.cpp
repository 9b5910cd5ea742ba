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

namespace {
const char kChunkHeader[] =
    "<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n<PrivateProto>\n<head>\n<type>20000</type>\n<cmd>%d</cmd>\n"
    "<result>0</result>\n</head>\n<body><startPos>%d</startPos>\n<dataLength>%d</dataLength>\n</body>\n"
    "</PrivateProto>";
const char kOpenFailed[] = "<RESPONSE_PARAM\nFileType=\"%d\" errormsg=\"can not open input file\" \nFileName=\"%s\"\n/>";
// The cancel text says cmd 20002 also for a configuration file and leaves <head> open:
// devices in the field match it as it stands.
const char kCancelText[] =
    "\n\r\n<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n<PrivateProto>\n<head>\n<type>20000</type>\n<cmd>20002</cmd>\n"
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
  std::memset(m_szFilePath, 0, sizeof(m_szFilePath));
  std::memset(m_wszFilePath, 0, sizeof(m_wszFilePath));
  m_nUploading = 0;
  m_nIdle = 0;
  m_nSending = 0;
  m_nFileType = 0;
  m_nFileLength = 0;
  m_nBytesSent = 0;
  m_nUploadKind = 0;
  m_nStartTick1 = m_nStartTick2 = m_nAcceptTick = m_nLastTransferTick = 0;
  m_nTransferFlag = 0;
  ++m_nUploadGen;
}

void CDevComControl::EndUploadLocked() {
  if (m_pUploadFile) {
    std::fclose(m_pUploadFile);
    m_pUploadFile = nullptr;
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
  if (m_szFilePath[0]) return m_szFilePath;
  WideToUtf8(m_wszFilePath, wide);
  return wide.c_str();
}

int CDevComControl::StartUpload(const char* tag, unsigned int fileType, int kind, const char* path,
                                const wchar_t* widePath) {
  OpGuard guard(&m_opLock);
  if (m_nIdle == 0) {
    if (m_nUploading)
      fLog(0, "%sjust now is uploading file %s, new file can't be upload \n", tag, UploadPathForLog());
    else
      fLog(0, "%sjust now is downloading file %s, new file can't be upload \n", tag, m_szDownloadFileName);
    return QXNET_E_BUSY;
  }
  std::string shown;
  if (path)
    shown = path;
  else
    WideToUtf8(widePath, shown);
  if ((path && std::strlen(path) >= sizeof(m_szFilePath)) ||
      (widePath && std::wcslen(widePath) >= sizeof(m_wszFilePath) / sizeof(wchar_t))) {
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
  if (m_pUploadFile) {
    std::fclose(m_pUploadFile);
    m_pUploadFile = nullptr;
  }
  ClearTransferState();
  m_nFileType = kind == 1 ? static_cast<int32_t>(fileType) : -1;
  m_nFileLength = static_cast<int32_t>(length);
  if (path)
    std::memcpy(m_szFilePath, path, std::strlen(path));
  else
    std::wmemcpy(m_wszFilePath, widePath, std::wcslen(widePath));
  m_nUploading = 1;
  m_nUploadKind = kind;
  m_nStartTick1 = m_nStartTick2 = GetTickCount();
  char body[64];
  if (kind == 1) {
    std::snprintf(body, sizeof(body), "<firmwareLength>%d</firmwareLength>", m_nFileLength.load());
    return WriteAUXStringEx("20000", 20001, 0, body);
  }
  std::snprintf(body, sizeof(body), "<fileLength>%d</fileLength>", m_nFileLength.load());
  return WriteAUXStringEx("20000", 20004, 0, body);
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
  if (m_nUploading == 0) return 0;
  int32_t length = m_nFileLength;
  if (length <= 0) return 0;
  return static_cast<int>(static_cast<double>(m_nBytesSent.load()) * 100.0 / length);
}

int CDevComControl::GetUploadState() {
  if (m_nUploading) return 0;
  return m_nIdle ? -1 : 0;
}

int CDevComControl::CloseUploadHandle() {
  OpGuard guard(&m_opLock);
  char* buf = new char[2048]();
  std::memcpy(buf, kCancelText, sizeof(kCancelText));
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
    if (m_nUploading && m_nSending) {
      FailStreamingUploadLocked(-1);
      uploadLost = true;
    }
  }
  if (uploadLost) PostStatus(QXNET_EV_CFGFILE_SET_FAILED, "send upload file failed.");
  // The rest of a configuration file does not come over a new connection: the file keeps
  // what arrived and the download ends as cut short.
  if (m_pFileRecver) {
    delete m_pFileRecver;
    m_pFileRecver = nullptr;
    PostStatus(QXNET_EV_CFGFILE_GET_PROGRESS, "\n<downProgress>-2</downProgress>\n");
  }
}

// The failure event of the running kind (firmware 16, configuration file 81).
int CDevComControl::UploadFailedEvent() const {
  return m_nUploadKind == 1 ? QXNET_EV_UPGRADE_FAILED : QXNET_EV_CFGFILE_SET_FAILED;
}

void CDevComControl::OnUploadAnswer(const char* /*code*/, const char* flag) {
  char text[kEventTextSize];
  int event = -1;
  {
    OpGuard guard(&m_opLock);
    if (std::atol(flag ? flag : "") == 0) {
      if (m_nIdle || !m_nUploading) {
        fLog(0, "[OnSysControlMsgRsp] dev=%s recv upload file response, but the task has been canceled \n",
             m_szDevAddr);
        m_nIdle = 1;
        m_nUploadKind = -1;
        return;
      }
      if (m_nSending) {
        // A second acceptance of a transfer that is already streaming would restart it
        // from byte 0 behind the device's back: it is ignored.
        fLog(0, "[OnSysControlMsgRsp] dev=%s recv upload file response again, ignored \n", m_szDevAddr);
        return;
      }
      m_nBytesSent = 0;
      m_nSending = 1;
      if (m_pUploadFile) std::fclose(m_pUploadFile);
      // The transfer only reads the file: a read-only configuration file can be sent
      // (the firmware export checks writability up front, before anything is queued).
      m_pUploadFile = m_szFilePath[0] ? OpenFile(m_szFilePath, "rb") : OpenWideFile(m_wszFilePath, "rb");
      m_nAcceptTick = GetTickCount();
      if (m_pUploadFile) return;
    } else {
      fLog(0, "[OnSysControlMsgRsp] dev=%s upload file request failed msgflag=%s \n", m_szDevAddr, flag);
    }
    // Refused, or accepted but the file cannot be opened any more.
    std::snprintf(text, sizeof(text), kOpenFailed, m_nFileType, UploadPathForLog());
    event = UploadFailedEvent();
    // Cleared before the event goes out, so that an application reacting to the failure
    // (a retry from inside the callback) finds the session free.
    EndUploadLocked();
    m_nUploadKind = -1;
  }
  PostStatus(event, text);
}

bool CDevComControl::UploadDue() const { return m_nIdle == 0 && m_nSending == 1 && m_nUploading == 1; }

int CDevComControl::SendUploadFileData() {
  for (int chunk = 0; chunk < 5; ++chunk)
    if (!SendUploadStep()) break;
  return 0;
}

bool CDevComControl::SendUploadStep() {
  // Framed under the lock; the send runs outside it. Only the worker streams, so the work
  // buffer is not touched by anyone else meanwhile.
  const char* frame = nullptr;
  char* shortBuf = nullptr;
  int total = 0;
  int32_t got = 0;
  bool endStep = false;
  uint32_t gen;
  {
    OpGuard guard(&m_opLock);
    if (!UploadDue() || !m_pWorkBuf) return false;
    gen = m_nUploadGen;
    const int cmd = m_nUploadKind == 1 ? 20002 : 20005;
    m_nLastTransferTick = GetTickCount();
    int hlen = std::snprintf(m_pWorkBuf, 1024, kChunkHeader, cmd, m_nBytesSent.load(), QXNET_UPLOAD_CHUNK);
    std::memset(m_pWorkBuf + hlen, 0, 4);
    if (m_pUploadFile)
      got = static_cast<int32_t>(std::fread(m_pWorkBuf + hlen + 4, 1, QXNET_UPLOAD_CHUNK, m_pUploadFile));
    if (got == 0) {
      // End of the file (or no file): the dataLength 0 header ends the transfer.
      endStep = true;
      hlen = std::snprintf(m_pWorkBuf, 1024, kChunkHeader, cmd, m_nBytesSent.load(), 0);
      std::memset(m_pWorkBuf + hlen, 0, 4);
      frame = m_pWorkBuf;
      total = hlen + 4;
    } else if (got == QXNET_UPLOAD_CHUNK) {
      frame = m_pWorkBuf;
      total = hlen + 4 + QXNET_UPLOAD_CHUNK;
    } else {
      shortBuf = new char[kShortChunkBuf]();
      int shlen = std::snprintf(shortBuf, 1024, kChunkHeader, cmd, m_nBytesSent.load(), static_cast<int>(got));
      std::memcpy(shortBuf + shlen + 4, m_pWorkBuf + hlen + 4, static_cast<size_t>(got));
      frame = shortBuf;
      total = shlen + 4 + got;
    }
  }

  int sent = SendData(frame, static_cast<unsigned int>(total));
  delete[] shortBuf;

  char text[kEventTextSize];
  int event = -1;
  bool more = false;
  {
    OpGuard guard(&m_opLock);
    // Cancelled (or cancelled and restarted) while the chunk was on its way: the canceller
    // has reset everything, and this transfer reports nothing more.
    if (gen != m_nUploadGen) return false;
    const bool firmware = m_nUploadKind == 1;
    if (endStep) {
      if (sent >= total) {
        fLog(0, "[SendUploadFileData] send upload file success \n");
        std::snprintf(text, sizeof(text),
                      "<RESPONSE_PARAM\nFileType=\"%d\"\nFileName=\"%s\"\nStartPos=\"%d\"\nErrorCode=\"%d\"  \n/>",
                      m_nFileType, UploadPathForLog(), 0, 0);
        event = firmware ? QXNET_EV_UPGRADE_FINISHED : QXNET_EV_CFGFILE_SET_FINISHED;
      } else {
        fLog(0, "[SendUploadFileData] send upload file data failed, ret=%d \n", sent);
        std::snprintf(text, sizeof(text),
                      "<RESPONSE_PARAM\nFileType=\"%d\"\nFileName=\"%s\"\nStartPos=\"%d\"\nErrorCode=\"%d\" "
                      "errormsg=\"send upload file failed\" \n/>",
                      m_nFileType, UploadPathForLog(), 0, -3);
        event = firmware ? QXNET_EV_UPGRADE_FAILED : QXNET_EV_CFGFILE_SET_FAILED;
      }
      // The transfer is over either way; cleared before the event goes out, so that an
      // application chaining uploads can start the next one from the callback.
      EndUploadLocked();
    } else if (sent < total) {
      // The kind is cleared before the event is chosen, so a failed chunk of a firmware
      // upload is reported as 81 too; applications rely on that code.
      FailStreamingUploadLocked(sent);
      std::snprintf(text, sizeof(text), "send upload file failed.");
      event = QXNET_EV_CFGFILE_SET_FAILED;
    } else {
      m_nBytesSent += got;
      more = true;
      if (got == QXNET_UPLOAD_CHUNK) {
        std::snprintf(text, sizeof(text), "<upload start=\"%d\" filesize=\"%d\" filename=\"%s\" />",
                      m_nBytesSent.load(), m_nFileLength.load(), UploadPathForLog());
        event = firmware ? QXNET_EV_UPGRADE_PROGRESS : QXNET_EV_CFGFILE_SET_PROGRESS;
      }
    }
  }
  if (event >= 0) PostStatus(event, text);
  return more;
}
