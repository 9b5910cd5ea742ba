// The discovery receive queue without sockets: a scripted receiver stands for the socket.
#include <gtest/gtest.h>

#include <cstring>
#include <deque>
#include <string>
#include <vector>

#include "search/SearchProto.h"
#include "search/SearchRecvQueue.h"

namespace {

// What a socket would hand out: datagrams in order, an error at some point, and how often
// and for how many slots it was asked.
struct FakeSocket {
  struct Step {
    bool error;
    std::string bytes;
    uint32_t from;
  };
  std::deque<Step> steps;
  std::vector<int> asked;

  void Add(const std::string& d, uint32_t from = 0) { steps.push_back(Step{false, d, from}); }
  void AddError() { steps.push_back(Step{true, "", 0}); }

  // As recvmmsg: datagrams up to an error; the error itself only when it comes first.
  int operator()(UdpRecvSlot* slots, int n) {
    asked.push_back(n);
    int got = 0;
    while (got < n && !steps.empty() && !steps.front().error) {
      const std::string& b = steps.front().bytes;
      size_t len = b.size() < slots[got].cap ? b.size() : slots[got].cap;
      std::memcpy(slots[got].data, b.data(), len);
      slots[got].len = static_cast<long>(len);
      slots[got].fromNetOrder = steps.front().from;
      slots[got].fromPort = 2018;
      steps.pop_front();
      ++got;
    }
    if (got == 0 && !steps.empty() && steps.front().error) {
      steps.pop_front();
      return -1;
    }
    return got;
  }
};

CSearchRecvQueue::Receiver From(FakeSocket& s) {
  return [&s](UdpRecvSlot* slots, int n) { return s(slots, n); };
}

std::string Next(CSearchRecvQueue& q) {
  SearchDatagram d;
  int k = q.Next(&d);
  if (k == 0) return "<none>";
  if (k < 0) return "<error>";
  EXPECT_EQ('\0', d.text[d.len]);
  EXPECT_EQ(static_cast<size_t>(d.len), std::strlen(d.text));
  return std::string(d.text, static_cast<size_t>(d.len));
}

TEST(SearchRecvQueue, HandsOutDatagramsInArrivalOrderAcrossBatches) {
  FakeSocket sock;
  for (int i = 0; i < 100; ++i) sock.Add("answer " + std::to_string(i), static_cast<uint32_t>(i));
  CSearchRecvQueue q;
  EXPECT_EQ(100, q.Drain(From(sock)));
  EXPECT_GE(sock.asked.size(), 4u);  // batches of at most kBatch
  for (int n : sock.asked) EXPECT_LE(n, static_cast<int>(CSearchRecvQueue::kBatch));
  EXPECT_EQ(100u, q.Count());
  for (int i = 0; i < 100; ++i) {
    SearchDatagram d;
    ASSERT_EQ(1, q.Next(&d));
    EXPECT_EQ("answer " + std::to_string(i), std::string(d.text, static_cast<size_t>(d.len)));
    EXPECT_EQ(static_cast<uint32_t>(i), d.fromNetOrder);
    EXPECT_EQ(2018, d.fromPort);
  }
  EXPECT_EQ("<none>", Next(q));
  EXPECT_TRUE(q.Empty());
  EXPECT_EQ(0u, q.Bytes());
}

// Draining between two handled datagrams keeps the order: old ones first, then the new.
TEST(SearchRecvQueue, InterleavedDrainsKeepTheOrder) {
  FakeSocket sock;
  CSearchRecvQueue q;
  int sent = 0, seen = 0;
  for (int round = 0; round < 50; ++round) {
    for (int k = 0; k < 7; ++k) sock.Add("d" + std::to_string(sent++));
    q.Drain(From(sock));
    for (int k = 0; k < 5; ++k) EXPECT_EQ("d" + std::to_string(seen++), Next(q));
  }
  while (!q.Empty()) EXPECT_EQ("d" + std::to_string(seen++), Next(q));
  EXPECT_EQ(sent, seen);
}

TEST(SearchRecvQueue, LongDatagramsAreCutAtTheReceiveSizeAndEmptyOnesDropped) {
  FakeSocket sock;
  sock.Add(std::string(30000, 'x'));
  sock.Add("");
  sock.Add(std::string(kSearchMsgSize, 'y'));
  sock.Add("z");
  CSearchRecvQueue q;
  EXPECT_EQ(4, q.Drain(From(sock)));
  EXPECT_EQ(3u, q.Count());
  EXPECT_EQ(std::string(kSearchMsgSize, 'x'), Next(q));
  EXPECT_EQ(std::string(kSearchMsgSize, 'y'), Next(q));
  EXPECT_EQ("z", Next(q));
  EXPECT_EQ("<none>", Next(q));
}

// Full: it takes no more and leaves the rest in the socket; handling frees room again.
TEST(SearchRecvQueue, BoundedInBytesTheSocketHoldsTheRest) {
  const size_t cap = 4 * CSearchRecvQueue::kSlot;
  FakeSocket sock;
  for (int i = 0; i < 10; ++i) sock.Add(std::string(kSearchMsgSize, static_cast<char>('a' + i)));
  CSearchRecvQueue q(cap);
  EXPECT_EQ(4, q.Drain(From(sock)));
  EXPECT_TRUE(q.Full());
  EXPECT_LE(q.Bytes(), cap);
  EXPECT_EQ(6u, sock.steps.size());
  size_t calls = sock.asked.size();
  EXPECT_EQ(0, q.Drain(From(sock)));
  EXPECT_EQ(calls, sock.asked.size()) << "a full queue must not receive at all";
  EXPECT_EQ(std::string(kSearchMsgSize, 'a'), Next(q));
  EXPECT_EQ(1, q.Drain(From(sock)));  // room for exactly one full-size datagram again
  EXPECT_LE(q.Bytes(), cap);
  for (char c = 'b'; c <= 'e'; ++c) EXPECT_EQ(std::string(kSearchMsgSize, c), Next(q));
  EXPECT_EQ(4, q.Drain(From(sock)));
  EXPECT_EQ(4u, q.Count());  // f..i; j stays in the socket
  EXPECT_EQ(1u, sock.steps.size());
  for (char c = 'f'; c <= 'i'; ++c) EXPECT_EQ(std::string(kSearchMsgSize, c), Next(q));
  EXPECT_EQ(1, q.Drain(From(sock)));
  EXPECT_EQ(std::string(kSearchMsgSize, 'j'), Next(q));
}

// Small datagrams pack tightly: many fit where the bound counts full-size room.
TEST(SearchRecvQueue, SmallDatagramsPackAndTheArenaIsReused) {
  const size_t cap = 3 * CSearchRecvQueue::kSlot;
  CSearchRecvQueue q(cap);
  FakeSocket sock;
  int sent = 0, seen = 0;
  for (int round = 0; round < 2000; ++round) {
    for (int k = 0; k < 3; ++k) sock.Add(std::string(700, 'p') + std::to_string(sent++));
    q.Drain(From(sock));
    ASSERT_LE(q.Bytes(), cap);
    for (int k = 0; k < 2; ++k) ASSERT_EQ(std::string(700, 'p') + std::to_string(seen++), Next(q));
  }
  EXPECT_GT(sock.steps.size(), 0u) << "the bound never held anything back";
  for (;;) {
    q.Drain(From(sock));
    if (q.Empty()) break;
    ASSERT_EQ(std::string(700, 'p') + std::to_string(seen++), Next(q));
  }
  EXPECT_EQ(sent, seen);
}

// A receive error comes out after every datagram taken before it, once; draining stops at
// it, so what follows in the socket is not taken.
TEST(SearchRecvQueue, AnErrorComesOutWhereTheSocketGaveIt) {
  FakeSocket sock;
  sock.Add("one");
  sock.Add("two");
  sock.AddError();
  sock.Add("after");
  CSearchRecvQueue q;
  EXPECT_EQ(2, q.Drain(From(sock)));
  EXPECT_EQ(0, q.Drain(From(sock)));  // stopped at the error: nothing more is taken
  EXPECT_EQ(1u, sock.steps.size());
  EXPECT_FALSE(q.Empty());
  EXPECT_EQ("one", Next(q));
  EXPECT_EQ("two", Next(q));
  EXPECT_EQ("<error>", Next(q));
  EXPECT_EQ("<none>", Next(q));
  EXPECT_TRUE(q.Empty());
  EXPECT_EQ(1, q.Drain(From(sock)));
  EXPECT_EQ("after", Next(q));
}

TEST(SearchRecvQueue, AnErrorFirstComesOutFirst) {
  FakeSocket sock;
  sock.AddError();
  sock.Add("later");
  CSearchRecvQueue q;
  EXPECT_EQ(0, q.Drain(From(sock)));
  EXPECT_EQ("<error>", Next(q));
  EXPECT_EQ("<none>", Next(q));
}

TEST(SearchRecvQueue, ClearForgetsDatagramsAndError) {
  FakeSocket sock;
  sock.Add("a");
  sock.AddError();
  CSearchRecvQueue q;
  q.Drain(From(sock));
  q.Clear();
  EXPECT_TRUE(q.Empty());
  EXPECT_EQ(0u, q.Bytes());
  EXPECT_EQ("<none>", Next(q));
}

}  // namespace
