// libFuzzer target over the XML layer's readers. Built once per reader (QXNET_FUZZ_READER,
// a name from xmlcheck::AllReaders(), or "all" for every one of them): the reader reads
// every input, with fenced outputs and the properties of each result checked.
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include <string>

#include "XmlReaderChecks.h"

#ifndef QXNET_FUZZ_READER
#define QXNET_FUZZ_READER "all"
#endif

namespace {

// The reader this target runs, or nullptr for all of them. A name missing from the table
// stops the target at once rather than fuzzing nothing.
const xmlcheck::Reader* Selected() {
  static const xmlcheck::Reader* const reader = [] {
    if (strcmp(QXNET_FUZZ_READER, "all") == 0) return static_cast<const xmlcheck::Reader*>(nullptr);
    const xmlcheck::Reader* r = xmlcheck::FindReader(QXNET_FUZZ_READER);
    if (!r) {
      fprintf(stderr, "no reader called %s\n", QXNET_FUZZ_READER);
      __builtin_trap();
    }
    return r;
  }();
  return reader;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  Selected();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // Received texts are NUL-terminated: whatever follows an embedded NUL is not seen.
  std::string text(reinterpret_cast<const char*>(data), size);
  text.resize(strlen(text.c_str()));
  if (const xmlcheck::Reader* r = Selected()) {
    r->run(text);
  } else {
    for (const xmlcheck::Reader& each : xmlcheck::AllReaders()) each.run(text);
  }
  return 0;
}
