// Configuration-file download: a length announcement (20006) creates the receiver and
// the file, data answers (20007) carry the bytes behind their XML text. Progress and the
// outcome are status event 80. The older port-answer machinery (14023, a temporary file
// and timed re-requests) lives here too; no request of the library starts it.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "base/FuncLog.h"
#include "base/Locker.h"
#include "base/SDKLog.h"
#include "base/SDKThread.h"
#include "session/DevComControl.h"
#include "session/FileRecver.h"
#include "xml/xmlutil.h"
#include "session/Protocol.h"

int CDevComControl::GetConfigFile(const char* path) {
  if (!path) return QXNET_E_MISSING_ARG;
  if (std::strlen(path) >= sizeof(m_cfgDownload.fileName)) return QXNET_E_BAD_ARG;
  {
    // The worker reads the name when the length answer arrives.
    CMutexGuard guard(&m_opLock);
    std::memset(m_cfgDownload.fileName, 0, sizeof(m_cfgDownload.fileName));
    std::memcpy(m_cfgDownload.fileName, path, std::strlen(path));
    mlogLevel(3, "GetConfigFile = %s \n", m_cfgDownload.fileName);
  }
  return WriteAUXStringEx(proto::kTypeControl, proto::kCmdConfigFileGet, 0, "");
}

void CDevComControl::OnDownloadLengthAnswer() {
  if (!m_pCurMsg) return;
  int length = 0;
  if (GetFileTransportLength(m_pCurMsg, &length) != 0) return;
  // A second announcement does not restart a running download.
  if (m_cfgDownload.recver) return;
  {
    CMutexGuard guard(&m_opLock);
    m_cfgDownload.recver = new CFileRecver(m_cfgDownload.fileName, length);
  }
  PostStatus(QXNET_EV_CFGFILE_GET_PROGRESS, "\n<downProgress>0</downProgress>\n");
}

void CDevComControl::OnDownloadDataAnswer() {
  const char* t = m_pCurMsg;
  if (!t) return;
  // The frame is cleared four bytes past its end, so these reads stay inside it.
  size_t textLen = std::strlen(t);
  if (t[textLen + 1] != 0 || t[textLen + 2] != 0 || t[textLen + 3] != 0) {
    PostStatus(QXNET_EV_CFGFILE_GET_PROGRESS, "\n<downProgress>-1</downProgress>\n");
    return;
  }
  int64_t pos = -1;
  long length = 0;
  if (GetConfigPosAndDataLen(t, &pos, &length) != 0) return;
  if (length < 1) {
    if (!m_cfgDownload.recver) return;
    delete m_cfgDownload.recver;
    m_cfgDownload.recver = nullptr;
    PostStatus(QXNET_EV_CFGFILE_GET_PROGRESS, "\n<downProgress>-2</downProgress>\n");
    return;
  }
  if (!m_cfgDownload.recver) {
    PostStatus(QXNET_EV_CFGFILE_GET_PROGRESS, "\n<downProgress>-3</downProgress>\n");
    return;
  }
  // Data is appended in arrival order. Only the bytes the frame really carries are fed:
  // a length beyond the frame would read bytes that belong to no message.
  size_t dataStart = textLen + 4;
  size_t available = m_nRecvLen > dataStart ? m_nRecvLen - dataStart : 0;
  size_t n = static_cast<size_t>(length) < available ? static_cast<size_t>(length) : available;
  if (n < static_cast<size_t>(length))
    fLog(0, "[OnSysControlMsgRsp] Dev=%s config data announced %ld bytes, frame carries %zu \n", m_szDevAddr,
         length, n);
  m_cfgDownload.recver->FeedData(t + dataStart, static_cast<int>(n));
  if (m_cfgDownload.recver->CheckFinish() != 0) return;
  delete m_cfgDownload.recver;
  m_cfgDownload.recver = nullptr;
  PostStatus(QXNET_EV_CFGFILE_GET_PROGRESS, "\n<downProgress>100</downProgress>\n");
}

