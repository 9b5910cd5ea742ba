#include "media/ReassemblyBuffer.h"

#include <cstring>

namespace media {

void CReassemblyBuffer::Reserve() {
  if (!m_data) m_data.reset(new unsigned char[kReassemblyBufferSize]());
}

bool CReassemblyBuffer::Start(const unsigned char* pack, size_t length, uint16_t payloadSize) {
  Reserve();
  m_bOpen = false;
  if (length > kReassemblyBufferSize) return false;
  std::memcpy(m_data.get(), pack, length);
  m_nFill = kPackHeaderSize + payloadSize;
  m_bOpen = true;
  return true;
}

bool CReassemblyBuffer::Append(const unsigned char* payload, size_t size) {
  if (!m_data || m_nFill > kReassemblyBufferSize || size > kReassemblyBufferSize - m_nFill) {
    m_bOpen = false;
    return false;
  }
  std::memcpy(m_data.get() + m_nFill, payload, size);
  m_nFill += size;
  return true;
}

}  // namespace media
