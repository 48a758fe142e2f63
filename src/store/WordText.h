// Texts laid out so that they can be compared four code units at a time:
// every interned text is stored with zeros after its terminator up to a
// whole 8-byte word. Ids of one description file share long stems
// ("Vehicle/compu/EngineData/EngineSpeed/..."), and the sorted indexes
// compare those stems again at every step of every search.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace q9 {

constexpr std::size_t kUnitsPerWord = 4;

// Units to store for a text of this length: terminator and padding.
constexpr std::size_t wordReadableUnits(std::size_t length) {
  return (length + kUnitsPerWord) & ~(kUnitsPerWord - 1);
}

// The order of compareText, for two word-readable texts; null reads as "".
int32_t compareWordReadable(const char16_t* a, const char16_t* b);

// A caller's text copied into word-readable form, on the stack when short.
class WordReadableCopy {
 public:
  explicit WordReadableCopy(const char16_t* text);
  WordReadableCopy(const WordReadableCopy&) = delete;
  WordReadableCopy& operator=(const WordReadableCopy&) = delete;

  const char16_t* text() const { return text_; }  // null when the text was, or memory ran out
  std::size_t units() const { return units_; }    // what it occupies, padding included

 private:
  char16_t local_[64];
  std::unique_ptr<char16_t[]> heap_;
  const char16_t* text_ = nullptr;
  std::size_t units_ = 0;
};

}  // namespace q9
