#include "search/SearchTable.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "base/LazyBuffer.h"
#include "search/SearchAnswer.h"
#include "search/SearchConfigXml.h"
#include "search/SearchLog.h"
#include "search/SearchProto.h"

namespace {
const size_t kRecordsBytes = sizeof(__NetSDK_IPC_ENTRYV2) * CSearchTable::kMaxDevices;
}

CSearchTable::CSearchTable() : m_count(0), m_fCallBack(nullptr), m_pUser(nullptr), m_records(nullptr) {
  for (auto& slot : m_list) slot = nullptr;
}

CSearchTable::~CSearchTable() { Clear(); }

void CSearchTable::SetCallback(fSearchDevStatusCallBack cb, void* user) {
  // The user pointer first: a worker that sees the new callback also sees its user data.
  m_pUser = user;
  m_fCallBack = cb;
}

void CSearchTable::Notify(long code, long index, __NetSDK_IPC_ENTRYV2* entry) {
  fSearchDevStatusCallBack cb = m_fCallBack;
  if (!cb) {
    SearchLog(0, "[CSearchIPC] search IPC callback fuction is null \n");
    return;
  }
  cb(code, index, entry, m_pUser);
}

long CSearchTable::Find(const char* uid) { return m_index.Find(uid, m_list, m_count); }

__NetSDK_IPC_ENTRYV2* CSearchTable::Slot(long index) {
  if (index < 0 || index >= kMaxDevices) return nullptr;
  m_index.Invalidate();  // the caller may change the UID
  return m_list[index];
}

// Stores a copy of `fresh`, compares it with the known record, or drops it.
int CSearchTable::Store(const __NetSDK_IPC_ENTRYV2& fresh) {
  CAutoLocker hold(m_lock);
  long slot = Find(fresh.szUID);
  if (slot >= 0) {
    if (std::memcmp(m_list[slot], &fresh, sizeof(fresh)) != 0) {
      std::memcpy(m_list[slot], &fresh, sizeof(fresh));
      Notify(SEARCH_CODE_CHANGED, slot, const_cast<__NetSDK_IPC_ENTRYV2*>(&fresh));
    }
    return -3;
  }
  if (m_count >= kMaxDevices) {
    SearchLog(0, "[CSearchIPC] found new entry, but ipc count exceed %d\n", static_cast<int>(kMaxDevices));
    return -3;
  }
  if (!Reserve()) return -3;  // no memory for the table: the answer is dropped
  SearchLog(0, "[CSearchIPC] found new device, IP=[%s]\n", fresh.lanCfg.szIP);
  int index = m_count;
  m_list[index] = &m_records[index];
  std::memcpy(m_list[index], &fresh, sizeof(fresh));
  m_index.Add(index, fresh.szUID);
  m_count = index + 1;
  Notify(SEARCH_CODE_NEW, index, m_list[index]);
  return 0;
}

bool CSearchTable::Reserve() {
  CAutoLocker hold(m_lock);
  if (m_records) return true;
  char* records = AllocLazyBuffer(kRecordsBytes);
  if (!records) return false;
  PrefaultLazyBuffer(records, kRecordsBytes);
  m_records = reinterpret_cast<__NetSDK_IPC_ENTRYV2*>(records);
  return true;
}

int CSearchTable::HandleSearchAnswer(const char* msg, int len, const TiXmlDocument* parsed) {
  SearchLog(0, "[CSearchIPC] ResponseMessageHandle=%s\n", msg ? msg : "(null)");
  if (!msg) {
    SearchLog(0, "[CSearchIPC] Input msg is null \n");
    return -1;
  }
  if (len < 0) {
    SearchLog(0, "[CSearchIPC] Input msg data len < 0 \n");
    return -2;
  }
  __NetSDK_IPC_ENTRYV2 fresh;  // the worker's stack has room; no heap block per answer
  if (ParseSearchAnswer(msg, &fresh, parsed) != 0) return -3;
  return Store(fresh);
}

