// Alarm reports: PRIVATE_PROTO messages whose MESSAGE_BODY holds
//   <ALARM_REPORT_PARAM> <ALARM_ITEM> <ALARM_TIME Year=.. Month=.. Day=.. WDay=.. Hour=..
//   Minute=.. Second=../> <ALARM_INFO Alarm_code=.. Alarm_flag=.. Alarm_level=..
//   Alarm_data=".."/> </ALARM_ITEM> ... </ALARM_REPORT_PARAM>
// turned into ALARM_ITEM records (168 bytes each, handed to the application as they are).
#ifndef QXNET_XML_ALARMPARSE_H
#define QXNET_XML_ALARMPARSE_H

#include "QXNetSDK.h"

// Result codes (no logging).
enum {
  ALARM_PARSE_ERROR = -1,       // the text does not parse
  ALARM_NO_MESSAGE_BODY = -2,   // no MESSAGE_BODY under the root (or it is not an element)
  ALARM_NO_ITEMS = -3,          // no ALARM_REPORT_PARAM, or no ALARM_ITEM in it
};

// Returns the number of ALARM_ITEM elements (at least 1) and stores a new zero-filled array
// of that many records in *out (freed with delete[]); on a negative result *out is null.
// Records follow the ALARM_ITEM elements in document order; siblings of other names between
// them are skipped, so no record is left empty for them and none is written past the array.
// Numbers are read with atoi (absent or empty attributes give 0); Alarm_data is cut to 127
// characters plus the NUL. A null out gives -1.
int GetAlarmList(const char* msg, ALARM_ITEM** out);

// As GetAlarmList; also, before the items are read: a `channelid` child of MESSAGE_BODY sets
// channel to atoi of that node's own value (its element name, so 0), and a SRC_INFO child of
// ALARM_REPORT_PARAM sets source and channel from its Src and ChannelId attributes (absent
// attributes give 0). Outputs whose elements are missing are left untouched.
int GetAlarmListEx(const char* msg, ALARM_ITEM** out, int& source, int& channel);

#endif
