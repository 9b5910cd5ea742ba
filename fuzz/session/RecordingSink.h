// Stands in for the core behind a session under the receive-path fuzzer. Records what the
// session reports (texts copied, bounded) and checks each report as it arrives: it comes
// from the session, on the thread that drives it, with a known event code, and its text
// fits the buffer it was made in or, for texts cut from a message, the message itself.
#ifndef QXNET_FUZZ_SESSION_RECORDINGSINK_H
#define QXNET_FUZZ_SESSION_RECORDINGSINK_H

#include <pthread.h>
#include <stddef.h>

#include <string>
#include <vector>

#include "session/SessionSink.h"

class CDevComControl;

class RecordingSink : public ISessionSink {
 public:
  typedef void (*FailFn)(const char* what);
  enum Kind { kStatus, kAux, kReplayMedia, kPlayEvent };
  struct Report {
    Kind kind;
    long code;
    bool null;
    std::string text;  // at most kKeptText bytes
  };
  static const size_t kKeptText = 256;
  static const size_t kKeptReports = 1024;

  explicit RecordingSink(FailFn fail) : m_fail(fail) {}
  // The session that reports here; the calling thread is the only one it may report on.
  void Attach(CDevComControl* session);
  size_t Count() const { return m_count; }
  // Status events of one code so far.
  size_t StatusCount(int code) const { return code >= 0 && code < kCodes ? m_statusCounts[code] : 0; }
  // The first kKeptReports reports.
  const std::vector<Report>& Reports() const { return m_reports; }

  int OnPostDevStatusMsg(void* dev, int event, char* data) override;
  int OnPostAuxRspMsg(void* dev, unsigned int command, int channel, const char* xml) override;
  void OnFReplayMediaData(void* dev, unsigned long type, unsigned char* buffer, unsigned long length,
                          void* ext) override;
  long OnFRePlayEventCallBack(void* dev, long a, long b, char* text) override;

 private:
  void CheckCaller(void* dev);
  // Length of the text of the frame being dispatched.
  size_t FrameText() const;
  void CheckAlarm(const char* data);
  void Keep(Kind kind, long code, const char* text, size_t len);

  FailFn m_fail;
  CDevComControl* m_session = nullptr;
  pthread_t m_thread{};
  static const int kCodes = 128;
  size_t m_count = 0;
  size_t m_statusCounts[kCodes] = {};
  std::vector<Report> m_reports;
};

#endif
