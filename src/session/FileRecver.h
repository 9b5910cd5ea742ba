// Writes a configuration file fetched from a device: counts what it is fed and tells
// when the announced length has arrived.
#ifndef QXNET_SESSION_FILERECVER_H
#define QXNET_SESSION_FILERECVER_H

#include <cstdint>
#include <cstdio>

class CFileRecver {
 public:
  CFileRecver(const char* path, int length);
  ~CFileRecver();

  // Counts n bytes (also when the write fails) and writes them; 0 when a file is open and
  // all were written, else -1.
  int FeedData(const char* data, int n);
  // 0 when the received count equals the announced length and is not 0, else -1.
  int CheckFinish() const;

  uint32_t Received() const { return m_nReceived; }
  uint32_t Expected() const { return m_nExpected; }
  bool HasFile() const { return m_pFile != nullptr; }

 private:
  CFileRecver(const CFileRecver&) = delete;
  CFileRecver& operator=(const CFileRecver&) = delete;
  uint32_t m_nReceived;
  uint32_t m_nExpected;
  FILE* m_pFile;
};

#endif
