// Addresses this process has handed to devices by modify and restore requests, so that
// the free-address probe does not offer them again: 255 slots, 0 = free.
#ifndef QXNET_SEARCH_SEARCHASSIGNED_H
#define QXNET_SEARCH_SEARCHASSIGNED_H

#include <cstdint>
#include <mutex>

class CAssignedAddrs {
 public:
  enum { kSlots = 255 };
  CAssignedAddrs() {
    for (auto& a : m_addr) a = 0;
  }
  // Takes the first free slot; nothing happens when all are used.
  void Add(uint32_t addr) {
    std::lock_guard<std::mutex> g(m_mutex);
    for (auto& a : m_addr)
      if (a == 0) {
        a = addr;
        return;
      }
  }
  // Clears the first slot holding `addr`.
  void Remove(uint32_t addr) {
    std::lock_guard<std::mutex> g(m_mutex);
    for (auto& a : m_addr)
      if (a == addr) {
        a = 0;
        return;
      }
  }
  bool Contains(uint32_t addr) const {
    std::lock_guard<std::mutex> g(m_mutex);
    for (auto a : m_addr)
      if (a == addr) return true;
    return false;
  }
  int Used() const {
    std::lock_guard<std::mutex> g(m_mutex);
    int n = 0;
    for (auto a : m_addr) n += a != 0;
    return n;
  }

 private:
  mutable std::mutex m_mutex;
  uint32_t m_addr[kSlots];
};

#endif
