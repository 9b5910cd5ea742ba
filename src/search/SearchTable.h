// The table of found devices: up to 1000 records in slot order, identified by UID, and the
// search status callback that hears of every change (codes 1 to 4).
//
// One lock guards the slots and the count; the callback runs with it held, so the
// application may read the table from inside its callback (the lock is re-entrant) while
// another thread's clear waits for the callback to end.
#ifndef QXNET_SEARCH_SEARCHTABLE_H
#define QXNET_SEARCH_SEARCHTABLE_H

#include <atomic>

#include <tinyxml.h>

#include "QXNetSDK.h"
#include "base/Locker.h"
#include "search/SearchUidIndex.h"

enum {
  SEARCH_CODE_NEW = 1,
  SEARCH_CODE_CHANGED = 2,
  SEARCH_CODE_MODIFIED = 3,
  SEARCH_CODE_RESTORED = 4,
};

class CSearchTable {
 public:
  enum { kMaxDevices = 1000 };
  CSearchTable();
  ~CSearchTable();

  void SetCallback(fSearchDevStatusCallBack cb, void* user);
  fSearchDevStatusCallBack Callback() const { return m_fCallBack; }
  void* CallbackUser() const { return m_pUser; }
  // ResponseMessageHandle: 0 new device added; -1 null msg; -2 negative len; -3 otherwise.
  // `parsed`: the whole message's successful parse, when the caller has one (see
  // ParseSearchAnswer); it spares the body's second parse.
  int HandleSearchAnswer(const char* msg, int len, const TiXmlDocument* parsed = nullptr);
  // ResponseMessageHandleMsgCode for cmd 30004 / 30006 with the head's result text.
  int HandleSetupAnswer(const char* msg, int len, int msgcode, const char* msgflag,
                        const TiXmlDocument* parsed = nullptr);

  // Maps the records and makes their pages resident now, if not done yet: the search worker
  // does it before its first request, so that a burst of answers from new devices pays no
  // page faults. False when there is no memory for them.
  bool Reserve();

  int Count() const { return m_count; }
  int GetIPCInfo(long index, __NetSDK_IPC_ENTRYV2* out);
  int GetIPCInfoXML(long index, char* buf, int size);
  int Clear();

  // For the network setup requests: the lock, and the record in a slot (null when empty
  // or out of range). Use the record only while holding the lock; the caller may rewrite
  // it whole, UID included.
  CLocker& Lock() { return m_lock; }
  __NetSDK_IPC_ENTRYV2* Slot(long index);

 private:
  CSearchTable(const CSearchTable&) = delete;
  CSearchTable& operator=(const CSearchTable&) = delete;
  long Find(const char* uid);
  void Notify(long code, long index, __NetSDK_IPC_ENTRYV2* entry);
  int Store(const __NetSDK_IPC_ENTRYV2& fresh);

  CLocker m_lock;
  __NetSDK_IPC_ENTRYV2* m_list[kMaxDevices];
  std::atomic<int> m_count;
  std::atomic<fSearchDevStatusCallBack> m_fCallBack;
  std::atomic<void*> m_pUser;
  // The records behind m_list: slot i's is m_records[i]. One mapping of fixed size, made
  // resident at once by Reserve (at the start of a search, else for the first device) and
  // released by Clear: a heap block of 4,784 bytes per answer made the allocator merge its
  // freed small blocks every time, and a page fault per new device cost about as much as
  // reading its answer.
  __NetSDK_IPC_ENTRYV2* m_records;
  CSearchUidIndex m_index;
};

#endif
