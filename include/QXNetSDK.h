/**
 * @file
 * QXNetSDK: client library for IP cameras, network and digital video recorders.
 *
 * Usage in brief
 *   1. QXNet_init() once (QXNet_initEx() to choose a net type).
 *   2. Register callbacks: QXNet_SetfcLogCallBackEx (log lines),
 *      QXNet_SetStatusEventCallBack (connection state, alarms, transfer progress),
 *      QXNet_SetAuxResponseCallBack (answers to configuration and control requests),
 *      QXNet_Loc_SetReplayDataCallBack (replayed media), QXNet_SetSearchDevStatusCallBack
 *      (discovery).
 *   3. QXNet_Loc_LoginDev() returns a login identifier; every device request names it.
 *      Requests are fire-and-forget: 0 means "queued"; the device's verdict arrives later
 *      through the auxiliary response callback (a negative flag means failure).
 *   4. QXNet_LogOutDev() for each device, then QXNet_Free().
 *
 * Threads: callbacks run on the library's worker threads (one per device session), not on
 * the caller's. Data pointers handed to a callback are valid only during the call: copy
 * what you keep. A callback must not register or remove a callback of the same kind from
 * inside the call (the registry lock is held while callbacks run).
 *
 * Result codes: 0 (or a count) is success, negative is failure; see QXNET_E_* below.
 * Every export except the lifecycle and settings group returns QXNET_E_NOT_INIT (-201)
 * before QXNet_init and after QXNet_Free.
 *
 * The header is valid C99 and C++. Records that cross the interface have fixed-width
 * members; their sizes and offsets are pinned by static assertions below.
 */
#ifndef QXNETSDK_H
#define QXNETSDK_H

#include <stddef.h>
#include <stdint.h>
#include <wchar.h>

#if defined(QXNET_BUILDING_SDK)
#define QXNET_API __attribute__((visibility("default")))
#else
#define QXNET_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---------------------------------------------------------------------------------------
 * Result codes shared by several functions.
 * ------------------------------------------------------------------------------------- */
#define QXNET_OK                    0
#define QXNET_E_NOT_INIT         (-201)     /* library not initialised (before init, after free) */
#define QXNET_E_NO_DEVICE        (-103)     /* no session under this login identifier */
#define QXNET_E_BAD_INDEX        (-96)      /* bad index, null output or empty slot */
#define QXNET_E_BAD_XML          (-95)      /* unreadable XML text */
#define QXNET_E_BUFFER_SMALL     (-100)     /* output buffer too small */
#define QXNET_E_SPAWN            (-97)      /* a worker thread could not be started */
#define QXNET_E_FILE             (-93)      /* file missing or cannot be opened */
#define QXNET_E_BUSY             (-92)      /* a file transfer already runs on this session */
#define QXNET_E_SOCKET           (-1234567) /* the session's socket is broken */
#define QXNET_E_MISSING_ARG      (-8999996) /* a required argument is missing */
#define QXNET_E_BAD_ARG          (-8999995) /* an argument is out of range (this library's own code) */
/** Returned by operations whose device side is not available in this build yet (the
 * README lists them). Never returned by a function that has done its work. */
#define QXNET_E_NOT_AVAILABLE    (-9001)

/* ---------------------------------------------------------------------------------------
 * Status event codes (second argument of the status event callback).
 * ------------------------------------------------------------------------------------- */
