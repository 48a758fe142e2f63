// The raw LDF reader on any bytes: a tree, or a syntax error with its
// position. Texts reach the tree as the file's bytes, so they may be any.
#include "RawReaderCheck.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  q9::fuzz::checkRawRead(Q9Db_importRawLDF, "LDF-Import: (", false, data, size);
  return 0;
}
