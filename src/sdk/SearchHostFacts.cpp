#include "sdk/SearchHostFacts.h"

#include <arpa/inet.h>

#include <cstring>
#include <set>

#include "base/FreeAddress.h"
#include "search/SearchIPC.h"

namespace {

// The addresses of the devices in the table, read once before the walk so that a probe
// of two minutes does not hold the table's records. A table that is not available (a
// negative count) excludes nothing.
std::set<uint32_t> KnownDeviceAddresses(CSearchIPC& search) {
  std::set<uint32_t> out;
  int count = search.GetIPCCount();
  __NetSDK_IPC_ENTRYV2 e;
  for (int i = 0; i < count; ++i) {
    if (search.GetIPCInfo(i, &e) != 0) continue;
    e.lanCfg.szIP[sizeof e.lanCfg.szIP - 1] = '\0';
    out.insert(inet_addr(e.lanCfg.szIP));
  }
  return out;
}

}  // namespace

CSearchHostFacts::CSearchHostFacts() { memset(m_szHostAddr, 0, sizeof m_szHostAddr); }

int CSearchHostFacts::GetOneIPAddress(CSearchIPC& search, char* strResult, int nSize) {
  std::set<uint32_t> known;
  if (strResult && nSize >= 33) known = KnownDeviceAddresses(search);
  // Skipped before any probe: the table's devices and the addresses this process handed out.
  CAssignedAddrs& assigned = search.Assigned();
  return ::GetOneIPAddress(
      m_szHostAddr, [&known, &assigned](uint32_t a) { return known.count(a) != 0 || assigned.Contains(a); },
      strResult, nSize);
}

int CSearchHostFacts::GetNetworkParam(long index, char* strResult, int size) {
  return ::GetNetworkParam(m_szHostAddr, index, strResult, size);
}
