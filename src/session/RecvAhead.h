// Bytes the receiver read from the session socket beyond what it asked for. A device
// streaming media sends a small frame (an XML head and one pack of a few KiB) after
// another: one read that takes what the socket holds replaces the three small reads each
// frame needed (the header, the eight read-ahead bytes, the rest). The receiver takes its
// bytes from here first, so the header search and the frame reading see the same bytes in
// the same order as before.
#ifndef QXNET_SESSION_RECVAHEAD_H
#define QXNET_SESSION_RECVAHEAD_H

#include <cstddef>

class CRecvAhead {
 public:
  static constexpr size_t kCapacity = 256 * 1024;

  CRecvAhead() = default;
  ~CRecvAhead();
  CRecvAhead(const CRecvAhead&) = delete;
  CRecvAhead& operator=(const CRecvAhead&) = delete;

  size_t Available() const { return m_end - m_begin; }
  // Moves up to len buffered bytes to dst; the count moved.
  size_t Take(void* dst, size_t len);
  // Room for the next read (kCapacity bytes), to be used only while nothing is buffered;
  // null when it could not be allocated.
  char* Room();
  // Reads into `room` (kCapacity bytes, owned by the caller and outliving this object's
  // use) instead of a mapping of its own: a session keeps it in its one block, so that
  // ending the session unmaps once. Only before the first read.
  void UseRoom(char* room) {
    if (!m_data) m_data = room, m_owned = false;
  }
  // The next read put n bytes (at most kCapacity) into the room.
  void Filled(size_t n);
  // Forgets what is buffered (a new connection starts with nothing).
  void Clear() { m_begin = m_end = 0; }

 private:
  char* m_data = nullptr;  // given, or allocated at the first read; pages become resident as used
  bool m_owned = true;
  size_t m_begin = 0;
  size_t m_end = 0;
};

#endif
