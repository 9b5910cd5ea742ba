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

/** Marks the exported functions: default visibility while the library is built, nothing
 * for its users. */
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
#define QXNET_OK                    0         /**< success */
#define QXNET_E_NOT_INIT         (-201)     /**< library not initialised (before init, after free) */
#define QXNET_E_NO_DEVICE        (-103)     /**< no session under this login identifier */
#define QXNET_E_BAD_INDEX        (-96)      /**< bad index, null output or empty slot */
#define QXNET_E_BAD_XML          (-95)      /**< unreadable XML text */
#define QXNET_E_BUFFER_SMALL     (-100)     /**< output buffer too small */
#define QXNET_E_SPAWN            (-97)      /**< a worker thread could not be started */
#define QXNET_E_FILE             (-93)      /**< file missing or cannot be opened */
#define QXNET_E_BUSY             (-92)      /**< a file transfer already runs on this session */
#define QXNET_E_SOCKET           (-1234567) /**< the session's socket is broken */
#define QXNET_E_MISSING_ARG      (-8999996) /**< a required argument is missing */
#define QXNET_E_BAD_ARG          (-8999995) /**< an argument is out of range (this library's own code) */
/** Returned by operations whose device side is not available in this build yet (the
 * README lists them). Never returned by a function that has done its work. */
#define QXNET_E_NOT_AVAILABLE    (-9001)

/* ---------------------------------------------------------------------------------------
 * Status event codes (second argument of the status event callback).
 * ------------------------------------------------------------------------------------- */
#define QXNET_EV_CONNECT_FAILED        0   /**< data: "device[%s] connect socket failed! \n" */
#define QXNET_EV_SOCKET_ERROR          1   /**< socket error or closed by either side */
#define QXNET_EV_BAD_CREDENTIALS       2   /**< bad user name or password */
#define QXNET_EV_AUTH_FAILED           3   /**< authentication refused, or no answer 5 times */
#define QXNET_EV_CONNECTED             5   /**< TCP connection established */
#define QXNET_EV_AUTHENTICATED         6   /**< login accepted by the device */
#define QXNET_EV_UPGRADE_FINISHED     15   /**< firmware upload finished */
#define QXNET_EV_UPGRADE_FAILED       16   /**< firmware upload failed */
#define QXNET_EV_ALARM                24   /**< data: ALARM_ITEM* */
#define QXNET_EV_MAX_CHANNELS         50   /**< data: the device's maximum channel count, as text */
#define QXNET_EV_IPC_STATUS           51   /**< data: the recorder's camera status text */
#define QXNET_EV_DOWNLOAD_ACCEPTED    52   /**< recorder download request accepted */
#define QXNET_EV_DOWNLOAD_REFUSED     53   /**< recorder download request refused */
#define QXNET_EV_DOWNLOAD_STOPPED     54   /**< recorder download stopped */
#define QXNET_EV_DOWNLOAD_PROGRESS    55   /**< recorder download progress */
#define QXNET_EV_UPGRADE_PROGRESS     58   /**< firmware upload progress */
#define QXNET_EV_MESSAGE              79   /**< data: body of another type "30000" message */
#define QXNET_EV_CFGFILE_GET_PROGRESS 80   /**< configuration-file download progress */
#define QXNET_EV_CFGFILE_SET_FAILED   81   /**< configuration-file upload failed, or any failed chunk */
#define QXNET_EV_CFGFILE_SET_PROGRESS 82   /**< configuration-file upload progress */
#define QXNET_EV_CFGFILE_SET_FINISHED 83   /**< configuration-file upload finished */

/* Search status callback codes. */
#define QXNET_SEARCH_NEW_DEVICE      1     /**< a device answered for the first time */
#define QXNET_SEARCH_DEVICE_CHANGED  2     /**< a known device's answer changed */
#define QXNET_SEARCH_MODIFY_ANSWER   3     /**< answer to a modify; lanCfg.nLastResult holds it */
#define QXNET_SEARCH_RESTORE_ANSWER  4     /**< answer to a restore; lanCfg.nLastResult holds it */

/* Replay data callback: data types other than a frame's stream type. */
#define QXNET_REPLAY_PARAM_AV        2     /**< NETSDK_STREAM_PARAM with video and audio */
#define QXNET_REPLAY_PARAM_VIDEO     3     /**< NETSDK_STREAM_PARAM with video only */
#define QXNET_REPLAY_PARAM_AUDIO     4     /**< NETSDK_STREAM_PARAM with audio only */

/** Play action event: the stream parameters were handed to the replay callback. The event
 * of the replay mode (0 replay, 1 download) follows each stream-parameter answer. */
#define QXNET_PLAY_EVENT_PARAMS      12

/* ---------------------------------------------------------------------------------------
 * Records.
 * ------------------------------------------------------------------------------------- */

/** One account of a device found by discovery (120 bytes). */
typedef struct NetSDK_UserAccount {
  char szUserName[40];     /**< account name */
  char szPassword[40];     /**< its password */
  char szGroup[32];        /**< its group */
  char szStatus[8];        /**< its status */
} NetSDK_UserAccount;

/** The accounts of a device found by discovery (2404 bytes). */
typedef struct NetSDK_UserConfig {
  int32_t nAccountNum;                /**< accounts in use */
  NetSDK_UserAccount accounts[20];   /**< the accounts */
} NetSDK_UserConfig;

