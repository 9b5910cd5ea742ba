#include "base/LogQueue.h"

#include <algorithm>

void CLogQueue::Push(unsigned int level, const char* text, size_t length) {
  Head h{level, static_cast<uint32_t>(length + 1)};
  size_t need = sizeof(h) + length + 1;
  if (need > kBlockBytes) return;  // longer than any line the log builds
  if (m_nUsed == 0 || m_blocks[m_nUsed - 1].size() + need > kBlockBytes) {
    if (m_nUsed == m_blocks.size()) {
      m_blocks.emplace_back();
      m_blocks.back().reserve(kBlockBytes);
    }
    ++m_nUsed;
  }
  std::vector<char>& block = m_blocks[m_nUsed - 1];
  const char* head = reinterpret_cast<const char*>(&h);
  block.insert(block.end(), head, head + sizeof(h));
  block.insert(block.end(), text, text + length + 1);
}

void CLogQueue::Swap(CLogQueue& other) {
  m_blocks.swap(other.m_blocks);
  std::swap(m_nUsed, other.m_nUsed);
}

void CLogQueue::Clear() {
  size_t used = m_nUsed;
  for (size_t b = 0; b < m_nUsed; ++b) m_blocks[b].clear();
  m_nUsed = 0;
  // A burst's blocks go back once a turn uses less than a quarter of them; a steady
  // stream keeps its blocks, so its lines cost no allocation and no fresh pages.
  const size_t kept = kKeptBytes / kBlockBytes;
  if (m_blocks.size() > kept && used < m_blocks.size() / 4) {
    m_blocks.resize(std::max(used, kept));
    m_blocks.shrink_to_fit();
  }
}
