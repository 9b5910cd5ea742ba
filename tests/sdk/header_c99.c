/* The public header as a C99 translation unit (compiled with -std=c99 -Wall -Wextra
 * -Werror): the records' layout checked by the C compiler, and every export taken by
 * its declared type, so that the header's prototypes are usable from C and resolve
 * against the shared library. */
#include <stddef.h>
#include <stdint.h>

#include "QXNetSDK.h"

#include "header_c99.h"

_Static_assert(sizeof(__NetSDK_IPC_ENTRYV2) == 4784, "entry size");
_Static_assert(offsetof(__NetSDK_IPC_ENTRYV2, szUID) == 0, "UID");
_Static_assert(offsetof(__NetSDK_IPC_ENTRYV2, szHardwareType) == 32, "hardware type");
_Static_assert(offsetof(__NetSDK_IPC_ENTRYV2, szProductModel) == 160, "product model");
_Static_assert(offsetof(__NetSDK_IPC_ENTRYV2, userCfg) == 288, "user configuration");
_Static_assert(offsetof(__NetSDK_IPC_ENTRYV2, portCfg) == 2692, "ports");
_Static_assert(offsetof(__NetSDK_IPC_ENTRYV2, lanCfg) == 2700, "LAN configuration");
_Static_assert(offsetof(__NetSDK_IPC_ENTRYV2, lanCfg.szToken) == 2780, "token");
_Static_assert(offsetof(__NetSDK_IPC_ENTRYV2, lanCfg.szIP) == 3072, "IP");
_Static_assert(offsetof(__NetSDK_IPC_ENTRYV2, lanCfg.nLastResult) == 4356, "last result");
_Static_assert(offsetof(__NetSDK_IPC_ENTRYV2, dwMagic) == 4360, "magic");
_Static_assert(offsetof(__NetSDK_IPC_ENTRYV2, nVersion) == 4364, "version");
_Static_assert(offsetof(__NetSDK_IPC_ENTRYV2, szOsdStr) == 4400, "OSD");
_Static_assert(offsetof(__NetSDK_IPC_ENTRYV2, szFirmwareVersion) == 4656, "firmware");
_Static_assert(offsetof(__NetSDK_IPC_ENTRYV2, szSdkPlatform) == 4720, "SDK platform");
_Static_assert(offsetof(__NetSDK_IPC_ENTRYV2, userCfg.accounts[0].szUserName) == 292, "first user name");
_Static_assert(offsetof(__NetSDK_IPC_ENTRYV2, userCfg.accounts[0].szPassword) == 332, "first password");
_Static_assert(offsetof(__NetSDK_IPC_ENTRYV2, userCfg.accounts[0].szGroup) == 372, "first group");
_Static_assert(offsetof(__NetSDK_IPC_ENTRYV2, userCfg.accounts[0].szStatus) == 404, "first status");
_Static_assert(offsetof(__NetSDK_IPC_ENTRYV2, portCfg.nHTTPPort) == 2696, "HTTP port");
_Static_assert(QXNET_IPC_ENTRY_V1_SIZE == 4232, "first-generation record");
_Static_assert(sizeof(NetSDK_LANConfig) == 1660, "LAN configuration size");
_Static_assert(sizeof(NetSDK_UserConfig) == 2404, "user configuration size");
_Static_assert(sizeof(NetSDK_UserAccount) == 120, "account size");
_Static_assert(sizeof(NetSDK_platformAccessConfig) == 8, "ports size");
_Static_assert(sizeof(ALARM_ITEM) == 168, "alarm item size");
_Static_assert(offsetof(ALARM_ITEM, nAlarmCode) == 28, "alarm code");
_Static_assert(offsetof(ALARM_ITEM, szAlarmData) == 40, "alarm data");
_Static_assert(sizeof(FRAME_EXTDATA) == 24, "frame extra data size");
_Static_assert(offsetof(FRAME_EXTDATA, dwUser) == 4, "user field");
_Static_assert(offsetof(FRAME_EXTDATA, timestamp) == 8, "timestamp");
_Static_assert(offsetof(FRAME_EXTDATA, payload_type) == 20, "payload type");
_Static_assert(sizeof(NETSDK_STREAM_PARAM) == 1360, "stream parameters size");
_Static_assert(offsetof(NETSDK_STREAM_PARAM, video) == 36, "video block");
_Static_assert(offsetof(NETSDK_STREAM_PARAM, audio) == 572, "audio block");

