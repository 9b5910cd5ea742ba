// Configuration, control and auxiliary requests: each is one PrivateProto message put on
// the send queue; the device's answer comes back through the auxiliary response callback.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <string>

#include <tinyxml.h>

#include "base/FuncLog.h"
#include "session/DevComControl.h"
#include "xml/xmlutil.h"
#include "session/Protocol.h"

int CDevComControl::WriteAUXStringEx(const char* type, unsigned long cmd, unsigned long result,
                                     const char* body) {
  if (!type) return QXNET_E_MISSING_ARG;
  char* buf = new char[QXNET_REQUEST_BUF_SIZE]();
  char cmdText[32], resultText[32];
  std::snprintf(cmdText, sizeof(cmdText), "%lu", cmd);
  std::snprintf(resultText, sizeof(resultText), "%lu", result);
  int len = MakeXMLRequest(buf, QXNET_REQUEST_BUF_SIZE, type, cmdText, resultText, body, -1);
  if (len <= 0) {
    // The envelope writer refuses what does not fit: nothing half-built is sent.
    delete[] buf;
    return QXNET_E_BUFFER_SMALL;
  }
  PutToSendData(NetSDKSendData_t{static_cast<uint32_t>(len), buf});
  return 0;
}

// Both directions are the same request: the device tells them apart by the code.
int CDevComControl::GetDVRConfig(unsigned long cmd, long /*channel*/, void* buf, unsigned long /*size*/) {
  return WriteAUXStringEx(proto::kTypeConfig, cmd, 0, static_cast<const char*>(buf));
}

int CDevComControl::SetDVRConfig(unsigned long cmd, long /*channel*/, void* buf, unsigned long /*size*/) {
  return WriteAUXStringEx(proto::kTypeConfig, cmd, 0, static_cast<const char*>(buf));
}

int CDevComControl::SystemControl(unsigned long cmd, unsigned long result, const char* body) {
  return WriteAUXStringEx(proto::kTypeControl, cmd, result, body);
}

int CDevComControl::PtzControl(const char* xml) {
  char* buf = new char[QXNET_REQUEST_BUF_SIZE]();
  int len = MakeXMLRequest(buf, QXNET_REQUEST_BUF_SIZE, proto::kTypePtz, proto::kCmdPtz, "0", xml, -1);
  fLog(3, "PtzControl dev=%s,xml=%s \n", m_szDevAddr, buf);
  if (len <= 0) {
    delete[] buf;
    return QXNET_E_BUFFER_SMALL;
  }
  PutToSendData(NetSDKSendData_t{static_cast<uint32_t>(len), buf});
  return 0;
}

// The user-data pair carries a type of its own (not the control type SystemControl
// writes): it is what the devices expect.
int CDevComControl::GetUserData(char* /*buf*/, int* /*len*/) {
  return WriteAUXStringEx(proto::kTypeUserData, proto::kCmdGetUserData, 0, "");
}

int CDevComControl::SetUserData(char* data, int len) {
  if (!data && len > 0) return QXNET_E_MISSING_ARG;
  // The zero byte behind the caller's data is part of the contract (the buffer holds
  // len + 1 bytes); a negative length writes nothing outside the buffer.
  if (data && len >= 0) data[len] = 0;
  std::string hex;
  if (len > 0) {
    hex.reserve(static_cast<size_t>(len) * 2);
    char two[3];
    for (int i = 0; i < len; ++i) {
      std::snprintf(two, sizeof(two), "%02x", static_cast<unsigned char>(data[i]));
      hex += two;
    }
  }
  TiXmlDocument doc;
  doc.Parse("<REQUEST_PARAM\nUserDevData=\"\"\n>\n</REQUEST_PARAM>\n");
  std::string printed;
  if (TiXmlElement* root = doc.RootElement()) {
    root->SetAttribute("UserDevData", hex.c_str());
    std::ostringstream os;
    os << doc;
    printed = os.str();
  }
  return WriteAUXStringEx(proto::kTypeUserData, proto::kCmdSetUserData, 0, printed.c_str());
}

void CDevComControl::OnSysControlMsgRsp(const char* code, const char* flag, const char* body) {
  long c = std::atol(code ? code : "");
  long f = std::atol(flag ? flag : "");
  switch (c) {
    case proto::kCmdStartSerial:
      if (f == 0) {
        fLog(0, "[OnSysControlMsgRsp] Dev=%s start serial success \n", m_szDevAddr);
        m_bSerialStarted = true;
      } else {
        fLog(0, "[OnSysControlMsgRsp] Dev=%s start serial failed, error=%d \n", m_szDevAddr, static_cast<int>(f));
        m_bSerialStarted = false;
      }
      break;
    case proto::kCmdCapabilities:
      fLog(0, "[OnSysControlMsgRsp] Get system control string: %s \n", body ? body : "");
      m_nFrontReplay = (body && (std::strstr(body, "+front_replay+") || std::strstr(body, "+ front_replay +")))
                           ? 1
                           : 0;
      break;
    case proto::kCmdFirmwareAnnounce:
    case proto::kCmdConfigFileAnnounce:
      OnUploadAnswer(code, flag);
      break;
    case proto::kCmdPortDownload:
      OnDownloadPortAnswer(flag, body);
      break;
    case proto::kCmdConfigFileGet:
      OnDownloadLengthAnswer();
      break;
    case proto::kCmdConfigFileData:
      OnDownloadDataAnswer();
      break;
    default:
      break;
  }
}
