// Packed and unpacked BCD, unsigned and signed.
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <random>

#include "Q9Db.h"

namespace {

constexpr HRESULT kBadDigit = E_INVALIDARG;

TEST(BcdDecode, Examples) {
  struct Case { bool packed; bool isSigned; uint64_t raw; uint32_t bits; HRESULT status; int64_t value; };
  const Case cases[] = {
      {true, false, 0x1234, 16, S_OK, 1234},   {true, false, 0x1234, 8, S_OK, 34},
      {true, false, 0x12A4, 16, kBadDigit, 0}, {true, false, 0x9999999999999999, 64, S_OK, 9999999999999999},
      {true, true, 0x0123, 16, S_OK, 123},     {true, true, 0x8123, 16, S_OK, -123},
      {true, true, 0xF123, 16, S_OK, -123},    {true, true, 0x99, 8, S_OK, -9},
      {true, true, 0x9, 4, S_OK, 9},           {true, true, 0xA123, 16, S_OK, -123},
      {false, false, 0x010203, 24, S_OK, 123}, {false, false, 0x0A0203, 24, kBadDigit, 0},
      {false, false, 0x11, 8, kBadDigit, 0},   {false, true, 0x800203, 24, S_OK, -23},
      {false, true, 0x000203, 24, S_OK, 23},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << std::hex << "raw 0x" << c.raw << std::dec << " bits " << c.bits
                                    << (c.packed ? " packed" : " unpacked") << (c.isSigned ? " signed" : ""));
    constexpr int64_t kUntouched = 777;
    HRESULT status;
    int64_t value = kUntouched;
    if (c.isSigned) {
      status = (c.packed ? Q9Decode_FromSignedPackedBCD : Q9Decode_FromSignedUnpackedBCD)(&value, &c.raw, c.bits);
    } else {
      uint64_t unsignedValue = kUntouched;
      status = (c.packed ? Q9Decode_FromUnsignedPackedBCD : Q9Decode_FromUnsignedUnpackedBCD)(&unsignedValue,
                                                                                              &c.raw, c.bits);
      value = int64_t(unsignedValue);
    }
    EXPECT_EQ(status, c.status);
    EXPECT_EQ(value, c.status == S_OK ? c.value : kUntouched);
  }
}

TEST(BcdEncode, Examples) {
  struct Case { bool packed; bool isSigned; int64_t value; uint32_t bits; uint64_t raw; HRESULT status; };
  const Case cases[] = {
      {true, false, 1234, 16, 0x1234, S_OK},     {true, false, 12345, 16, 0x2345, S_FALSE},
      {true, false, 10, 4, 0x0, S_FALSE},        {true, false, 0, 16, 0x0, S_OK},
      {true, true, 123, 16, 0x0123, S_OK},       {true, true, -123, 16, 0x8123, S_OK},
      {true, true, 1234, 16, 0x1234, S_OK},      {true, true, -1234, 16, 0x9234, S_OK},
      {true, true, 99, 8, 0x99, S_OK},           {true, true, -9, 8, 0x89, S_OK},
      {false, false, 123, 24, 0x010203, S_OK},   {false, false, 1234, 24, 0x020304, S_FALSE},
      {false, true, -23, 24, 0x800203, S_OK},    {false, true, -123, 24, 0x810203, S_OK},
      {false, true, 23, 24, 0x000203, S_OK},
      {true, true, std::numeric_limits<int64_t>::min(), 64, uint64_t(1) << 63, S_FALSE},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << "value " << c.value << " bits " << c.bits
                                    << (c.packed ? " packed" : " unpacked") << (c.isSigned ? " signed" : ""));
    uint64_t raw = 0xDEAD;
    const HRESULT status =
        c.isSigned ? (c.packed ? Q9Encode_ToSignedPackedBCD : Q9Encode_ToSignedUnpackedBCD)(&raw, c.value, c.bits)
                   : (c.packed ? Q9Encode_ToUnsignedPackedBCD : Q9Encode_ToUnsignedUnpackedBCD)(
                         &raw, uint64_t(c.value), c.bits);
    EXPECT_EQ(status, c.status);
    EXPECT_EQ(raw, c.raw);
  }
}

// Values whose digits fit below the sign position come back unchanged.
TEST(BcdRoundTrip, FittingValuesDecodeToThemselves) {
  std::mt19937_64 random(11);
  for (int round = 0; round < 2000; ++round) {
    for (bool packed : {true, false}) {
      const uint32_t step = packed ? 4 : 8;
      const uint32_t digits = uint32_t(random() % (64 / step - 1)) + 1;
      const uint32_t bits = (digits + 1) * step;
      int64_t limit = 1;
      for (uint32_t i = 0; i < digits; ++i) limit *= 10;
      const int64_t value = int64_t(random() % uint64_t(limit)) * (random() % 2 ? 1 : -1);
      uint64_t raw = 0;
      int64_t back = 0;
      ASSERT_EQ((packed ? Q9Encode_ToSignedPackedBCD : Q9Encode_ToSignedUnpackedBCD)(&raw, value, bits), S_OK);
      ASSERT_EQ((packed ? Q9Decode_FromSignedPackedBCD : Q9Decode_FromSignedUnpackedBCD)(&back, &raw, bits), S_OK);
      ASSERT_EQ(back, value) << "bits " << bits;
    }
  }
}

TEST(BcdPointers, NullIsRefused) {
  const uint64_t raw = 0x12;
  uint64_t out = 0;
  EXPECT_EQ(Q9Decode_FromUnsignedPackedBCD(nullptr, &raw, 8), E_POINTER);
  EXPECT_EQ(Q9Decode_FromUnsignedPackedBCD(&out, nullptr, 8), E_POINTER);
  EXPECT_EQ(Q9Encode_ToSignedUnpackedBCD(nullptr, 5, 8), E_POINTER);
}

}  // namespace
