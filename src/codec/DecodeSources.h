// The bytes a decode walk reads: the caller's payload, the assembly buffers
// of its stack, and the identifier image. The bit primitives trust their
// caller about the source's extent, and databases and payloads come from
// outside, so every field is measured against its source before it is read.
#pragma once

#include <cstdint>

#include "Q9Db.h"
#include "codec/BitField.h"

namespace q9 {

struct BitSource {
  const uint8_t* bytes;
  uint64_t size;
};

// An entry's data is the payload or one of the stack's assembly buffers.
inline BitSource entrySource(const Q9DbDecodeEnum& e, const Q9DbDecodeStackEntry& entry) {
  return {entry.data, entry.data == e.payload ? e.length : uint64_t(Q9_DECODE_BUFFER_SIZE)};
}

// The left-aligned identifier word as the little-endian bytes it is read in.
struct IdentifierImage {
  uint8_t bytes[4];
  explicit IdentifierImage(uint32_t word)
      : bytes{uint8_t(word), uint8_t(word >> 8), uint8_t(word >> 16), uint8_t(word >> 24)} {}
  BitSource source() const { return {bytes, sizeof bytes}; }
};

// Whether the field lies wholly inside the source, at a position the bit
// primitives can take.
inline bool readable(const BitSource& src, uint64_t pos, int64_t signedBits) {
  return src.bytes && pos <= UINT32_MAX && fieldEndByte(pos, signedBits) <= src.size;
}

// Where a switch or segment at the absolute bit position p reads: the data
// from 0 upward, the identifier image at -32..-1 (bit p+32 of it). Positions
// below -32 address nothing, and the answer is false.
inline bool locate(int64_t p, const BitSource& data, const IdentifierImage& id, BitSource* src,
                   uint64_t* pos) {
  if (p >= 0) {
    *src = data;
    *pos = uint64_t(p);
    return true;
  }
  if (p < -32) return false;
  *src = id.source();
  *pos = uint64_t(p + 32);
  return true;
}

}  // namespace q9
