#include "session/FileRecver.h"

#include "base/FileOpen.h"
#include "base/FuncLog.h"

CFileRecver::CFileRecver(const char* path, int length)
    : m_nReceived(0), m_nExpected(static_cast<uint32_t>(length)), m_pFile(nullptr) {
  fLog(3, "++++++++++++++filename = %s \n", path ? path : "(null)");
  m_pFile = OpenFile(path, "wb+");
}

CFileRecver::~CFileRecver() {
  if (m_pFile) std::fclose(m_pFile);
}

int CFileRecver::FeedData(const char* data, int n) {
  m_nReceived += static_cast<uint32_t>(n);
  if (!m_pFile || n < 0) return -1;
  if (n == 0) return 0;
  size_t w = std::fwrite(data, 1, static_cast<size_t>(n), m_pFile);
  // Flushed per chunk: a download cut short keeps what arrived on disk.
  std::fflush(m_pFile);
  return w == static_cast<size_t>(n) ? 0 : -1;
}

int CFileRecver::CheckFinish() const { return (m_nReceived == m_nExpected && m_nReceived != 0) ? 0 : -1; }
