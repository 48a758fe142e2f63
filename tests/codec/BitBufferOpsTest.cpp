// Fills, shifts, byte swap and the bytewise logic operations.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "Q9Db.h"

namespace {

using Bytes = std::vector<uint8_t>;

TEST(BitBufferOps, SetAndReset) {
  struct Case { bool set; Bytes before; uint32_t pos; uint32_t count; Bytes after; };
  const Bytes zeros(3), ones(3, 0xFF);
  const Case cases[] = {
      {true, zeros, 3, 10, {0xF8, 0x1F, 0x00}},
      {true, zeros, 0, 12, {0xFF, 0x0F, 0x00}},
      {true, zeros, 3, 2, {0x18, 0x00, 0x00}},
      {true, zeros, 4, 0, zeros},
      {true, zeros, 20, 100, {0x00, 0x00, 0xF0}},  // cut at the end of the buffer
      {true, zeros, 24, 8, zeros},
      {false, ones, 3, 10, {0x07, 0xE0, 0xFF}},
      {false, ones, 0, 24, zeros},
  };
  for (const Case& c : cases) {
    Bytes buf(c.before.size() + 1, 0xA5);  // trailing guard byte
    std::copy(c.before.begin(), c.before.end(), buf.begin());
    (c.set ? Q9bit_set : Q9bit_reset)(buf.data(), c.before.size(), c.pos, c.count);
    EXPECT_EQ(Bytes(buf.begin(), buf.end() - 1), c.after) << "pos " << c.pos << " count " << c.count;
    EXPECT_EQ(buf.back(), 0xA5);
  }
}

// Each result bit is the source bit shift places away, or zero.
TEST(BitBufferOps, ShiftsMatchBitModelAlsoInPlace) {
  std::mt19937 random(3);
  for (size_t size : {1, 2, 3, 5, 9}) {
    Bytes src(size);
    for (uint8_t& b : src) b = uint8_t(random());
    auto bit = [&](int64_t n) { return n >= 0 && n < int64_t(8 * size) ? (src[n / 8] >> (n % 8)) & 1 : 0; };
    for (uint32_t shift = 0; shift <= 8 * size + 9; ++shift) {
      Bytes left(size), right(size);
      for (int64_t n = 0; n < int64_t(8 * size); ++n) {
        left[n / 8] |= uint8_t(bit(n - shift) << (n % 8));
        right[n / 8] |= uint8_t(bit(n + shift) << (n % 8));
      }
      Bytes dst(size, 0xEE), inPlace = src;
      Q9bit_shiftleft(dst.data(), src.data(), size, shift);
      Q9bit_shiftleft(inPlace.data(), inPlace.data(), size, shift);
      EXPECT_EQ(dst, left) << "size " << size << " left " << shift;
      EXPECT_EQ(inPlace, left) << "size " << size << " in place left " << shift;
      inPlace = src;
      Q9bit_shiftright(dst.data(), src.data(), size, shift);
      Q9bit_shiftright(inPlace.data(), inPlace.data(), size, shift);
      EXPECT_EQ(dst, right) << "size " << size << " right " << shift;
      EXPECT_EQ(inPlace, right) << "size " << size << " in place right " << shift;
    }
  }
}

TEST(BitBufferOps, BufSwap) {
  const uint8_t bytes[8] = {1, 2, 3, 4, 5, 6, 7, 8};
  const struct { uint32_t size; uint64_t value; } cases[] = {
      {0, 0x0807060504030201}, {1, 0x0807060504030201}, {2, 0x0102},
      {3, 0x01020304},         {4, 0x01020304},         {5, 0x0102030405060708},
      {8, 0x0102030405060708}, {9, 0x0807060504030201}};
  for (const auto& c : cases) EXPECT_EQ(Q9bit_buf_swap(bytes, c.size), c.value) << "size " << c.size;
}

TEST(ByteOps, WideBlocksAgreeWithByteLoop) {
  std::mt19937 random(5);
  Bytes a(203), b(203);
  for (uint8_t& x : a) x = uint8_t(random());
  for (uint8_t& x : b) x = uint8_t(random());
  Bytes andBytes(a.size()), orBytes(a.size()), xorBytes(a.size());
  Q9byte_and(andBytes.data(), a.data(), b.data(), uint32_t(a.size()));
  Q9byte_or(orBytes.data(), a.data(), b.data(), uint32_t(a.size()));
  Q9byte_xor(xorBytes.data(), a.data(), b.data(), uint32_t(a.size()));
  Bytes inPlace = a;
  Q9byte_xor(inPlace.data(), inPlace.data(), b.data(), uint32_t(a.size()));
  for (size_t i = 0; i < a.size(); ++i) {
    ASSERT_EQ(andBytes[i], a[i] & b[i]) << i;
    ASSERT_EQ(orBytes[i], a[i] | b[i]) << i;
    ASSERT_EQ(xorBytes[i], a[i] ^ b[i]) << i;
    ASSERT_EQ(inPlace[i], a[i] ^ b[i]) << i;
  }
}

// With dst one byte above a, the ascending order carries byte 0 all the way up.
TEST(ByteOps, OverlapFollowsAscendingOrder) {
  Bytes buf(130, 0x00), zeros(129, 0x00);
  buf[0] = 0x5A;
  Q9byte_or(buf.data() + 1, buf.data(), zeros.data(), 129);
  EXPECT_EQ(buf, Bytes(130, 0x5A));
}

}  // namespace
