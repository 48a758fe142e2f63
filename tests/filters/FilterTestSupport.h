// Helpers the filter tests share: ASCII texts across the wide boundary and
// the test files' folder.
#pragma once

#include <cstdlib>
#include <string>

namespace q9::test {

inline std::u16string wide(const std::string& text) {
  return std::u16string(text.begin(), text.end());  // paths and ids here are ASCII
}

inline std::string narrow(const char16_t* text) {
  std::string out;
  for (; text && *text; ++text) out += *text < 0x80 ? static_cast<char>(*text) : '?';
  return out;
}

inline std::string dataFile(const char* name) {
  const char* source = std::getenv("Q9DB_SOURCE_DIR");
  return std::string(source ? source : ".") + "/tests/filters/data/" + name;
}

}  // namespace q9::test
