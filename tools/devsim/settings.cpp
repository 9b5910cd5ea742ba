// The device settings of SET / GET / SETTINGS: one table row per setting with
// its parser, its printer and its help lines, in the order SETTINGS lists them.
#include "control.h"

#include <climits>

namespace devsim {

namespace {

struct SettingDef;
using Setter = bool (*)(const SettingDef&, Settings&, const std::string& v, std::string& err);
using Getter = std::string (*)(const Settings&);

struct SettingDef {
  const char* name;
  Setter set;
  Getter get;
  const char* choices;  // "a|b|c" for settings that take one of a few words
  const char* help;
};

// A whole number, of at least Min where the setting has a floor.
template <long long Settings::*M, long long Min = LLONG_MIN>
bool setNum(const SettingDef& def, Settings& s, const std::string& v, std::string& err) {
  long long n;
  if (!parseInt(v, n)) return err = "not a number: " + v, false;
  if (n < Min) return err = std::string(def.name) + " must be >= " + std::to_string(Min), false;
  s.*M = n;
  return true;
}
template <long long Settings::*M>
std::string getNum(const Settings& s) {
  return std::to_string(s.*M);
}

template <bool Settings::*M>
bool setBool(const SettingDef&, Settings& s, const std::string& v, std::string& err) {
  bool b;
  if (!toBool(v, b)) return err = "not a boolean: " + v, false;
  s.*M = b;
  return true;
}
template <bool Settings::*M>
std::string getBool(const Settings& s) {
  return s.*M ? "1" : "0";
}

template <std::string Settings::*M>
bool setChoice(const SettingDef& def, Settings& s, const std::string& v, std::string& err) {
  std::string all = std::string("|") + def.choices + "|";
  if (v.find('|') == std::string::npos && all.find("|" + v + "|") != std::string::npos) return s.*M = v, true;
  err = "bad value " + v + " for " + def.name;
  return false;
}
template <std::string Settings::*M>
std::string getWord(const Settings& s) {
  return s.*M;
}

// Escaped text; with Clearable, "-" empties it.
template <std::string Settings::*M, bool Clearable>
bool setText(const SettingDef&, Settings& s, const std::string& v, std::string& err) {
  if (Clearable && v == "-") return (s.*M).clear(), true;
  return unescape(v, s.*M) || (err = "bad escape", false);
}
template <std::string Settings::*M, bool Clearable>
std::string getText(const Settings& s) {
  return Clearable && (s.*M).empty() ? "-" : tok(s.*M);
}

bool setAnswerType(const SettingDef&, Settings& s, const std::string& v, std::string& err) {
  if (v.empty()) return err = "empty type", false;
  s.configAnswerType = v;
  return true;
}

bool setFlag(const SettingDef&, Settings& s, const std::string& v, std::string& err) {
  long long f;
  if (!parseInt(v, f) || f < 0 || f > 0xFFFFFFFFll) return err = "bad flag " + v, false;
  s.answerFlag = static_cast<uint32_t>(f);
  return true;
}
std::string getFlag(const Settings& s) { return "0x" + hex32(s.answerFlag); }

// One of the two device layouts of a stream-parameter block.
template <long long Settings::*M, long long A, long long B>
bool setLayout(const SettingDef& def, Settings& s, const std::string& v, std::string& err) {
  long long n;
  if (!parseInt(v, n) || (n != A && n != B)) return err = "bad value " + v + " for " + def.name, false;
  s.*M = n;
  return true;
}

bool setPack(const SettingDef&, Settings& s, const std::string& v, std::string& err) {
  long long n;
  if (!parseInt(v, n) || n < 1 || n > 65535) return err = "rec_pack must be 1..65535", false;
  s.recPack = n;
  return true;
}

using S = Settings;

const SettingDef kSettings[] = {
    {"auth_mode", setChoice<&S::authMode>, getWord<&S::authMode>, "normal|silent|refuse|close",
     "  auth_mode normal|silent|refuse|close\n"
     "                                   silent: never answer authentication;\n"
     "                                   refuse: refuse every account; close: close\n"
     "                                   the connection on an authentication request,\n"
     "                                   unanswered\n"},
    {"auth_refusal", setNum<&S::authRefusal>, getNum<&S::authRefusal>, nullptr,
     "  auth_refusal CODE                result for refused accounts (default 2)\n"},
    {"max_channels", setNum<&S::maxChannels>, getNum<&S::maxChannels>, nullptr,
     "  max_channels N                   MAXChannels (negative: no body)\n"},
    {"heartbeat_answer", setBool<&S::heartbeatAnswer>, getBool<&S::heartbeatAnswer>, nullptr,
     "  heartbeat_answer 0|1             answer heartbeats (default 1)\n"},
    {"require_auth", setBool<&S::requireAuth>, getBool<&S::requireAuth>, nullptr,
     "  require_auth 0|1                 ignore requests before authentication (0)\n"},
    {"config_answer_type", setAnswerType, getText<&S::configAnswerType, false>, nullptr,
     "  config_answer_type T             type of configuration answers (10000; or 40000)\n"},
    {"config_missing_result", setNum<&S::configMissingResult>, getNum<&S::configMissingResult>, nullptr,
     "  config_missing_result N          result of reading an unset command (-1)\n"},
    {"reboot_pause_ms", setNum<&S::rebootPauseMs>, getNum<&S::rebootPauseMs>, nullptr,
     "  reboot_pause_ms N                listener closed this long on reboot (3000)\n"},
    {"front_replay", setChoice<&S::frontReplay>, getWord<&S::frontReplay>, "none|plain|spaced",
     "  front_replay none|plain|spaced   marker in the 14020 capability text\n"
     "                                   (plain \"+front_replay+\", spaced \"+ front_replay +\")\n"},
    {"caps", setText<&S::caps, false>, getText<&S::caps, false>, nullptr,
     "  caps TEXT                        rest of the capability text (escaped)\n"},
    {"serial_result", setNum<&S::serialResult>, getNum<&S::serialResult>, nullptr,
     "  serial_result N                  result of 14035 (start serial)\n"},
    {"ptz_answer", setBool<&S::ptzAnswer>, getBool<&S::ptzAnswer>, nullptr,
     "  ptz_answer 0|1                   answer PTZ commands (0)\n"},
    {"userdata_answer", setBool<&S::userDataAnswer>, getBool<&S::userDataAnswer>, nullptr,
     "  userdata_answer 0|1              answer 14033 (1)\n"},
    {"sysctl_answer_unknown", setBool<&S::sysctlAnswerUnknown>, getBool<&S::sysctlAnswerUnknown>, nullptr,
     "  sysctl_answer_unknown 0|1        answer other type 20000 commands with 0 (1)\n"},
    {"upload_mode", setChoice<&S::uploadMode>, getWord<&S::uploadMode>, "accept|refuse|late|twice",
     "  upload_mode accept|refuse|late|twice\n"
     "                                   late: answer only on UPLOAD ACCEPT\n"},
    {"upload_refuse_code", setNum<&S::uploadRefuseCode>, getNum<&S::uploadRefuseCode>, nullptr,
     "  upload_refuse_code N             result used by refuse (-1)\n"},
    {"upload_name", setText<&S::uploadName, true>, getText<&S::uploadName, true>, nullptr,
     "  upload_name NAME|-               file for the next finished uploads\n"
     "                                   (relative to --upload-dir)\n"},
    {"dl_file", setText<&S::dlFile, true>, getText<&S::dlFile, true>, nullptr,
     "  dl_file PATH|-                   configuration file served on 20006\n"},
    {"dl_size", setNum<&S::dlSize, 0>, getNum<&S::dlSize>, nullptr,
     "  dl_size N                        size of the generated file when no dl_file (10000)\n"},
    {"dl_chunk", setNum<&S::dlChunk, 1>, getNum<&S::dlChunk>, nullptr,
     "  dl_chunk N                       data bytes per 20007 answer (4096)\n"},
    {"dl_fault", setChoice<&S::dlFault>, getWord<&S::dlFault>,
     "none|badsep|zerolen|nolength|extra|short|twice|drop",
     "  dl_fault none|badsep|zerolen|nolength|extra|short|twice|drop\n"
     "                                   badsep: first data answer with separator bytes\n"
     "                                   00 ff ff ff; zerolen: a dataLength 0 answer after\n"
     "                                   the first chunk; nolength: no 20006 answer;\n"
     "                                   extra: dl_extra more bytes than announced;\n"
     "                                   short: announce dl_extra more than sent;\n"
     "                                   twice: length answer twice; drop: close the\n"
     "                                   connection in the middle of the second answer\n"},
    {"dl_extra", setNum<&S::dlExtra>, getNum<&S::dlExtra>, nullptr,
     "  dl_extra N                       bytes for extra/short (100)\n"},
    {"dl_delay_ms", setNum<&S::dlDelayMs>, getNum<&S::dlDelayMs>, nullptr,
     "  dl_delay_ms N                    pause before each data answer (0)\n"},
    {"mute", setBool<&S::mute>, getBool<&S::mute>, nullptr,
     "  mute 0|1                         send nothing at all\n"},
    {"rec_video", setChoice<&S::recVideo>, getWord<&S::recVideo>, "h264|h265",
     "  rec_video h264|h265              recorder: video codec of the next streams\n"},
    {"rec_size", setChoice<&S::recSize>, getWord<&S::recSize>, "320x240|1920x1080",
     "  rec_size 320x240|1920x1080       recorder: picture size\n"},
    {"rec_audio", setChoice<&S::recAudio>, getWord<&S::recAudio>, "none|pcmu|pcma|aac",
     "  rec_audio none|pcmu|pcma|aac     recorder: audio (G.711 mu-law, A-law, AAC; aac)\n"},
    {"rec_pace", setChoice<&S::recPace>, getWord<&S::recPace>, "realtime|fast",
     "  rec_pace realtime|fast           recorder: frames at their time (speed controls\n"
     "                                   apply), or as fast as the socket takes\n"},
    {"rec_video_layout", setLayout<&S::recVideoLayout, 536, 537>, getNum<&S::recVideoLayout>, nullptr,
     "  rec_video_layout 536|537         VideoParam: 536 bytes without base64 padding, or\n"
     "                                   with padding (decoded as 537)\n"},
    {"rec_audio_layout", setLayout<&S::recAudioLayout, 276, 57>, getNum<&S::recAudioLayout>, nullptr,
     "  rec_audio_layout 276|57          AudioParam: the 276-byte or the compact 57-byte block\n"},
    {"rec_pack", setPack, getNum<&S::recPack>, nullptr,
     "  rec_pack N                       largest pack payload (4096; at most 65535)\n"},
    {"answer_flag", setFlag, getFlag, nullptr,
     "  answer_flag X                    frame flag of the device (0x20180307 or 0x70308102)\n"},
};

const SettingDef* findSetting(const std::string& name) {
  for (const SettingDef& d : kSettings)
    if (name == d.name) return &d;
  return nullptr;
}

}  // namespace

bool Sim::setSetting(Settings& s, const std::string& name, const std::string& value, std::string& err) {
  const SettingDef* def = findSetting(name);
  if (!def) return err = "unknown setting " + name, false;
  return def->set(*def, s, value, err);
}

bool Sim::getSetting(const Settings& s, const std::string& name, std::string& out) const {
  const SettingDef* def = findSetting(name);
  if (!def) return false;
  out = def->get(s);
  return true;
}

std::string Sim::settingsLine(const Settings& s) const {
  std::string out;
  for (const SettingDef& d : kSettings) out += std::string(" ") + d.name + "=" + d.get(s);
  return out;
}

std::string settingsHelpText() {
  std::string h = "Settings (SET NAME VALUE [dev=K], GET NAME [dev=K], SETTINGS [dev=K]):\n";
  for (const SettingDef& d : kSettings) h += d.help;
  return h;
}

}  // namespace devsim
