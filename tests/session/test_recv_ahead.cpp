// The receiver's read-ahead: bytes come out in the order they went in, and a room given by
// the session is used in place of a mapping of its own.
#include <gtest/gtest.h>

#include <sys/mman.h>

#include <cstring>
#include <vector>

#include "session/RecvAhead.h"

namespace {

TEST(RecvAhead, HandsOutWhatAReadPutThereInOrder) {
  CRecvAhead a;
  char* room = a.Room();
  ASSERT_NE(room, nullptr);
  std::memcpy(room, "abcdefgh", 8);
  a.Filled(8);
  EXPECT_EQ(a.Available(), 8u);
  char out[8] = {0};
  EXPECT_EQ(a.Take(out, 3), 3u);
  EXPECT_EQ(std::memcmp(out, "abc", 3), 0);
  EXPECT_EQ(a.Take(out, 8), 5u);  // no more than is buffered
  EXPECT_EQ(std::memcmp(out, "defgh", 5), 0);
  EXPECT_EQ(a.Available(), 0u);
  EXPECT_EQ(a.Take(out, 8), 0u);
}

TEST(RecvAhead, FilledNeverClaimsMoreThanTheRoom) {
  CRecvAhead a;
  ASSERT_NE(a.Room(), nullptr);
  a.Filled(CRecvAhead::kCapacity + 100);
  EXPECT_EQ(a.Available(), CRecvAhead::kCapacity);
}

TEST(RecvAhead, ClearForgetsAnEarlierConnectionsBytes) {
  CRecvAhead a;
  std::memcpy(a.Room(), "xyz", 3);
  a.Filled(3);
  a.Clear();
  EXPECT_EQ(a.Available(), 0u);
}

TEST(RecvAhead, AGivenRoomIsReadIntoAndLeftToItsOwner) {
  // The owner's room is a mapping of its own, as the session block's is: were the
  // destructor to unmap it, msync would report the range as no longer mapped.
  void* p = mmap(nullptr, CRecvAhead::kCapacity, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(p, MAP_FAILED);
  char* owner = static_cast<char*>(p);
  {
    CRecvAhead a;
    a.UseRoom(owner);
    EXPECT_EQ(a.Room(), owner);
    std::memcpy(a.Room(), "12345", 5);
    a.Filled(5);
    char out[5];
    EXPECT_EQ(a.Take(out, 5), 5u);
    EXPECT_EQ(std::memcmp(out, "12345", 5), 0);
  }
  EXPECT_EQ(msync(owner, CRecvAhead::kCapacity, MS_ASYNC), 0) << "the room was unmapped by the read-ahead";
  EXPECT_EQ(std::memcmp(owner, "12345", 5), 0);
  munmap(owner, CRecvAhead::kCapacity);
}

TEST(RecvAhead, ARoomGivenAfterTheFirstReadIsIgnored) {
  std::vector<char> owner(CRecvAhead::kCapacity);
  CRecvAhead a;
  char* own = a.Room();
  ASSERT_NE(own, nullptr);
  a.UseRoom(owner.data());
  EXPECT_EQ(a.Room(), own);
}

}  // namespace