/** Service ports of a device found by discovery (8 bytes). */
typedef struct NetSDK_platformAccessConfig {
  int32_t nRTSPPort;       /**< RTSP port */
  int32_t nHTTPPort;       /**< HTTP port */
} NetSDK_platformAccessConfig;

/** TCP/IP settings of a device and the credentials to change them (1660 bytes). */
typedef struct NetSDK_LANConfig {
  char szUserName[40];      /**< account that may change the settings */
  char szPassword[40];      /**< its password */
  char szToken[32];         /**< the device's token from its last answer */
  char szMAC[256];          /**< MAC address text */
  int32_t nDHCPMode;        /**< DHCP switch */
  char szIP[256];           /**< address, dotted */
  char szNetmask[256];      /**< netmask, dotted */
  char szGateway[256];      /**< gateway, dotted */
  char szPreferredDNS[256]; /**< first DNS server */
  char szStandbyDNS[256];   /**< second DNS server */
  int32_t nReserved;        /**< reserved */
  int32_t nLastResult;    /**< head result of the last modify or restore answer */
} NetSDK_LANConfig;

/** One device found by discovery (4784 bytes). The first-generation record of
 * QXNet_GetIPCInfo / QXNet_ModifyIPC / QXNet_RestoreIPC is its first 4232 bytes. */
typedef struct __NetSDK_IPC_ENTRYV2 {
  char szUID[32];                          /**< 0: identity of the record */
  char szHardwareType[128];                /**< 32 */
  char szProductModel[128];                /**< 160 */
  NetSDK_UserConfig userCfg;               /**< 288 */
  NetSDK_platformAccessConfig portCfg;     /**< 2692 */
  NetSDK_LANConfig lanCfg;                 /**< 2700 */
  uint32_t dwMagic;                        /**< 4360: 0x01020304 in every record */
  int32_t nVersion;                        /**< 4364: 1001 in every record */
  char reserved[32];                       /**< 4368 */
  char szOsdStr[256];                      /**< 4400 */
  char szFirmwareVersion[64];              /**< 4656 */
  char szSdkPlatform[64];                  /**< 4720 */
} __NetSDK_IPC_ENTRYV2;

/** Size of the first-generation discovery record: the first bytes of __NetSDK_IPC_ENTRYV2. */
#define QXNET_IPC_ENTRY_V1_SIZE 4232

/** One alarm of an alarm report (168 bytes), status event 24. */
typedef struct ALARM_ITEM {
  int32_t nYear;            /**< time of the alarm: year */
  int32_t nMonth;           /**< month 1..12 */
  int32_t nDay;             /**< day of the month */
  int32_t nWDay;            /**< day of the week */
  int32_t nHour;            /**< hour */
  int32_t nMinute;          /**< minute */
  int32_t nSecond;          /**< second */
  int32_t nAlarmCode;       /**< alarm code */
  int32_t nAlarmFlag;       /**< alarm flag */
  int32_t nAlarmLevel;      /**< alarm level */
  char szAlarmData[128];    /**< NUL-terminated, cut to the field */
} ALARM_ITEM;

/** Handed with each replayed frame (24 bytes). The library writes the registering
 * application's user pointer into dwUser (its low 32 bits; the whole pointer on a 32-bit
 * host) and dwUserHigh (its high 32 bits on a 64-bit host): use QXNet_FrameUser(). */
typedef struct FRAME_EXTDATA {
  uint32_t frame_type;      /**< 1 = key frame */
  uint32_t dwUser;          /**< user pointer, low half */
  double timestamp;         /**< frame timestamp in milliseconds */
  uint32_t dwUserHigh;      /**< user pointer, high half */
  uint32_t payload_type;    /**< codec of the payload, as the device sent it */
} FRAME_EXTDATA;

/** The user pointer the replay callback was registered with.
 * @param ext the frame's record, as handed to the replay callback
 * @return the pointer */
static inline void* QXNet_FrameUser(const FRAME_EXTDATA* ext) {
  return (void*)(uintptr_t)(((uint64_t)ext->dwUserHigh << 32) | ext->dwUser);
}

/** Audio block of the stream-parameter record (276 bytes). */
typedef struct NETSDK_AUDIO_PARAM {
  uint8_t reserved[256];    /**< reserved */
  int32_t nSampleRate;      /**< Hz */
  int32_t nBitsPerSample;   /**< bits per sample */
  int32_t nCodec;           /**< 1..8 */
  int32_t nReserved;        /**< reserved */
  int32_t nChannels;        /**< channel count */
} NETSDK_AUDIO_PARAM;

/** Video block of the stream-parameter record (536 bytes): the two codec parameter sets
 * and the byte handed to the MP4 writer with them. */
typedef struct NETSDK_VIDEO_PARAM {
  uint8_t paramSet1[276];   /**< first codec parameter set */
  uint8_t paramSet2[256];   /**< second codec parameter set */
  uint8_t byWriterArg;      /**< byte handed to the MP4 writer */
  uint8_t reserved[3];      /**< reserved */
} NETSDK_VIDEO_PARAM;

