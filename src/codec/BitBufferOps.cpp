// Whole-buffer bit operations: fills, shifts and the byte swap.
#include <algorithm>
#include <cstring>

#include "Q9Db.h"
#include "codec/BitField.h"

namespace {

// Sets the bits pos.. pos+count-1 to those of fill (0xFF or 0x00), clipped
// to the buffer. Whole bytes are filled in one go, edge bytes merged.
void fillBits(uint8_t* dst, uint64_t dstSize, uint32_t pos, uint32_t count, uint8_t fill) {
  if (!dst || count == 0 || pos / 8 >= dstSize) return;
  const uint64_t first = pos / 8;
  const uint64_t endBit = uint64_t(pos) + count;
  uint64_t last = (endBit - 1) / 8;
  unsigned highMask = 0xFFu >> (7 - (endBit - 1) % 8);
  if (last >= dstSize) {
    last = dstSize - 1;
    highMask = 0xFFu;
  }
  const unsigned lowMask = 0xFFu << (pos % 8);
  auto merge = [&](uint64_t byte, unsigned mask) { dst[byte] = uint8_t((dst[byte] & ~mask) | (fill & mask)); };
  if (first == last) {
    merge(first, lowMask & highMask);
    return;
  }
  merge(first, lowMask);
  std::memset(dst + first + 1, fill, size_t(last - first - 1));
  merge(last, highMask);
}

uint64_t loadBigEndian(const uint8_t* bytes, int n) {
  uint64_t value = 0;
  for (int i = 0; i < n; ++i) value = (value << 8) | bytes[i];
  return value;
}

}  // namespace

Q9DB_API void Q9bit_set(uint8_t* dst, uint64_t dstSize, uint32_t pos, uint32_t count) {
  fillBits(dst, dstSize, pos, count, 0xFF);
}

Q9DB_API void Q9bit_reset(uint8_t* dst, uint64_t dstSize, uint32_t pos, uint32_t count) {
  fillBits(dst, dstSize, pos, count, 0x00);
}

// Both shifts walk away from the bytes they still have to read, so that dst
// may be src itself.
Q9DB_API void Q9bit_shiftleft(uint8_t* dst, const uint8_t* src, uint64_t size, uint32_t shift) {
  if (!dst || !src) return;
  const uint64_t byteShift = std::min<uint64_t>(shift / 8, size);
  const uint64_t rest = size - byteShift;
  const unsigned k = shift % 8;
  if (k == 0) {
    std::memmove(dst + byteShift, src, size_t(rest));
  } else if (rest != 0) {
    for (uint64_t i = rest - 1; i > 0; --i)
      dst[byteShift + i] = uint8_t((unsigned(src[i]) << k) | (unsigned(src[i - 1]) >> (8 - k)));
    dst[byteShift] = uint8_t(unsigned(src[0]) << k);
  }
  std::memset(dst, 0, size_t(byteShift));
}

Q9DB_API void Q9bit_shiftright(uint8_t* dst, const uint8_t* src, uint64_t size, uint32_t shift) {
  if (!dst || !src) return;
  const uint64_t byteShift = std::min<uint64_t>(shift / 8, size);
  const uint64_t rest = size - byteShift;
  const unsigned k = shift % 8;
  if (k == 0) {
    std::memmove(dst, src + byteShift, size_t(rest));
  } else if (rest != 0) {
    for (uint64_t i = 0; i + 1 < rest; ++i)
      dst[i] = uint8_t((unsigned(src[byteShift + i]) >> k) | (unsigned(src[byteShift + i + 1]) << (8 - k)));
    dst[rest - 1] = uint8_t(src[size - 1] >> k);
  }
  std::memset(dst + rest, 0, size_t(byteShift));
}

Q9DB_API uint64_t Q9bit_buf_swap(const void* value, uint32_t size) {
  if (!value) return 0;
  const auto* bytes = static_cast<const uint8_t*>(value);
  switch (size) {
    case 2: return loadBigEndian(bytes, 2);
    case 3:
    case 4: return loadBigEndian(bytes, 4);
    case 5:
    case 6:
    case 7:
    case 8: return loadBigEndian(bytes, 8);
    default: return q9::loadLittleEndian(bytes, 8);
  }
}
