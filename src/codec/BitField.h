// Where a bit field lies in a byte buffer, and the moves between the field
// and its value image (byte 0 of the image holds the 8 least significant
// bits, whatever the field's byte order).
//
// Both byte orders come down to one picture: counted from the byte that
// holds the least significant bit, the field's bytes step upward in memory
// (little-endian) or downward (big-endian), and inside every byte the bit
// numbering is the same. So one shift pair per byte moves either order, and
// only the bytes that hold field bits are ever read or written.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace q9 {

struct FieldSpan {
  uint64_t lsbByte;    // byte that holds the least significant bit
  uint64_t byteCount;  // bytes that hold at least one field bit
  uint64_t length;     // field bits, never 0
  unsigned lowShift;   // number of the least significant bit inside lsbByte
  unsigned topBit;     // number of the most significant bit inside its byte
  bool bigEndian;      // more significant bytes lie at lower addresses
};

// The sign of a bit length selects the byte order: negative is big-endian.
inline uint64_t fieldLength(int64_t signedBits) {
  return signedBits < 0 ? uint64_t(-signedBits) : uint64_t(signedBits);
}

inline uint64_t imageBytes(uint64_t length) { return length / 8 + (length % 8 != 0); }

// pos is the least significant bit; the field runs upward from it.
inline FieldSpan littleEndianSpan(uint64_t pos, uint64_t length) {
  const uint64_t last = pos + length - 1;
  return {pos / 8, last / 8 - pos / 8 + 1, length, unsigned(pos % 8), unsigned(last % 8), false};
}

// pos is the most significant bit. The field walks down inside a byte and
// continues at bit 7 of the next byte; bit XOR 7 numbers bits in that walk.
inline FieldSpan bigEndianSpan(uint64_t pos, uint64_t length) {
  const uint64_t lsbWalk = (pos ^ 7) + length - 1;
  return {lsbWalk / 8, lsbWalk / 8 - pos / 8 + 1, length, unsigned(7 - lsbWalk % 8), unsigned(pos % 8),
          true};
}

inline FieldSpan fieldSpan(uint64_t pos, bool bigEndian, uint64_t length) {
  return bigEndian ? bigEndianSpan(pos, length) : littleEndianSpan(pos, length);
}

inline ptrdiff_t fieldStep(const FieldSpan& f) { return f.bigEndian ? -1 : 1; }

// One past the highest byte that holds a bit of the field; 0 for an empty
// field. A buffer of at least this many bytes holds the whole field.
inline uint64_t fieldEndByte(uint64_t pos, int64_t signedBits) {
  const uint64_t length = fieldLength(signedBits);
  if (length == 0) return 0;
  const FieldSpan f = fieldSpan(pos, signedBits < 0, length);
  return f.bigEndian ? f.lsbByte + 1 : f.lsbByte + f.byteCount;
}

// Fills image bytes 0..n-1 (n at most imageBytes(f.length)) from the field.
// When the image is complete, bits above the field's length are cleared.
inline void gatherField(uint8_t* image, uint64_t n, const uint8_t* src, const FieldSpan& f) {
  if (n == 0) return;
  const ptrdiff_t step = fieldStep(f);
  const unsigned k = f.lowShift;
  const uint8_t* p = src + f.lsbByte;
  if (k == 0) {
    image[0] = *p;
    for (uint64_t i = 1; i < n; ++i) image[i] = *(p += step);
  } else {
    // Image byte i joins the top of field byte i and the bottom of byte i+1.
    const uint64_t pairs = std::min(n, f.byteCount - 1);
    unsigned low = *p;
    for (uint64_t i = 0; i < pairs; ++i) {
      const unsigned high = *(p += step);
      image[i] = uint8_t((low >> k) | (high << (8 - k)));
      low = high;
    }
    if (pairs < n) image[pairs] = uint8_t(low >> k);
  }
  if (n == imageBytes(f.length) && f.length % 8 != 0) image[n - 1] &= uint8_t((1u << (f.length % 8)) - 1);
}