void CDevComControl::OnDownloadPortAnswer(const char* flag, const char* body) {
  if (std::atol(flag ? flag : "") != 0) {
    OnStopDownloadFile(-3, "recv download response failed!");
    return;
  }
  if (m_nIdle || m_upload.uploading) {
    fLog(0, "[OnSysControlMsgRsp] Dev=%s Download task got port response but the task has been canceled \n",
         m_szDevAddr);
    return;
  }
  uint16_t port = 0;
  int type = 0;
  uint32_t total = 0;
  if (GetFileTransportPort(body ? body : "", &port, &type, &total) < 0) {
    OnStopDownloadFile(-2, "recv download response xml data error!");
    return;
  }
  m_portDownload.startTick = GetTickCount();
  m_portDownload.length = total;
  m_portDownload.port = port;
  m_portDownload.flag = type;
  if (type == 0) return;
  if (m_portDownload.retryState == 0) {
    m_portDownload.bytesReceived = 0;
    if (m_portDownload.tempFile) {
      std::fclose(m_portDownload.tempFile);
      m_portDownload.tempFile = nullptr;
      std::remove(m_portDownload.tempFileName.c_str());
      m_portDownload.tempFileName.clear();
    }
  } else if (m_portDownload.tempFile) {
    fLog(0, "[OnSysControlMsgRsp] Restart download file ok! \n");
    return;
  } else {
    m_portDownload.bytesReceived = 0;
  }
  m_portDownload.tempFileName = std::string(m_upload.path) + ".tmp";
  m_portDownload.tempFile = std::fopen(m_portDownload.tempFileName.c_str(), "wb+");
  if (!m_portDownload.tempFile) OnStopDownloadFile(-1, "create file error!");
}

int CDevComControl::MsUntilRetryReqDownload() const {
  if (m_nIdle || m_portDownload.flag == 0 || m_upload.uploading) return -1;
  // Re-requested once more than 5 s have passed since the request, then every 10 s.
  uint32_t since = m_portDownload.retryState == 0 ? m_portDownload.startTick : m_portDownload.lastRetryTick;
  uint32_t wait = m_portDownload.retryState == 0 ? 5001 : 10001;
  uint32_t spent = GetTickCount() - since;
  return spent >= wait ? 0 : static_cast<int>(wait - spent);
}

int CDevComControl::CheckRetryReqDownload() {
  if (MsUntilRetryReqDownload() != 0) return 0;
  uint32_t now = GetTickCount();
  m_portDownload.retryState = 1;
  m_portDownload.lastRetryTick = now;
  std::string body = "<REQUEST_PARAM\nFileName = \"" + m_portDownload.remoteFileName + "\"\nStartPos=\"" +
                     std::to_string(m_portDownload.bytesReceived) + "\"\n/>";
  fLog(0, "[CheckRetryReqDownload] recv downloadfile timeout,request download,write cmd=%s", body.c_str());
  // The re-request repeats the download request of this family: type 20000, cmd 14023.
  return WriteAUXStringEx(proto::kTypeControl, proto::kCmdPortDownload, 0, body.c_str());
}

int CDevComControl::OnStopDownloadFile(int error, const std::string& text) {
  char report[2048];
  std::snprintf(report, sizeof(report),
                "<RESPONSE_PARAM\nRemoteFileName=\"%s\"\nLocalFileName=\"%s\"\nStartPos=\"%d\"\nErrorCode=\"%d\" errormsg=\"%s\" \n/>",
                m_portDownload.remoteFileName.c_str(), m_portDownload.tempFileName.c_str(), static_cast<int>(m_portDownload.bytesReceived), error,
                text.c_str());
  // Reported as a configuration-download event: the application learns the transfer
  // ended and why.
  PostStatus(QXNET_EV_CFGFILE_GET_PROGRESS, report);
  if (m_portDownload.tempFile) {
    std::fclose(m_portDownload.tempFile);
    m_portDownload.tempFile = nullptr;
  }
  m_portDownload.flag = 0;
  m_portDownload.retryState = 0;
  return 0;
}
