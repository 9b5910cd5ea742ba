#include "search/SearchIPC.h"

#include <cstring>

#include "base/HostAddr.h"
#include "base/SDKSocket.h"
#include "search/SearchLog.h"
#include "search/SearchNetwork.h"
#include "search/SearchProto.h"

CSearchIPC::CSearchIPC()
    : m_iSock(-1),
      m_nBindPort(CurrentSearchNetwork().firstBindPort),
      m_peerAddr(0),
      m_peerPort(0),
      m_bRunning(false),
      m_nWorkers(0),
      m_worker{0, false} {
  std::memset(m_szHostAddrs, 0, sizeof(m_szHostAddrs));
}

CSearchIPC::~CSearchIPC() {
  std::lock_guard<std::mutex> g(m_lifeLock);
  StopWorker();
}

int CSearchIPC::SetSearchStatusCallBack(fSearchDevStatusCallBack cb, void* user) {
  m_table.SetCallback(cb, user);
  return 0;
}

void CSearchIPC::StopWorker() {
  m_bRunning = false;
  m_wake.Signal();
  SDKThreadJoin(&m_worker);
  CloseSocktFd();
}

int CSearchIPC::StartSearch() {
  // From the worker's own callback a restart would have to wait for itself.
  if (SDKThreadIsCurrent(m_worker)) {
    SearchLog(0, "[CSearchIPC] task spawn SearchIPC failed \n");
    return QXNET_E_SPAWN;
  }
  std::lock_guard<std::mutex> g(m_lifeLock);
  StopWorker();
  m_table.Clear();
  {
    std::lock_guard<std::mutex> h(m_hostLock);
    std::memset(m_szHostAddrs, 0, sizeof(m_szHostAddrs));
  }
  m_wake.Drain();
  m_bRunning = true;
  if (SDKThreadStart(&CSearchIPC::ThreadFunc, kWorkerStack, this, &m_worker) != 0) {
    m_bRunning = false;
    SearchLog(0, "[CSearchIPC] task spawn SearchIPC failed \n");
    return QXNET_E_SPAWN;
  }
  return 0;
}

int CSearchIPC::StopSearch() {
  m_bRunning = false;
  m_wake.Signal();
  // Called from the search callback, on the worker: it ends as soon as the callback
  // returns, and the next start or the destructor joins it.
  if (SDKThreadIsCurrent(m_worker)) return 0;
  std::lock_guard<std::mutex> g(m_lifeLock);
  StopWorker();
  return 0;
}

int CSearchIPC::GetIPCCount() { return m_table.Count(); }
int CSearchIPC::GetIPCInfo(long index, __NetSDK_IPC_ENTRYV2* out) { return m_table.GetIPCInfo(index, out); }
int CSearchIPC::GetIPCInfoXML(long index, char* buf, int size) { return m_table.GetIPCInfoXML(index, buf, size); }
int CSearchIPC::ClearIPCInfo() { return m_table.Clear(); }

void CSearchIPC::RefreshHostAddrs() {
  SearchNetwork net = CurrentSearchNetwork();
  std::lock_guard<std::mutex> h(m_hostLock);
  std::memset(m_szHostAddrs, 0, sizeof(m_szHostAddrs));
  if (net.bindAddress[0])
    std::memcpy(m_szHostAddrs[0], net.bindAddress, sizeof(m_szHostAddrs[0]) - 1);
  else
    HostFirstIPv4(m_szHostAddrs[0], sizeof(m_szHostAddrs[0]));
}

std::string CSearchIPC::HostAddr(int index) {
  if (index < 0 || index >= kHostAddrs) return std::string();
  std::lock_guard<std::mutex> h(m_hostLock);
  return std::string(m_szHostAddrs[index], strnlen(m_szHostAddrs[index], sizeof(m_szHostAddrs[index])));
}

size_t CSearchIPC::QueuedRequests() {
  std::lock_guard<std::mutex> g(m_queueLock);
  return m_queue.size();
}

void CSearchIPC::CloseSocktFd() {
  int s = m_iSock.exchange(-1);
  if (s >= 0) CloseSocket(s);
}