/** Stream parameters of a replay or download (1360 bytes), replay data types 2, 3, 4. */
typedef struct NETSDK_STREAM_PARAM {
  uint8_t reserved[32];     /**< reserved */
  uint16_t wHasVideo;       /**< nonzero: `video` is filled */
  uint16_t wHasAudio;       /**< nonzero: `audio` is filled */
  NETSDK_VIDEO_PARAM video; /**< video parameters */
  NETSDK_AUDIO_PARAM audio; /**< audio parameters */
  uint8_t reserved2[512];   /**< reserved */
} NETSDK_STREAM_PARAM;

/** Device information argument of QXNet_Loc_LoginDev. The library never reads or fills
 * it: the record comes back exactly as the caller passed it. */
typedef struct IP_NET_DVR_DEVICEINFO {
  uint8_t sSerialNumber[48];  /**< serial number */
  uint8_t byAlarmInPortNum;   /**< alarm inputs */
  uint8_t byAlarmOutPortNum;  /**< alarm outputs */
  uint8_t byDiskNum;          /**< disks */
  uint8_t byDVRType;          /**< recorder type */
  uint8_t byChanNum;          /**< channels */
  uint8_t byStartChan;        /**< first channel */
  uint8_t byAudioChanNum;     /**< audio channels */
  uint8_t byIPChanNum;        /**< IP channels */
  uint8_t reserved[24];       /**< reserved */
} IP_NET_DVR_DEVICEINFO;

/* ---------------------------------------------------------------------------------------
 * Callback types.
 * ------------------------------------------------------------------------------------- */

/** Discovery callback.
 * Called on the library's discovery thread, with the device table locked: it must not start
 * or stop the search (QXNet_Loc_StartSearchIPC from here is refused).
 * @param code  QXNET_SEARCH_NEW_DEVICE, QXNET_SEARCH_DEVICE_CHANGED,
 *              QXNET_SEARCH_MODIFY_ANSWER or QXNET_SEARCH_RESTORE_ANSWER
 * @param index the device's slot in the table (the index of QXNet_Loc_GetIPCInfo)
 * @param entry the device's record; valid during the call only
 * @param user  the pointer given when the callback was set
 * @return ignored */
typedef long (*fSearchDevStatusCallBack)(long code, long index, __NetSDK_IPC_ENTRYV2* entry,
                                         void* user);
/** Status event callback.
 * Called on the worker thread of the session the event belongs to (one thread per
 * session), once per registered callback in ascending order of user pointer.
 * @param loginId the session's login identifier
 * @param code    the event, QXNET_EV_*
 * @param data    the event text, or an ALARM_ITEM* for QXNET_EV_ALARM; valid during the
 *                call only
 * @param user    the pointer the callback was registered with
 * @return ignored */
typedef long (*fStatusEventCallBack)(long loginId, long code, char* data, void* user);
/** Auxiliary response callback: the device's answers to requests.
 * Called on the session's worker thread, once per registered callback.
 * @param loginId the session's login identifier
 * @param code    the command in the low 24 bits, the device's result flag (signed, negative
 *                for a refusal) in the top byte; the 32-bit value is sign-extended
 * @param data    the answer's body text; valid during the call only
 * @param user    the pointer the callback was registered with
 * @return ignored */
typedef long (*fAuxResponseCallBack)(long loginId, long code, char* data, void* user);
/** Replay data callback: replayed media and stream parameters.
 * Called on the session's worker thread, once per registered callback.
 * @param loginId the session's login identifier
 * @param type    a frame's stream type (0 and 2 video, others audio), or
 *                QXNET_REPLAY_PARAM_* with a NETSDK_STREAM_PARAM in buffer
 * @param buffer  the frame or record; valid during the call only
 * @param length  bytes in buffer
 * @param ext     the frame's timing and codec with the registering user pointer (see
 *                QXNet_FrameUser()); valid during the call only
 * @return ignored */
typedef long (*fReplayDataCallBack)(long loginId, unsigned long type, unsigned char* buffer,
                                    unsigned long length, FRAME_EXTDATA* ext);
/** Play action event callback (no export registers it).
 * @param loginId the session's login identifier
 * @param action  the replay mode (0 replay, 1 download), or QXNET_PLAY_EVENT_PARAMS
 * @param param   always 0
 * @param text    the stream-parameter text; valid during the call only
 * @param user    the registered user pointer
 * @return ignored */
typedef long (*fPlayActionEventCallBack)(long loginId, long action, long param, char* text,
                                         void* user);
/** Log line callback, called on the thread that logs (any library or application thread).
 * @param level the line's level, 0..31
 * @param line  the finished line; valid during the call only */
typedef void (*fLogCallBack)(unsigned int level, const char* line);
/** Stored by QXNet_SetSDKLogCallBack; the library never calls it.
 * @param line a log line */
typedef void (*fSDKLogCallBack)(const char* line);

/* ---------------------------------------------------------------------------------------
 * Lifecycle and settings. These work in any state (no -201).
 * ------------------------------------------------------------------------------------- */

/** Starts the library. A repeated init first does what QXNet_Free does: every device is
 * logged out and every status, auxiliary, replay and discovery callback forgotten (the log
 * callback stays).
 * @return always QXNET_OK */
QXNET_API long QXNet_init(void);
/** As QXNet_init, choosing a net type first.
 * @param nNetType the net type: 3, 4 and 5 select their own service domain, any other
 *                 value the default one (no connection is made to it)
 * @return always QXNET_OK; when already initialised nothing is changed */
QXNET_API long QXNet_initEx(int nNetType);
/** Logs out every device, forgets every status, auxiliary, replay and discovery callback,
 * stops the log writer.
 * Safe to call when not initialised. Must not be called from a library callback.
 * @return always QXNET_OK */
