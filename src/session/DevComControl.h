// One logged-in device: its TCP connection and framing, connection and authentication,
// heartbeat, reconnection, worker thread, incoming-message dispatch, and the device
// operations that ride on the session. The class is split into files by concern:
//   DevComSocket.cpp    framing, socket waits, send queue
//   DevComSession.cpp   construction, login/logout, connect, authentication, worker loop
//   DevComDispatch.cpp  incoming-message routing
//   DevComRequests.cpp  configuration, control and auxiliary requests
//   DevComUpload.cpp    firmware and configuration-file upload
//   DevComDownload.cpp  configuration-file download and the port-answer machinery
//   DevComRecord.cpp    recorder search, replay and download control
//   DevComMedia.cpp     recorder answers and media packs (the pure work is in media/)
#ifndef QXNET_SESSION_DEVCOMCONTROL_H
#define QXNET_SESSION_DEVCOMCONTROL_H

#include <pthread.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cwchar>
#include <list>
#include <memory>
#include <mutex>
#include <string>

#include "QXNetSDK.h"
#include "base/SDKThread.h"
#include "base/SessionBlock.h"
#include "base/WakeEvent.h"
#include "media/DownloadWriter.h"
#include "media/ReplayAssembler.h"
#include "session/RecvAhead.h"
#include "session/SessionIo.h"
#include "session/SessionSink.h"
#include "session/Transfers.h"

class CFileRecver;

// One queued outgoing message; the queue owns `data` (allocated with new[]).
struct NetSDKSendData_t {
  uint32_t length;
  char* data;
};

enum {
  NETSDK_DEV_STATUS_NONE = 0,
  NETSDK_DEV_STATUS_CONNECTED = 1,
  NETSDK_DEV_STATUS_SEND_AUTHMSG = 2,
  NETSDK_DEV_STATUS_AUTHENTICATED = 3,
};

enum {
  QXNET_FRAME_FLAG = 0x20180307u,
  QXNET_FRAME_FLAG_ALT = 0x70308102u,
  QXNET_RECV_BUF_SIZE = 0x300000,
  QXNET_WORK_BUF_SIZE = 512000,
  QXNET_MAX_FRAME_LEN = 0xF00000,
  QXNET_REQUEST_BUF_SIZE = 0x40000,
  QXNET_UPLOAD_CHUNK = 0x28000,
};

class CDevComControl : private media::IDownloadHost {
 public:
  // Makes the file writer of a recorder download.
  using WriterFactory = std::unique_ptr<media::IDownloadWriter> (*)();

  // `sink` receives the session's events; `autoReconnect` (may be null: on) is read each
  // time a connect fails.
  CDevComControl(ISessionSink* sink, const std::atomic<int>* autoReconnect);
  ~CDevComControl();

  // ---- lifecycle (DevComSession.cpp)
  int InitDevCom();
  int LoginDev(const char* ip, unsigned int port, const char* user, const char* password,
               unsigned int unused);
  int LogoutDev();
  int Connect();
  int SendAuthMsgToDev();
  int SendHeartbeatMsgToDev();
  int OnAuthMsgRsp(const char* result);
  static void ThreadFunc(void* self);
  int ThreadProc();
  // True when called from this session's own worker (inside one of its callbacks): a
  // logout from there would wait for itself.
  bool OnWorkerThread() const {
    return !m_bThreadExited && m_workerId.load() == static_cast<unsigned long>(pthread_self());
  }
  // Lets the owner stop many sessions at once before waiting for each: the worker is
  // woken at once from whatever wait it is in.
  void RequestStop();
  // Gives the session a connected socket without a worker (framing tests drive the
  // sender and receiver on their own thread).
  void AdoptSocketForTest(int fd) {
    m_ahead.Clear();
    m_iSockFd = fd;
    m_bThreadRun = true;
    m_nDevStatus = NETSDK_DEV_STATUS_CONNECTED;
  }
  void StopForTest() { RequestStop(); }
  // Puts another socket layer under the connected session (null: the real one). Set it
  // before the worker starts.
  void SetIoForTest(ISessionIo* io) { m_pIo = io ? io : &ISessionIo::Default(); }
  uint32_t RecvLen() const { return m_nRecvLen; }
  // Bytes read from the socket ahead of the frames taken so far (the fuzzer's model counts
  // what the session consumed, not what it read).
  size_t ReadAheadForTest() const { return m_ahead.Available(); }

