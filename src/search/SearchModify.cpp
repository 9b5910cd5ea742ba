// Network setup of found devices: modify by record, modify by XML, restore. Each builds
// its body under the table lock from the stored record and sends it after the lock is
// released.
#include <cstring>
#include <memory>

#include "base/UdpSocket.h"
#include "search/SearchAnswer.h"
#include "search/SearchConfigXml.h"
#include "search/SearchIPC.h"
#include "search/SearchLog.h"
#include "search/SearchProto.h"

namespace {
// A body built by MakeNetworkLANCfgXml: null and empty are refused with their own lines.
bool BodyUsable(const char* body, const char* nullLine, const char* emptyLine) {
  if (!body) SearchLog(0, "%s", nullLine);
  if (!body || !body[0]) {
    SearchLog(0, "%s", emptyLine);
    return false;
  }
  return true;
}
}  // namespace

int CSearchIPC::ModifyIPC(long index, __NetSDK_IPC_ENTRYV2* entry) {
  std::unique_ptr<char[]> body;
  {
    CAutoLocker hold(m_table.Lock());
    if (index < 0 || index > m_table.Count()) {
      SearchLog(0, "[CSearchIPC] modify IPC failed, input index=%ld \n", index);
      return QXNET_E_BAD_INDEX;
    }
    if (!entry) {
      SearchLog(0, "[CSearchIPC] modify IPC failed, input ipc_entry is null \n");
      return QXNET_E_BAD_INDEX;
    }
    __NetSDK_IPC_ENTRYV2* stored = m_table.Slot(index);
    if (!stored) {
      SearchLog(0, "[CSearchIPC] modify IPC failed, m_ipc_list[%ld] is null \n", index);
      return QXNET_E_BAD_INDEX;
    }
    m_assigned.Remove(InetAddr(stored->lanCfg.szIP));
    std::memmove(stored, entry, sizeof(*stored));
    TerminateIpcEntryTexts(stored);
    // The UID text, not the IP: the all-ones value for a UID that is no dotted address.
    m_assigned.Add(InetAddr(stored->szUID));
    body.reset(MakeNetworkLANCfgXml(stored->szUID, &stored->lanCfg));
  }
  if (body) SearchLog(0, "[CSearchIPC] modify IPC xmlbuf=%s \n", body.get());
  if (!BodyUsable(body.get(), "[CSearchIPC] make network lan cfg xml failed \n",
                  "[CSearchIPC] modify IPC failed, make xml failed \n"))
    return QXNET_E_BUFFER_SMALL;
  return SendMsgToIPC(SEARCH_CMD_MODIFY, body.get());
}

int CSearchIPC::ModifyIPCXML(long index, const char* xml) {
  std::unique_ptr<char[]> body;
  {
    CAutoLocker hold(m_table.Lock());
    if (index < 0 || index >= m_table.Count()) {
      SearchLog(0, "[CSearchIPC] modify IPC xml failed. index=%ld \n", index);
      return QXNET_E_BAD_INDEX;
    }
    const __NetSDK_IPC_ENTRYV2* stored = m_table.Slot(index);
    if (!stored) {
      SearchLog(0, "[CSearchIPC] modify IPC xml failed. m_ipc_list[%ld] is null \n", index);
      return QXNET_E_BAD_INDEX;
    }
    if (!xml) return 0;
    std::unique_ptr<__NetSDK_IPC_ENTRYV2> copy(new __NetSDK_IPC_ENTRYV2(*stored));
    // The reader clears the whole LAN part, credentials included: this path never sends
    // them.
    if (Network_getLANCfgByXml(&copy->lanCfg, xml) != 0) {
      SearchLog(0, "[CSearchIPC] modify IPC xml failed. bad xml : %s \n", xml);
      return QXNET_E_BAD_XML;
    }
    uint32_t current = InetAddr(stored->lanCfg.szIP);
    m_assigned.Remove(current);
    m_assigned.Add(current);
    body.reset(MakeNetworkLANCfgXml(copy->szUID, &copy->lanCfg));
  }
  if (!BodyUsable(body.get(), "[CSearchIPC] modify IPC xml failed. make network lan cfg xml failed \n",
                  "[CSearchIPC] modify IPC xml failed. make cfg xml failed \n"))
    return QXNET_E_BUFFER_SMALL;
  SendMsgToIPC(SEARCH_CMD_MODIFY, body.get());
  return 0;
}

int CSearchIPC::RestoreIPC(long index, __NetSDK_IPC_ENTRYV2* entry) {
  char body[kRestoreBodySize];
  {
    CAutoLocker hold(m_table.Lock());
    if (index > m_table.Count()) {
      SearchLog(0, "[CSearchIPC] restore IPC failed. index[%ld] > m_ipc_count[%d] \n", index, m_table.Count());
      return QXNET_E_BAD_INDEX;
    }
    if (!entry) {
      SearchLog(0, "[CSearchIPC] restore IPC failed, input ipc_entry is null \n");
      return QXNET_E_BAD_INDEX;
    }
    // A negative index or an empty slot has no device to restore.
    __NetSDK_IPC_ENTRYV2* stored = m_table.Slot(index);
    if (!stored) {
      SearchLog(0, "[CSearchIPC] restore IPC failed, m_ipc_list[%ld] is null \n", index);
      return QXNET_E_BAD_INDEX;
    }
    m_assigned.Remove(InetAddr(stored->lanCfg.szIP));
    std::memmove(stored, entry, sizeof(*stored));
    TerminateIpcEntryTexts(stored);
    m_assigned.Add(InetAddr(stored->lanCfg.szIP));
    MakeRestoreBody(body, sizeof(body), stored->szUID, &stored->lanCfg);
  }
  SearchLog(0, "[CSearchIPC] RestoreIPC IPC xmlbuf=%s \n", body);
  SendMsgToIPC(SEARCH_CMD_RESTORE, body);
  return 0;
}
