// libFuzzer target of the recorder record-list readers, GetNvrRecInfo and
// GetNvrRecInfoByMonth, with properties that relate their outputs across buffer sizes and
// between the two readers. An input whose first byte is 0x01 is the inside of a
// RESPONSE_PARAM element (attributes, then children) in an otherwise sound answer, so the
// fuzzer spends its time on the fields; any other input is the whole message.
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <string>

#include "XmlReaderChecks.h"
#include "xml/PayloadReaders.h"

namespace {

using xmlcheck::Check;
using xmlcheck::Fenced;

const char kName[] = "fuzz_nvr_rec_info";

std::string MessageOf(const uint8_t* data, size_t size) {
  // Received texts are NUL-terminated: whatever follows an embedded NUL is not seen.
  std::string raw(reinterpret_cast<const char*>(data), size);
  raw.resize(strlen(raw.c_str()));
  if (raw.empty() || raw[0] != '\x01') return raw;
  return "<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n<PRIVATE_PROTO>\n<MESSAGE_HEADER\n"
         "Msg_type=\"REPLAY_CONTROL_MESSAGE\"\nMsg_code=\"14300\"\nMsg_flag=\"0\"\n/>\n<MESSAGE_BODY>\n"
         "<RESPONSE_PARAM" + raw.substr(1) + "</RESPONSE_PARAM>\n</MESSAGE_BODY>\n</PRIVATE_PROTO>";
}

struct Outputs {
  int rc, rcMonth;
  std::string channel, stream, channelMonth, time, recordData;
};

// Both readers into outputs of `size` bytes each, fences and termination checked.
Outputs ReadBoth(const std::string& in, size_t size) {
  Fenced ch(size), st(size), chm(size), tm(size), rd(size);
  Outputs o;
  o.rc = GetNvrRecInfo(in.c_str(), ch.data(), ch.size(), st.data(), st.size());
  o.rcMonth = GetNvrRecInfoByMonth(in.c_str(), chm.data(), chm.size(), tm.data(), tm.size(), rd.data(), rd.size());
  Check(ch.Sound() && st.Sound() && chm.Sound() && tm.Sound() && rd.Sound(), kName, "output fence", in);
  o.channel = ch.str();
  o.stream = st.str();
  o.channelMonth = chm.str();
  o.time = tm.str();
  o.recordData = rd.str();
  return o;
}

std::string Cut(const std::string& s, size_t size) { return size ? s.substr(0, size - 1) : std::string(); }

// Outputs in small buffers are the full values cut to fit, whatever the reader found.
void CheckCut(const std::string& in, const Outputs& full, size_t size) {
  Outputs o = ReadBoth(in, size);
  Check(o.rc == full.rc && o.rcMonth == full.rcMonth, kName, "result depends on buffer size", in);
  Check(o.channel == Cut(full.channel, size) && o.stream == Cut(full.stream, size), kName, "cut (by channel)", in);
  Check(o.channelMonth == Cut(full.channelMonth, size) && o.time == Cut(full.time, size) &&
            o.recordData == Cut(full.recordData, size),
        kName, "cut (by month)", in);
}

void CheckInput(const std::string& in) {
  // Field texts come from the input, and a character reference is never longer as UTF-8
  // than as written: this size never cuts (twice it, for room to spare).
  const size_t room = 2 * in.size() + 16;
  Outputs full = ReadBoth(in, room);
  Check(xmlcheck::In(full.rc, {0, -1, -2, -3}), kName, "result range", in);
  Check(full.rc == full.rcMonth, kName, "readers disagree on the result", in);
  Check(full.channel == full.channelMonth, kName, "readers disagree on the channel", in);
  if (full.rc != 0) {
    Check(full.channel == "-1" && full.stream.empty() && full.time.empty() && full.recordData.empty(), kName,
          "defaults on failure", in);
  }
  // A field is read only under its own name.
  if (!strstr(in.c_str(), "ChannelId")) Check(full.channel == "-1", kName, "channel from nowhere", in);
  if (!strstr(in.c_str(), "Stream")) Check(full.stream.empty(), kName, "stream from nowhere", in);
  if (!strstr(in.c_str(), "Time")) Check(full.time.empty(), kName, "time from nowhere", in);
  if (!strstr(in.c_str(), "RecordData")) Check(full.recordData.empty(), kName, "record data from nowhere", in);
  for (size_t size : {size_t(256), size_t(32), size_t(3), size_t(1), size_t(0)}) CheckCut(in, full, size);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > 1 << 16) return 0;
  std::string in = MessageOf(data, size);
  const std::string copy = in;
  CheckInput(in);
  Check(in == copy, kName, "input modified", in);
  return 0;
}