#define QXNET_EV_CONNECT_FAILED        0   /* data: "device[%s] connect socket failed! \n" */
#define QXNET_EV_SOCKET_ERROR          1   /* socket error or closed by either side */
#define QXNET_EV_BAD_CREDENTIALS       2   /* bad user name or password */
#define QXNET_EV_AUTH_FAILED           3   /* authentication refused, or no answer 5 times */
#define QXNET_EV_CONNECTED             5   /* TCP connection established */
#define QXNET_EV_AUTHENTICATED         6   /* login accepted by the device */
#define QXNET_EV_UPGRADE_FINISHED     15   /* firmware upload finished */
#define QXNET_EV_UPGRADE_FAILED       16   /* firmware upload failed */
#define QXNET_EV_ALARM                24   /* data: ALARM_ITEM* */
#define QXNET_EV_MAX_CHANNELS         50   /* data: the device's maximum channel count, as text */
#define QXNET_EV_IPC_STATUS           51   /* data: the recorder's camera status text */
#define QXNET_EV_DOWNLOAD_ACCEPTED    52   /* recorder download request accepted */
#define QXNET_EV_DOWNLOAD_REFUSED     53   /* recorder download request refused */
#define QXNET_EV_DOWNLOAD_STOPPED     54   /* recorder download stopped */
#define QXNET_EV_DOWNLOAD_PROGRESS    55   /* recorder download progress */
#define QXNET_EV_UPGRADE_PROGRESS     58   /* firmware upload progress */
#define QXNET_EV_MESSAGE              79   /* data: body of another type "30000" message */
#define QXNET_EV_CFGFILE_GET_PROGRESS 80   /* configuration-file download progress */
#define QXNET_EV_CFGFILE_SET_FAILED   81   /* configuration-file upload failed, or any failed chunk */
#define QXNET_EV_CFGFILE_SET_PROGRESS 82   /* configuration-file upload progress */
#define QXNET_EV_CFGFILE_SET_FINISHED 83   /* configuration-file upload finished */

/* Search status callback codes. */
#define QXNET_SEARCH_NEW_DEVICE      1
#define QXNET_SEARCH_DEVICE_CHANGED  2
#define QXNET_SEARCH_MODIFY_ANSWER   3
#define QXNET_SEARCH_RESTORE_ANSWER  4

/* Replay data callback: data types other than a frame's stream type. */
#define QXNET_REPLAY_PARAM_AV        2     /* NETSDK_STREAM_PARAM with video and audio */
#define QXNET_REPLAY_PARAM_VIDEO     3     /* NETSDK_STREAM_PARAM with video only */
#define QXNET_REPLAY_PARAM_AUDIO     4     /* NETSDK_STREAM_PARAM with audio only */

/* Play action event codes: the replay mode (0 replay, 1 download) after a stream-parameter
 * answer, preceded by this one when the parameters were handed to the replay callback. */
#define QXNET_PLAY_EVENT_PARAMS      12

/* ---------------------------------------------------------------------------------------
 * Records.
 * ------------------------------------------------------------------------------------- */

/* One account of a device found by discovery (120 bytes). */
typedef struct NetSDK_UserAccount {
  char szUserName[40];
  char szPassword[40];
  char szGroup[32];
  char szStatus[8];
} NetSDK_UserAccount;

/** The accounts of a device found by discovery (2404 bytes). */
typedef struct NetSDK_UserConfig {
  int32_t nAccountNum;
  NetSDK_UserAccount accounts[20];
} NetSDK_UserConfig;

/** Service ports of a device found by discovery (8 bytes). */
typedef struct NetSDK_platformAccessConfig {
  int32_t nRTSPPort;
  int32_t nHTTPPort;
} NetSDK_platformAccessConfig;

/** TCP/IP settings of a device and the credentials to change them (1660 bytes). */
typedef struct NetSDK_LANConfig {
  char szUserName[40];
  char szPassword[40];
  char szToken[32];
  char szMAC[256];
  int32_t nDHCPMode;
  char szIP[256];
  char szNetmask[256];
  char szGateway[256];
  char szPreferredDNS[256];
  char szStandbyDNS[256];
  int32_t nReserved;
  int32_t nLastResult;    /* head result of the last modify or restore answer */
} NetSDK_LANConfig;

/** One device found by discovery (4784 bytes). The first-generation record of
 * QXNet_GetIPCInfo / QXNet_ModifyIPC / QXNet_RestoreIPC is its first 4232 bytes. */
