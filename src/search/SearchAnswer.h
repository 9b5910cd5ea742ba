// Reading one device's search answer into a record: identity and versions, the type
// filter's input, OSD text, ports, TCP/IP settings and the first account. Pure: no table,
// no callback.
#ifndef QXNET_SEARCH_SEARCHANSWER_H
#define QXNET_SEARCH_SEARCHANSWER_H

#include <tinyxml.h>

#include "QXNetSDK.h"

enum { kIpcEntryMagic = 0x01020304, kIpcEntryVersion = 1001 };

// A zero record with its two constants set.
void InitIpcEntry(__NetSDK_IPC_ENTRYV2* entry);

// Ends every text field of a record given by the caller within its width, so that no
// reader of the stored copy runs past a field.
void TerminateIpcEntryTexts(__NetSDK_IPC_ENTRYV2* entry);

// Fills hardware type, product model, firmware version, UID and SDK platform from a body
// text ("<body>...</body>"); 0, or -3 (logged) when it is not well-formed XML.
int GetDeviceParam(__NetSDK_IPC_ENTRYV2* entry, const char* body);

// True for the device types the table keeps: "IPC" or "NVR" anywhere in the hardware type.
bool IsKeptDeviceType(const __NetSDK_IPC_ENTRYV2& entry);

// Reads a whole search-answer datagram into `entry` (which this initialises). 0 when the
// record is to be stored or compared; -3 (logged) when the answer is dropped: no body,
// unreadable body, or a device type that is not kept. `parsed`, when given, is the whole
// datagram's successful parse (the head reader's): its body element is read instead of
// parsing the body again wherever that reads alike (ReusableBodyElement); the record,
// result and log lines are the same either way.
int ParseSearchAnswer(const char* msg, __NetSDK_IPC_ENTRYV2* entry, const TiXmlDocument* parsed = nullptr);

// The UID (cut to 31 characters) and token (cut to 31) of a modify or restore answer
// datagram; 0, or -3 (logged) without a readable body. `parsed` as above.
int GetDeviceUID_TOKEN(char* uid, char* token, const char* msg, const TiXmlDocument* parsed = nullptr);

#endif
