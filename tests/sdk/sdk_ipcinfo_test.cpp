// The first-generation record copies, byte for byte: a whole record to the caller's
// first-generation one (QXNet_GetIPCInfo) and a first-generation record widened to a
// whole one, the rest zero (QXNet_ModifyIPC, QXNet_RestoreIPC). The copies are tested
// directly, with guard bytes behind a first-generation buffer; the exports are tested
// for what they show without found devices.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

#include "QXNetSDK.h"
#include "sdk/IpcEntryCopy.h"

namespace {

constexpr size_t kV1 = QXNET_IPC_ENTRY_V1_SIZE;
constexpr size_t kV2 = sizeof(__NetSDK_IPC_ENTRYV2);
constexpr size_t kGuard = 64;
constexpr uint8_t kGuardByte = 0xC3;

// A pattern with no zero byte and a period (61) that divides neither size.
uint8_t Pattern(size_t i) { return static_cast<uint8_t>(0x40 + i % 61); }

void FillPattern(void* p, size_t n) {
  uint8_t* b = static_cast<uint8_t*>(p);
  for (size_t i = 0; i < n; ++i) b[i] = Pattern(i);
}

TEST(IpcEntryCopy, SizesAreThoseOfTheTwoGenerations) {
  EXPECT_EQ(kV1, 4232u);
  EXPECT_EQ(kV2, 4784u);
}

TEST(IpcEntryCopy, ToV1WritesExactlyTheFirstGenerationBytes) {
  __NetSDK_IPC_ENTRYV2 full;
  FillPattern(&full, kV2);
  // A first-generation record followed by guard bytes, in a buffer of exactly that size.
  std::vector<uint8_t> out(kV1 + kGuard, kGuardByte);
  CopyIpcEntryToV1(full, out.data());
  for (size_t i = 0; i < kV1; ++i) ASSERT_EQ(out[i], Pattern(i)) << "byte " << i;
  for (size_t i = kV1; i < out.size(); ++i) ASSERT_EQ(out[i], kGuardByte) << "guard byte " << i << " written";
  // The source is only read.
  const uint8_t* src = reinterpret_cast<const uint8_t*>(&full);
  for (size_t i = 0; i < kV2; ++i) ASSERT_EQ(src[i], Pattern(i)) << "source byte " << i;
}

TEST(IpcEntryCopy, ToV1FitsABufferOfExactlyTheFirstGenerationSize) {
  // Nothing behind it: a write past the end is caught by the address sanitizer.
  __NetSDK_IPC_ENTRYV2 full;
  std::memset(&full, 0x5A, sizeof(full));
  std::vector<uint8_t> out(kV1, 0);
  CopyIpcEntryToV1(full, out.data());
  for (size_t i = 0; i < kV1; ++i) ASSERT_EQ(out[i], 0x5A) << "byte " << i;
}

TEST(IpcEntryCopy, WidenCopiesTheFirstGenerationAndZeroesTheRest) {
  // The first-generation record alone: a read past it is caught by the address sanitizer.
  std::vector<uint8_t> v1(kV1);
  FillPattern(v1.data(), kV1);
  __NetSDK_IPC_ENTRYV2 full;
  std::memset(&full, kGuardByte, sizeof(full));
  WidenIpcEntryFromV1(v1.data(), &full);
  const uint8_t* b = reinterpret_cast<const uint8_t*>(&full);
  for (size_t i = 0; i < kV1; ++i) ASSERT_EQ(b[i], Pattern(i)) << "byte " << i;
  for (size_t i = kV1; i < kV2; ++i) ASSERT_EQ(b[i], 0) << "byte " << i << " not cleared";
  // The source is only read.
  for (size_t i = 0; i < kV1; ++i) ASSERT_EQ(v1[i], Pattern(i)) << "source byte " << i;
}

TEST(IpcEntryCopy, WidenIgnoresWhatFollowsTheFirstGenerationInTheSource) {
  // A caller of the second generation passing a whole record to the plain form: only its
  // first-generation part counts.
  __NetSDK_IPC_ENTRYV2 src;
  std::memset(&src, 0xEE, sizeof(src));
  __NetSDK_IPC_ENTRYV2 full;
  WidenIpcEntryFromV1(&src, &full);
  const uint8_t* b = reinterpret_cast<const uint8_t*>(&full);
  for (size_t i = 0; i < kV1; ++i) ASSERT_EQ(b[i], 0xEE) << "byte " << i;
  for (size_t i = kV1; i < kV2; ++i) ASSERT_EQ(b[i], 0) << "byte " << i;
}

TEST(IpcEntryCopy, WidenOfNothingIsAllZero) {
  __NetSDK_IPC_ENTRYV2 full;
  std::memset(&full, kGuardByte, sizeof(full));
  WidenIpcEntryFromV1(nullptr, &full);
  const uint8_t* b = reinterpret_cast<const uint8_t*>(&full);
  for (size_t i = 0; i < kV2; ++i) ASSERT_EQ(b[i], 0) << "byte " << i;
}

TEST(IpcEntryCopy, WidenThenCopyBackGivesTheSameFirstGenerationRecord) {
  std::vector<uint8_t> v1(kV1);
  FillPattern(v1.data(), kV1);
  __NetSDK_IPC_ENTRYV2 full;
  WidenIpcEntryFromV1(v1.data(), &full);
  std::vector<uint8_t> back(kV1 + kGuard, kGuardByte);
  CopyIpcEntryToV1(full, back.data());
  EXPECT_TRUE(std::equal(v1.begin(), v1.end(), back.begin()));
  for (size_t i = kV1; i < back.size(); ++i) ASSERT_EQ(back[i], kGuardByte) << "guard byte " << i;
}

// ---- through the exports, with an empty device table (discovery refuses every index with
// -96 and leaves the record it is given as it is)

class IpcInfoExport : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(QXNet_init(), 0); }
  void TearDown() override { QXNet_Free(); }
};