typedef struct __NetSDK_IPC_ENTRYV2 {
  char szUID[32];                          /* 0: identity of the record */
  char szHardwareType[128];                /* 32 */
  char szProductModel[128];                /* 160 */
  NetSDK_UserConfig userCfg;               /* 288 */
  NetSDK_platformAccessConfig portCfg;     /* 2692 */
  NetSDK_LANConfig lanCfg;                 /* 2700 */
  uint32_t dwMagic;                        /* 4360: 0x01020304 in every record */
  int32_t nVersion;                        /* 4364: 1001 in every record */
  char reserved[32];                       /* 4368 */
  char szOsdStr[256];                      /* 4400 */
  char szFirmwareVersion[64];              /* 4656 */
  char szSdkPlatform[64];                  /* 4720 */
} __NetSDK_IPC_ENTRYV2;

#define QXNET_IPC_ENTRY_V1_SIZE 4232

/** One alarm of an alarm report (168 bytes), status event 24. */
typedef struct ALARM_ITEM {
  int32_t nYear;
  int32_t nMonth;
  int32_t nDay;
  int32_t nWDay;
  int32_t nHour;
  int32_t nMinute;
  int32_t nSecond;
  int32_t nAlarmCode;
  int32_t nAlarmFlag;
  int32_t nAlarmLevel;
  char szAlarmData[128];    /* NUL-terminated, cut to the field */
} ALARM_ITEM;

/** Handed with each replayed frame (24 bytes). The library writes the registering
 * application's user pointer into dwUser (its low 32 bits; the whole pointer on a 32-bit
 * host) and dwUserHigh (its high 32 bits on a 64-bit host): use QXNet_FrameUser(). */
typedef struct FRAME_EXTDATA {
  uint32_t frame_type;      /* 1 = key frame */
  uint32_t dwUser;          /* user pointer, low half */
  double timestamp;         /* frame timestamp in milliseconds */
  uint32_t dwUserHigh;      /* user pointer, high half */
  uint32_t payload_type;    /* codec of the payload, as the device sent it */
} FRAME_EXTDATA;

static inline void* QXNet_FrameUser(const FRAME_EXTDATA* ext) {
  return (void*)(uintptr_t)(((uint64_t)ext->dwUserHigh << 32) | ext->dwUser);
}

/** Audio block of the stream-parameter record (276 bytes). */
typedef struct NETSDK_AUDIO_PARAM {
  uint8_t reserved[256];
  int32_t nSampleRate;      /* Hz */
  int32_t nBitsPerSample;
  int32_t nCodec;           /* 1..8 */
  int32_t nReserved;
  int32_t nChannels;
} NETSDK_AUDIO_PARAM;

/** Video block of the stream-parameter record (536 bytes): the two codec parameter sets
 * and the byte handed to the MP4 writer with them. */
typedef struct NETSDK_VIDEO_PARAM {
  uint8_t paramSet1[276];
  uint8_t paramSet2[256];
  uint8_t byWriterArg;
  uint8_t reserved[3];
} NETSDK_VIDEO_PARAM;

/** Stream parameters of a replay or download (1360 bytes), replay data types 2, 3, 4. */
typedef struct NETSDK_STREAM_PARAM {
  uint8_t reserved[32];
  uint16_t wHasVideo;
  uint16_t wHasAudio;
  NETSDK_VIDEO_PARAM video;
  NETSDK_AUDIO_PARAM audio;
  uint8_t reserved2[512];
} NETSDK_STREAM_PARAM;

/** Device information argument of QXNet_Loc_LoginDev. The library never reads or fills
 * it: the record comes back exactly as the caller passed it. */
typedef struct IP_NET_DVR_DEVICEINFO {
  uint8_t sSerialNumber[48];
  uint8_t byAlarmInPortNum;
  uint8_t byAlarmOutPortNum;
  uint8_t byDiskNum;
  uint8_t byDVRType;
  uint8_t byChanNum;
  uint8_t byStartChan;
  uint8_t byAudioChanNum;
  uint8_t byIPChanNum;
  uint8_t reserved[24];
} IP_NET_DVR_DEVICEINFO;

