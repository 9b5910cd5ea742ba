// The receiver's read-ahead: bytes come out in the order they went in, and a room given by
// the session is used in place of a mapping of its own.
#include <gtest/gtest.h>

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
  std::vector<char> owner(CRecvAhead::kCapacity);
  {
    CRecvAhead a;
    a.UseRoom(owner.data());
    EXPECT_EQ(a.Room(), owner.data());
    std::memcpy(a.Room(), "12345", 5);
    a.Filled(5);
    char out[5];
    EXPECT_EQ(a.Take(out, 5), 5u);
    EXPECT_EQ(std::memcmp(out, "12345", 5), 0);
  }
  // The destructor did not free the owner's memory: it is still ours to write (a sanitizer
  // build reports a free of vector storage or a use after it).
  owner[0] = 'z';
  EXPECT_EQ(owner[0], 'z');
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
