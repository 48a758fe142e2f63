// The raw DBC reader on any bytes: a tree whose texts are UTF-8, or a
// syntax error with its position.
#include "RawReaderCheck.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  q9::fuzz::checkRawRead(Q9Db_importRawDBC, "DBC-Import: (", true, data, size);
  return 0;
}
