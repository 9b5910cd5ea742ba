// The first-generation discovery record is the first QXNET_IPC_ENTRY_V1_SIZE bytes of
// __NetSDK_IPC_ENTRYV2. The plain exports work on it and the core on the whole record;
// these two copies are the only bridge. Internal (not exported): the exports and tests
// use them.
#ifndef QXNET_SDK_IPCENTRYCOPY_H
#define QXNET_SDK_IPCENTRYCOPY_H

#include "QXNetSDK.h"

// Writes the first-generation part of `full` to `v1`, which need only hold
// QXNET_IPC_ENTRY_V1_SIZE bytes: nothing past them is written.
void CopyIpcEntryToV1(const __NetSDK_IPC_ENTRYV2& full, void* v1);

// Builds a whole record from a first-generation one: its QXNET_IPC_ENTRY_V1_SIZE bytes,
// the rest zero. Only those bytes of `v1` are read; a null `v1` gives an all-zero record.
void WidenIpcEntryFromV1(const void* v1, __NetSDK_IPC_ENTRYV2* full);

#endif