QXNET_API long QXNet_Free(void);
/** The library's version text, "SDK_PC_V2.8.5_20171109_001"; works before init.
 * @return a pointer to static storage, valid for the life of the process */
QXNET_API const char* QXNet_GetSdkVersion(void);
/** Stores a log callback that the library never calls (kept for compatibility).
 * @param callback the function; the library keeps the pointer only */
QXNET_API void QXNet_SetSDKLogCallBack(fSDKLogCallBack callback);
/** Sets the log sink and level.
 * @param callback called with every line let through (see fLogCallBack for its thread).
 *                 The first non-null callback registered stays for the life of the
 *                 process; later calls change only the level
 * @param level    lines of levels 0..level are passed (above 30 means 0..30); a negative
 *                 level turns logging off
 * @return always QXNET_OK */
QXNET_API long QXNet_SetfcLogCallBackEx(fLogCallBack callback, int level);
/** Switches automatic reconnection of sessions (default on).
 * @param enable nonzero: a session whose connection fails or drops keeps trying; 0: it
 *               stops trying
 * @return always QXNET_OK */
QXNET_API long QXNet_SetAutoReconnect(int enable);

/* ---------------------------------------------------------------------------------------
 * Discovery (UDP broadcast on the LAN).
 * ------------------------------------------------------------------------------------- */
/** Sets the discovery callback. There is one: each call replaces the previous callback and
 * user pointer. It runs on the discovery thread (see fSearchDevStatusCallBack).
 * @param callback the callback, or null to stop the reports
 * @param user     handed back to the callback; the library keeps the pointer only
 * @return QXNET_OK; QXNET_E_NOT_INIT */
QXNET_API long QXNet_SetSearchDevStatusCallBack(fSearchDevStatusCallBack callback, void* user);
/** Same as QXNet_SetSearchDevStatusCallBack.
 * @param callback the callback, or null to stop the reports
 * @param user     handed back to the callback; the library keeps the pointer only
 * @return QXNET_OK; QXNET_E_NOT_INIT */
QXNET_API long QXNet_Loc_SetSearchStatusCallBack(fSearchDevStatusCallBack callback, void* user);
/** Starts discovery: a running search is stopped and the table of found devices emptied,
 * then a discovery thread broadcasts on every interface and reports each device through
 * the discovery callback until QXNet_StopSearchDev.
 * @return QXNET_OK; QXNET_E_SPAWN when the thread cannot start, or when called from the
 *         discovery callback; QXNET_E_NOT_INIT */
QXNET_API long QXNet_StartSearchDev(void);
/** Same as QXNet_StartSearchDev.
 * @return QXNET_OK; QXNET_E_SPAWN; QXNET_E_NOT_INIT */
QXNET_API long QXNet_Loc_StartSearchIPC(void);
/** Stops discovery and waits for the discovery thread (from the discovery callback it does
 * not wait: the thread ends when the callback returns). The table of found devices is kept.
 * @return QXNET_OK; QXNET_E_NOT_INIT */
QXNET_API long QXNet_StopSearchDev(void);
/** Same as QXNet_StopSearchDev.
 * @return QXNET_OK; QXNET_E_NOT_INIT */
QXNET_API long QXNet_Loc_StopSearchIPC(void);
/** Number of devices found since the search started (slots 0..count-1 of the table).
 * @return the count; QXNET_E_NOT_INIT */
QXNET_API long QXNet_GetSearchIPCCount(void);
/** Same as QXNet_GetSearchIPCCount.
 * @return the count; QXNET_E_NOT_INIT */
QXNET_API long QXNet_Loc_GetSearchIPCCount(void);
/** Proposes a free address on the host's subnet (x.y.z.254 downwards, skipping the host,
 * the gateway, found devices, addresses handed out before, and addresses that answer an
 * ICMP probe). Blocks while it probes.
 * @param buf receives the dotted address, NUL-terminated (the host's own address when none
 *            is free)
 * @param len size of buf, at least 33
 * @return the length of the text; QXNET_E_MISSING_ARG for a null buf or len < 33;
 *         QXNET_E_NOT_INIT */
QXNET_API long QXNet_GetOneIPAddress(char* buf, int len);
/** Same as QXNet_GetOneIPAddress.
 * @param buf receives the dotted address, NUL-terminated
 * @param len size of buf, at least 33
 * @return the length of the text; QXNET_E_MISSING_ARG; QXNET_E_NOT_INIT */
QXNET_API long QXNet_Loc_GetOneIPAddress(char* buf, int len);
/** Copies a found device's record in the first-generation layout.
 * @param index the device's slot, 0..count-1
 * @param entry receives the first QXNET_IPC_ENTRY_V1_SIZE bytes of the record (zeros when
 *              the index is bad); only those bytes are written
 * @return QXNET_OK; QXNET_E_BAD_INDEX for a bad index, an empty slot or a null entry;
 *         QXNET_E_NOT_INIT */
QXNET_API long QXNet_GetIPCInfo(long index, __NetSDK_IPC_ENTRYV2* entry);
/** Copies a found device's whole record.
 * @param index the device's slot, 0..count-1
 * @param entry receives the record
 * @return QXNET_OK; QXNET_E_BAD_INDEX for a bad index, an empty slot or a null entry;
 *         QXNET_E_NOT_INIT */
