#include "xml/AlarmParse.h"

#include <stdlib.h>
#include <string.h>

#include <tinyxml.h>

#include "xml/XmlParse.h"
#include "xml/XmlPath.h"
#include "xml/xmlutil.h"

namespace {

int AttrInt(const TiXmlElement* e, const char* name) {
  const char* v = e->Attribute(name);
  return v ? atoi(v) : 0;
}

void FillItem(const TiXmlNode* item, ALARM_ITEM* rec) {
  for (const TiXmlNode* c = item->FirstChild(); c; c = c->NextSibling()) {
    const TiXmlElement* e = c->ToElement();
    if (!e) continue;
    if (e->ValueStr() == "ALARM_TIME") {
      rec->nYear = AttrInt(e, "Year");
      rec->nMonth = AttrInt(e, "Month");
      rec->nDay = AttrInt(e, "Day");
      rec->nWDay = AttrInt(e, "WDay");
      rec->nHour = AttrInt(e, "Hour");
      rec->nMinute = AttrInt(e, "Minute");
      rec->nSecond = AttrInt(e, "Second");
    } else if (e->ValueStr() == "ALARM_INFO") {
      rec->nAlarmCode = AttrInt(e, "Alarm_code");
      rec->nAlarmFlag = AttrInt(e, "Alarm_flag");
      rec->nAlarmLevel = AttrInt(e, "Alarm_level");
      const char* data = e->Attribute("Alarm_data");
      if (data) CopyText(rec->szAlarmData, sizeof(rec->szAlarmData), data);
    }
  }
}

int ReadAlarms(const char* msg, ALARM_ITEM** out, bool extended, int* source, int* channel) {
  if (!out) return ALARM_PARSE_ERROR;
  *out = nullptr;
  TiXmlDocument doc;
  if (ParseXmlText(doc, msg) != XML_PARSE_OK) return ALARM_PARSE_ERROR;
  TiXmlElement* root = doc.RootElement();
  TiXmlNode* body = root ? SelectNode(root, "MESSAGE_BODY") : nullptr;
  if (!body) return ALARM_NO_MESSAGE_BODY;
  if (extended && !body->ToElement()) return ALARM_NO_MESSAGE_BODY;
  TiXmlNode* param = SelectNode(body, "ALARM_REPORT_PARAM");
  if (!param) return ALARM_NO_ITEMS;

  if (extended) {
    if (const TiXmlNode* ch = SelectNode(body, "channelid")) *channel = atoi(ch->Value());
    if (const TiXmlElement* src = SelectElement(param, "SRC_INFO")) {
      *source = AttrInt(src, "Src");
      *channel = AttrInt(src, "ChannelId");
    }
  }

  const TiXmlNode* first = SelectNode(param, "ALARM_ITEM");
  if (!first) return ALARM_NO_ITEMS;
  int count = 0;
  for (const TiXmlNode* n = first; n; n = n->NextSibling())
    if (n->ValueStr() == "ALARM_ITEM") ++count;
  if (count == 0) return ALARM_NO_ITEMS;

  ALARM_ITEM* items = new ALARM_ITEM[count];
  memset(items, 0, sizeof(ALARM_ITEM) * static_cast<size_t>(count));
  int i = 0;
  for (const TiXmlNode* n = first; n && i < count; n = n->NextSibling()) {
    if (n->ValueStr() != "ALARM_ITEM") continue;  // other siblings take no record
    FillItem(n, &items[i++]);
  }
  *out = items;
  return count;
}

}  // namespace

int GetAlarmList(const char* msg, ALARM_ITEM** out) { return ReadAlarms(msg, out, false, nullptr, nullptr); }

int GetAlarmListEx(const char* msg, ALARM_ITEM** out, int& source, int& channel) {
  return ReadAlarms(msg, out, true, &source, &channel);
}