  // ---- framing and socket I/O (DevComSocket.cpp)
  int SendData(const char* data, unsigned int length);
  int SendFrameInPieces(int sock, const char* data, unsigned int length);
  long SendWhenWritable(int sock, const void* bytes, unsigned long n, uint32_t startTick, int* waitStatus);
  int SendPayload(int sock, const char* data, unsigned int length);
  long RecvWhenReadable(int sock, void* dst, unsigned long len, uint32_t startTick, int* waitStatus);
  long RecvWithReadAhead(int sock, void* dst, unsigned long len);
  int ReceiveData();
  int FindFrameHeader(int sock, uint32_t start, class CFrameHeaderSearch* search);
  int CheckFrameLength(int remaining);
  int ReadFrameBytes(int sock, char* dst, uint32_t want, uint32_t deadlineStart, uint32_t* have);
  int DropFrameBytes(int sock, uint32_t want, uint32_t deadlineStart, uint32_t* have);
  int SocketCanRead(int sock, int timeoutMs);
  int SocketCanWrite(int sock, int timeoutMs);
  int WaitForSock(int mode, int sock, uint32_t startTick, uint32_t timeoutMs);
  // One probe of WaitForSock, also woken by the wake signal: 1 ready, 0 timeout, 2 woken,
  // or the broken code.
  int ProbeSocket(int mode, int sock, int timeoutMs);
  int SleepThread(int durationMs, int stepMs);
  int CloseSocktFd();
  void PutToSendData(NetSDKSendData_t item);
  // Takes the head of the send queue and sends it once (a turn of the worker loop).
  void SendOneQueued();
  int QueuedCount();

  // ---- dispatch (DevComDispatch.cpp)
  void ParserRecvData();
  int OnAuthMsgRsp(const char* cmd, const char* result);
  void OnAlmMsgRsp(const char* code, const char* body);
  void OnHeartbeatMsgRsp(const char* cmd, const char* result);
  // Dispatches a payload of `length` bytes as if it had just been received (tests and
  // the receiver share this path).
  void DispatchPayload(const char* payload, uint32_t length);

  // ---- configuration, control and auxiliary requests (DevComRequests.cpp)
  int WriteAUXStringEx(const char* type, unsigned long cmd, unsigned long result, const char* body);
  int GetDVRConfig(unsigned long cmd, long channel, void* buf, unsigned long size);
  int SetDVRConfig(unsigned long cmd, long channel, void* buf, unsigned long size);
  int SystemControl(unsigned long cmd, unsigned long result, const char* body);
  int PtzControl(const char* xml);
  int GetUserData(char* buf, int* len);
  int SetUserData(char* data, int len);
  void OnSysControlMsgRsp(const char* code, const char* flag, const char* body);

  // ---- upload (DevComUpload.cpp)
  int UploadFile(unsigned int fileType, const char* path);
  int UploadFileEx(unsigned int fileType, const wchar_t* path);
  int SetConfigFile(const char* path);
  int GetUploadProgress();
  int GetUploadState();
  int CloseUploadHandle();
  int SendUploadFileData();
  bool UploadDue() const;

  // ---- configuration-file download (DevComDownload.cpp)
  int GetConfigFile(const char* path);
  int CheckRetryReqDownload();
  // Milliseconds until the download re-request falls due (0: due now), -1 when no
  // download waits for one.
  int MsUntilRetryReqDownload() const;
  int OnStopDownloadFile(int error, const std::string& text);

  // ---- recorder (DevComRecord.cpp)
  int SearchNVRRecByTime(unsigned int channel, const char* time);
  int SearchNvrRecByMonth(long channel, const char* date);
  int NVRReplayByTime(unsigned int channel, const char* time);
  int ControlNVRReplay(unsigned int channel, unsigned int action, unsigned int speed, const char* time);
  int NVRRecordDownload(long channel, const char* start, const char* end, const char* path);
  int NVRRecordDownloadStop(long channel);
  // The older file-replay control (PRIVATE_PROTO dialect).
  int ControlReplay(unsigned int action, unsigned int param);