QXNET_API long QXNet_Loc_GetIPCInfo(long index, __NetSDK_IPC_ENTRYV2* entry);
/** Sends new network settings to a found device: the record (first-generation layout, the
 * rest taken as zero) replaces the stored one and its lanCfg is sent (DHCP, address, mask,
 * gateway, DNS servers, MAC; the token, user name and password when given). The answer arrives through the
 * discovery callback, code QXNET_SEARCH_MODIFY_ANSWER, with lanCfg.nLastResult set.
 * @param index the device's slot, 0..count-1
 * @param entry the new record; its first QXNET_IPC_ENTRY_V1_SIZE bytes are read during the
 *              call only
 * @return QXNET_OK once sent or queued; -1 when the request is too long or the datagram
 *         could not be sent;
 *         QXNET_E_BAD_INDEX for a bad index, an empty slot or a null entry;
 *         QXNET_E_BUFFER_SMALL when the request cannot be built; QXNET_E_NOT_INIT */
QXNET_API long QXNet_ModifyIPC(long index, __NetSDK_IPC_ENTRYV2* entry);
/** As QXNet_ModifyIPC with the whole record read from `entry`.
 * @param index the device's slot, 0..count-1
 * @param entry the new record; read during the call only
 * @return as QXNet_ModifyIPC */
QXNET_API long QXNet_Loc_ModifyIPC(long index, __NetSDK_IPC_ENTRYV2* entry);
/** Asks a found device to restore its network settings; the record (first-generation
 * layout) replaces the stored one and names the token, user name and password. The answer
 * arrives through the discovery callback, code QXNET_SEARCH_RESTORE_ANSWER.
 * @param index the device's slot, 0..count-1
 * @param entry the record; its first QXNET_IPC_ENTRY_V1_SIZE bytes are read during the
 *              call only
 * @return QXNET_OK; QXNET_E_BAD_INDEX for a bad index, an empty slot or a null entry;
 *         QXNET_E_NOT_INIT */
QXNET_API long QXNet_RestoreIPC(long index, __NetSDK_IPC_ENTRYV2* entry);
/** As QXNet_RestoreIPC with the whole record read from `entry`.
 * @param index the device's slot, 0..count-1
 * @param entry the record; read during the call only
 * @return as QXNet_RestoreIPC */
QXNET_API long QXNet_Loc_RestoreIPC(long index, __NetSDK_IPC_ENTRYV2* entry);
/** A found device's network settings and accounts as XML (&lt;IPC_INFO&gt;).
 * @param index the device's slot, 0..count-1
 * @param buf   receives the NUL-terminated text, or null to ask for the size needed
 * @param len   size of buf
 * @return with buf null: the size needed, NUL included; else the text's length;
 *         QXNET_E_BAD_INDEX for a bad index or an empty slot; QXNET_E_BUFFER_SMALL when
 *         the text does not fit in len; QXNET_E_NOT_INIT */
QXNET_API long QXNet_Loc_GetIPCInfoXML(long index, char* buf, int len);
/** Sends network settings given as XML to a found device (the stored record is not
 * changed; no credentials are sent). The answer arrives as with QXNet_ModifyIPC.
 * @param index the device's slot, 0..count-1
 * @param xml   the settings, read during the call only; null sends nothing
 * @return QXNET_OK; QXNET_E_BAD_INDEX for a bad index or an empty slot; QXNET_E_BAD_XML
 *         for unreadable XML; QXNET_E_BUFFER_SMALL when the request cannot be built;
 *         QXNET_E_NOT_INIT */
QXNET_API long QXNet_Loc_ModifyIPCXML(long index, const char* xml);
/** One network fact of this host.
 * @param index 0 address, 1 netmask, 2 gateway, 3 first and 4 second DNS server
 * @param buf   receives the NUL-terminated text (empty when unknown)
 * @param len   size of buf
 * @return the text's length; QXNET_E_BAD_INDEX for a bad index or a null buf;
 *         QXNET_E_BUFFER_SMALL when the text does not fit; QXNET_E_NOT_INIT */
QXNET_API long QXNet_Loc_GetNetworkParam(long index, char* buf, int len);

/* ---------------------------------------------------------------------------------------
 * Sessions.
 * ------------------------------------------------------------------------------------- */

/** Logs in to a device. The outcome arrives as status events QXNET_EV_CONNECTED and
 * QXNET_EV_AUTHENTICATED (or QXNET_EV_CONNECT_FAILED, QXNET_EV_BAD_CREDENTIALS,
 * QXNET_EV_AUTH_FAILED) on the session's thread, possibly before this call returns.
 * @param ip       device address or host name, up to 31 characters (copied)
 * @param port     TCP port, 1..65534
 * @param user     account name, up to 31 characters (copied)
 * @param password password, up to 31 characters (copied; never written to the log)
 * @param flag     0: connect and log in; nonzero: only register the session, no connection
 * @return the login identifier (nonzero) that every device request names; 0 for a null
 *         or over-long address, user name or password, or a bad port; QXNET_E_SPAWN when
 *         the session's thread cannot start; QXNET_E_NOT_INIT */
QXNET_API long QXNet_LoginDev(char* ip, unsigned long port, char* user, char* password,
                              int flag);