// Stores the field's bits from image (imageBytes(f.length) bytes) into buf.
// Field bytes at or past bufSize are skipped, the others still written, so a
// little-endian field keeps its low part and a big-endian one its high part.
// Bits outside the field keep their values. Returns the bits stored.
inline uint64_t scatterField(uint8_t* buf, uint64_t bufSize, const uint8_t* image, const FieldSpan& f) {
  // Field bytes j (0 holds the least significant bit) in [first, end) lie inside.
  uint64_t first = 0;
  uint64_t end = f.byteCount;
  if (f.bigEndian) {
    if (f.lsbByte >= bufSize) first = f.lsbByte - bufSize + 1;
  } else {
    end = f.lsbByte < bufSize ? std::min(end, bufSize - f.lsbByte) : 0;
  }
  if (first >= end) return 0;

  const unsigned k = f.lowShift;
  const uint64_t last = f.byteCount - 1;
  const uint64_t imageSize = imageBytes(f.length);
  const ptrdiff_t step = fieldStep(f);
  uint8_t* p = buf + (f.bigEndian ? f.lsbByte - first : f.lsbByte + first);

  auto merge = [&](uint64_t j) {
    unsigned bits = j < imageSize ? unsigned(image[j]) << k : 0u;
    if (k != 0 && j > 0) bits |= unsigned(image[j - 1]) >> (8 - k);
    unsigned mask = 0xFFu;
    if (j == 0) mask &= 0xFFu << k;
    if (j == last) mask &= 0xFFu >> (7 - f.topBit);
    *p = uint8_t((*p & ~mask) | (bits & mask));
  };

  merge(first);
  uint64_t j = first + 1;
  if (j < end) {
    // Whole bytes between the two edges need no mask.
    for (; j + 1 < end; ++j) {
      p += step;
      *p = k == 0 ? image[j] : uint8_t((unsigned(image[j]) << k) | (unsigned(image[j - 1]) >> (8 - k)));
    }
    p += step;
    merge(j);
  }
  return 8 * (end - first) - (first == 0 ? k : 0) - (end == f.byteCount ? 7 - f.topBit : 0);
}

inline uint64_t loadLittleEndian(const uint8_t* bytes, uint64_t n) {
  uint64_t value = 0;
  for (uint64_t i = 0; i < n; ++i) value |= uint64_t(bytes[i]) << (8 * i);
  return value;
}

inline void storeLittleEndian(uint64_t value, uint8_t* bytes) {
  for (int i = 0; i < 8; ++i) bytes[i] = uint8_t(value >> (8 * i));
}

// The field as a number. Lengths beyond 64 bits are taken as 64.
inline uint64_t readField(const uint8_t* src, uint64_t pos, int64_t signedBits) {
  const uint64_t length = std::min<uint64_t>(fieldLength(signedBits), 64);
  if (length == 0) return 0;
  uint8_t image[8];
  const uint64_t n = imageBytes(length);
  gatherField(image, n, src, fieldSpan(pos, signedBits < 0, length));
  return loadLittleEndian(image, n);
}

// word with the field replaced by the low bits of value; word is an 8-byte
// little-endian image, and field bits beyond its 64 bits are dropped.
// Lengths beyond 64 bits are taken as 64.
inline uint64_t writeField(uint64_t word, uint64_t value, uint64_t pos, int64_t signedBits) {
  const uint64_t length = std::min<uint64_t>(fieldLength(signedBits), 64);
  if (length == 0) return word;
  if (signedBits > 0 && pos + length <= 64) {
    const uint64_t mask = (length == 64 ? ~uint64_t(0) : (uint64_t(1) << length) - 1) << pos;
    return (word & ~mask) | ((value << pos) & mask);
  }
  uint8_t wordImage[8];
  uint8_t valueImage[8];
  storeLittleEndian(word, wordImage);
  storeLittleEndian(value, valueImage);
  scatterField(wordImage, 8, valueImage, fieldSpan(pos, signedBits < 0, length));
  return loadLittleEndian(wordImage, 8);
}

}  // namespace q9
