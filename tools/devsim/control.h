// Control-channel plumbing shared by the command files: parsed arguments, the
// context one command runs in, and the table of verbs.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "sim.h"

namespace devsim {

// Positional words and key=value options of one command line.
struct Args {
  std::vector<std::string> pos;
  std::map<std::string, std::string> kv;
  bool has(const std::string& k) const { return kv.count(k) != 0; }
  std::string get(const std::string& k, const std::string& def = std::string()) const {
    auto it = kv.find(k);
    return it == kv.end() ? def : it->second;
  }
};

// Reply helpers.
std::string tok(const std::string& s);  // escaped, commas too (lists use commas)
std::string hex64(uint64_t v);
std::string hex32(uint32_t v);
std::string upper(std::string s);
bool toBool(const std::string& v, bool& out);
std::string okCount(size_t n);  // "OK N", the reply of commands that act on connections

struct Verb;

// One command being run: its words, options, selected device, and the handlers.
// A friend of Sim, so the handlers reach the simulator's state directly.
struct Cmd {
  Cmd(Sim& s, ControlClient* cl, const std::string& line, std::vector<std::string> words);
  bool parse(const Verb* v);  // false: bad dev= option

  Sim& sim;
  ControlClient* client;  // null when run from a script
  const std::string& raw;
  std::vector<std::string> t;  // the words of the line
  std::string verb;            // t[0] in capitals
  size_t textStart = 0;        // words before the free text
  Args a;
  int dev = -1;                // dev=K, -1 when absent
  Device* d0 = nullptr;        // the device getters read
  std::string err;

  // Parks the client until check() holds; scripts get one immediate evaluation.
  std::string startWait(long long timeoutMs, std::function<bool(std::string&)> check,
                        std::function<std::string()> onTimeout);
  // Connections named by a.pos[idx] ("last", "all" or an id); false with err set.
  bool needConns(size_t idx, std::vector<Conn*>& out);
  std::string freeText() const;              // the rest of the line after the fixed words
  bool escapedText(std::string& out) const;  // the same, unescaped
  void eachDevice(const std::function<void(Device&)>& fn);

  // ctl_query.cpp
  std::string help();
  std::string ping();
  std::string quit();
  std::string ports();
  std::string conns();
  std::string stats();
  std::string count();
  std::string lastMsg();
  std::string msg();
  std::string msgs();
  std::string clearMsgs();
  // ctl_wait.cpp
  std::string wait();
  std::string waitConn();
  std::string waitClosed();
  std::string waitStat();
  // ctl_store.cpp
  std::string set();
  std::string get();
  std::string settings();
  std::string account();
  std::string config();
  std::string userData();
  // ctl_transfer.cpp
  std::string upload();
  std::string download();
  std::string reboot();
  // ctl_send.cpp
  std::string close();
  std::string send();
  std::string sendText();
  std::string sendHex();
  std::string frame();
  std::string garbage();
  std::string len8();
  std::string oversize();
  std::string cutFrame();
  std::string hb();
  std::string authAnswer();
  std::string trickle();
  // ctl_report.cpp
  std::string camstat();
  std::string alarm();
  // ctl_fault.cpp
  std::string arm();
  std::string chaos();
  // ctl_lan.cpp
  std::string lan();
  std::string lanList();
  std::string lanSet();
  std::string lanGet();
  std::string lanWait(bool wait);
  std::string lanLast();
  std::string lanFlood();
  std::string lanBad();
  std::string lanOversize();
  // ctl_recorder.cpp
  std::string recFault();
  std::string recSpans();
  std::string recStream();

 private:
  std::string msgOptions(long long& conn, long long& max);
  std::string showMsg(bool bySeq);
  std::string uploadAnswer(const std::string& sub);
  std::string uploadShow();
  std::string configSet();
  std::string chaosShow();
};

// A row of the verb table. Rows without a handler are section headings of the
// help text. Commands that end in free text name how many words precede it
// (only when their first word is textIfFirst, if that is given).
struct Verb {
  const char* name;
  std::string (Cmd::*run)();
  size_t textAfter;
  const char* textIfFirst;
  std::string help;  // its lines of the help text, "" when another row documents it
};

const std::vector<Verb>& verbTable();
const Verb* findVerb(const std::string& upperName);

// Settings (settings.cpp): the help section listing every setting.
std::string settingsHelpText();

}  // namespace devsim