/** As QXNet_LoginDev with flag 0.
 * @param ip       device address or host name, up to 31 characters (copied)
 * @param port     TCP port, 1..65534
 * @param user     account name, up to 31 characters (copied)
 * @param password password, up to 31 characters (copied)
 * @param info     not read nor written; may be null
 * @return as QXNet_LoginDev */
QXNET_API long QXNet_Loc_LoginDev(char* ip, unsigned long port, char* user, char* password,
                                  IP_NET_DVR_DEVICEINFO* info);
/** Stops the session's worker, waits for it and closes its connection; the identifier is
 * invalid afterwards. Must be called from another thread than the session's own callbacks.
 * @param loginId the login identifier
 * @return QXNET_OK; QXNET_E_NO_DEVICE for an unknown identifier; QXNET_E_BAD_ARG when
 *         called from a callback of that session (it would wait for itself; the session
 *         stays); QXNET_E_NOT_INIT */
QXNET_API long QXNet_LogOutDev(long loginId);
/** Same as QXNet_LogOutDev.
 * @param loginId the login identifier
 * @return as QXNet_LogOutDev */
QXNET_API long QXNet_Loc_LogoutDev(long loginId);
/** Registers the status event callback of `user`, or removes it: one callback per distinct
 * user pointer, all of them called for every event of every session (see
 * fStatusEventCallBack for the thread).
 * @param callback the callback, or null to remove the one of `user`
 * @param user     the key of the registration, handed back to the callback (not null;
 *                 the library keeps the pointer only)
 * @return QXNET_OK; QXNET_E_BAD_INDEX for a null user; QXNET_E_NOT_INIT */
QXNET_API long QXNet_SetStatusEventCallBack(fStatusEventCallBack callback, void* user);
/** Same as QXNet_SetStatusEventCallBack.
 * @param callback the callback, or null to remove the one of `user`
 * @param user     the key of the registration (not null)
 * @return QXNET_OK; QXNET_E_BAD_INDEX; QXNET_E_NOT_INIT */
QXNET_API long QXNet_Loc_SetStatusEventCallBack(fStatusEventCallBack callback, void* user);
/** Registers the auxiliary response callback of `user`, or removes it (one per distinct
 * user pointer; see fAuxResponseCallBack for the thread).
 * @param callback the callback, or null to remove the one of `user`
 * @param user     the key of the registration, handed back to the callback (not null;
 *                 the library keeps the pointer only)
 * @return QXNET_OK; QXNET_E_BAD_INDEX for a null user; QXNET_E_NOT_INIT */
QXNET_API long QXNet_SetAuxResponseCallBack(fAuxResponseCallBack callback, void* user);

/* ---------------------------------------------------------------------------------------
 * Configuration and control. Each returns 0 once the request is queued; the device's
 * answer arrives through the auxiliary response callback (code = command, data = body).
 * Texts passed in are copied into the request during the call.
 * ------------------------------------------------------------------------------------- */

/** Configuration request `command` with an empty body.
 * @param loginId the login identifier
 * @param command the configuration command
 * @return QXNET_OK once queued; QXNET_E_NO_DEVICE; QXNET_E_NOT_INIT */
QXNET_API long QXNet_GetDevConfig(long loginId, unsigned long command);
/** Configuration request `command` whose body is the text in outBuffer (the answer is
 * not written there: it arrives through the auxiliary response callback).
 * @param loginId       the login identifier
 * @param command       the configuration command
 * @param channel       not used
 * @param outBuffer     the request body, a NUL-terminated text (null: empty)
 * @param outSize       not used
 * @param bytesReturned not used, not written
 * @return QXNET_OK once queued; QXNET_E_BUFFER_SMALL when the request exceeds 256 KiB;
 *         QXNET_E_NO_DEVICE; QXNET_E_NOT_INIT */
QXNET_API long QXNet_Loc_GetDVRConfig(long loginId, unsigned long command, long channel,
                                      void* outBuffer, unsigned long outSize,
                                      unsigned long* bytesReturned);
/** Configuration write `command` with the body text inBuffer.
 * @param loginId  the login identifier
 * @param command  the configuration command
 * @param inBuffer the body, a NUL-terminated text (null: empty)
 * @return QXNET_OK once queued; QXNET_E_BUFFER_SMALL; QXNET_E_NO_DEVICE; QXNET_E_NOT_INIT */
QXNET_API long QXNet_SetDevConfig(long loginId, unsigned long command, void* inBuffer);
/** Configuration write `command` with the body text inBuffer.
 * @param loginId  the login identifier
 * @param command  the configuration command
 * @param channel  not used
 * @param inBuffer the body, a NUL-terminated text (null: empty)
 * @param inSize   not used: the text ends at its NUL
 * @return QXNET_OK once queued; QXNET_E_BUFFER_SMALL; QXNET_E_NO_DEVICE; QXNET_E_NOT_INIT */
QXNET_API long QXNet_Loc_SetDVRConfig(long loginId, unsigned long command, long channel,
                                      void* inBuffer, unsigned long inSize);
/** System command (reboot 14008, restore 14011, capability text 14020, serial 14035...).
 * @param loginId the login identifier
 * @param command the system command
 * @param param   the body text (null: empty)
 * @return QXNET_OK once queued; QXNET_E_BUFFER_SMALL; QXNET_E_NO_DEVICE; QXNET_E_NOT_INIT */
