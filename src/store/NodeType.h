// The 32-bit type tag at the start of every node and the class-interval test.
#pragma once

#include <cstdint>
#include <cstring>

namespace q9 {

// Tag layout (little-endian bytes): letter1, letter2, last, first.
constexpr uint32_t makeNodeType(char letter1, char letter2, uint8_t first, uint8_t last) {
  return (uint32_t(first) << 24) | (uint32_t(last) << 16) |
         (uint32_t(uint8_t(letter2)) << 8) | uint32_t(uint8_t(letter1));
}
constexpr uint8_t tagFirst(uint32_t t) { return uint8_t(t >> 24); }
constexpr uint8_t tagLast(uint32_t t) { return uint8_t(t >> 16); }
constexpr uint32_t tagCode(uint32_t t) { return t & 0xFFFFu; }

// Highest class number of a full node (one with databaseRef) and of any node.
constexpr uint8_t kLastFullClass = 32;
constexpr uint8_t kLastClass = 37;

// Reads the tag of whatever p points to; the bytes are little-endian whatever
// the host is, so clients and scripts see the same two-letter codes.
inline uint32_t readTag(const void* p) {
  unsigned char b[4];
  std::memcpy(b, p, 4);
  return uint32_t(b[0]) | (uint32_t(b[1]) << 8) | (uint32_t(b[2]) << 16) | (uint32_t(b[3]) << 24);
}
inline void writeTag(void* p, uint32_t t) {
  const unsigned char b[4] = {uint8_t(t), uint8_t(t >> 8), uint8_t(t >> 16), uint8_t(t >> 24)};
  std::memcpy(p, b, 4);
}

// Four ASCII letters as a tag value, first letter in the lowest byte.
constexpr uint32_t fourCC(const char (&s)[5]) {
  return uint32_t(uint8_t(s[0])) | (uint32_t(uint8_t(s[1])) << 8) |
         (uint32_t(uint8_t(s[2])) << 16) | (uint32_t(uint8_t(s[3])) << 24);
}

// Membership: node's interval lies inside [first, last].
inline bool inClasses(const void* node, uint8_t first, uint8_t last) {
  if (!node) return false;
  const uint32_t t = readTag(node);
  return tagFirst(t) >= first && tagLast(t) <= last;
}
inline bool isExactly(const void* node, uint32_t nodeType) {
  return node && readTag(node) == nodeType;
}

}  // namespace q9
