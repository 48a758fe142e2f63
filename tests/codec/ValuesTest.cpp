#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>

#include "../store/StoreFixture.h"

namespace q9::test {
namespace {

class ValuesTest : public StoreTest {
 protected:
  // A signal whose coding has this length and encoding, and optionally
  // decoding computations.
  Q9DbNode* signal(int32_t bitlen, uint32_t encoding, std::vector<Q9DbNode*> compus = {},
                   uint32_t flags = 0, double minValue = 0, double maxValue = 0) {
    Q9DbNode *coding = nullptr, *s = nullptr;
    EXPECT_EQ(Q9Db_createCoding(handle, nullptr, bitlen, encoding, nullptr, &coding), E_INVALIDARG)
        << "anonymous codings join no collection";
    if (!compus.empty()) {
      EXPECT_EQ(Q9Db_addInternalToPhysicalComputations(coding, compus.size(), compus.data()), S_OK);
    }
    Q9Db_createSignal(handle, nullptr, flags, 0, minValue, maxValue, coding, &s);
    return s;
  }
  Q9DbNode* linear(double scale, double offset, double lo, double hi, uint32_t flags = 3) {
    Q9DbNode* c = nullptr;
    Q9Db_createLinearComputation(handle, nullptr, scale, offset, &c);
    Q9Db_addRange(c, lo, hi, flags);
    return c;
  }
  Q9DbPhysicalValue decode(Q9DbNode* s, uint64_t raw, HRESULT expected = S_FALSE) {
    Q9DbPhysicalValue v;
    std::memset(&v, 0xAB, sizeof v);
    EXPECT_EQ(Q9Db_internalToPhysical(s, raw, &v), expected) << "raw " << raw;
    return v;
  }
};

struct DecodeRow {
  int32_t bitlen;
  uint32_t encoding;
  uint64_t raw;
  uint32_t type;
  uint64_t bits;  // the value's 64 bits
};

TEST_F(ValuesTest, EncodingsGiveTypedValues) {
  const uint32_t S = Q9_ENCODING_SIGNED;
  const DecodeRow rows[] = {
      {8, Q9_ENCODING_DIRECT | S, 0x81, Q9_VALUETYPE_INT64, uint64_t(-1)},
      {8, Q9_ENCODING_DIRECT | S, 0xFF, Q9_VALUETYPE_INT64, uint64_t(-127)},
      {8, Q9_ENCODING_DIRECT | S, 0x80, Q9_VALUETYPE_INT64, 0},
      {1, Q9_ENCODING_DIRECT | S, 1, Q9_VALUETYPE_INT64, uint64_t(-1)},
      {1, Q9_ENCODING_DIRECT | S, 0, Q9_VALUETYPE_INT64, 0},
      {8, Q9_ENCODING_1COMPL, 0xFF, Q9_VALUETYPE_INT64, 0},
      {8, Q9_ENCODING_1COMPL, 0xFE, Q9_VALUETYPE_INT64, uint64_t(-1)},
      {8, Q9_ENCODING_1COMPL, 0x7F, Q9_VALUETYPE_INT64, 127},
      {8, Q9_ENCODING_2COMPL, 0xFF, Q9_VALUETYPE_INT64, uint64_t(-1)},
      {8, Q9_ENCODING_2COMPL, 0x80, Q9_VALUETYPE_INT64, uint64_t(-128)},
      {8, Q9_ENCODING_2COMPL, 0x7F, Q9_VALUETYPE_INT64, 127},
      {64, Q9_ENCODING_2COMPL, ~0ull, Q9_VALUETYPE_INT64, ~0ull},
      {8, Q9_ENCODING_DIRECT, 0x1FF, Q9_VALUETYPE_UINT64, 255},
      {64, Q9_ENCODING_DIRECT, ~0ull, Q9_VALUETYPE_UINT64, ~0ull},
      {0, Q9_ENCODING_DIRECT, 0x1234, Q9_VALUETYPE_UINT64, 0x1234},
      {16, Q9_ENCODING_PACKED_BCD, 0x1234, Q9_VALUETYPE_UINT64, 1234},
      {16, Q9_ENCODING_UNPACKED_BCD, 0x0402, Q9_VALUETYPE_UINT64, 42},
  };
  for (const DecodeRow& r : rows) {
    SCOPED_TRACE(testing::Message() << r.bitlen << "/" << std::hex << r.encoding << "/" << r.raw);
    Q9DbPhysicalValue v = decode(signal(r.bitlen, r.encoding), r.raw);
    EXPECT_EQ(v.valueType, r.type);
    EXPECT_EQ(v.value.u, r.bits);
    EXPECT_EQ(v.computation, nullptr);
    EXPECT_EQ(v.text, nullptr);
  }
}

TEST_F(ValuesTest, IeeeAndUndecodableEncodings) {
  Q9DbPhysicalValue v = decode(signal(32, Q9_ENCODING_IEEE), 0xFFFFFFFF3FC00000ull);
  EXPECT_EQ(v.valueType, Q9_VALUETYPE_DOUBLE);
  EXPECT_EQ(v.value.d, 1.5);
  double d = -2.25;
  uint64_t bits;
  std::memcpy(&bits, &d, 8);
  EXPECT_EQ(decode(signal(64, Q9_ENCODING_IEEE), bits).value.d, -2.25);
  v = decode(signal(16, Q9_ENCODING_IEEE), 0, E_UNEXPECTED);
  EXPECT_EQ(v.valueType, Q9_VALUETYPE_DOUBLE);
  EXPECT_EQ(v.computation, nullptr);
  decode(signal(8, Q9_ENCODING_ASCII), 0x41, E_UNEXPECTED);
  decode(signal(8, Q9_ENCODING_INVALID), 0x41, E_UNEXPECTED);
  decode(signal(8, 99), 0x41, E_UNEXPECTED);
}

TEST_F(ValuesTest, SignalWithoutCodingGivesTheRawValue) {
  Q9DbNode* s = nullptr;
  ASSERT_EQ(Q9Db_createSignal(handle, u"bare", 0, 0, 0, 0, nullptr, &s), S_OK);
  Q9DbPhysicalValue v = decode(s, 0xDEADBEEFull, S_OK);
  EXPECT_EQ(v.valueType, Q9_VALUETYPE_UINT64);
  EXPECT_EQ(v.value.u, 0xDEADBEEFull);
  Q9DbPhysicalValue in{};
  uint64_t raw = 0;
  EXPECT_EQ(Q9Db_physicalToInternal(s, nullptr, &in, &raw), E_UNEXPECTED);
  EXPECT_EQ(Q9Db_internalToPhysical(handle, 0, &v), E_INVALIDARG);
  EXPECT_EQ(Q9Db_internalToPhysical(s, 0, nullptr), E_INVALIDARG);
}

TEST_F(ValuesTest, LinearComputationsAtAndAwayFromScaleOne) {
  Q9DbNode* minus40 = signal(8, Q9_ENCODING_DIRECT, {linear(1, -40, 0, 255)});
  Q9DbPhysicalValue v = decode(minus40, 10, S_OK);
  EXPECT_EQ(v.valueType, Q9_VALUETYPE_INT64);
  EXPECT_EQ(v.value.i, -30);
  v = decode(minus40, 50, S_OK);
  EXPECT_EQ(v.valueType, Q9_VALUETYPE_UINT64);
  EXPECT_EQ(v.value.u, 10u);
  v = decode(signal(8, Q9_ENCODING_DIRECT, {linear(1, 0.5, 0, 255)}), 10, S_OK);
  EXPECT_EQ(v.valueType, Q9_VALUETYPE_UINT64);
  EXPECT_EQ(v.value.u, 10u) << "integer offsets are truncated";
  v = decode(signal(8, Q9_ENCODING_DIRECT, {linear(0.5, 0, 0, 255)}), 3, S_OK);
  EXPECT_EQ(v.valueType, Q9_VALUETYPE_DOUBLE);
  EXPECT_EQ(v.value.d, 1.5);
  v = decode(signal(12, Q9_ENCODING_DIRECT, {linear(0.1, -40, 0, 4095)}), 653, S_OK);
  EXPECT_EQ(v.value.d, 25.299999999999997) << "two roundings, no fused multiply-add";
  v = decode(signal(8, Q9_ENCODING_DIRECT, {linear(1.0000000000000002, 0, 0, 255)}), 7, S_OK);
  EXPECT_EQ(v.valueType, Q9_VALUETYPE_UINT64) << "one epsilon off still counts as one";
  v = decode(signal(8, Q9_ENCODING_DIRECT, {linear(1.0000000000000004, 0, 0, 255)}), 7, S_OK);
  EXPECT_EQ(v.valueType, Q9_VALUETYPE_DOUBLE);
  // Above 2^63 the unsigned value converts with correct rounding.
  v = decode(signal(64, Q9_ENCODING_DIRECT, {linear(2, 0, 0, 1e30)}), 0xFFFFFFFFFFFFFFFFull, S_OK);
  EXPECT_EQ(v.value.d, 36893488147419103232.0);
}

TEST_F(ValuesTest, RangesSelectComputations) {
  struct Row {
    uint32_t flags;
    uint64_t raw;
    bool holds;
  } const rows[] = {{0, 0, false}, {0, 10, false}, {0, 5, true}, {1, 0, true}, {1, 10, false},
                    {2, 10, true}, {2, 0, false},  {3, 0, true}, {3, 10, true}};
  for (const Row& r : rows) {
    Q9DbNode* s = signal(8, Q9_ENCODING_DIRECT, {linear(2, 0, 0, 10, r.flags)});
    Q9DbPhysicalValue v = decode(s, r.raw, r.holds ? S_OK : S_FALSE);
    EXPECT_EQ(v.valueType, r.holds ? Q9_VALUETYPE_DOUBLE : Q9_VALUETYPE_UINT64)
        << r.flags << "/" << r.raw;
  }
  // A point range holds only with a closed flag.
  EXPECT_EQ(decode(signal(8, Q9_ENCODING_DIRECT, {linear(2, 0, 4, 4, 0)}), 4).valueType,
            Q9_VALUETYPE_UINT64);
  EXPECT_EQ(decode(signal(8, Q9_ENCODING_DIRECT, {linear(2, 0, 4, 4, 1)}), 4, S_OK).valueType,
            Q9_VALUETYPE_DOUBLE);
  // Two ranges holding the value apply the computation once.
  Q9DbNode* twice = linear(2, 0, 0, 10);
  Q9Db_addRange(twice, 0, 100, 3);
  EXPECT_EQ(decode(signal(8, Q9_ENCODING_DIRECT, {twice}), 5, S_OK).value.d, 10.0);
}

TEST_F(ValuesTest, CascadeSeesEarlierResults) {
  Q9DbStringSlot* ten = nullptr;
  ASSERT_EQ(Q9Db_stringCreateSlot(handle, 9, u"ten", &ten), S_OK);
  Q9DbNode* text = nullptr;
  ASSERT_EQ(Q9Db_createMappedTextComputation(handle, nullptr, ten, &text), S_OK);
  Q9Db_addRange(text, 10, 10, 3);
  Q9DbNode* doubling = linear(2, 0, 0, 100, 0);
  Q9DbNode* s = signal(8, Q9_ENCODING_DIRECT, {doubling, text});
  Q9DbPhysicalValue v = decode(s, 5, S_OK);
  EXPECT_EQ(v.valueType, Q9_VALUETYPE_DOUBLE);
  EXPECT_EQ(v.value.d, 10.0);
  EXPECT_EQ(v.computation, text);
  EXPECT_EQ(v.text, ten);
  v = decode(s, 6, S_OK);
  EXPECT_EQ(v.computation, doubling);
  EXPECT_EQ(v.text, nullptr);
  // Mapped values replace the value with a double.
  Q9DbNode* mapped = nullptr;
  Q9Db_createMappedValueComputation(handle, nullptr, 42.5, &mapped);
  Q9Db_addRange(mapped, 0, 255, 3);
  v = decode(signal(8, Q9_ENCODING_DIRECT, {mapped}), 200, S_OK);
  EXPECT_EQ(v.value.d, 42.5);
}

TEST_F(ValuesTest, PhysicalToInternalConversions) {
  struct Row {
    int32_t bitlen;
    uint32_t encoding;
    Q9DbPhysicalValue in;
    uint64_t raw;
  };
  auto dbl = [](double d) { Q9DbPhysicalValue v{}; v.valueType = Q9_VALUETYPE_DOUBLE; v.value.d = d; return v; };
  auto u64 = [](uint64_t u) { Q9DbPhysicalValue v{}; v.valueType = Q9_VALUETYPE_UINT64; v.value.u = u; return v; };
  const uint32_t S = Q9_ENCODING_SIGNED;
  const Row rows[] = {
      {8, Q9_ENCODING_DIRECT | S, dbl(-1.0), 0xFF},
      {8, Q9_ENCODING_2COMPL, dbl(-1.0), ~0ull},
      {8, Q9_ENCODING_1COMPL, dbl(-1.0), ~0ull - 1},
      {8, Q9_ENCODING_DIRECT, dbl(2.9), 2},
      {8, Q9_ENCODING_2COMPL, dbl(-2.9), uint64_t(-2)},
      {8, Q9_ENCODING_DIRECT, u64(0x1FF), 0xFF},
      {64, Q9_ENCODING_DIRECT, dbl(9223372036854775808.0 * 1.5), 0xC000000000000000ull},
      {64, Q9_ENCODING_DIRECT, dbl(1e30), 0x8000000000000000ull},
      {64, Q9_ENCODING_2COMPL, dbl(NAN), 0x8000000000000000ull},
      {16, Q9_ENCODING_PACKED_BCD, dbl(1234), 0x1234},
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(testing::Message() << r.bitlen << "/" << std::hex << r.encoding);
    Q9DbNode* s = signal(r.bitlen, r.encoding);
    uint64_t raw = 0;
    EXPECT_EQ(Q9Db_physicalToInternal(s, nullptr, &r.in, &raw), S_OK);
    EXPECT_EQ(raw, r.raw);
  }
  // Round trips through the payload width.
  Q9DbNode* oneCompl = signal(8, Q9_ENCODING_1COMPL);
  uint64_t raw = 0;
  const Q9DbPhysicalValue minusOne = dbl(-1.0);
  Q9Db_physicalToInternal(oneCompl, nullptr, &minusOne, &raw);
  EXPECT_EQ(decode(oneCompl, raw & 0xFF).value.i, -1);
  // An IEEE single keeps the upper half of the raw word.
  Q9DbNode* single = signal(32, Q9_ENCODING_IEEE);
  raw = 0xAAAAAAAA00000000ull;
  const Q9DbPhysicalValue onePointFive = dbl(1.5);
  EXPECT_EQ(Q9Db_physicalToInternal(single, nullptr, &onePointFive, &raw), S_OK);
  EXPECT_EQ(raw, 0xAAAAAAAA3FC00000ull);
  // The computation is applied forward, not inverted.
  Q9DbNode* toRaw = linear(10, 400, 0, 0);
  raw = 0;
  const Q9DbPhysicalValue t = dbl(25.3);
  EXPECT_EQ(Q9Db_physicalToInternal(signal(12, Q9_ENCODING_DIRECT), toRaw, &t, &raw), S_OK);
  EXPECT_EQ(raw, 653u);
  Q9DbNode* text = nullptr;
  Q9Db_createMappedTextComputation(handle, nullptr, nullptr, &text);
  raw = 77;
  EXPECT_EQ(Q9Db_physicalToInternal(signal(8, Q9_ENCODING_DIRECT), text, &t, &raw), S_FALSE);
  EXPECT_EQ(raw, 77u);
  EXPECT_EQ(Q9Db_physicalToInternal(signal(8, Q9_ENCODING_DIRECT), handle, &t, &raw), E_INVALIDARG);
  EXPECT_EQ(Q9Db_physicalToInternal(signal(8, Q9_ENCODING_ASCII), nullptr, &t, &raw), E_UNEXPECTED);
}

TEST_F(ValuesTest, MinMaxCheck) {
  auto dbl = [](double d) { Q9DbPhysicalValue v{}; v.valueType = Q9_VALUETYPE_DOUBLE; v.value.d = d; return v; };
  struct Row {
    uint32_t flags;
    double v;
    HRESULT expected;
  } const rows[] = {{0, 0, Q9_VALUEBELOWRANGE}, {0, 10, Q9_VALUEABOVERANGE}, {0, 5, Q9_VALUEINRANGE},
                    {3, 0, Q9_VALUEINRANGE},    {3, 10, Q9_VALUEINRANGE},    {1, 0, Q9_VALUEINRANGE},
                    {1, 10, Q9_VALUEABOVERANGE}, {3, -1, Q9_VALUEBELOWRANGE}, {0, NAN, Q9_VALUEINRANGE}};
  for (const Row& r : rows) {
    Q9DbNode* s = signal(8, Q9_ENCODING_DIRECT, {}, r.flags, 0, 10);
    const Q9DbPhysicalValue v = dbl(r.v);
    EXPECT_EQ(Q9Db_checkValueInMinMax(s, &v), r.expected) << r.flags << "/" << r.v;
  }
  Q9DbPhysicalValue odd{};
  odd.valueType = 7;
  EXPECT_EQ(Q9Db_checkValueInMinMax(signal(8, 1), &odd), Q9_INCOMPATIBLEVALUETYPE);
  EXPECT_EQ(Q9Db_checkValueInMinMax(handle, &odd), E_INVALIDARG);
}

TEST(ValueText, FormatsByType) {
  char16_t buffer[64];
  Q9DbPhysicalValue v{};
  v.valueType = Q9_VALUETYPE_DOUBLE;
  v.value.d = 1.5;
  EXPECT_EQ(Q9Db_valueToString(&v, buffer, 64), 5);
  EXPECT_EQ(std::u16string(buffer), u"1.500");
  v.value.d = -25.2999;
  Q9Db_valueToString(&v, buffer, 64);
  EXPECT_EQ(std::u16string(buffer), u"-25.300");
  v.valueType = Q9_VALUETYPE_UINT64;
  v.value.u = 255;
  EXPECT_EQ(Q9Db_valueToString(&v, buffer, 64), 4);
  EXPECT_EQ(std::u16string(buffer), u"0xFF");
  v.valueType = Q9_VALUETYPE_INT64;
  v.value.i = -3;
  EXPECT_EQ(Q9Db_valueToString(&v, buffer, 64), 2);
  EXPECT_EQ(std::u16string(buffer), u"-3");
  EXPECT_EQ(Q9Db_valueToString(&v, buffer, 2), -1) << "no room for the terminator";
  EXPECT_EQ(Q9Db_valueToString(&v, buffer, 3), 2);
  v.valueType = 9;
  EXPECT_EQ(Q9Db_valueToString(&v, buffer, 64), -1);
  EXPECT_EQ(Q9Db_valueToString(nullptr, buffer, 64), -1);
}

}  // namespace
}  // namespace q9::test