QXNET_API long QXNet_SystemControl(long loginId, unsigned long command, char* param);
/** System command with a sub-command.
 * @param loginId    the login identifier
 * @param command    the system command
 * @param subCommand sent as the request's result number
 * @param param      the body text (null: empty)
 * @return QXNET_OK once queued; QXNET_E_BUFFER_SMALL; QXNET_E_NO_DEVICE; QXNET_E_NOT_INIT */
QXNET_API long QXNet_Loc_SystemControl(long loginId, unsigned long command,
                                       unsigned long subCommand, char* param);
/** Any request, built from its parts.
 * @param loginId the login identifier
 * @param type    the message type text (required)
 * @param command the command
 * @param result  the result number
 * @param body    the body text (null: empty)
 * @return QXNET_OK once queued; QXNET_E_MISSING_ARG for a null type; QXNET_E_BUFFER_SMALL
 *         when the request exceeds 256 KiB; QXNET_E_NO_DEVICE; QXNET_E_NOT_INIT */
QXNET_API long QXNet_Loc_WriteAUXStringEx(long loginId, char* type, unsigned long command,
                                          unsigned long result, char* body);
/** Asks for the application's data stored on the device; the answer (command 14034)
 * arrives through the auxiliary response callback.
 * @param loginId the login identifier
 * @param buffer  not used, not written
 * @param length  not used, not written
 * @return QXNET_OK once queued; QXNET_E_NO_DEVICE; QXNET_E_NOT_INIT */
QXNET_API long QXNet_Loc_GetUserData(long loginId, char* buffer, int* length);
/** Stores `length` bytes on the device (sent as hexadecimal text).
 * @param loginId the login identifier
 * @param data    the bytes; a zero byte is written at data[length], so the buffer must
 *                hold length + 1 bytes. Not kept after the call
 * @param length  number of bytes (0 or negative: none)
 * @return QXNET_OK once queued; QXNET_E_MISSING_ARG for null data with a positive length;
 *         QXNET_E_BUFFER_SMALL; QXNET_E_NO_DEVICE; QXNET_E_NOT_INIT */
QXNET_API long QXNet_Loc_SetUserData(long loginId, char* data, int length);
/** Restores the device's factory configuration (command 14011).
 * @param loginId the login identifier
 * @return QXNET_OK once queued; QXNET_E_NO_DEVICE; QXNET_E_NOT_INIT */
QXNET_API long QXNet_Loc_RestoreConfig(long loginId);
/** Reboots the device (command 14008).
 * @param loginId the login identifier
 * @return QXNET_OK once queued; QXNET_E_NO_DEVICE; QXNET_E_NOT_INIT */
QXNET_API long QXNet_Loc_RebootDVR(long loginId);

/* ---------------------------------------------------------------------------------------
 * Firmware upgrade and configuration files. Progress and outcome arrive as status events
 * (15/16/58 firmware, 81/82/83 configuration upload, 80 configuration download). One
 * upload at a time per session.
 * ------------------------------------------------------------------------------------- */
/** Uploads a firmware file.
 * @param loginId the login identifier
 * @param path    the file, readable and writable, under 512 characters (copied)
 * @return QXNET_OK once started; QXNET_E_FILE for a null path or a file that cannot be
 *         opened for reading and writing; QXNET_E_BUSY when an upload runs;
 *         QXNET_E_BAD_ARG for a path of 512 characters or more; QXNET_E_NO_DEVICE;
 *         QXNET_E_NOT_INIT */
QXNET_API long QXNet_Loc_Upgrade(long loginId, const char* path);
/** As QXNet_Loc_Upgrade with a wide path (read access suffices).
 * @param loginId the login identifier
 * @param path    the file, under 512 characters (copied)
 * @return as QXNet_Loc_Upgrade */
QXNET_API long QXNet_Loc_UpgradeEx(long loginId, const wchar_t* path);
/** Percent sent of the running upload.
 * @param loginId the login identifier
 * @return 0..100, 0 when no upload runs; QXNET_E_NO_DEVICE; QXNET_E_NOT_INIT */
QXNET_API long QXNet_Loc_GetUpgradeProgress(long loginId);
/** Whether a transfer runs.
 * @param loginId the login identifier
 * @return 0 while an upload runs, -1 when the session is idle;
 *         QXNET_E_NO_DEVICE; QXNET_E_NOT_INIT */
QXNET_API long QXNet_Loc_GetUpgradeState(long loginId);
/** Cancels the running upload (the device is told to drop it).
 * @param loginId the login identifier
 * @return QXNET_OK; QXNET_E_NO_DEVICE; QXNET_E_NOT_INIT */
QXNET_API long QXNet_Loc_CloseUpgradeHandle(long loginId);
/** Fetches the device's configuration file into a local file.
 * @param loginId the login identifier
 * @param path    the file to write, under 1024 characters (copied)
 * @return QXNET_OK once requested; QXNET_E_MISSING_ARG for a null path; QXNET_E_BAD_ARG for
 *         a path of 1024 characters or more; QXNET_E_NO_DEVICE; QXNET_E_NOT_INIT */
QXNET_API long QXNet_Loc_GetConfigFile(long loginId, const char* path);
/** Sends a local file to the device as its configuration file.
 * @param loginId the login identifier
 * @param path    the file, under 512 characters (copied)
 * @return QXNET_OK once started; QXNET_E_FILE for a null path or an unreadable file;
 *         QXNET_E_BUSY when an upload runs; QXNET_E_BAD_ARG for a path of 512 characters
 *         or more; QXNET_E_NO_DEVICE; QXNET_E_NOT_INIT */
