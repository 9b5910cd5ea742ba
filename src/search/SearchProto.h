// The discovery wire format: the request texts the host sends, and the first reading of
// every datagram that arrives (envelope check, head fields, classification by cmd).
#ifndef QXNET_SEARCH_SEARCHPROTO_H
#define QXNET_SEARCH_SEARCHPROTO_H

#include <cstddef>

class TiXmlDocument;

enum {
  kSearchMsgSize = 20480,     // one request or one received datagram
  kSearchHeadField = 256,     // type, cmd and result of a received head
  kSearchRequestPort = 2018,  // devices listen here
  kSearchFirstBindPort = 2019,
};

enum SearchCmd {
  SEARCH_CMD_SEARCH = 30001,
  SEARCH_CMD_SEARCH_ANSWER = 30002,
  SEARCH_CMD_MODIFY = 30003,
  SEARCH_CMD_MODIFY_ANSWER = 30004,
  SEARCH_CMD_RESTORE = 30005,
  SEARCH_CMD_RESTORE_ANSWER = 30006,
};

// The vendor id that requests carry when it is not empty. Nothing in the library sets it.
extern char g_strVendorId[64];

// Formats one request (cmd, optional body, vendor id; an empty or null vendor id leaves
// the vendor element out) into out[size]. Returns the text's length, or -1 (out "") when it
// does not fit.
int FormatSearchRequest(char* out, size_t size, int cmd, const char* body, const char* vendorId);

struct SearchHead {
  char type[kSearchHeadField];
  char cmd[kSearchHeadField];
  char result[kSearchHeadField];
};

enum SearchDatagramKind {
  SEARCH_DG_DROPPED = 0,   // not a PrivateProto text, or its head is incomplete (logged)
  SEARCH_DG_SEARCH_ANSWER, // cmd 30002
  SEARCH_DG_SETUP_ANSWER,  // cmd 30004 or 30006
  SEARCH_DG_OTHER,         // any other cmd (logged as "recv message")
};

// Reads the envelope and head of one NUL-terminated datagram text and says what it is.
// Field copies are cut to kSearchHeadField - 1 characters. Logs the texts of the receive
// step for dropped and other datagrams.
SearchDatagramKind ClassifySearchDatagram(const char* text, SearchHead* head);
// The same, keeping the parsed text in `doc` (an empty document) for the readers of the
// answer; for a datagram not dropped, `doc` holds a parse that succeeded.
SearchDatagramKind ClassifySearchDatagram(const char* text, SearchHead* head, TiXmlDocument* doc);

#endif