/* ---------------------------------------------------------------------------------------
 * Callback types.
 * ------------------------------------------------------------------------------------- */

/** Discovery: code QXNET_SEARCH_*, index = slot in the device table. Called on the
 * discovery thread; `entry` is valid during the call only. The result is ignored. */
typedef long (*fSearchDevStatusCallBack)(long code, long index, __NetSDK_IPC_ENTRYV2* entry,
                                         void* user);
/** Status events: loginId, event code QXNET_EV_*, event text (or ALARM_ITEM* for 24).
 * Called on the worker thread of the session the event belongs to (one thread per
 * session), once per registered callback in ascending order of user pointer; `data` is
 * valid during the call only. The result is ignored. */
typedef long (*fStatusEventCallBack)(long loginId, long code, char* data, void* user);
/** Auxiliary responses: loginId, command code (with the channel folded into the top byte
 * when the answer names one), the answer body text. Called on the session's worker
 * thread; `data` is valid during the call only. The result is ignored. */
typedef long (*fAuxResponseCallBack)(long loginId, long code, char* data, void* user);
/** Replayed media: loginId, type (a frame's stream type, or QXNET_REPLAY_PARAM_*), data. */
typedef long (*fReplayDataCallBack)(long loginId, unsigned long type, unsigned char* buffer,
                                    unsigned long length, FRAME_EXTDATA* ext);
/** Play action events (no export registers it). */
typedef long (*fPlayActionEventCallBack)(long loginId, long action, long param, char* text,
                                         void* user);
/** Log lines: level 0..31 and the finished line, called on the thread that logs (any
 * library or application thread); `line` is valid during the call only. */
typedef void (*fLogCallBack)(unsigned int level, const char* line);
/** Stored by QXNet_SetSDKLogCallBack; the library never calls it. */
typedef void (*fSDKLogCallBack)(const char* line);

/* ---------------------------------------------------------------------------------------
 * Lifecycle and settings. These work in any state (no -201).
 * ------------------------------------------------------------------------------------- */

/** Starts the library (after an implicit QXNet_Free: a repeated init replaces everything,
 * logging out every device). Always 0. */
QXNET_API long QXNet_init(void);
/** As QXNet_init, choosing a net type first; does nothing (returns 0) when already
 * initialised. */
QXNET_API long QXNet_initEx(int nNetType);
/** Logs out every device, forgets every callback registration, stops the log writer.
 * Always 0; safe to call when not initialised. */
QXNET_API long QXNet_Free(void);
/** "SDK_PC_V2.8.5_20171109_001"; static storage, works before init. */
QXNET_API const char* QXNet_GetSdkVersion(void);
/** Stores the pointer; nothing calls it (kept for compatibility). */
QXNET_API void QXNet_SetSDKLogCallBack(fSDKLogCallBack callback);
/** Log sink and level: the first callback registered stays for the process's life; each
 * call sets the level mask to levels 0..level (a negative level turns logging off).
 * Always 0. */
QXNET_API long QXNet_SetfcLogCallBackEx(fLogCallBack callback, int level);
/** Auto-reconnect switch (default 1): with 0, a session whose connect fails stops trying.
 * Always 0. */
QXNET_API long QXNet_SetAutoReconnect(int enable);

/* ---------------------------------------------------------------------------------------
 * Discovery (UDP broadcast on the LAN). See the README for what this build provides.
 * ------------------------------------------------------------------------------------- */
/** Registers (or, with a null callback, removes) the discovery callback of `user`.
 * The callback runs on the discovery thread; the entry pointer is valid during the call
 * only. Always 0 once initialised. */