QXNET_API long QXNet_Loc_SetConfigFile(long loginId, const char* path);

/* ---------------------------------------------------------------------------------------
 * Recorder search, replay and download.
 * ------------------------------------------------------------------------------------- */
/** Searches a channel's recordings of a day. The record list arrives through the auxiliary
 * response callback (command 14300): the day's spans as "hhmmss-hhmmss" separated by
 * commas in its &lt;Stream&gt; element.
 * @param loginId  the login identifier
 * @param channel  the recorder's channel
 * @param timeText the day, "YYYYMMDDhhmmss" (copied; null: empty)
 * @return QXNET_OK once queued; QXNET_E_NO_DEVICE; QXNET_E_NOT_INIT */
QXNET_API long QXNet_SearchNVRRecByTime(long loginId, long channel, char* timeText);
/** Same as QXNet_SearchNVRRecByTime.
 * @param loginId  the login identifier
 * @param channel  the recorder's channel
 * @param timeText the day, "YYYYMMDDhhmmss" (copied)
 * @return as QXNet_SearchNVRRecByTime */
QXNET_API long QXNet_Loc_SearchNVRRecByTime(long loginId, long channel, char* timeText);
/** Downloads a span of a channel into an MP4 file. Status events follow:
 * QXNET_EV_DOWNLOAD_ACCEPTED or QXNET_EV_DOWNLOAD_REFUSED, QXNET_EV_DOWNLOAD_PROGRESS
 * (text &lt;RESPONSE_PARAM DownloadPos="N" /&gt;, 100 once the file is complete and closed),
 * QXNET_EV_DOWNLOAD_STOPPED. Long downloads are split into numbered parts (_1, _2...).
 * @param loginId the login identifier
 * @param channel the recorder's channel
 * @param start   start of the span, "YYYYMMDDhhmmss" (copied)
 * @param end     end of the span, "YYYYMMDDhhmmss" (copied)
 * @param path    the MP4 file to write (copied, at most 1023 characters)
 * @return QXNET_OK once queued; QXNET_E_MISSING_ARG for a null start or end;
 *         QXNET_E_NO_DEVICE; QXNET_E_NOT_INIT */
QXNET_API long QXNet_NVRRecordDownload(long loginId, long channel, char* start, char* end,
                                       char* path);
/** Same as QXNet_NVRRecordDownload.
 * @param loginId the login identifier
 * @param channel the recorder's channel
 * @param start   start of the span, "YYYYMMDDhhmmss" (copied)
 * @param end     end of the span, "YYYYMMDDhhmmss" (copied)
 * @param path    the MP4 file to write (copied)
 * @return as QXNET_NVRRecordDownload */
QXNET_API long QXNet_Loc_NVRRecordDownload(long loginId, long channel, char* start,
                                           char* end, char* path);
/** Stops the running download; QXNET_EV_DOWNLOAD_STOPPED follows once the recorder
 * answers, and the file keeps what arrived.
 * @param loginId the login identifier
 * @param channel the recorder's channel
 * @return QXNET_OK once queued, or at once when no download runs; QXNET_E_NO_DEVICE;
 *         QXNET_E_NOT_INIT */
QXNET_API long QXNet_Loc_NVRRecordDownloadStop(long loginId, long channel);
/** Replays a channel from a time; frames and stream parameters arrive through the replay
 * data callback.
 * @param loginId  the login identifier
 * @param channel  the recorder's channel
 * @param timeText where to start, "YYYYMMDDhhmmss" (copied; null: empty)
 * @return QXNET_OK once queued; QXNET_E_NO_DEVICE; QXNET_E_NOT_INIT */
QXNET_API long QXNet_Loc_NVRReplayByTime(long loginId, long channel, char* timeText);
/** Steers a replay.
 * @param loginId  the login identifier
 * @param channel  the recorder's channel
 * @param action   1..7: 3 stops, 6 seeks to timeText, the others change the pace
 * @param speed    the speed for actions 4 and 5; ignored otherwise
 * @param timeText the seek target for action 6, "YYYYMMDDhhmmss" (copied)
 * @return QXNET_OK once queued; -1 for an action outside 1..7; QXNET_E_NO_DEVICE;
 *         QXNET_E_NOT_INIT */
QXNET_API long QXNet_Loc_ControlNVRReplay(long loginId, long channel, long action, long speed,
                                          char* timeText);
/** Registers the replay data callback of `user`, or removes it (one per distinct user
 * pointer; null is a valid key here). See fReplayDataCallBack for the thread.
 * @param callback the callback, or null to remove the one of `user`
 * @param user     the key of the registration, handed back in FRAME_EXTDATA (the library
 *                 keeps the pointer only)
 * @return QXNET_OK; QXNET_E_NOT_INIT */
QXNET_API long QXNet_Loc_SetReplayDataCallBack(fReplayDataCallBack callback, void* user);

#ifdef __cplusplus
} /* extern "C" */
#endif

/* ---------------------------------------------------------------------------------------
 * Layout pins: these records cross the interface and must match byte for byte.
 * ------------------------------------------------------------------------------------- */
/// @cond LAYOUT_PINS
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

/// @endcond

#endif /* QXNETSDK_H */
