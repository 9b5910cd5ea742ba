// Collects the lines the library writes through fLog while an instance lives.
#ifndef QXNET_TESTS_XML_LOGCAPTURE_H
#define QXNET_TESTS_XML_LOGCAPTURE_H

#include <mutex>
#include <string>
#include <vector>

#include "base/FuncLog.h"

class LogCapture {
 public:
  LogCapture() {
    fLogStart();
    Lines().clear();
    m_saved = g_fLogCallBack;
    g_fLogCallBack = &LogCapture::Sink;
  }
  ~LogCapture() { g_fLogCallBack = m_saved; }

  // Messages as passed to fLog: the time prefix removed, and the "\r\n" the log adds to a
  // line without a final newline taken off again.
  std::vector<std::string> Messages() const {
    std::lock_guard<std::mutex> guard(Mutex());
    std::vector<std::string> out;
    for (const std::string& line : Lines()) {
      // "QXNetSDK:MM-DD,hh:mm:ss," is 24 characters.
      std::string m = line.size() >= 24 ? line.substr(24) : line;
      if (m.size() >= 2 && m.compare(m.size() - 2, 2, "\r\n") == 0) m.resize(m.size() - 2);
      out.push_back(m);
    }
    return out;
  }
  bool Has(const std::string& message) const {
    for (const std::string& m : Messages())
      if (m == message) return true;
    return false;
  }

 private:
  static void Sink(unsigned int /*level*/, const char* line) {
    std::lock_guard<std::mutex> guard(Mutex());
    Lines().push_back(line);
  }
  static std::vector<std::string>& Lines() {
    static std::vector<std::string> lines;
    return lines;
  }
  static std::mutex& Mutex() {
    static std::mutex m;
    return m;
  }
  QXNetLogSink m_saved;
};

#endif
