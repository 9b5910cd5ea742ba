// The public header's records: sizes and offsets as C++ sees them, the same as the C
// translation unit sees them, and the C prototypes working against the shared library.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "QXNetSDK.h"
#include "header_c99.h"

namespace {

TEST(SdkHeader, IpcEntryLayout) {
  EXPECT_EQ(sizeof(__NetSDK_IPC_ENTRYV2), 4784u);
  EXPECT_EQ(offsetof(__NetSDK_IPC_ENTRYV2, szUID), 0u);
  EXPECT_EQ(offsetof(__NetSDK_IPC_ENTRYV2, szHardwareType), 32u);
  EXPECT_EQ(offsetof(__NetSDK_IPC_ENTRYV2, szProductModel), 160u);
  EXPECT_EQ(offsetof(__NetSDK_IPC_ENTRYV2, userCfg), 288u);
  EXPECT_EQ(offsetof(__NetSDK_IPC_ENTRYV2, portCfg), 2692u);
  EXPECT_EQ(offsetof(__NetSDK_IPC_ENTRYV2, lanCfg), 2700u);
  EXPECT_EQ(offsetof(__NetSDK_IPC_ENTRYV2, lanCfg.szToken), 2780u);
  EXPECT_EQ(offsetof(__NetSDK_IPC_ENTRYV2, lanCfg.szIP), 3072u);
  EXPECT_EQ(offsetof(__NetSDK_IPC_ENTRYV2, lanCfg.nLastResult), 4356u);
  EXPECT_EQ(offsetof(__NetSDK_IPC_ENTRYV2, dwMagic), 4360u);
  EXPECT_EQ(offsetof(__NetSDK_IPC_ENTRYV2, nVersion), 4364u);
  EXPECT_EQ(offsetof(__NetSDK_IPC_ENTRYV2, szOsdStr), 4400u);
  EXPECT_EQ(offsetof(__NetSDK_IPC_ENTRYV2, szFirmwareVersion), 4656u);
  EXPECT_EQ(offsetof(__NetSDK_IPC_ENTRYV2, szSdkPlatform), 4720u);
  EXPECT_EQ(sizeof(__NetSDK_IPC_ENTRYV2::szUID), 32u);
  EXPECT_EQ(sizeof(__NetSDK_IPC_ENTRYV2::szOsdStr), 256u);
  EXPECT_EQ(sizeof(__NetSDK_IPC_ENTRYV2::szSdkPlatform), 64u);
  // The first account's fields and the two ports.
  EXPECT_EQ(offsetof(__NetSDK_IPC_ENTRYV2, userCfg.accounts), 292u);
  EXPECT_EQ(offsetof(__NetSDK_IPC_ENTRYV2, userCfg.accounts[0].szPassword), 332u);
  EXPECT_EQ(offsetof(__NetSDK_IPC_ENTRYV2, userCfg.accounts[0].szGroup), 372u);
  EXPECT_EQ(offsetof(__NetSDK_IPC_ENTRYV2, userCfg.accounts[0].szStatus), 404u);
  EXPECT_EQ(offsetof(__NetSDK_IPC_ENTRYV2, portCfg.nRTSPPort), 2692u);
  EXPECT_EQ(offsetof(__NetSDK_IPC_ENTRYV2, portCfg.nHTTPPort), 2696u);
  EXPECT_EQ(QXNET_IPC_ENTRY_V1_SIZE, 4232);
  EXPECT_TRUE(std::is_standard_layout<__NetSDK_IPC_ENTRYV2>::value);
  EXPECT_TRUE(std::is_trivially_copyable<__NetSDK_IPC_ENTRYV2>::value);
}

TEST(SdkHeader, EmbeddedRecordLayouts) {
  EXPECT_EQ(sizeof(NetSDK_LANConfig), 1660u);
  EXPECT_EQ(offsetof(NetSDK_LANConfig, szToken), 80u);
  EXPECT_EQ(offsetof(NetSDK_LANConfig, szMAC), 112u);
  EXPECT_EQ(offsetof(NetSDK_LANConfig, nDHCPMode), 368u);
  EXPECT_EQ(offsetof(NetSDK_LANConfig, szIP), 372u);
  EXPECT_EQ(offsetof(NetSDK_LANConfig, szStandbyDNS), 1396u);
  EXPECT_EQ(offsetof(NetSDK_LANConfig, nReserved), 1652u);
  EXPECT_EQ(offsetof(NetSDK_LANConfig, nLastResult), 1656u);
  EXPECT_EQ(sizeof(NetSDK_UserConfig), 2404u);
  EXPECT_EQ(offsetof(NetSDK_UserConfig, accounts), 4u);
  EXPECT_EQ(sizeof(NetSDK_UserConfig::accounts) / sizeof(NetSDK_UserAccount), 20u);
  EXPECT_EQ(sizeof(NetSDK_UserAccount), 120u);
  EXPECT_EQ(offsetof(NetSDK_UserAccount, szPassword), 40u);
  EXPECT_EQ(offsetof(NetSDK_UserAccount, szGroup), 80u);
  EXPECT_EQ(offsetof(NetSDK_UserAccount, szStatus), 112u);
  EXPECT_EQ(sizeof(NetSDK_platformAccessConfig), 8u);
}

TEST(SdkHeader, AlarmFrameAndStreamLayouts) {
  EXPECT_EQ(sizeof(ALARM_ITEM), 168u);
  EXPECT_EQ(offsetof(ALARM_ITEM, nSecond), 24u);
  EXPECT_EQ(offsetof(ALARM_ITEM, nAlarmCode), 28u);
  EXPECT_EQ(offsetof(ALARM_ITEM, nAlarmFlag), 32u);
  EXPECT_EQ(offsetof(ALARM_ITEM, nAlarmLevel), 36u);
  EXPECT_EQ(offsetof(ALARM_ITEM, szAlarmData), 40u);
  EXPECT_EQ(sizeof(ALARM_ITEM::szAlarmData), 128u);

  EXPECT_EQ(sizeof(FRAME_EXTDATA), 24u);
  EXPECT_EQ(offsetof(FRAME_EXTDATA, frame_type), 0u);
  EXPECT_EQ(offsetof(FRAME_EXTDATA, dwUser), 4u);
  EXPECT_EQ(offsetof(FRAME_EXTDATA, timestamp), 8u);
  EXPECT_EQ(offsetof(FRAME_EXTDATA, dwUserHigh), 16u);
  EXPECT_EQ(offsetof(FRAME_EXTDATA, payload_type), 20u);

  EXPECT_EQ(sizeof(NETSDK_STREAM_PARAM), 1360u);
  EXPECT_EQ(offsetof(NETSDK_STREAM_PARAM, wHasVideo), 32u);
  EXPECT_EQ(offsetof(NETSDK_STREAM_PARAM, wHasAudio), 34u);
  EXPECT_EQ(offsetof(NETSDK_STREAM_PARAM, video), 36u);
  EXPECT_EQ(offsetof(NETSDK_STREAM_PARAM, video.paramSet2), 36u + 276u);
  EXPECT_EQ(offsetof(NETSDK_STREAM_PARAM, video.byWriterArg), 36u + 532u);
  EXPECT_EQ(offsetof(NETSDK_STREAM_PARAM, audio), 572u);
  EXPECT_EQ(offsetof(NETSDK_STREAM_PARAM, audio.nSampleRate), 572u + 256u);
  EXPECT_EQ(offsetof(NETSDK_STREAM_PARAM, audio.nBitsPerSample), 572u + 260u);
  EXPECT_EQ(offsetof(NETSDK_STREAM_PARAM, audio.nCodec), 572u + 264u);
  EXPECT_EQ(offsetof(NETSDK_STREAM_PARAM, audio.nChannels), 572u + 272u);
  EXPECT_EQ(offsetof(NETSDK_STREAM_PARAM, reserved2), 848u);
}

TEST(SdkHeader, CSeesTheSameLayout) {
  const size_t cpp[QXNET_C_LAYOUT_COUNT] = {
      sizeof(__NetSDK_IPC_ENTRYV2),
      offsetof(__NetSDK_IPC_ENTRYV2, szUID),
      offsetof(__NetSDK_IPC_ENTRYV2, szHardwareType),
      offsetof(__NetSDK_IPC_ENTRYV2, szProductModel),
      offsetof(__NetSDK_IPC_ENTRYV2, userCfg),
      offsetof(__NetSDK_IPC_ENTRYV2, portCfg),
      offsetof(__NetSDK_IPC_ENTRYV2, lanCfg),
      offsetof(__NetSDK_IPC_ENTRYV2, lanCfg.szToken),
      offsetof(__NetSDK_IPC_ENTRYV2, lanCfg.szIP),
      offsetof(__NetSDK_IPC_ENTRYV2, lanCfg.nLastResult),
      offsetof(__NetSDK_IPC_ENTRYV2, dwMagic),
      offsetof(__NetSDK_IPC_ENTRYV2, nVersion),
      offsetof(__NetSDK_IPC_ENTRYV2, szOsdStr),
      offsetof(__NetSDK_IPC_ENTRYV2, szFirmwareVersion),
      offsetof(__NetSDK_IPC_ENTRYV2, szSdkPlatform),
      sizeof(NetSDK_LANConfig),
      sizeof(NetSDK_UserConfig),
      sizeof(NetSDK_UserAccount),
      sizeof(NetSDK_platformAccessConfig),
      sizeof(ALARM_ITEM),
      sizeof(FRAME_EXTDATA),
      sizeof(NETSDK_STREAM_PARAM),
      sizeof(IP_NET_DVR_DEVICEINFO),
      offsetof(ALARM_ITEM, nAlarmCode),
      offsetof(FRAME_EXTDATA, dwUser),
      offsetof(FRAME_EXTDATA, dwUserHigh),
      offsetof(NETSDK_STREAM_PARAM, audio.nSampleRate),
      offsetof(NETSDK_STREAM_PARAM, audio.nChannels),
      offsetof(NETSDK_STREAM_PARAM, video.byWriterArg),
  };
  const size_t listed[15] = {4784, 0, 32, 160, 288, 2692, 2700, 2780, 3072, 4356, 4360, 4364, 4400, 4656, 4720};
  for (size_t i = 0; i < 15; ++i) EXPECT_EQ(cpp[i], listed[i]) << "entry " << i;
  for (size_t i = 0; i < QXNET_C_LAYOUT_COUNT; ++i) EXPECT_EQ(qxnet_c_layout(i), cpp[i]) << "entry " << i;
  EXPECT_EQ(qxnet_c_layout(QXNET_C_LAYOUT_COUNT), 0u);
}

TEST(SdkHeader, CDeclarationsReachTheSharedLibrary) {
  EXPECT_EQ(qxnet_c_export_count(), 59);
  EXPECT_STREQ(qxnet_c_version(), "SDK_PC_V2.8.5_20171109_001");
  EXPECT_EQ(qxnet_c_start_search(), QXNET_E_NOT_INIT);
  EXPECT_EQ(qxnet_c_init_login_logout(), 0);
  EXPECT_EQ(qxnet_c_start_search(), QXNET_E_NOT_INIT);
}

TEST(SdkHeader, FrameUserJoinsBothHalves) {
  FRAME_EXTDATA ext;
  std::memset(&ext, 0, sizeof(ext));
  ext.dwUser = 0x89ABCDEFu;
  ext.dwUserHigh = 0x00007F01u;
  void* expect = reinterpret_cast<void*>(uintptr_t{0x00007F0189ABCDEF});
  EXPECT_EQ(QXNet_FrameUser(&ext), expect);
  EXPECT_EQ(qxnet_c_frame_user(&ext), expect);
}

TEST(SdkHeader, ResultAndEventCodes) {
  EXPECT_EQ(QXNET_E_NOT_INIT, -201);
  EXPECT_EQ(QXNET_E_NO_DEVICE, -103);
  EXPECT_EQ(QXNET_E_BAD_INDEX, -96);
  EXPECT_EQ(QXNET_E_BUFFER_SMALL, -100);
  EXPECT_EQ(QXNET_E_FILE, -93);
  EXPECT_EQ(QXNET_E_BUSY, -92);
  EXPECT_EQ(QXNET_E_SOCKET, -1234567);
  EXPECT_EQ(QXNET_E_MISSING_ARG, -8999996);
  EXPECT_EQ(QXNET_E_NOT_AVAILABLE, -9001);
  const int events[] = {QXNET_EV_CONNECT_FAILED, QXNET_EV_SOCKET_ERROR, QXNET_EV_BAD_CREDENTIALS,
                        QXNET_EV_AUTH_FAILED, QXNET_EV_CONNECTED, QXNET_EV_AUTHENTICATED,
                        QXNET_EV_UPGRADE_FINISHED, QXNET_EV_UPGRADE_FAILED, QXNET_EV_ALARM,
                        QXNET_EV_MAX_CHANNELS, QXNET_EV_IPC_STATUS, QXNET_EV_DOWNLOAD_ACCEPTED,
                        QXNET_EV_DOWNLOAD_REFUSED, QXNET_EV_DOWNLOAD_STOPPED, QXNET_EV_DOWNLOAD_PROGRESS,
                        QXNET_EV_UPGRADE_PROGRESS, QXNET_EV_MESSAGE, QXNET_EV_CFGFILE_GET_PROGRESS,
                        QXNET_EV_CFGFILE_SET_FAILED, QXNET_EV_CFGFILE_SET_PROGRESS,
                        QXNET_EV_CFGFILE_SET_FINISHED};
  const int listed[] = {0, 1, 2, 3, 5, 6, 15, 16, 24, 50, 51, 52, 53, 54, 55, 58, 79, 80, 81, 82, 83};
  ASSERT_EQ(sizeof(events), sizeof(listed));
  for (size_t i = 0; i < sizeof(events) / sizeof(events[0]); ++i) EXPECT_EQ(events[i], listed[i]);
}

}  // namespace