TEST_F(IpcInfoExport, PlainFormWritesTheCoresRecordIntoAFirstGenerationBufferOnly) {
  // The core's record starts zeroed and the refused read leaves it so: the caller's 4232
  // bytes become zero, the guard bytes behind them stay.
  std::vector<uint8_t> buf(kV1 + kGuard, kGuardByte);
  EXPECT_EQ(QXNet_GetIPCInfo(0, reinterpret_cast<__NetSDK_IPC_ENTRYV2*>(buf.data())), QXNET_E_BAD_INDEX);
  for (size_t i = 0; i < kV1; ++i) ASSERT_EQ(buf[i], 0) << "byte " << i;
  for (size_t i = kV1; i < buf.size(); ++i) ASSERT_EQ(buf[i], kGuardByte) << "guard byte " << i << " written";
}

TEST_F(IpcInfoExport, PlainFormWithoutARecordReturnsDiscoverysAnswer) {
  EXPECT_EQ(QXNet_GetIPCInfo(0, nullptr), QXNET_E_BAD_INDEX);
  EXPECT_EQ(QXNet_GetIPCInfo(-1, nullptr), QXNET_E_BAD_INDEX);
}

TEST_F(IpcInfoExport, LocFormHandsTheCallersRecordStraightThrough) {
  __NetSDK_IPC_ENTRYV2 rec;
  std::memset(&rec, kGuardByte, sizeof(rec));
  EXPECT_EQ(QXNet_Loc_GetIPCInfo(2, &rec), QXNET_E_BAD_INDEX);
  // No copy of the export's own: what discovery leaves is what the caller has.
  const uint8_t* b = reinterpret_cast<const uint8_t*>(&rec);
  for (size_t i = 0; i < kV2; ++i) ASSERT_EQ(b[i], kGuardByte) << "byte " << i;
}

TEST_F(IpcInfoExport, PlainModifyAndRestoreReadOnlyAFirstGenerationBuffer) {
  std::vector<uint8_t> v1(kV1);
  FillPattern(v1.data(), kV1);
  auto* e = reinterpret_cast<__NetSDK_IPC_ENTRYV2*>(v1.data());
  EXPECT_EQ(QXNet_ModifyIPC(1, e), QXNET_E_BAD_INDEX);
  EXPECT_EQ(QXNet_RestoreIPC(1, e), QXNET_E_BAD_INDEX);
  for (size_t i = 0; i < kV1; ++i) ASSERT_EQ(v1[i], Pattern(i)) << "byte " << i;
}

TEST_F(IpcInfoExport, NotInitialisedTouchesNothing) {
  ASSERT_EQ(QXNet_Free(), 0);
  __NetSDK_IPC_ENTRYV2 rec;
  std::memset(&rec, kGuardByte, sizeof(rec));
  EXPECT_EQ(QXNet_GetIPCInfo(0, &rec), QXNET_E_NOT_INIT);
  EXPECT_EQ(QXNet_Loc_GetIPCInfo(0, &rec), QXNET_E_NOT_INIT);
  EXPECT_EQ(QXNet_GetIPCInfo(0, nullptr), QXNET_E_NOT_INIT);
  // The plain modify and restore read the record before the test, and still write nothing.
  EXPECT_EQ(QXNet_ModifyIPC(0, &rec), QXNET_E_NOT_INIT);
  EXPECT_EQ(QXNet_RestoreIPC(0, &rec), QXNET_E_NOT_INIT);
  const uint8_t* b = reinterpret_cast<const uint8_t*>(&rec);
  for (size_t i = 0; i < kV2; ++i) ASSERT_EQ(b[i], kGuardByte) << "byte " << i;
}

}  // namespace