  // ---- recorder answers and media (DevComMedia.cpp)
  int OnRecvMediaData(const unsigned char* pack, size_t length);
  int OnRecvNVRDownloadMediaData(const unsigned char* pack, size_t length);
  void OnNVRReplayControlMsgRsp(const char* cmd, const char* result);
  void OnReplayControlMsgRsp(const char* result);
  // Replaces the writer factory (tests; null: the MP4 writer).
  void SetWriterFactoryForTest(WriterFactory f) { m_writerFactory = f ? f : DefaultWriterFactory(); }
  static WriterFactory DefaultWriterFactory();
  int ReplayMode() const { return m_nReplayMode.load(); }
  int CurChannel() const { return m_nCurChannel.load(); }
  const media::DownloadSpan& DownloadState() { return m_nvrDownload.Span(); }

  // ---- read-only views for the owner and tests
  const char* DevAddr() const { return m_szDevAddr; }
  int DevStatus() const { return m_nDevStatus.load(); }
  int SockFd() const { return m_iSockFd.load(); }
  bool ThreadExited() const { return m_bThreadExited.load(); }
  bool SerialStarted() const { return m_bSerialStarted.load(); }
  int FrontReplay() const { return m_nFrontReplay.load(); }
  uint32_t FailCount() const { return m_nFailCount.load(); }
  const std::string& DevKey() const { return m_strDevKey; }
  char* RecvBuf() { return m_pRecvBuf; }

 private:
  CDevComControl(const CDevComControl&) = delete;
  CDevComControl& operator=(const CDevComControl&) = delete;

  // ---- worker steps (DevComWorker.cpp)
  // What the authentication step leaves the turn to do.
  enum class AuthStep { kNormalTurn, kNextTurn, kReconnect, kEnd };
  bool ConnectStep();
  AuthStep AuthenticationStep();
  AuthStep GiveUpAuthentication();
  void NormalTurn();
  // ReceiveData, closing the connection when it broke.
  void ReceiveAndHandle();
  // Milliseconds until the next timed duty of the normal turn (heartbeat, authentication
  // resend, upload step, download retry), at most 10 s.
  int MsUntilNextDeadline(bool waitingForWritable);
  int MsUntilHeartbeat() const;
  bool HeartbeatDue() const;
  bool UploadTurnDue() const;
  bool DownloadRetryDue() const;
  void MarkThreadExited();
  // Starts the worker on the session block's stack (on a stack of its own when the block
  // could not be mapped); 0 or -1.
  int StartWorker();
  // Waits until the worker thread is gone (its stack may be unmapped then).
  void JoinWorker();
  // Sends the heartbeat when it falls due while a frame is being received, so that a
  // device trickling bytes cannot hold it back (worker only).
  void KeepHeartbeatDuringReceive();

  // ---- connect steps (DevComSession.cpp)
  bool OpenConfiguredSocket();
  bool ResolveDeviceAddress(uint32_t* ip);
  bool WaitConnected(int sock, bool haveAddr);
  bool FinishConnect(int sock);

  // Closes the socket with its status event (shared by every close path).
  void CloseSocketWithEvent();
  void PostStatus(int event, const char* text);
  void PostAux(const char* cmd, const char* result, const char* body);
  void ClearTransferState();
  // Under m_opLock: closes the upload file, clears the transfer and frees the session.
  void EndUploadLocked();
  // Under m_opLock: a streaming upload that cannot go on (logged with the send result).
  void FailStreamingUploadLocked(int ret);
  // A lost connection ends the transfers that were running on it, with their failure
  // events: a streaming upload (81) and a configuration-file download (80, "-2").
  void AbortTransfersOnDisconnect();
  int StartUpload(const char* tag, unsigned int fileType, int kind, const char* path,
                  const wchar_t* widePath);
  void OnUploadAnswer(const char* code, const char* flag);
  int UploadFailedEvent() const;
  // One chunk (or the end header) of the running upload; false when the stream is over
  // for this turn.
  bool SendUploadStep();
  struct UploadChunk;
  bool FrameUploadChunk(UploadChunk* c);
  int FinishUploadLocked(bool sentWhole, int sent, char* text, size_t size);
  int AfterUploadChunkLocked(const UploadChunk& c, int sent, char* text, size_t size, bool* more);
  const char* UploadPathForLog() const;
  void OnDownloadLengthAnswer();
  void OnDownloadDataAnswer();
  void OnDownloadPortAnswer(const char* flag, const char* body);

