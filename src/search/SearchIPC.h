// LAN discovery and device network setup: the UDP socket, the search loop on its worker
// thread, the found-device table (SearchTable), and the modify and restore requests
// (SearchModify).
//
// The worker is joinable: StopSearch wakes it through a wake signal and returns once it has
// left, so no thread touches the object after stop or destruction. Starting while a worker
// runs first stops that worker (two workers on one socket and one table would race).
#ifndef QXNET_SEARCH_SEARCHIPC_H
#define QXNET_SEARCH_SEARCHIPC_H

#include <atomic>
#include <deque>
#include <memory>
#include <mutex>
#include <string>

#include "QXNetSDK.h"
#include "base/SDKThread.h"
#include "base/WakeEvent.h"
#include "search/SearchAssigned.h"
#include "search/SearchRecvQueue.h"
#include "search/SearchTable.h"

class CSearchIPC {
 public:
  enum { kHostAddrs = 5, kWorkerStack = 262144 };
  CSearchIPC();
  ~CSearchIPC();

  int SetSearchStatusCallBack(fSearchDevStatusCallBack cb, void* user);
  int StartSearch();
  int StopSearch();
  int GetIPCCount();
  int GetIPCInfo(long index, __NetSDK_IPC_ENTRYV2* out);
  int GetIPCInfoXML(long index, char* buf, int size);
  int ClearIPCInfo();
  int ModifyIPC(long index, __NetSDK_IPC_ENTRYV2* entry);
  int ModifyIPCXML(long index, const char* xml);
  int RestoreIPC(long index, __NetSDK_IPC_ENTRYV2* entry);

  // Formats one request; sends it at once on a one-shot socket when no worker runs
  // (the send's result), else queues it for the worker (0).
  int SendMsgToIPC(int cmd, const char* body);
  // Takes what the socket holds into the receive queue (when `socketReadable`), then
  // handles the oldest queued datagram: -1 when there is no socket or the handling reached
  // a failed receive (the socket is then closed), else 0. Worker thread only.
  int ReceiveData(bool socketReadable = true);
  // Classifies one received text and hands it to the table; what ReceiveData does after
  // the receive. `text` must be NUL-terminated at text[len].
  int HandleDatagram(const char* text, int len);

  fSearchDevStatusCallBack Callback() const { return m_table.Callback(); }
  void* CallbackUser() const { return m_table.CallbackUser(); }
  CSearchTable& Table() { return m_table; }
  CAssignedAddrs& Assigned() { return m_assigned; }
  bool IsRunning() const { return m_bRunning; }
  int BindPort() const { return m_nBindPort; }
  int WorkersAlive() const { return m_nWorkers; }
  size_t QueuedRequests();
  // A copy of host address `index` (0 address, 1 mask, 2 gateway, 3 and 4 DNS).
  std::string HostAddr(int index);

 private:
  CSearchIPC(const CSearchIPC&) = delete;
  CSearchIPC& operator=(const CSearchIPC&) = delete;

  static void ThreadFunc(void* arg);
  int ThreadProc();
  void RefreshHostAddrs();
  int Connect();
  void CloseSocktFd();
  int SendData(const char* data, unsigned len);
  static int SendOneShot(const char* data, unsigned len);
  void DrainQueue();
  void StopWorker();
  int Select(int timeoutMs);

  CSearchTable m_table;
  std::atomic<int> m_iSock;
  std::atomic<int> m_nBindPort;
  uint32_t m_peerAddr;  // sender of the last datagram
  uint16_t m_peerPort;
  std::mutex m_queueLock;
  std::deque<std::string> m_queue;
  std::mutex m_hostLock;
  char m_szHostAddrs[kHostAddrs][32];
  CAssignedAddrs m_assigned;
  std::atomic<bool> m_bRunning;
  std::atomic<int> m_nWorkers;
  CWakeEvent m_wake;
  std::mutex m_lifeLock;  // serialises start, stop and destruction
  SDKThreadHandle m_worker;
  CSearchRecvQueue m_rxq;  // datagrams taken from the socket, not yet handled (worker only)
};

#endif
