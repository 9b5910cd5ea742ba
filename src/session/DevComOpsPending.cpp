// Device operations whose issue has not landed yet: configuration and control requests,
// uploads and the configuration-file download. Each returns QXNET_E_NOT_AVAILABLE and
// sends nothing; answers to them are ignored (the README lists them).
#include "session/DevComControl.h"

int CDevComControl::WriteAUXStringEx(const char*, unsigned long, unsigned long, const char*) {
  return QXNET_E_NOT_AVAILABLE;
}
int CDevComControl::GetDVRConfig(unsigned long, long, void*, unsigned long) { return QXNET_E_NOT_AVAILABLE; }
int CDevComControl::SetDVRConfig(unsigned long, long, void*, unsigned long) { return QXNET_E_NOT_AVAILABLE; }
int CDevComControl::SystemControl(unsigned long, unsigned long, const char*) { return QXNET_E_NOT_AVAILABLE; }
int CDevComControl::PtzControl(const char*) { return QXNET_E_NOT_AVAILABLE; }
int CDevComControl::GetUserData(char*, int*) { return QXNET_E_NOT_AVAILABLE; }
int CDevComControl::SetUserData(char*, int) { return QXNET_E_NOT_AVAILABLE; }
void CDevComControl::OnSysControlMsgRsp(const char*, const char*, const char*) {}
int CDevComControl::UploadFile(unsigned int, const char*) { return QXNET_E_NOT_AVAILABLE; }
int CDevComControl::UploadFileEx(unsigned int, const wchar_t*) { return QXNET_E_NOT_AVAILABLE; }
int CDevComControl::SetConfigFile(const char*) { return QXNET_E_NOT_AVAILABLE; }
int CDevComControl::GetUploadProgress() { return 0; }
int CDevComControl::GetUploadState() { return -1; }
int CDevComControl::CloseUploadHandle() { return QXNET_E_NOT_AVAILABLE; }
int CDevComControl::SendUploadFileData() { return 0; }
bool CDevComControl::UploadDue() const { return false; }
int CDevComControl::GetConfigFile(const char*) { return QXNET_E_NOT_AVAILABLE; }
int CDevComControl::CheckRetryReqDownload() { return 0; }
int CDevComControl::OnStopDownloadFile(int, const std::string&) { return 0; }