#define LAYOUT(x) (size_t)(x)
static const size_t kLayout[QXNET_C_LAYOUT_COUNT] = {
    LAYOUT(sizeof(__NetSDK_IPC_ENTRYV2)),
    LAYOUT(offsetof(__NetSDK_IPC_ENTRYV2, szUID)),
    LAYOUT(offsetof(__NetSDK_IPC_ENTRYV2, szHardwareType)),
    LAYOUT(offsetof(__NetSDK_IPC_ENTRYV2, szProductModel)),
    LAYOUT(offsetof(__NetSDK_IPC_ENTRYV2, userCfg)),
    LAYOUT(offsetof(__NetSDK_IPC_ENTRYV2, portCfg)),
    LAYOUT(offsetof(__NetSDK_IPC_ENTRYV2, lanCfg)),
    LAYOUT(offsetof(__NetSDK_IPC_ENTRYV2, lanCfg.szToken)),
    LAYOUT(offsetof(__NetSDK_IPC_ENTRYV2, lanCfg.szIP)),
    LAYOUT(offsetof(__NetSDK_IPC_ENTRYV2, lanCfg.nLastResult)),
    LAYOUT(offsetof(__NetSDK_IPC_ENTRYV2, dwMagic)),
    LAYOUT(offsetof(__NetSDK_IPC_ENTRYV2, nVersion)),
    LAYOUT(offsetof(__NetSDK_IPC_ENTRYV2, szOsdStr)),
    LAYOUT(offsetof(__NetSDK_IPC_ENTRYV2, szFirmwareVersion)),
    LAYOUT(offsetof(__NetSDK_IPC_ENTRYV2, szSdkPlatform)),
    LAYOUT(sizeof(NetSDK_LANConfig)),
    LAYOUT(sizeof(NetSDK_UserConfig)),
    LAYOUT(sizeof(NetSDK_UserAccount)),
    LAYOUT(sizeof(NetSDK_platformAccessConfig)),
    LAYOUT(sizeof(ALARM_ITEM)),
    LAYOUT(sizeof(FRAME_EXTDATA)),
    LAYOUT(sizeof(NETSDK_STREAM_PARAM)),
    LAYOUT(sizeof(IP_NET_DVR_DEVICEINFO)),
    LAYOUT(offsetof(ALARM_ITEM, nAlarmCode)),
    LAYOUT(offsetof(FRAME_EXTDATA, dwUser)),
    LAYOUT(offsetof(FRAME_EXTDATA, dwUserHigh)),
    LAYOUT(offsetof(NETSDK_STREAM_PARAM, audio.nSampleRate)),
    LAYOUT(offsetof(NETSDK_STREAM_PARAM, audio.nChannels)),
    LAYOUT(offsetof(NETSDK_STREAM_PARAM, video.byWriterArg)),
};

size_t qxnet_c_layout(size_t index) { return index < QXNET_C_LAYOUT_COUNT ? kLayout[index] : 0; }

/* Every export by its declared type. A prototype that C cannot take, or a name that the
 * shared library does not export, fails the build of this test. */
