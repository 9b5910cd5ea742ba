// libFuzzer target over the XML layer's readers. Built once per reader group
// (QXNET_FUZZ_GROUP, a name from xmlcheck::AllReaders(), or "all"); every reader of the group
// reads every input, with fenced outputs and the properties of each result checked.
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <string>

#include "XmlReaderChecks.h"

#ifndef QXNET_FUZZ_GROUP
#define QXNET_FUZZ_GROUP "all"
#endif

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // Received texts are NUL-terminated: whatever follows an embedded NUL is not seen.
  std::string text(reinterpret_cast<const char*>(data), size);
  text.resize(strlen(text.c_str()));
  for (const xmlcheck::Reader& r : xmlcheck::AllReaders())
    if (strcmp(QXNET_FUZZ_GROUP, "all") == 0 || strcmp(QXNET_FUZZ_GROUP, r.name) == 0) r.run(text);
  return 0;
}