int CSearchTable::HandleSetupAnswer(const char* msg, int len, int msgcode, const char* msgflag,
                                    const TiXmlDocument* parsed) {
  SearchLog(0, "[CSearchIPC] ResponseMessageHandleMsgCode=%s, msgcode = %d, msgflag = %s\n", msg ? msg : "(null)",
            msgcode, msgflag ? msgflag : "");
  if (!msg) {
    SearchLog(0, "[CSearchIPC] Input msg is null \n");
    return -1;
  }
  if (len < 0) {
    SearchLog(0, "[CSearchIPC] Input msg data len < 0 \n");
    return -2;
  }
  char uid[32], token[32];
  if (GetDeviceUID_TOKEN(uid, token, msg, parsed) != 0) return -3;
  CAutoLocker hold(m_lock);
  long slot = Find(uid);
  if (slot < 0) return -3;
  __NetSDK_IPC_ENTRYV2* e = m_list[slot];
  if (token[0]) std::memcpy(e->lanCfg.szToken, token, sizeof(token));
  e->lanCfg.nLastResult = std::atoi(msgflag ? msgflag : "");
  Notify(msgcode == SEARCH_CMD_MODIFY_ANSWER ? SEARCH_CODE_MODIFIED : SEARCH_CODE_RESTORED, slot, e);
  return -3;
}

int CSearchTable::GetIPCInfo(long index, __NetSDK_IPC_ENTRYV2* out) {
  CAutoLocker hold(m_lock);
  if (index < 0 || index > m_count) {
    SearchLog(0, "[CSearchIPC] get IPC info failed, input index=%ld \n", index);
    return QXNET_E_BAD_INDEX;
  }
  if (!out) {
    SearchLog(0, "[CSearchIPC] get IPC info failed, input ipc_entry is null \n");
    return QXNET_E_BAD_INDEX;
  }
  if (!Slot(index)) {
    SearchLog(0, "[CSearchIPC] get IPC info failed, m_ipc_list[%ld] is null \n", index);
    return QXNET_E_BAD_INDEX;
  }
  std::memcpy(out, m_list[index], sizeof(*out));
  return 0;
}

int CSearchTable::GetIPCInfoXML(long index, char* buf, int size) {
  CAutoLocker hold(m_lock);
  if (index < 0 || index >= m_count) {
    SearchLog(0, "[CSearchIPC] get IPC info xml failed, input index=%ld \n", index);
    return QXNET_E_BAD_INDEX;
  }
  const __NetSDK_IPC_ENTRYV2* e = m_list[index];
  if (!e) {
    SearchLog(0, "[CSearchIPC] get IPC info xml failed, m_ipc_list[%ld] is null \n", index);
    return QXNET_E_BAD_INDEX;
  }
  std::unique_ptr<char[]> net(MakeNetworkLANCfgXml(e->szUID, &e->lanCfg));
  std::unique_ptr<char[]> user(MakeUserCfgXml(&e->userCfg));
  if (!net || !user) return QXNET_E_BUFFER_SMALL;
  std::unique_ptr<char[]> text(new char[kSearchMsgSize]);
  int len = std::snprintf(text.get(), kSearchMsgSize, "<IPC_INFO>\n%s\n%s\n%s</IPC_INFO>", net.get(), user.get(), "");
  if (len < 0 || len >= kSearchMsgSize) return QXNET_E_BUFFER_SMALL;
  if (!buf) return len + 1;
  if (len >= size) return QXNET_E_BUFFER_SMALL;
  std::memcpy(buf, text.get(), static_cast<size_t>(len) + 1);
  return len;
}

int CSearchTable::Clear() {
  CAutoLocker hold(m_lock);
  for (auto& slot : m_list) slot = nullptr;
  m_count = 0;
  m_index.Reset();
  FreeLazyBuffer(reinterpret_cast<char*>(m_records), kRecordsBytes);
  m_records = nullptr;
  return 0;
}
