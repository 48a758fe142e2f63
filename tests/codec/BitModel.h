// A bit-by-bit model of bit fields in a buffer, for comparing the library's
// byte-wise field operations against: every bit of a field is found on its
// own, by the numbering both byte orders share.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace q9::test {

using Bytes = std::vector<uint8_t>;

// Buffer bit that holds bit i (0 = least significant) of a field.
inline uint64_t bufferBit(uint32_t pos, int32_t bits, uint64_t i) {
  if (bits >= 0) return pos + i;
  return ((uint64_t(pos) ^ 7) + uint64_t(-int64_t(bits)) - 1 - i) ^ 7;
}

inline uint64_t modelLength(int32_t bits) { return bits < 0 ? uint64_t(-int64_t(bits)) : uint64_t(bits); }

inline bool bitOf(const uint8_t* bytes, uint64_t n) { return (bytes[n / 8] >> (n % 8)) & 1; }

inline void setBitOf(uint8_t* bytes, uint64_t n, bool set) {
  const uint8_t mask = uint8_t(1u << (n % 8));
  bytes[n / 8] = uint8_t(set ? bytes[n / 8] | mask : bytes[n / 8] & ~mask);
}

inline bool fieldInside(uint64_t size, uint32_t pos, int32_t bits) {
  const uint64_t length = modelLength(bits);
  for (uint64_t i = 0; i < length; ++i)
    if (bufferBit(pos, bits, i) >= 8 * size) return false;
  return true;
}

// The field's value image: imageSize bytes, bit i of the field in bit i of
// the image, zero above the field. The field must lie inside its buffer.
inline Bytes modelExtract(const uint8_t* buf, uint32_t pos, int32_t bits, uint64_t imageSize) {
  Bytes image(imageSize);
  const uint64_t length = modelLength(bits);
  for (uint64_t i = 0; i < length && i < 8 * imageSize; ++i) setBitOf(image.data(), i, bitOf(buf, bufferBit(pos, bits, i)));
  return image;
}

// Stores the field's bits from image (one bit per field bit) where their
// byte lies inside the buffer; returns how many.
inline uint32_t modelInsert(uint8_t* buf, uint64_t size, uint32_t pos, int32_t bits, const uint8_t* image) {
  uint32_t written = 0;
  const uint64_t length = modelLength(bits);
  for (uint64_t i = 0; i < length; ++i) {
    const uint64_t n = bufferBit(pos, bits, i);
    if (n / 8 >= size) continue;
    setBitOf(buf, n, bitOf(image, i));
    ++written;
  }
  return written;
}

// The same for fields of up to 64 bits, with the value as a number.
inline uint64_t modelRead(const Bytes& buf, uint32_t pos, int32_t bits) {
  const Bytes image = modelExtract(buf.data(), pos, bits, 8);
  uint64_t value = 0;
  for (int i = 0; i < 8; ++i) value |= uint64_t(image[i]) << (8 * i);
  return value;
}

inline uint32_t modelWrite(Bytes& buf, uint32_t pos, int32_t bits, uint64_t value) {
  uint8_t image[8];
  for (int i = 0; i < 8; ++i) image[i] = uint8_t(value >> (8 * i));
  return modelInsert(buf.data(), buf.size(), pos, bits, image);
}

}  // namespace q9::test
