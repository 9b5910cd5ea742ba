// libFuzzer target over a session's receive path: the input is what a device sends on the
// connection, handed out in chunks of sizes the input chooses. Every call of the receiver
// goes through the header search, the framing and the dispatcher, with a recording sink in
// place of the core, until the stream is used up and the socket reports itself broken;
// then the session closes its socket as its worker does. Each call is checked against a
// model of the framing, and each report against the bounds of its kind.
//
// Input: the low four bits of byte 0 give the number k of chunk-size bytes that follow
// (see MemoryIo.h); the rest is the stream.
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>

#include "FrameModel.h"
#include "MemoryIo.h"
#include "RecordingSink.h"
#include "base/FuncLog.h"
#include "base/SDKSocket.h"
#include "session/DevComControl.h"

namespace {

const uint32_t kBuffered = QXNET_RECV_BUF_SIZE - 4;

[[noreturn]] void Fail(const char* what) {
  fprintf(stderr, "fuzz_session_receive: %s\n", what);
  __builtin_trap();
}

void CheckLogLine(unsigned int, const char* line) {
  if (strnlen(line, QXNET_LOG_LINE_SIZE) >= QXNET_LOG_LINE_SIZE) Fail("log line not terminated within its size");
}

// A dispatched frame: the buffer holds exactly its payload with four zeros behind.
void CheckFrame(CDevComControl& dev, const uint8_t* call, const ReceiveOutcome& want) {
  if (dev.RecvLen() != want.length) Fail("frame length differs from the framing model");
  if (dev.RecvLen() > kBuffered) Fail("frame longer than the receive buffer minus four");
  const char* buf = dev.RecvBuf();
  if (memcmp(buf, call + want.payload, want.length) != 0) Fail("receive buffer differs from the payload");
  static const char zeros[4] = {0, 0, 0, 0};
  if (memcmp(buf + want.length, zeros, 4) != 0) Fail("payload not followed by four zero bytes");
}

// One receive, checked against the model; false once the socket is reported broken.
// What the session consumed of the stream: what it read less what it holds read ahead.
size_t Consumed(const CDevComControl& dev, const MemoryIo& io) { return io.Consumed() - dev.ReadAheadForTest(); }

bool ReceiveOne(CDevComControl& dev, MemoryIo& io, const RecordingSink& sink) {
  size_t before = Consumed(dev, io);
  const uint8_t* call = io.Stream() + before;
  ReceiveOutcome want = PredictReceive(call, io.Size() - before, kBuffered);
  size_t reports = sink.Count();
  io.Unfence();
  int rc = dev.ReceiveData();
  if (rc != want.rc) {
    fprintf(stderr, "receive returned %d, the framing model %d\n", rc, want.rc);
    Fail("receive result differs from the framing model");
  }
  if (Consumed(dev, io) - before != want.consumed) Fail("receive took other bytes than the framing model");
  if (rc == 0) CheckFrame(dev, call, want);
  if (rc != 0 && sink.Count() != reports) Fail("reports without a dispatched frame");
  return rc != QXNET_SOCKET_BROKEN;
}

// The worker closes the socket once a receive reports it broken: one socket-error event,
// besides the end of a transfer the connection was carrying.
void CloseAsWorker(CDevComControl& dev, const RecordingSink& sink) {
  size_t reports = sink.Count();
  size_t errors = sink.StatusCount(QXNET_EV_SOCKET_ERROR);
  size_t ends = sink.StatusCount(QXNET_EV_CFGFILE_GET_PROGRESS) + sink.StatusCount(QXNET_EV_CFGFILE_SET_FAILED);
  dev.CloseSocktFd();
  if (dev.SockFd() != -1 || dev.DevStatus() != NETSDK_DEV_STATUS_NONE) Fail("socket still open after the close");
  if (sink.StatusCount(QXNET_EV_SOCKET_ERROR) != errors + 1) Fail("a close reports the socket error other than once");
  size_t endsNow = sink.StatusCount(QXNET_EV_CFGFILE_GET_PROGRESS) + sink.StatusCount(QXNET_EV_CFGFILE_SET_FAILED);
  if (sink.Count() - reports != 1 + (endsNow - ends))
    Fail("a close reports more than the socket error and the end of its transfers");
  if (endsNow - ends > 2) Fail("a close ends more transfers than a session carries");
}

// With QXNET_FUZZ_SHOW set, what an input made the session report (replaying seeds).
void Show(const RecordingSink& sink) {
  static const bool show = getenv("QXNET_FUZZ_SHOW") != nullptr;
  if (!show) return;
  static const char* const kKinds[] = {"status", "aux", "replay media", "play event"};
  for (const RecordingSink::Report& r : sink.Reports())
    fprintf(stderr, "  %s %ld%s %.80s\n", kKinds[r.kind], r.code, r.null ? " (null)" : "", r.text.c_str());
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  // Lines are built only while the log writer runs. It is started once for the whole run,
  // never per input, with a callback set, so every line goes straight to the check and the
  // writer thread only idles.
  g_fLogCallBack = &CheckLogLine;
  fLogStart();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  size_t count = data[0] & 0x0F;
  if (count > size - 1) count = size - 1;
  MemoryIo io(data + 1 + count, size - 1 - count, data + 1, count, &Fail);
  RecordingSink sink(&Fail);
  CDevComControl dev(&sink, nullptr);
  sink.Attach(&dev);
  io.Fence(dev.RecvBuf(), QXNET_RECV_BUF_SIZE);
  dev.SetIoForTest(&io);
  // A real descriptor, never connected, for the session's own close to end.
  int fd = socket(AF_UNIX, SOCK_STREAM, 0);
  if (fd < 0) Fail("no descriptor for the session (descriptors leaking?)");
  dev.AdoptSocketForTest(fd);
  while (ReceiveOne(dev, io, sink)) {
  }
  if (Consumed(dev, io) != io.Size()) Fail("socket reported broken before the stream was used up");
  io.Unfence();
  CloseAsWorker(dev, sink);
  Show(sink);
  return 0;
}