static const struct {
  long (*init)(void);
  long (*initEx)(int);
  long (*freeLib)(void);
  const char* (*getSdkVersion)(void);
  void (*setSdkLogCallBack)(fSDKLogCallBack);
  long (*setfcLogCallBackEx)(fLogCallBack, int);
  long (*setAutoReconnect)(int);
  long (*setSearchDevStatusCallBack)(fSearchDevStatusCallBack, void*);
  long (*locSetSearchStatusCallBack)(fSearchDevStatusCallBack, void*);
  long (*startSearchDev)(void);
  long (*locStartSearchIPC)(void);
  long (*stopSearchDev)(void);
  long (*locStopSearchIPC)(void);
  long (*getSearchIPCCount)(void);
  long (*locGetSearchIPCCount)(void);
  long (*getOneIPAddress)(char*, int);
  long (*locGetOneIPAddress)(char*, int);
  long (*getIPCInfo)(long, __NetSDK_IPC_ENTRYV2*);
  long (*locGetIPCInfo)(long, __NetSDK_IPC_ENTRYV2*);
  long (*modifyIPC)(long, __NetSDK_IPC_ENTRYV2*);
  long (*locModifyIPC)(long, __NetSDK_IPC_ENTRYV2*);
  long (*restoreIPC)(long, __NetSDK_IPC_ENTRYV2*);
  long (*locRestoreIPC)(long, __NetSDK_IPC_ENTRYV2*);
  long (*locGetIPCInfoXML)(long, char*, int);
  long (*locModifyIPCXML)(long, const char*);
  long (*locGetNetworkParam)(long, char*, int);
  long (*loginDev)(char*, unsigned long, char*, char*, int);
  long (*locLoginDev)(char*, unsigned long, char*, char*, IP_NET_DVR_DEVICEINFO*);
  long (*logOutDev)(long);
  long (*locLogoutDev)(long);
  long (*setStatusEventCallBack)(fStatusEventCallBack, void*);
  long (*locSetStatusEventCallBack)(fStatusEventCallBack, void*);
  long (*setAuxResponseCallBack)(fAuxResponseCallBack, void*);
  long (*getDevConfig)(long, unsigned long);
  long (*locGetDVRConfig)(long, unsigned long, long, void*, unsigned long, unsigned long*);
  long (*setDevConfig)(long, unsigned long, void*);
  long (*locSetDVRConfig)(long, unsigned long, long, void*, unsigned long);
  long (*systemControl)(long, unsigned long, char*);
  long (*locSystemControl)(long, unsigned long, unsigned long, char*);
  long (*locWriteAUXStringEx)(long, char*, unsigned long, unsigned long, char*);
  long (*locGetUserData)(long, char*, int*);
  long (*locSetUserData)(long, char*, int);
  long (*locRestoreConfig)(long);
  long (*locRebootDVR)(long);
  long (*locUpgrade)(long, const char*);
  long (*locUpgradeEx)(long, const wchar_t*);
  long (*locGetUpgradeProgress)(long);
  long (*locGetUpgradeState)(long);
  long (*locCloseUpgradeHandle)(long);
  long (*locGetConfigFile)(long, const char*);
  long (*locSetConfigFile)(long, const char*);
  long (*searchNVRRecByTime)(long, long, char*);
  long (*locSearchNVRRecByTime)(long, long, char*);
  long (*nvrRecordDownload)(long, long, char*, char*, char*);
  long (*locNVRRecordDownload)(long, long, char*, char*, char*);
  long (*locNVRRecordDownloadStop)(long, long);
  long (*locNVRReplayByTime)(long, long, char*);
  long (*locControlNVRReplay)(long, long, long, long, char*);
  long (*locSetReplayDataCallBack)(fReplayDataCallBack, void*);
} kExports = {
    QXNet_init, QXNet_initEx, QXNet_Free, QXNet_GetSdkVersion, QXNet_SetSDKLogCallBack,
    QXNet_SetfcLogCallBackEx, QXNet_SetAutoReconnect, QXNet_SetSearchDevStatusCallBack,
    QXNet_Loc_SetSearchStatusCallBack, QXNet_StartSearchDev, QXNet_Loc_StartSearchIPC,
    QXNet_StopSearchDev, QXNet_Loc_StopSearchIPC, QXNet_GetSearchIPCCount,
    QXNet_Loc_GetSearchIPCCount, QXNet_GetOneIPAddress, QXNet_Loc_GetOneIPAddress,
    QXNet_GetIPCInfo, QXNet_Loc_GetIPCInfo, QXNet_ModifyIPC, QXNet_Loc_ModifyIPC,
    QXNet_RestoreIPC, QXNet_Loc_RestoreIPC, QXNet_Loc_GetIPCInfoXML, QXNet_Loc_ModifyIPCXML,
    QXNet_Loc_GetNetworkParam, QXNet_LoginDev, QXNet_Loc_LoginDev, QXNet_LogOutDev,
    QXNet_Loc_LogoutDev, QXNet_SetStatusEventCallBack, QXNet_Loc_SetStatusEventCallBack,
    QXNet_SetAuxResponseCallBack, QXNet_GetDevConfig, QXNet_Loc_GetDVRConfig,
    QXNet_SetDevConfig, QXNet_Loc_SetDVRConfig, QXNet_SystemControl, QXNet_Loc_SystemControl,
    QXNet_Loc_WriteAUXStringEx, QXNet_Loc_GetUserData, QXNet_Loc_SetUserData,
    QXNet_Loc_RestoreConfig, QXNet_Loc_RebootDVR, QXNet_Loc_Upgrade, QXNet_Loc_UpgradeEx,
    QXNet_Loc_GetUpgradeProgress, QXNet_Loc_GetUpgradeState, QXNet_Loc_CloseUpgradeHandle,
    QXNet_Loc_GetConfigFile, QXNet_Loc_SetConfigFile, QXNet_SearchNVRRecByTime,
    QXNet_Loc_SearchNVRRecByTime, QXNet_NVRRecordDownload, QXNet_Loc_NVRRecordDownload,
    QXNet_Loc_NVRRecordDownloadStop, QXNet_Loc_NVRReplayByTime, QXNet_Loc_ControlNVRReplay,
    QXNet_Loc_SetReplayDataCallBack,
};

int qxnet_c_export_count(void) { return (int)(sizeof(kExports) / sizeof(kExports.init)); }

const char* qxnet_c_version(void) { return kExports.getSdkVersion(); }

long qxnet_c_start_search(void) { return kExports.startSearchDev(); }

long qxnet_c_init_login_logout(void) {
  long rc = kExports.init();
  long id;
  if (rc != 0) return -1;
  id = kExports.loginDev("127.0.0.1", 8000, "admin", "", 1);
  if (id == 0) return -2;
  if (kExports.logOutDev(id) != 0) return -3;
  if (kExports.locLogoutDev(id) != QXNET_E_NO_DEVICE) return -4;
  return kExports.freeLib();
}

void* qxnet_c_frame_user(const FRAME_EXTDATA* ext) { return QXNet_FrameUser(ext); }
