// A comparison reads four units of each text at a time and, on little-endian
// machines, finds the first differing unit from the lowest set bit of their
// difference; a word holding a zero unit ends it. Copies too long for the
// local buffer go to the heap, and one that fails there is null.
#include "store/WordText.h"

#include <cstring>
#include <new>

namespace q9 {

namespace {

constexpr uint64_t kLowBits = 0x0001000100010001ull;
constexpr uint64_t kHighBits = 0x8000800080008000ull;

bool hasZeroUnit(uint64_t word) { return ((word - kLowBits) & ~word & kHighBits) != 0; }

uint64_t wordAt(const char16_t* text) {
  uint64_t word;
  std::memcpy(&word, text, sizeof word);
  return word;
}

}  // namespace

int32_t compareWordReadable(const char16_t* a, const char16_t* b) {
  static const char16_t empty[kUnitsPerWord] = {};
  if (!a) a = empty;
  if (!b) b = empty;
  for (std::size_t i = 0;; i += kUnitsPerWord) {
    const uint64_t x = wordAt(a + i), y = wordAt(b + i);
    if (x != y) {
      // The first differing unit; units after a terminator are zeros, so
      // the texts agree up to it.
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
      const std::size_t unit = i + std::size_t(__builtin_ctzll(x ^ y)) / 16;
#else
      std::size_t unit = i;
      while (a[unit] == b[unit]) ++unit;
#endif
      return int32_t(uint16_t(a[unit])) - int32_t(uint16_t(b[unit]));
    }
    if (hasZeroUnit(x)) return 0;
  }
}

WordReadableCopy::WordReadableCopy(const char16_t* text) {
  if (!text) return;
  std::size_t length = 0;
  while (text[length]) ++length;
  units_ = wordReadableUnits(length);
  char16_t* copy = local_;
  if (units_ > sizeof local_ / sizeof local_[0]) {
    heap_.reset(new (std::nothrow) char16_t[units_]);
    if (!heap_) return;
    copy = heap_.get();
  }
  std::memcpy(copy, text, length * sizeof(char16_t));
  std::memset(copy + length, 0, (units_ - length) * sizeof(char16_t));
  text_ = copy;
}

}  // namespace q9
