// Any bytes as a LIN description file through the filter host and the
// native import engine (see EngineImport.h for what is checked). The host
// takes a file as LDF only when it opens with its keyword, so an input
// without it gets it in front; the seeds are whole files the fuzzer mutates.
#include <cstring>
#include <vector>

#include "EngineImport.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static q9::fuzz::InputFile file(".ldf");
  static const char kKeyword[] = "LIN_description_file";
  const size_t keyword = sizeof kKeyword - 1;
  if (size >= keyword && std::memcmp(data, kKeyword, keyword) == 0) {
    file.write(data, size);
  } else {
    std::vector<uint8_t> text(kKeyword, kKeyword + keyword);
    text.push_back(';');
    text.insert(text.end(), data, data + size);
    file.write(text.data(), text.size());
  }
  q9::fuzz::runEngineInput(file, Q9_CLUSTERTYPE_LIN, data, size);
  return 0;
}
