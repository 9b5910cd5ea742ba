// What one receive must do with the bytes in front of it, worked out apart from the
// receiver: where its header search stops, what the call returns and how many bytes it
// takes. The receiver reads eight bytes ahead and keeps only the first seven of its first
// eight in the header slot, so inside a header the call's eighth byte reads as zero: a
// flag 1 to 3 bytes in is taken with one length byte zeroed, one 4 to 7 bytes in is not
// seen at all.
#ifndef QXNET_FUZZ_SESSION_FRAMEMODEL_H
#define QXNET_FUZZ_SESSION_FRAMEMODEL_H

#include <stddef.h>
#include <stdint.h>

struct ReceiveOutcome {
  int rc;           // 0 dispatched, -4 bad length, -5 too long, -6 dropped (beyond the buffer), or broken
  size_t consumed;  // bytes the call takes
  size_t payload;   // where the payload starts (rc 0)
  uint32_t length;  // the frame's length as the receiver reads it (rc 0)
};

// `p` holds the `n` bytes left in the stream; `buffered` is the longest payload the
// receive buffer takes. The stream ends in a broken socket.
ReceiveOutcome PredictReceive(const uint8_t* p, size_t n, uint32_t buffered);

#endif
