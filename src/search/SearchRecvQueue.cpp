#include "search/SearchRecvQueue.h"

#include <cstring>

#include "base/LazyBuffer.h"
#include "search/SearchProto.h"

const size_t CSearchRecvQueue::kDefaultBytes;

namespace {
const size_t kStagingBytes = static_cast<size_t>(CSearchRecvQueue::kBatch) * CSearchRecvQueue::kSlot;
}

static_assert(static_cast<int>(CSearchRecvQueue::kMaxDatagram) == static_cast<int>(kSearchMsgSize), "a queued datagram is cut where a receive cuts it");

CSearchRecvQueue::CSearchRecvQueue(size_t capBytes)
    : m_cap(capBytes < size_t{kSlot} ? size_t{kSlot} : capBytes), m_staging(nullptr), m_arena(nullptr), m_head(0), m_tail(0), m_error(false) {}

CSearchRecvQueue::~CSearchRecvQueue() { Clear(); }

bool CSearchRecvQueue::Full() const { return m_cap - Bytes() < kSlot; }

void CSearchRecvQueue::Clear() {
  m_items.clear();
  m_head = m_tail = 0;
  m_error = false;
  FreeLazyBuffer(m_arena, m_cap);
  FreeLazyBuffer(m_staging, kStagingBytes);
  m_arena = m_staging = nullptr;
}

bool CSearchRecvQueue::Allocate() {
  if (!m_staging) m_staging = AllocLazyBuffer(kStagingBytes);
  if (!m_arena) m_arena = AllocLazyBuffer(m_cap);
  return m_staging && m_arena;
}

// Moves the live bytes to the start of the arena when `bytes` more do not fit after them.
void CSearchRecvQueue::MakeRoom(size_t bytes) {
  if (m_tail + bytes <= m_cap || m_head == 0) return;
  size_t live = m_tail - m_head;
  std::memmove(m_arena, m_arena + m_head, live);
  for (Item& it : m_items) it.offset -= m_head;
  m_head = 0;
  m_tail = live;
}

// One receive into n full-size staging slots, then the datagrams packed end to end at the
// tail. Returns the datagrams received (empty ones included), or -1.
int CSearchRecvQueue::DrainBatch(const Receiver& recv, int n) {
  MakeRoom(static_cast<size_t>(n) * kSlot);
  UdpRecvSlot slots[kBatch];
  for (int i = 0; i < n; ++i) {
    slots[i].data = m_staging + static_cast<size_t>(i) * kSlot;
    slots[i].cap = kMaxDatagram;
    slots[i].len = 0;
  }
  int got = recv(slots, n);
  if (got < 0) return -1;
  if (got > n) got = n;
  for (int i = 0; i < got; ++i) {
    long len = slots[i].len;
    if (len <= 0) continue;  // an empty datagram says nothing
    if (len > kMaxDatagram) len = kMaxDatagram;
    char* dst = m_arena + m_tail;
    std::memcpy(dst, slots[i].data, static_cast<size_t>(len));
    dst[len] = '\0';
    m_items.push_back(Item{m_tail, static_cast<int>(len), slots[i].fromNetOrder, slots[i].fromPort});
    m_tail += static_cast<size_t>(len) + 1;
  }
  return got;
}

int CSearchRecvQueue::Drain(const Receiver& recv) {
  int taken = 0;
  while (!m_error) {
    size_t room = (m_cap - Bytes()) / kSlot;
    int n = room < kBatch ? static_cast<int>(room) : static_cast<int>(kBatch);
    if (n == 0) break;  // full: the kernel buffer holds the rest
    if (!Allocate()) {
      m_error = true;  // no memory to receive into: handled like a failed receive
      break;
    }
    int got = DrainBatch(recv, n);
    if (got < 0) {
      m_error = true;
      break;
    }
    taken += got;
    if (got < n) break;  // the socket is empty
  }
  return taken;
}

int CSearchRecvQueue::Next(SearchDatagram* out) {
  if (m_items.empty()) {
    if (!m_error) return 0;
    m_error = false;
    return -1;
  }
  const Item it = m_items.front();
  m_items.pop_front();
  out->text = m_arena + it.offset;
  out->len = it.len;
  out->fromNetOrder = it.from;
  out->fromPort = it.port;
  // Emptied: the next receive starts at the front again (this datagram stays readable
  // until then).
  if (m_items.empty()) m_head = m_tail = 0;
  else m_head = m_items.front().offset;
  return 1;
}
