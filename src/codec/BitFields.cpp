// The exported field operations: extract, insert, copy and the inside test.
#include <algorithm>
#include <cstring>

#include "Q9Db.h"
#include "codec/BitField.h"

using namespace q9;

Q9DB_API void Q9bit_extract(uint8_t* dst, const uint8_t* src, uint64_t dstSize, uint32_t pos, int32_t bits) {
  if (!dst) return;
  const uint64_t length = fieldLength(bits);
  const uint64_t n = src && length ? std::min(dstSize, imageBytes(length)) : 0;
  if (n != 0) gatherField(dst, n, src, fieldSpan(pos, bits < 0, length));
  std::memset(dst + n, 0, size_t(dstSize - n));
}

Q9DB_API uint64_t Q9bit_extractbuf(const uint8_t* src, uint32_t pos, int32_t bits) {
  return src ? readField(src, pos, bits) : 0;
}

Q9DB_API uint32_t Q9bit_insert(uint8_t* dst, const uint8_t* src, uint64_t dstSize, uint32_t pos, int32_t bits) {
  if (!dst || !src || bits == 0) return 0;
  return uint32_t(scatterField(dst, dstSize, src, fieldSpan(pos, bits < 0, fieldLength(bits))));
}

Q9DB_API uint64_t Q9bit_insertbuf(uint64_t value, uint64_t word, uint32_t pos, int32_t bits) {
  return writeField(word, value, pos, bits);
}

Q9DB_API void Q9bit_copy(uint8_t* dst, uint64_t dstSize, uint32_t dstPos, int32_t dstBits, const uint8_t* src,
                         uint32_t srcPos, int32_t srcBits) {
  if (!dst || !src || dstBits == 0) return;
  const bool dstBigEndian = dstBits < 0;
  const bool srcBigEndian = srcBits < 0;
  const uint64_t dstLength = fieldLength(dstBits);
  const uint64_t srcLength = fieldLength(srcBits);
  // Chunk positions move up by 64 on a little-endian side and down by 64 on
  // a big-endian one, where the more significant chunks lie lower.
  for (uint64_t done = 0; done < dstLength; done += 64) {
    if (dstBigEndian && done > dstPos) break;
    uint8_t chunk[8] = {};
    const uint64_t take = srcLength > done ? std::min<uint64_t>(srcLength - done, 64) : 0;
    if (take != 0 && !(srcBigEndian && done > srcPos)) {
      const uint64_t from = srcBigEndian ? srcPos - done : srcPos + done;
      // take is at most 64 bits; the clamp only spells that out for the optimiser.
      gatherField(chunk, std::min<uint64_t>(imageBytes(take), sizeof chunk), src,
                  fieldSpan(from, srcBigEndian, take));
    }
    const uint64_t to = dstBigEndian ? dstPos - done : dstPos + done;
    const FieldSpan target = fieldSpan(to, dstBigEndian, std::min<uint64_t>(dstLength - done, 64));
    if (!dstBigEndian && target.lsbByte >= dstSize) break;
    scatterField(dst, dstSize, chunk, target);
  }
}

Q9DB_API int Q9bit_insideBuffer(uint32_t size, int32_t pos, int32_t bits) {
  const int64_t bitCount = int64_t(size) * 8;
  if (bits >= 0) return pos >= 0 && pos < bitCount && int64_t(pos) + bits <= bitCount;
  // Big-endian fields are not accepted at position 0.
  if (pos < 1 || pos >= bitCount) return 0;
  const int64_t lsb = ((int64_t(pos) ^ 7) - int64_t(bits) - 1) ^ 7;
  return lsb < bitCount;
}
