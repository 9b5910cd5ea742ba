// Control commands for the device's unsolicited reports: camera status
// (CAMSTAT) and alarm reports in their good and broken forms (ALARM).
#include "control.h"

namespace devsim {

namespace {

using KV = std::map<std::string, std::string>;

std::string xmlAttr(const std::string& s) {
  std::string o;
  for (char ch : s) {
    switch (ch) {
      case '&': o += "&amp;"; break;
      case '<': o += "&lt;"; break;
      case '>': o += "&gt;"; break;
      case '"': o += "&quot;"; break;
      default: o += ch;
    }
  }
  return o;
}

std::string value(const KV& kv, const char* k, const char* def) {
  auto it = kv.find(k);
  return it == kv.end() ? std::string(def) : it->second;
}

std::string attr(const KV& kv, const char* name, const char* key, const char* def) {
  return std::string(name) + "=\"" + xmlAttr(value(kv, key, def)) + "\"";
}

std::string alarmTime(const KV& kv) {
  return "<ALARM_TIME " + attr(kv, "Year", "year", "2024") + " " + attr(kv, "Month", "month", "5") + " " +
         attr(kv, "Day", "day", "17") + " " + attr(kv, "WDay", "wday", "5") + " " +
         attr(kv, "Hour", "hour", "13") + " " + attr(kv, "Minute", "minute", "45") + " " +
         attr(kv, "Second", "second", "30") + "/>";
}

// Alarm_data: data= (escaped), or datalen= letters A..Z repeated. "" with err set on a bad value.
bool alarmData(const KV& kv, std::string& data, std::string& err) {
  if (!unescape(value(kv, "data", "sim alarm"), data)) return err = "bad escape in data", false;
  if (!kv.count("datalen")) return true;
  long long datalen = -1;
  if (!parseInt(value(kv, "datalen", "0"), datalen) || datalen < 0 || datalen > 100000)
    return err = "bad datalen", false;
  data.clear();
  for (long long i = 0; i < datalen; ++i) data += static_cast<char>('A' + i % 26);
  return true;
}

}  // namespace

std::string Sim::alarmBody(const KV& kv, std::string& err) const {
  std::string form = value(kv, "form", "good");
  long long items = 1;
  if (!parseInt(value(kv, "items", "1"), items) || items < 0 || items > 10000) return err = "bad items", "";
  std::string data;
  if (!alarmData(kv, data, err)) return std::string();
  std::string head = "<MESSAGE_HEADER Msg_type=\"ALARM_REPORT_MESSAGE\" " +
                     attr(kv, "Msg_code", "msgcode", "CMD_REPORT_ALARM") + " " + attr(kv, "Msg_flag", "msgflag", "0");
  if (form == "badquote") return head + "\" />" + "<MESSAGE_BODY><ALARM_REPORT_PARAM></ALARM_REPORT_PARAM></MESSAGE_BODY>";
  head += " />";
  if (form == "emptybody") return head + "<MESSAGE_BODY></MESSAGE_BODY>";
  if (form == "emptybody_nl") return head + "<MESSAGE_BODY>\n</MESSAGE_BODY>";
  if (form != "good") return err = "bad form " + form, "";
  std::string info = "<ALARM_INFO " + attr(kv, "Alarm_code", "acode", "1") + " " + attr(kv, "Alarm_flag", "aflag", "1") +
                     " " + attr(kv, "Alarm_level", "level", "2") + " Alarm_data=\"" + xmlAttr(data) + "\"/>";
  std::string item = "<ALARM_ITEM>" + (value(kv, "notime", "0") == "1" ? std::string() : alarmTime(kv)) +
                     (value(kv, "noinfo", "0") == "1" ? std::string() : info) + "</ALARM_ITEM>";
  std::string body = head + "<MESSAGE_BODY><ALARM_REPORT_PARAM>";
  for (long long i = 0; i < items; ++i) body += item;
  return body + "</ALARM_REPORT_PARAM></MESSAGE_BODY>";
}

std::string Cmd::camstat() {
  if (a.pos.size() < 2) return "ERR usage: CAMSTAT CONN TEXT [TEXT...] [type=T] [cmd=C]";
  std::vector<Conn*> cs;
  if (!needConns(0, cs)) return "ERR " + err;
  std::string body;
  for (size_t i = 1; i < a.pos.size(); ++i) {
    std::string text;
    if (!unescape(a.pos[i], text)) return "ERR bad escape";
    body += "<Ipcs_stat>" + text + "</Ipcs_stat>\n";
  }
  body.pop_back();
  for (Conn* c : cs) sim.sendPayload(*c, envelope(a.get("type", "30000"), a.get("cmd", "35003"), "0", body));
  sim.bump("camstat_sent", static_cast<long long>(cs.size()));
  return okCount(cs.size());
}

std::string Cmd::alarm() {
  std::vector<Conn*> cs;
  if (!needConns(0, cs)) return "ERR " + err;
  std::string body = sim.alarmBody(a.kv, err);
  if (!err.empty()) return "ERR " + err;
  // wrap=body: inside the PrivateProto body; root: MESSAGE_HEADER / MESSAGE_BODY as
  // children of the PrivateProto root (body empty); private: PRIVATE_PROTO alone.
  std::string wrap = a.get("wrap", "body"), payload;
  if (wrap == "body") {
    payload = envelope(a.get("type", "30000"), a.get("cmd", "35010"), "0", body);
  } else if (wrap == "root") {
    payload = envelope(a.get("type", "30000"), a.get("cmd", "35010"), "0", "");
    payload.insert(payload.find("<body>"), body + "\n");
  } else if (wrap == "private") {
    payload = "<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n<PRIVATE_PROTO>\n" + body + "\n</PRIVATE_PROTO>";
  } else {
    return "ERR bad wrap " + wrap;
  }
  for (Conn* c : cs) sim.sendPayload(*c, payload);
  sim.bump("alarms_sent", static_cast<long long>(cs.size()));
  return okCount(cs.size());
}

}  // namespace devsim
