// Any bytes as a DBC file through the filter host and the native import
// engine (see EngineImport.h for what is checked).
#include "EngineImport.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static q9::fuzz::InputFile file(".dbc");
  file.write(data, size);
  q9::fuzz::runEngineInput(file, Q9_CLUSTERTYPE_CAN, data, size);
  return 0;
}