QXNET_API long QXNet_SetSearchDevStatusCallBack(fSearchDevStatusCallBack callback, void* user);
/** Same as QXNet_SetSearchDevStatusCallBack. */
QXNET_API long QXNet_Loc_SetSearchStatusCallBack(fSearchDevStatusCallBack callback, void* user);
/** Starts discovery on the LAN (UDP broadcast); found devices are reported through the
 * discovery callback. 0, or a negative code. */
QXNET_API long QXNet_StartSearchDev(void);
/** Same as QXNet_StartSearchDev. */
QXNET_API long QXNet_Loc_StartSearchIPC(void);
/** Stops discovery; the table of found devices is kept. 0, or a negative code. */
QXNET_API long QXNet_StopSearchDev(void);
/** Same as QXNet_StopSearchDev. */
QXNET_API long QXNet_Loc_StopSearchIPC(void);
/** Number of devices found so far. */
QXNET_API long QXNet_GetSearchIPCCount(void);
/** Same as QXNet_GetSearchIPCCount. */
QXNET_API long QXNet_Loc_GetSearchIPCCount(void);
/** Proposes a free address on the host's subnet as dotted text into buf (len >= 33). */
QXNET_API long QXNet_GetOneIPAddress(char* buf, int len);
/** Same as QXNet_GetOneIPAddress. */
QXNET_API long QXNet_Loc_GetOneIPAddress(char* buf, int len);
/** Copies the first QXNET_IPC_ENTRY_V1_SIZE bytes of a found device's record. */
QXNET_API long QXNet_GetIPCInfo(long index, __NetSDK_IPC_ENTRYV2* entry);
/** Copies a found device's whole record. */
QXNET_API long QXNet_Loc_GetIPCInfo(long index, __NetSDK_IPC_ENTRYV2* entry);
/** Sends new network settings to a found device (first-generation record: its first
 * QXNET_IPC_ENTRY_V1_SIZE bytes are read, the rest is taken as zero). Answer: search
 * callback code 3. */
QXNET_API long QXNet_ModifyIPC(long index, __NetSDK_IPC_ENTRYV2* entry);
/** As QXNet_ModifyIPC with the whole record read from `entry`. */
QXNET_API long QXNet_Loc_ModifyIPC(long index, __NetSDK_IPC_ENTRYV2* entry);
/** Asks a found device to restore itself. Answer: search callback code 4. */
QXNET_API long QXNet_RestoreIPC(long index, __NetSDK_IPC_ENTRYV2* entry);
/** As QXNet_RestoreIPC with the whole record read from `entry`. */
QXNET_API long QXNet_Loc_RestoreIPC(long index, __NetSDK_IPC_ENTRYV2* entry);
/** A found device's record as XML; buf null returns the size needed. */
QXNET_API long QXNet_Loc_GetIPCInfoXML(long index, char* buf, int len);
/** Sends network settings given as XML to a found device. */
QXNET_API long QXNet_Loc_ModifyIPCXML(long index, const char* xml);
/** Host network facts: 0 address, 1 netmask, 2 gateway, 3 and 4 DNS servers. */
QXNET_API long QXNet_Loc_GetNetworkParam(long index, char* buf, int len);

/* ---------------------------------------------------------------------------------------
 * Sessions.
 * ------------------------------------------------------------------------------------- */

/** Logs in to a device.
 * @param ip       device address or host name, up to 31 characters (copied)
 * @param port     TCP port, 1..65534
 * @param user     account name (copied)
 * @param password password (copied; never written to the log)
 * @param flag     0: connect and log in; nonzero: only register the session, no connection
 * @return the login identifier (nonzero) that every device request names; 0 for a bad
 *         address or port; the session's negative code when the login failed at once.
 * The outcome arrives as status events 5 and 6 (or 0, 2, 3) on the session's thread,
 * possibly before this call returns. */
QXNET_API long QXNet_LoginDev(char* ip, unsigned long port, char* user, char* password,
                              int flag);
