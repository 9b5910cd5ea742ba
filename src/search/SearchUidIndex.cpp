#include "search/SearchUidIndex.h"

#include <cstring>

namespace {
const size_t kUidField = sizeof(static_cast<__NetSDK_IPC_ENTRYV2*>(nullptr)->szUID);
static_assert(CSearchUidIndex::kBuckets >= 2 * 1000 && (CSearchUidIndex::kBuckets & (CSearchUidIndex::kBuckets - 1)) == 0,
              "room for every slot, and a mask for the bucket number");

// FNV-1a over the field's text: the characters strncmp over the field compares.
uint32_t Hash(const char* uid) {
  uint32_t h = 2166136261u;
  for (size_t i = 0; i < kUidField && uid[i]; ++i) h = (h ^ static_cast<unsigned char>(uid[i])) * 16777619u;
  return h;
}
}  // namespace

void CSearchUidIndex::Reset() {
  for (int16_t& b : m_bucket) b = -1;
  m_stale = false;
}

// The slot holding `uid`, or -1 with the empty bucket where it would go.
long CSearchUidIndex::Probe(const char* uid, __NetSDK_IPC_ENTRYV2* const* list, int count,
                            uint32_t* freeBucket) const {
  const uint32_t mask = kBuckets - 1;
  for (uint32_t b = Hash(uid) & mask;; b = (b + 1) & mask) {
    int16_t s = m_bucket[b];
    if (s < 0) {
      if (freeBucket) *freeBucket = b;
      return -1;
    }
    if (s < count && list[s] && std::strncmp(list[s]->szUID, uid, kUidField) == 0) return s;
  }
}

void CSearchUidIndex::Rebuild(__NetSDK_IPC_ENTRYV2* const* list, int count) {
  Reset();
  if (count > kBuckets / 2) count = kBuckets / 2;
  for (int i = 0; i < count; ++i) {
    uint32_t b;
    // Slot order: of two slots with one UID the first is kept, as the linear search found.
    if (list[i] && Probe(list[i]->szUID, list, count, &b) < 0) m_bucket[b] = static_cast<int16_t>(i);
  }
}

long CSearchUidIndex::Find(const char* uid, __NetSDK_IPC_ENTRYV2* const* list, int count) {
  if (m_stale) Rebuild(list, count);
  return Probe(uid, list, count, nullptr);
}

void CSearchUidIndex::Add(long slot, const char* uid) {
  if (slot < 0 || slot >= kBuckets / 2) return;
  const uint32_t mask = kBuckets - 1;
  uint32_t b = Hash(uid) & mask;
  while (m_bucket[b] >= 0) b = (b + 1) & mask;
  m_bucket[b] = static_cast<int16_t>(slot);
}