  // ---- recorder (DevComRecord.cpp, DevComMedia.cpp)
  // The download's stop procedure: clears the span, sends cmd 14302, replay mode 0.
  int RunStopProcedure(long channel);
  // The routes of type "90000" messages.
  // envelope: the envelope already read (null: read here from msg).
  void OnMediaMessage(const char* cmd, const char* result, const char* msg, const struct MediaEnvelope* envelope);
  // The media block behind the text of the message now in the receive buffer (null when
  // there is none or its length runs past the frame).
  const unsigned char* MediaBlock(const char* msg, size_t* length);
  const unsigned char* PackAfterText(const char* msg, size_t textLength, long dataLen, size_t* length);
  // True when a type "10000" answer belongs to the download path.
  bool IsDownloadAnswer(const char* cmd) const;
  void OnDownloadAnswer(long code, long flag);
  void OnDownloadParams(const char* video, const char* audio);
  void DeliverRecord(unsigned long type, NETSDK_STREAM_PARAM* rec);
  void RunDownloadStop() override;
  void PostDownloadAux(unsigned int code, int flag, const char* text) override;
  void PostDownloadStatus(int event, char* text) override;
  std::unique_ptr<media::IDownloadWriter> NewDownloadWriter() override;

  // Device address first, as in the object layout: "Dev" of every log line.
  char m_szDevAddr[32];
  char m_szUser[32];
  char m_szPassword[32];
  uint32_t m_nPort;
  std::atomic<int> m_nDevStatus;
  std::atomic<bool> m_bThreadRun;
  ISessionSink* m_pSink;
  ISessionIo* m_pIo;
  const std::atomic<int>* m_pAutoReconnect;
  std::atomic<bool> m_bThreadExited;
  // Wakes the worker: a request queued, an upload step, a stop.
  CWakeEvent m_wake;
  // Signalled when the worker has ended (logout waits on it instead of polling).
  std::mutex m_exitMutex;
  std::condition_variable m_exitCond;
  // True while the worker loop runs the session (not in tests that drive it directly).
  bool m_bWorkerTurns;
  // Set by the worker when its poll saw the socket readable just before ReceiveData.
  bool m_bKnownReadable;
  // Bytes read from the socket and not yet taken by the receiver (worker thread only).
  CRecvAhead m_ahead;
  // The last heartbeat send failed at this tick: it is retried 100 ms later at the earliest.
  bool m_bHeartbeatFailed;
  uint32_t m_nHeartbeatFailTick;
  // Start of the last upload turn (microseconds): the next is due once more than 20 ms
  // have passed.
  uint64_t m_nLastUploadTurnUs;
  std::atomic<unsigned long> m_workerId;
  std::atomic<uint32_t> m_nFailCount;
  uint32_t m_nLastAuthTick;
  int32_t m_nLastHeartbeat;
  std::string m_strDevKey;
  std::atomic<int> m_iSockFd;
  int m_nChannel;
  // The worker's stack and the two buffers below, in one mapping.
  CSessionBlock m_block;
  SDKThreadHandle m_worker;
  char* m_pRecvBuf;
  char* m_pWorkBuf;
  // Length of the frame now in the receive buffer (what the dispatcher and the
  // download handlers may read).
  uint32_t m_nRecvLen;

  // Send queue.
  pthread_mutex_t m_sendLock;
  std::list<NetSDKSendData_t> m_sendList;
  int m_nSendCount;
  // Second mutex of the device operations.
  pthread_mutex_t m_opLock;

  // System-control flags.
  std::atomic<bool> m_bSerialStarted;
  std::atomic<int> m_nFrontReplay;

  // Transfers: one struct each; the upload and the configuration-file download share the
  // transfer slot (idle when m_nIdle is 1). What the worker reads on every turn (the slot,
  // the download's re-request state, the upload's flags at the head of its struct, the
  // current message) lies next to the fields above, before the transfers' path buffers:
  // an idle session's heartbeat then touches the one page of this object they share.
  std::atomic<int> m_nIdle;
  PortDownload m_portDownload;
  const char* m_pCurMsg;
  UploadTransfer m_upload;
  ConfigDownload m_cfgDownload;

  // Recorder state: written by requests, read by the worker.
  std::atomic<int32_t> m_nCurChannel;
  std::atomic<int32_t> m_nReplayMode;  // 0 replay, 1 download
  char m_szReplayFile[256];             // for ControlReplay; nothing sets it
  media::CReplayAssembler m_replay;
  NvrDownload m_nvrDownload;
  WriterFactory m_writerFactory;
};

#endif