/** As QXNet_LoginDev with flag 0; info is passed through untouched. */
QXNET_API long QXNet_Loc_LoginDev(char* ip, unsigned long port, char* user, char* password,
                                  IP_NET_DVR_DEVICEINFO* info);
/** Stops the session's worker and closes its connection; 0, or -103 for an unknown id.
 * Called from a callback of the same session it would wait for itself: refused with
 * QXNET_E_BAD_ARG (log out from another thread). QXNet_Free must not be called from a
 * callback at all. */
QXNET_API long QXNet_LogOutDev(long loginId);
/** Same as QXNet_LogOutDev. */
QXNET_API long QXNet_Loc_LogoutDev(long loginId);
/** Registers (or, with a null callback, removes) the status event callback of `user`
 * (one callback per distinct non-null user pointer; -96 for a null user). */
QXNET_API long QXNet_SetStatusEventCallBack(fStatusEventCallBack callback, void* user);
/** Same as QXNet_SetStatusEventCallBack. */
QXNET_API long QXNet_Loc_SetStatusEventCallBack(fStatusEventCallBack callback, void* user);
/** Registers (or removes) the auxiliary response callback of `user` (-96 for null user). */
QXNET_API long QXNet_SetAuxResponseCallBack(fAuxResponseCallBack callback, void* user);

/* ---------------------------------------------------------------------------------------
 * Configuration and control. Each returns 0 once the request is queued; the device's
 * answer arrives through the auxiliary response callback (code = command, data = body).
 * ------------------------------------------------------------------------------------- */

/** Configuration request `command` with an empty body. */
QXNET_API long QXNet_GetDevConfig(long loginId, unsigned long command);
/** Configuration request `command` whose body is the text in outBuffer (the answer is
 * not written there: it arrives through the auxiliary response callback). */
QXNET_API long QXNet_Loc_GetDVRConfig(long loginId, unsigned long command, long channel,
                                      void* outBuffer, unsigned long outSize,
                                      unsigned long* bytesReturned);
/** Configuration request `command` with the body text inBuffer. */
QXNET_API long QXNet_SetDevConfig(long loginId, unsigned long command, void* inBuffer);
/** Configuration write `command` on `channel` with the body text inBuffer (inSize is
 * not used: the text ends at its NUL). 0 once queued, -103 unknown session. */
QXNET_API long QXNet_Loc_SetDVRConfig(long loginId, unsigned long command, long channel,
                                      void* inBuffer, unsigned long inSize);
/** System command (reboot 14008, restore 14011, capability text 14020, serial 14035...). */
QXNET_API long QXNet_SystemControl(long loginId, unsigned long command, char* param);
/** System command with a sub-command; 0 once queued, -103 unknown session. */
QXNET_API long QXNet_Loc_SystemControl(long loginId, unsigned long command,
                                       unsigned long subCommand, char* param);
/** Any request: message type text, command, result number, body text. */
QXNET_API long QXNet_Loc_WriteAUXStringEx(long loginId, char* type, unsigned long command,
                                          unsigned long result, char* body);
/** Asks for the application's data stored on the device (answer: command 14034). */
QXNET_API long QXNet_Loc_GetUserData(long loginId, char* buffer, int* length);
/** Stores `length` bytes on the device. Writes a zero byte at data[length]: the buffer
 * must hold length + 1 bytes. */
QXNET_API long QXNet_Loc_SetUserData(long loginId, char* data, int length);
/** Restores the device's factory configuration (command 14011). */
QXNET_API long QXNet_Loc_RestoreConfig(long loginId);
/** Reboots the device (command 14008). */
QXNET_API long QXNet_Loc_RebootDVR(long loginId);

/* ---------------------------------------------------------------------------------------
 * Firmware upgrade and configuration files. Progress and outcome arrive as status events
 * (15/16/58 firmware, 81/82/83 configuration upload, 80 configuration download).
 * ------------------------------------------------------------------------------------- */
