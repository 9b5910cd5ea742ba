// Feeding a recorder stream into a connection's output queue: a batch whenever the queue
// runs dry (as fast as the socket takes), or frames as their time comes (real time).
#include "sim.h"

namespace devsim {

namespace {
constexpr size_t kBatchBytes = 256 * 1024;
}

void Sim::queueFrame(Conn& c, const std::string& payload) {
  Segment s;
  s.data = frame(payload, devices_[static_cast<size_t>(c.dev)].s.answerFlag);
  c.out.push_back(std::move(s));
  c.txFrames++;
  bump("frames_tx");
}

// True when something was queued.
bool Sim::pumpRecorder(Conn& c) {
  Device& d = devices_[static_cast<size_t>(c.dev)];
  Segment seg;
  int64_t due = 0;
  RecorderStream::Stop stop = c.rec->produce(seg.data, kBatchBytes, nowMs(), due, d.s.answerFlag);
  bool queued = !seg.data.empty();
  if (queued) c.out.push_back(std::move(seg));
  switch (stop) {
    case RecorderStream::Stop::Budget:
    case RecorderStream::Stop::Paused:
      break;
    case RecorderStream::Stop::NotDue:
    case RecorderStream::Stop::Stall:
      armFlushTimer(c, due);
      break;
    case RecorderStream::Stop::Done:
      // A download past its end: the client stops it (14302); nothing more is sent.
      recEnd(c, "ended");
      break;
    case RecorderStream::Stop::End:
      // Nothing more is recorded: the end-of-data answer.
      recEnd(c, "ended");
      queueFrame(c, envelope("10000", "14301", "-16", ""));
      queued = true;
      break;
    case RecorderStream::Stop::Drop: {
      Segment close;
      close.closeAfter = true;
      close.rst = c.rec->dropRst();
      recEnd(c, "dropped");
      c.out.push_back(std::move(close));
      queued = true;
      break;
    }
  }
  return queued;
}

}  // namespace devsim
