// The 59 exported names of the library, by family, and the five functions that carry
// C++ names and must stay out of the export table. Shared by the symbol test and the
// bad-input walk so that both cover the same list.
#ifndef QXNET_TESTS_SDK_EXPORT_NAMES_H
#define QXNET_TESTS_SDK_EXPORT_NAMES_H

#include <cstddef>

namespace sdktest {

inline constexpr const char* kLifecycleExports[] = {
    "QXNet_init",
    "QXNet_initEx",
    "QXNet_Free",
    "QXNet_GetSdkVersion",
    "QXNet_SetSDKLogCallBack",
    "QXNet_SetfcLogCallBackEx",
    "QXNet_SetAutoReconnect",
};

inline constexpr const char* kForwardingExports[] = {
    // discovery
    "QXNet_SetSearchDevStatusCallBack",
    "QXNet_Loc_SetSearchStatusCallBack",
    "QXNet_StartSearchDev",
    "QXNet_Loc_StartSearchIPC",
    "QXNet_StopSearchDev",
    "QXNet_Loc_StopSearchIPC",
    "QXNet_GetSearchIPCCount",
    "QXNet_Loc_GetSearchIPCCount",
    "QXNet_GetOneIPAddress",
    "QXNet_Loc_GetOneIPAddress",
    "QXNet_GetIPCInfo",
    "QXNet_Loc_GetIPCInfo",
    "QXNet_ModifyIPC",
    "QXNet_Loc_ModifyIPC",
    "QXNet_RestoreIPC",
    "QXNet_Loc_RestoreIPC",
    "QXNet_Loc_GetIPCInfoXML",
    "QXNet_Loc_ModifyIPCXML",
    "QXNet_Loc_GetNetworkParam",
    // sessions and callbacks (the plain logout is spelled with a capital O)
    "QXNet_LoginDev",
    "QXNet_Loc_LoginDev",
    "QXNet_LogOutDev",
    "QXNet_Loc_LogoutDev",
    "QXNet_SetStatusEventCallBack",
    "QXNet_Loc_SetStatusEventCallBack",
    "QXNet_SetAuxResponseCallBack",
    // configuration and control
    "QXNet_GetDevConfig",
    "QXNet_Loc_GetDVRConfig",
    "QXNet_SetDevConfig",
    "QXNet_Loc_SetDVRConfig",
    "QXNet_SystemControl",
    "QXNet_Loc_SystemControl",
    "QXNet_Loc_WriteAUXStringEx",
    "QXNet_Loc_GetUserData",
    "QXNet_Loc_SetUserData",
    "QXNet_Loc_RestoreConfig",
    "QXNet_Loc_RebootDVR",
    // upgrade and files
    "QXNet_Loc_Upgrade",
    "QXNet_Loc_UpgradeEx",
    "QXNet_Loc_GetUpgradeProgress",
    "QXNet_Loc_GetUpgradeState",
    "QXNet_Loc_CloseUpgradeHandle",
    "QXNet_Loc_GetConfigFile",
    "QXNet_Loc_SetConfigFile",
    // recorder
    "QXNet_SearchNVRRecByTime",
    "QXNet_Loc_SearchNVRRecByTime",
    "QXNet_NVRRecordDownload",
    "QXNet_Loc_NVRRecordDownload",
    "QXNet_Loc_NVRRecordDownloadStop",
    "QXNet_Loc_NVRReplayByTime",
    "QXNet_Loc_ControlNVRReplay",
    "QXNet_Loc_SetReplayDataCallBack",
};

inline constexpr std::size_t kLifecycleCount = sizeof(kLifecycleExports) / sizeof(kLifecycleExports[0]);
inline constexpr std::size_t kForwardingCount = sizeof(kForwardingExports) / sizeof(kForwardingExports[0]);
static_assert(kLifecycleCount + kForwardingCount == 59, "the library exports 59 functions");

// Present in the library under C++ names only; an application cannot reach them.
inline constexpr const char* kHiddenFunctions[] = {
    "QXNet_NVRRecordDownloadStop",
    "QXNet_NVRReplayByTime",
    "QXNet_ControlNVRReplay",
    "QXNet_SetReplayDataCallBack",
    "QXNet_SetPlayActionEventCallBack",
};

// Their Itanium C++ ABI names for the declared parameter types.
inline constexpr const char* kHiddenMangled[] = {
    "_Z27QXNet_NVRRecordDownloadStopll",
    "_Z21QXNet_NVRReplayByTimellPc",
    "_Z22QXNet_ControlNVRReplayllllPc",
    "_Z27QXNet_SetReplayDataCallBackPFllmPhmP13FRAME_EXTDATAEPv",
    "_Z32QXNet_SetPlayActionEventCallBackPFllllPcPvES0_",
};

}  // namespace sdktest

#endif
