// Field extract/insert/copy: hand-worked cases in both byte orders (fields
// across bytes, zero length, fields at the buffer's edges), and a comparison
// with a bit-by-bit model over every position and length.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "Q9Db.h"
#include "codec/BitModel.h"

namespace {

using q9::test::Bytes;
using q9::test::fieldInside;
using q9::test::modelRead;
using q9::test::modelWrite;

Bytes imageOf(uint64_t value) {
  Bytes image(8);
  for (int i = 0; i < 8; ++i) image[i] = uint8_t(value >> (8 * i));
  return image;
}

uint64_t wordOf(const Bytes& image) {
  uint64_t value = 0;
  for (size_t i = 0; i < image.size(); ++i) value |= uint64_t(image[i]) << (8 * i);
  return value;
}

// A buffer with a guard byte on each side, so stray writes show.
struct Guarded {
  static constexpr uint8_t kGuard = 0xC3;
  Bytes all;
  explicit Guarded(const Bytes& inner) : all(inner.size() + 2, kGuard) {
    std::copy(inner.begin(), inner.end(), all.begin() + 1);
  }
  uint8_t* data() { return all.data() + 1; }
  uint64_t size() const { return all.size() - 2; }
  Bytes inner() const { return Bytes(all.begin() + 1, all.end() - 1); }
  bool guardsIntact() const { return all.front() == kGuard && all.back() == kGuard; }
};

TEST(BitFieldExamples, Extract) {
  const Bytes buf = {0x12, 0x34, 0x56, 0x78};
  struct Case { uint32_t pos; int32_t bits; uint64_t value; };
  const Case cases[] = {{0, 8, 0x12},      {4, 8, 0x41},     {7, -8, 0x12},  {7, -16, 0x1234},
                        {7, -12, 0x123},   {3, -8, 0x23},    {3, -12, 0x234}, {4, -3, 4},
                        {0, 32, 0x78563412}, {7, -32, 0x12345678}, {5, 0, 0}};
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << "pos " << c.pos << " bits " << c.bits);
    EXPECT_EQ(Q9bit_extractbuf(buf.data(), c.pos, c.bits), c.value);
    Guarded image(Bytes(8, 0xEE));
    Q9bit_extract(image.data(), buf.data(), image.size(), c.pos, c.bits);
    EXPECT_EQ(image.inner(), imageOf(c.value));
    EXPECT_TRUE(image.guardsIntact());
  }
}

TEST(BitFieldExamples, ExtractIntoShortImageKeepsLowBytes) {
  const Bytes buf = {0x12, 0x34, 0x56, 0x78};
  for (int32_t bits : {32, -32}) {
    Guarded image(Bytes(2, 0xEE));
    Q9bit_extract(image.data(), buf.data(), image.size(), bits < 0 ? 7 : 0, bits);
    EXPECT_EQ(image.inner(), bits < 0 ? Bytes({0x78, 0x56}) : Bytes({0x12, 0x34}));
    EXPECT_TRUE(image.guardsIntact());
  }
}

// Every other insert is the bit model's, which the extract examples pin.
TEST(BitFieldExamples, Insert) {
  struct Case { Bytes before; uint64_t value; uint32_t pos; int32_t bits; Bytes after; uint32_t stored; };
  const Case cases[] = {
      {Bytes(2), 0xCDAB, 7, -16, {0xCD, 0xAB}, 16},
      {Bytes(2), ~0ull, 3, 0, Bytes(2), 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << "pos " << c.pos << " bits " << c.bits);
    Guarded buf(c.before);
    EXPECT_EQ(Q9bit_insert(buf.data(), imageOf(c.value).data(), buf.size(), c.pos, c.bits), c.stored);
    EXPECT_EQ(buf.inner(), c.after);
    EXPECT_TRUE(buf.guardsIntact());
  }
}

TEST(BitFieldExamples, InsideBuffer) {
  struct Case { int32_t pos; int32_t bits; int inside; };
  const Case cases[] = {{0, 64, 1},  {1, 63, 1},  {0, 65, 0},  {1, 64, 0},  {64, 0, 0},
                        {7, -64, 1}, {1, -1, 1},  {63, -1, 1}, {56, -1, 1}, {0, -1, 0},
                        {56, -2, 0}, {7, -65, 0}, {7, -72, 0}, {-1, 1, 0},  {-8, -1, 0}};
  for (const Case& c : cases)
    EXPECT_EQ(Q9bit_insideBuffer(8, c.pos, c.bits), c.inside) << "pos " << c.pos << " bits " << c.bits;
}