/** Uploads a firmware file (must be readable and writable); -93 file, -92 busy. */
QXNET_API long QXNet_Loc_Upgrade(long loginId, const char* path);
/** As QXNet_Loc_Upgrade with a wide path (read access suffices). */
QXNET_API long QXNet_Loc_UpgradeEx(long loginId, const wchar_t* path);
/** Percent sent of the running upload (0 when none runs). */
QXNET_API long QXNet_Loc_GetUpgradeProgress(long loginId);
/** 0 while an upload runs, -1 when the session is idle. */
QXNET_API long QXNet_Loc_GetUpgradeState(long loginId);
/** Cancels the running upload. */
QXNET_API long QXNet_Loc_CloseUpgradeHandle(long loginId);
/** Fetches the device's configuration file into the local file `path`. */
QXNET_API long QXNet_Loc_GetConfigFile(long loginId, const char* path);
/** Sends the local file `path` to the device as its configuration file. */
QXNET_API long QXNet_Loc_SetConfigFile(long loginId, const char* path);

/* ---------------------------------------------------------------------------------------
 * Recorder search, replay and download.
 * ------------------------------------------------------------------------------------- */
/** Searches a channel's recordings of a day (time text "YYYYMMDDhhmmss"); the record list
 * arrives through the auxiliary response callback (command 14300). */
QXNET_API long QXNet_SearchNVRRecByTime(long loginId, long channel, char* timeText);
/** Same as QXNet_SearchNVRRecByTime. */
QXNET_API long QXNet_Loc_SearchNVRRecByTime(long loginId, long channel, char* timeText);
/** Downloads the span start..end of a channel into the MP4 file `path`. */
QXNET_API long QXNet_NVRRecordDownload(long loginId, long channel, char* start, char* end,
                                       char* path);
/** Same as QXNet_NVRRecordDownload. */
QXNET_API long QXNet_Loc_NVRRecordDownload(long loginId, long channel, char* start,
                                           char* end, char* path);
/** Stops the running download of a channel; progress events stop with event 54. */
QXNET_API long QXNet_Loc_NVRRecordDownloadStop(long loginId, long channel);
/** Replays a channel from a time; frames arrive through the replay data callback. */
QXNET_API long QXNet_Loc_NVRReplayByTime(long loginId, long channel, char* timeText);
/** Steers a replay: action 1..7 (3 stops, 6 seeks to timeText), speed. */
QXNET_API long QXNet_Loc_ControlNVRReplay(long loginId, long channel, long action, long speed,
                                          char* timeText);
/** Registers (or, with a null callback, removes) the replay data callback of `user`. */
QXNET_API long QXNet_Loc_SetReplayDataCallBack(fReplayDataCallBack callback, void* user);

#ifdef __cplusplus
} /* extern "C" */
#endif

/* ---------------------------------------------------------------------------------------
 * Layout pins: these records cross the interface and must match byte for byte.
 * ------------------------------------------------------------------------------------- */
#ifdef __cplusplus
#define QXNET_STATIC_ASSERT(c, m) static_assert(c, m)
#else
#define QXNET_STATIC_ASSERT(c, m) _Static_assert(c, m)
#endif

