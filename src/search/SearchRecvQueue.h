// Datagrams taken from the discovery socket ahead of their handling.
//
// A burst of answers from a whole LAN arrives faster than answers are parsed, and the
// socket's 128 KiB receive buffer holds only about 200 of them: the rest were dropped by the
// kernel. The worker therefore takes everything the socket holds in one batch receive into
// this queue, and again before each datagram it handles, so the kernel buffer is emptied
// long before it fills. Nothing changes on the wire or for the callbacks: the datagrams are
// handled one at a time in arrival order, each cut at the same 20480 bytes, with the same
// log lines.
//
// The queue is bounded in bytes: when it cannot take another full-size datagram it takes
// none and the kernel buffer holds the rest, as before. A receive error is kept behind the
// datagrams taken before it and reported when the handling reaches it, which is where the
// one-datagram-at-a-time loop closed the socket. Empty datagrams say nothing and are not
// kept (the loop dropped them without closing the socket). No sockets here: the receive is a
// function given to Drain.
#ifndef QXNET_SEARCH_SEARCHRECVQUEUE_H
#define QXNET_SEARCH_SEARCHRECVQUEUE_H

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>

#include "base/UdpSocket.h"

struct SearchDatagram {
  const char* text;  // NUL-terminated at text[len]
  int len;
  uint32_t fromNetOrder;
  uint16_t fromPort;
};

class CSearchRecvQueue {
 public:
  // kMaxDatagram is the receive size of discovery (kSearchMsgSize, checked where both are
  // seen); a slot holds one such datagram and its NUL.
  enum { kMaxDatagram = 20480, kSlot = kMaxDatagram + 1, kBatch = 16 };
  static const size_t kDefaultBytes = 4u << 20;
  // Fills up to n slots (each has room for kMaxDatagram bytes) and returns the count
  // filled, 0 when nothing waits, or -1 for a receive error.
  typedef std::function<int(UdpRecvSlot* slots, int n)> Receiver;

  explicit CSearchRecvQueue(size_t capBytes = kDefaultBytes);
  ~CSearchRecvQueue();

  // Takes datagrams from `recv` while it has some and room remains; stops at an error,
  // which is queued behind them. Returns the datagrams taken.
  int Drain(const Receiver& recv);
  // 1: the oldest datagram, valid until the next call of any member; 0: nothing queued;
  // -1: the receive error queued behind everything taken before it (reported once).
  int Next(SearchDatagram* out);
  bool Empty() const { return m_items.empty() && !m_error; }
  bool Full() const;
  size_t Count() const { return m_items.size(); }
  size_t Bytes() const { return m_tail - m_head; }
  size_t Capacity() const { return m_cap; }
  // Forgets everything queued (the socket they came from is gone) and returns the memory.
  void Clear();

 private:
  CSearchRecvQueue(const CSearchRecvQueue&) = delete;
  CSearchRecvQueue& operator=(const CSearchRecvQueue&) = delete;
  struct Item {
    size_t offset;
    int len;
    uint32_t from;
    uint16_t port;
  };
  int DrainBatch(const Receiver& recv, int n);
  void MakeRoom(size_t bytes);
  bool Allocate();

  size_t m_cap;
  // Both allocated on first use; pages become resident only when written. A batch is
  // received into the staging slots (a full-size slot each, reused batch after batch so
  // their pages stay resident) and then packed into the arena: spacing the receive slots
  // a full datagram apart in the arena itself would touch a new page for every datagram.
  char* m_staging;
  char* m_arena;
  size_t m_head, m_tail;  // live bytes: [m_head, m_tail)
  std::deque<Item> m_items;
  bool m_error;
};

#endif