TEST(BitFieldExamples, Copy) {
  struct Case { Bytes src; uint32_t srcPos; int32_t srcBits; size_t dstSize; uint32_t dstPos; int32_t dstBits; Bytes after; };
  Bytes counting(16);
  for (int i = 0; i < 16; ++i) counting[i] = uint8_t(i + 1);
  Bytes wide(24);
  for (int i = 0; i < 16; ++i) wide[7 + i] = uint8_t(16 - i);
  const Case cases[] = {
      {{0xAB}, 0, 8, 2, 4, 12, {0xB0, 0x0A}},
      {{0xAB, 0xCD}, 7, -16, 2, 0, 16, {0xCD, 0xAB}},
      {{0xAB, 0xCD}, 0, 16, 2, 7, -16, {0xCD, 0xAB}},
      {{0xAB, 0xCD}, 7, -16, 2, 7, -16, {0xAB, 0xCD}},
      {counting, 0, 128, 24, 127, -128, wide},
      // The more significant chunk would begin before bit 0: only the low one lands.
      {counting, 0, 128, 8, 7, -128, {8, 7, 6, 5, 4, 3, 2, 1}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << "dstPos " << c.dstPos << " dstBits " << c.dstBits);
    Guarded dst(Bytes(c.dstSize));
    Q9bit_copy(dst.data(), dst.size(), c.dstPos, c.dstBits, c.src.data(), c.srcPos, c.srcBits);
    EXPECT_EQ(dst.inner(), c.after);
    EXPECT_TRUE(dst.guardsIntact());
  }
}

// Buffers are allocated at their exact size, so under the address sanitizer a
// read one byte past either end of a field that touches the edge fails.
TEST(BitFieldProperty, ExtractAndInsertMatchBitModel) {
  std::mt19937_64 random(4);
  for (size_t size : {1, 2, 3, 4, 5, 7, 8, 9, 10, 16}) {
    Bytes buf(size);
    for (uint8_t& b : buf) b = uint8_t(random());
    for (int sign : {1, -1}) {
      for (int len = 1; len <= 64; ++len) {
        for (uint32_t pos = 0; pos < 8 * size + 8; ++pos) {
          const int32_t bits = sign * len;
          SCOPED_TRACE(testing::Message() << "size " << size << " pos " << pos << " bits " << bits);
          const uint64_t value = random();

          Bytes expected = buf;
          const uint32_t stored = modelWrite(expected, pos, bits, value);
          Guarded written(buf);
          ASSERT_EQ(Q9bit_insert(written.data(), imageOf(value).data(), size, pos, bits), stored);
          ASSERT_EQ(written.inner(), expected);
          ASSERT_TRUE(written.guardsIntact());
          if (size == 8) {
            ASSERT_EQ(Q9bit_insertbuf(value, wordOf(buf), pos, bits), wordOf(expected));
          }

          if (!fieldInside(size, pos, bits)) continue;
          const uint64_t field = modelRead(buf, pos, bits);
          ASSERT_EQ(Q9bit_extractbuf(buf.data(), pos, bits), field);
          Bytes image((len + 7) / 8);
          Q9bit_extract(image.data(), buf.data(), image.size(), pos, bits);
          Bytes expectedImage = imageOf(field);
          expectedImage.resize(image.size());
          ASSERT_EQ(image, expectedImage);
        }
      }
    }
  }
}

TEST(BitFieldProperty, CopyMatchesBitModel) {
  std::mt19937_64 random(9);
  constexpr size_t kSize = 12;
  for (int round = 0; round < 20000; ++round) {
    Bytes src(kSize), dst(kSize);
    for (uint8_t& b : src) b = uint8_t(random());
    for (uint8_t& b : dst) b = uint8_t(random());
    const int32_t srcBits = int32_t(random() % 64 + 1) * (random() % 2 ? 1 : -1);
    const int32_t dstBits = int32_t(random() % 64 + 1) * (random() % 2 ? 1 : -1);
    const uint32_t srcPos = uint32_t(random() % (8 * kSize));
    const uint32_t dstPos = uint32_t(random() % (8 * kSize + 8));
    if (!fieldInside(kSize, srcPos, srcBits)) continue;
    SCOPED_TRACE(testing::Message() << "src " << srcPos << "/" << srcBits << " dst " << dstPos << "/" << dstBits);
    Bytes expected = dst;
    modelWrite(expected, dstPos, dstBits, modelRead(src, srcPos, srcBits));
    Guarded copied(dst);
    Q9bit_copy(copied.data(), kSize, dstPos, dstBits, src.data(), srcPos, srcBits);
    ASSERT_EQ(copied.inner(), expected);
    ASSERT_TRUE(copied.guardsIntact());
  }
}

}  // namespace
