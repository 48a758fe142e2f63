// Bytewise and, or and xor of two buffers.
#include <cstdint>
#include <cstring>
#include <functional>

#include "Q9Db.h"

namespace {

// Blocks may be combined a word at a time only where the result cannot
// differ from the ascending byte loop: src is dst itself or apart from it.
bool sameOrApart(const uint8_t* dst, const uint8_t* src, uint32_t count) {
  const auto d = reinterpret_cast<uintptr_t>(dst);
  const auto s = reinterpret_cast<uintptr_t>(src);
  return d == s || d + count <= s || s + count <= d;
}

template <typename Op>
void combineBytes(uint8_t* dst, const uint8_t* a, const uint8_t* b, uint32_t count, Op op) {
  if (!dst || !a || !b) return;
  constexpr uint32_t kBlock = 64;
  uint32_t i = 0;
  if (count >= kBlock && sameOrApart(dst, a, count) && sameOrApart(dst, b, count)) {
    for (; count - i >= kBlock; i += kBlock) {
      for (uint32_t w = i; w < i + kBlock; w += 8) {
        uint64_t x, y;
        std::memcpy(&x, a + w, 8);
        std::memcpy(&y, b + w, 8);
        x = op(x, y);
        std::memcpy(dst + w, &x, 8);
      }
    }
  }
  for (; i < count; ++i) dst[i] = uint8_t(op(a[i], b[i]));
}

}  // namespace

Q9DB_API void Q9byte_and(uint8_t* dst, const uint8_t* a, const uint8_t* b, uint32_t count) {
  combineBytes(dst, a, b, count, std::bit_and<>());
}

Q9DB_API void Q9byte_or(uint8_t* dst, const uint8_t* a, const uint8_t* b, uint32_t count) {
  combineBytes(dst, a, b, count, std::bit_or<>());
}

Q9DB_API void Q9byte_xor(uint8_t* dst, const uint8_t* a, const uint8_t* b, uint32_t count) {
  combineBytes(dst, a, b, count, std::bit_xor<>());
}
