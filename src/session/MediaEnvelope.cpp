#include "session/MediaEnvelope.h"

#include <cstdlib>
#include <cstring>

#include "session/EnvelopeCursor.h"

bool ReadMediaEnvelope(const char* text, size_t size, MediaEnvelope* out) {
  if (!text || !out) return false;
  CEnvelopeCursor c(text, size);
  char length[11];
  bool ok = c.Head(out->type, out->cmd, out->result) && c.Literal("<body>\n<dataLen>") && c.Number(length, false) &&
            c.Literal("</dataLen>\n</body>\n</PrivateProto>") && c.EndsHere();
  if (!ok) return false;
  out->dataLen = std::atol(length);
  out->textLength = static_cast<size_t>(c.At() - text);
  return true;
}