QXNET_STATIC_ASSERT(sizeof(NetSDK_UserAccount) == 120, "NetSDK_UserAccount size");
QXNET_STATIC_ASSERT(sizeof(NetSDK_UserConfig) == 2404, "NetSDK_UserConfig size");
QXNET_STATIC_ASSERT(sizeof(NetSDK_platformAccessConfig) == 8, "platformAccessConfig size");
QXNET_STATIC_ASSERT(sizeof(NetSDK_LANConfig) == 1660, "NetSDK_LANConfig size");
QXNET_STATIC_ASSERT(sizeof(__NetSDK_IPC_ENTRYV2) == 4784, "IPC entry size");
QXNET_STATIC_ASSERT(offsetof(__NetSDK_IPC_ENTRYV2, szUID) == 0, "UID offset");
QXNET_STATIC_ASSERT(offsetof(__NetSDK_IPC_ENTRYV2, szHardwareType) == 32, "hardware offset");
QXNET_STATIC_ASSERT(offsetof(__NetSDK_IPC_ENTRYV2, szProductModel) == 160, "model offset");
QXNET_STATIC_ASSERT(offsetof(__NetSDK_IPC_ENTRYV2, userCfg) == 288, "user config offset");
QXNET_STATIC_ASSERT(offsetof(__NetSDK_IPC_ENTRYV2, userCfg.accounts) == 292, "account offset");
QXNET_STATIC_ASSERT(offsetof(__NetSDK_IPC_ENTRYV2, portCfg) == 2692, "ports offset");
QXNET_STATIC_ASSERT(offsetof(__NetSDK_IPC_ENTRYV2, lanCfg) == 2700, "LAN offset");
QXNET_STATIC_ASSERT(offsetof(__NetSDK_IPC_ENTRYV2, lanCfg.szToken) == 2780, "token offset");
QXNET_STATIC_ASSERT(offsetof(__NetSDK_IPC_ENTRYV2, lanCfg.szIP) == 3072, "IP offset");
QXNET_STATIC_ASSERT(offsetof(__NetSDK_IPC_ENTRYV2, lanCfg.nLastResult) == 4356, "result offset");
QXNET_STATIC_ASSERT(offsetof(__NetSDK_IPC_ENTRYV2, dwMagic) == 4360, "magic offset");
QXNET_STATIC_ASSERT(offsetof(__NetSDK_IPC_ENTRYV2, nVersion) == 4364, "version offset");
QXNET_STATIC_ASSERT(offsetof(__NetSDK_IPC_ENTRYV2, szOsdStr) == 4400, "OSD offset");
QXNET_STATIC_ASSERT(offsetof(__NetSDK_IPC_ENTRYV2, szFirmwareVersion) == 4656, "firmware offset");
QXNET_STATIC_ASSERT(offsetof(__NetSDK_IPC_ENTRYV2, szSdkPlatform) == 4720, "platform offset");
QXNET_STATIC_ASSERT(sizeof(ALARM_ITEM) == 168, "ALARM_ITEM size");
QXNET_STATIC_ASSERT(offsetof(ALARM_ITEM, nAlarmCode) == 28, "alarm code offset");
QXNET_STATIC_ASSERT(offsetof(ALARM_ITEM, szAlarmData) == 40, "alarm data offset");
QXNET_STATIC_ASSERT(sizeof(FRAME_EXTDATA) == 24, "FRAME_EXTDATA size");
QXNET_STATIC_ASSERT(offsetof(FRAME_EXTDATA, timestamp) == 8, "timestamp offset");
QXNET_STATIC_ASSERT(offsetof(FRAME_EXTDATA, payload_type) == 20, "payload type offset");
QXNET_STATIC_ASSERT(sizeof(NETSDK_AUDIO_PARAM) == 276, "audio block size");
QXNET_STATIC_ASSERT(sizeof(NETSDK_VIDEO_PARAM) == 536, "video block size");
QXNET_STATIC_ASSERT(sizeof(NETSDK_STREAM_PARAM) == 1360, "stream parameter size");
QXNET_STATIC_ASSERT(offsetof(NETSDK_STREAM_PARAM, wHasVideo) == 32, "has-video offset");
QXNET_STATIC_ASSERT(offsetof(NETSDK_STREAM_PARAM, video) == 36, "video block offset");
QXNET_STATIC_ASSERT(offsetof(NETSDK_STREAM_PARAM, audio) == 572, "audio block offset");
QXNET_STATIC_ASSERT(offsetof(NETSDK_STREAM_PARAM, reserved2) == 848, "tail offset");
QXNET_STATIC_ASSERT(sizeof(IP_NET_DVR_DEVICEINFO) == 80, "device info size");

#endif /* QXNETSDK_H */
