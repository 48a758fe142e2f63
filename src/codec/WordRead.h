// Reading a field of up to 64 bits with one 8-byte load and a shift, for the
// decoder's hot path. The source's size is known here, so the load window
// is moved to lie inside it: a field near the end of a payload is read from
// the last eight bytes, a big-endian one near the start from the first
// eight. Sources shorter than eight bytes and fields spread over nine bytes
// go the byte-wise way.
#pragma once

#include <cstdint>
#include <cstring>

#include "Q9Db.h"
#include "codec/BitField.h"

namespace q9 {

inline uint64_t loadWordLittleEndian(const uint8_t* p) {
  uint64_t v;
  std::memcpy(&v, p, sizeof v);
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
  v = __builtin_bswap64(v);
#endif
  return v;
}

// Byte p[7] is the least significant.
inline uint64_t loadWordBigEndian(const uint8_t* p) {
  uint64_t v;
  std::memcpy(&v, p, sizeof v);
#if !defined(__BYTE_ORDER__) || __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
  v = __builtin_bswap64(v);
#endif
  return v;
}

// The field's value as Q9bit_extract gives it in an 8-byte image: for
// lengths above 64 bits the low 64. The field must lie inside the size
// bytes at bytes.
inline uint64_t readFieldInside(const uint8_t* bytes, uint64_t size, uint64_t pos, int32_t signedBits) {
  const uint64_t length = fieldLength(signedBits);
  if (length == 0) return 0;
  if (length <= 64 && size >= 8) {
    const uint64_t mask = length == 64 ? ~uint64_t(0) : (uint64_t(1) << length) - 1;
    if (signedBits > 0) {
      const uint64_t first = pos / 8;
      const uint64_t shift = pos % 8;
      if (shift + length <= 64) {
        const uint64_t base = first + 8 <= size ? first : size - 8;
        return (loadWordLittleEndian(bytes + base) >> (8 * (first - base) + shift)) & mask;
      }
    } else {
      const uint64_t lsbWalk = (pos ^ 7) + length - 1;
      const uint64_t lsbByte = lsbWalk / 8;
      const uint64_t shift = 7 - lsbWalk % 8;
      if (shift + length <= 64) {
        const uint64_t top = lsbByte >= 7 ? lsbByte : 7;
        return (loadWordBigEndian(bytes + top - 7) >> (8 * (top - lsbByte) + shift)) & mask;
      }
    }
  }
  uint8_t image[8];
  Q9bit_extract(image, bytes, sizeof image, uint32_t(pos), signedBits);
  return loadLittleEndian(image, sizeof image);
}

}  // namespace q9
