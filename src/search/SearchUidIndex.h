// The table's lookup by UID: a small open-addressing hash of slot numbers over the UIDs
// stored in the records themselves. A linear search touched every stored record (4,784
// bytes apart) for each answer of a new device; this touches one or two.
//
// It answers exactly what the linear search in slot order answered: the first slot whose
// UID equals the one asked for. Records whose UID may have been changed in place
// (network setup writes a whole record from the caller) make the index stale; it is then
// rebuilt from the slots on the next lookup.
#ifndef QXNET_SEARCH_SEARCHUIDINDEX_H
#define QXNET_SEARCH_SEARCHUIDINDEX_H

#include <cstdint>

#include "QXNetSDK.h"

class CSearchUidIndex {
 public:
  enum { kBuckets = 2048 };  // a power of two, at least twice the table's 1000 slots
  CSearchUidIndex() { Reset(); }

  // Forgets every slot (the table was emptied).
  void Reset();
  void Invalidate() { m_stale = true; }
  // The first slot of list[0, count) holding `uid` (compared as the 32-character field),
  // or -1.
  long Find(const char* uid, __NetSDK_IPC_ENTRYV2* const* list, int count);
  // Records that `slot` now holds `uid`, which no earlier slot holds.
  void Add(long slot, const char* uid);

 private:
  long Probe(const char* uid, __NetSDK_IPC_ENTRYV2* const* list, int count, uint32_t* freeBucket) const;
  void Rebuild(__NetSDK_IPC_ENTRYV2* const* list, int count);

  int16_t m_bucket[kBuckets];  // slot numbers, -1 for an empty bucket
  bool m_stale;
};

#endif
