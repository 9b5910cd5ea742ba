// Recorder search, replay and download control: not in this build yet. Each operation
// returns QXNET_E_NOT_AVAILABLE and sends nothing (the README lists them).
#include "session/DevComControl.h"

int CDevComControl::SearchNVRRecByTime(unsigned int, const char*) { return QXNET_E_NOT_AVAILABLE; }
int CDevComControl::SearchNvrRecByMonth(long, const char*) { return QXNET_E_NOT_AVAILABLE; }
int CDevComControl::NVRReplayByTime(unsigned int, const char*) { return QXNET_E_NOT_AVAILABLE; }
int CDevComControl::ControlNVRReplay(unsigned int, unsigned int, unsigned int, const char*) {
  return QXNET_E_NOT_AVAILABLE;
}
int CDevComControl::NVRRecordDownload(long, const char*, const char*, const char*) {
  return QXNET_E_NOT_AVAILABLE;
}
int CDevComControl::NVRRecordDownloadStop(long) { return QXNET_E_NOT_AVAILABLE; }
