#include "sdk/IpcEntryCopy.h"

#include <cstring>

static_assert(QXNET_IPC_ENTRY_V1_SIZE <= sizeof(__NetSDK_IPC_ENTRYV2),
              "the first-generation record is a prefix of the whole one");

void CopyIpcEntryToV1(const __NetSDK_IPC_ENTRYV2& full, void* v1) {
  std::memcpy(v1, &full, QXNET_IPC_ENTRY_V1_SIZE);
}

void WidenIpcEntryFromV1(const void* v1, __NetSDK_IPC_ENTRYV2* full) {
  std::memset(full, 0, sizeof(*full));
  if (v1) std::memcpy(full, v1, QXNET_IPC_ENTRY_V1_SIZE);
}
