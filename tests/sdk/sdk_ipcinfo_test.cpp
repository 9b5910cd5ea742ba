// The record copies of QXNet_GetIPCInfo (first generation, 4232 bytes) and
// QXNet_Loc_GetIPCInfo (the whole record), seen with a record that the core fills.
// Discovery has no device table in this build, so its GetIPCInfo is wrapped at link
// time (-Wl,--wrap) with one that fills the record with a known pattern.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

#include "QXNetSDK.h"
#include "sdk/NetSDKFunc.h"
#include "sdk/QXNetSDKInternal.h"
#include "search/SearchIPC.h"

namespace {

bool g_fill = false;
int g_fillResult = 0;
long g_lastIndex = 0;
__NetSDK_IPC_ENTRYV2* g_lastRecord = nullptr;

uint8_t Pattern(size_t i) { return static_cast<uint8_t>(0x40 + i % 61); }

}  // namespace

extern "C" {
int __real__ZN10CSearchIPC10GetIPCInfoElP20__NetSDK_IPC_ENTRYV2(CSearchIPC* self, long index,
                                                                __NetSDK_IPC_ENTRYV2* out);

// Stands in for CSearchIPC::GetIPCInfo(long, __NetSDK_IPC_ENTRYV2*) when g_fill is set.
int __wrap__ZN10CSearchIPC10GetIPCInfoElP20__NetSDK_IPC_ENTRYV2(CSearchIPC* self, long index,
                                                                __NetSDK_IPC_ENTRYV2* out) {
  if (!g_fill) return __real__ZN10CSearchIPC10GetIPCInfoElP20__NetSDK_IPC_ENTRYV2(self, index, out);
  g_lastIndex = index;
  g_lastRecord = out;
  if (!out) return QXNET_E_BAD_INDEX;
  // Writes every byte of a whole record: a smaller buffer would be caught by ASan.
  uint8_t* p = reinterpret_cast<uint8_t*>(out);
  for (size_t i = 0; i < sizeof(*out); ++i) p[i] = Pattern(i);
  return g_fillResult;
}
}

namespace {

class IpcInfo : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(QXNet_init(), 0);
    g_fill = true;
    g_fillResult = 0;
    g_lastRecord = nullptr;
    std::memset(&rec_, 0xC3, sizeof(rec_));
  }
  void TearDown() override {
    g_fill = false;
    QXNet_Free();
  }
  const uint8_t* bytes() const { return reinterpret_cast<const uint8_t*>(&rec_); }
  __NetSDK_IPC_ENTRYV2 rec_;
};

TEST_F(IpcInfo, TheWrapReachesTheCore) {
  // Without the wrap the build's discovery answers as it does everywhere else.
  g_fill = false;
  EXPECT_EQ(QXNet_Loc_GetIPCInfo(0, &rec_), QXNET_E_NOT_AVAILABLE);
  g_fill = true;
  EXPECT_EQ(QXNet_Loc_GetIPCInfo(9, &rec_), 0);
  EXPECT_EQ(g_lastIndex, 9);
  EXPECT_EQ(g_lastRecord, &rec_);
}

TEST_F(IpcInfo, PlainFormCopiesExactlyTheFirst4232Bytes) {
  g_fillResult = 0;
  EXPECT_EQ(QXNet_GetIPCInfo(4, &rec_), 0);
  EXPECT_EQ(g_lastIndex, 4);
  // The core filled a record of its own, not the caller's.
  EXPECT_NE(g_lastRecord, &rec_);
  EXPECT_NE(g_lastRecord, nullptr);
  for (size_t i = 0; i < QXNET_IPC_ENTRY_V1_SIZE; ++i) ASSERT_EQ(bytes()[i], Pattern(i)) << "byte " << i;
  for (size_t i = QXNET_IPC_ENTRY_V1_SIZE; i < sizeof(rec_); ++i) ASSERT_EQ(bytes()[i], 0xC3) << "byte " << i;
}

TEST_F(IpcInfo, PlainFormReturnsTheCoresResult) {
  g_fillResult = QXNET_E_BAD_INDEX;
  EXPECT_EQ(QXNet_GetIPCInfo(-1, &rec_), QXNET_E_BAD_INDEX);
  g_fillResult = 17;
  EXPECT_EQ(QXNet_GetIPCInfo(0, &rec_), 17);
  for (size_t i = QXNET_IPC_ENTRY_V1_SIZE; i < sizeof(rec_); ++i) ASSERT_EQ(bytes()[i], 0xC3) << "byte " << i;
}

TEST_F(IpcInfo, PlainFormFitsAFirstGenerationBuffer) {
  // An application of the first generation has only 4232 bytes.
  uint8_t* v1 = new uint8_t[QXNET_IPC_ENTRY_V1_SIZE];
  std::memset(v1, 0xC3, QXNET_IPC_ENTRY_V1_SIZE);
  EXPECT_EQ(QXNet_GetIPCInfo(0, reinterpret_cast<__NetSDK_IPC_ENTRYV2*>(v1)), 0);
  for (size_t i = 0; i < QXNET_IPC_ENTRY_V1_SIZE; ++i) ASSERT_EQ(v1[i], Pattern(i)) << "byte " << i;
  delete[] v1;
}

TEST_F(IpcInfo, LocFormHandsTheWholeRecordThrough) {
  EXPECT_EQ(QXNet_Loc_GetIPCInfo(2, &rec_), 0);
  EXPECT_EQ(g_lastRecord, &rec_);
  for (size_t i = 0; i < sizeof(rec_); ++i) ASSERT_EQ(bytes()[i], Pattern(i)) << "byte " << i;
}

TEST_F(IpcInfo, NotInitialisedTouchesNothing) {
  ASSERT_EQ(QXNet_Free(), 0);
  g_lastRecord = nullptr;
  EXPECT_EQ(QXNet_GetIPCInfo(0, &rec_), QXNET_E_NOT_INIT);
  EXPECT_EQ(QXNet_Loc_GetIPCInfo(0, &rec_), QXNET_E_NOT_INIT);
  EXPECT_EQ(g_lastRecord, nullptr);
  for (size_t i = 0; i < sizeof(rec_); ++i) ASSERT_EQ(bytes()[i], 0xC3) << "byte " << i;
}

}  // namespace
