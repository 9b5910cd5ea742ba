#include "session/RecvAhead.h"

#include <cstring>

#include "base/LazyBuffer.h"

CRecvAhead::~CRecvAhead() {
  if (m_data && m_owned) FreeLazyBuffer(m_data, kCapacity);
}

size_t CRecvAhead::Take(void* dst, size_t len) {
  size_t n = Available() < len ? Available() : len;
  if (n == 0) return 0;
  std::memcpy(dst, m_data + m_begin, n);
  m_begin += n;
  if (m_begin == m_end) m_begin = m_end = 0;
  return n;
}

char* CRecvAhead::Room() {
  if (!m_data) m_data = AllocLazyBuffer(kCapacity);
  return m_data;
}

void CRecvAhead::Filled(size_t n) {
  m_begin = 0;
  m_end = n < kCapacity ? n : kCapacity;
}
