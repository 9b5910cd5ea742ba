#include "session/PlainEnvelope.h"

#include "session/EnvelopeCursor.h"

bool ReadPlainEnvelope(const char* text, size_t size, PlainEnvelope* out) {
  if (!text || !out) return false;
  CEnvelopeCursor c(text, size);
  if (!c.Head(out->type, out->cmd, out->result)) return false;
  bool body = c.Literal("<body>\n</body>\n") || c.Literal("<body/>\n");
  return body && c.Literal("</PrivateProto>") && c.EndsHere();
}
