// Raw values to physical ones and back: every encoding, linear, mapped and
// text computations selected by their ranges, the min-max check and the
// text form of a value.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>

#include "DecoderFixture.h"

namespace q9::test {
namespace {

class ValuesTest : public DecoderTest {
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
  Q9DbPhysicalValue decode(Q9DbNode* s, uint64_t raw, HRESULT expected = S_FALSE) {
    Q9DbPhysicalValue v;
    std::memset(&v, 0xAB, sizeof v);
    EXPECT_EQ(Q9Db_internalToPhysical(s, raw, &v), expected) << "raw " << raw;
    return v;
  }
};

uint64_t bitsOf(double d) {
  uint64_t bits;
  std::memcpy(&bits, &d, 8);
  return bits;
}

// Raw values through every encoding, bare or by one linear computation over
// [0, upper]: the status, the value's type and its 64 bits.
TEST_F(ValuesTest, EncodingsAndLinearComputationsGiveTypedValues) {
  const uint32_t S = Q9_ENCODING_SIGNED, kUnchecked = 99;
  const struct {
    int32_t bitlen;
    uint32_t encoding;
    std::vector<double> scaleOffsetUpper;  // empty: no computation
    uint64_t raw;
    HRESULT status;
    uint32_t type;
    uint64_t bits;
    const char* why;
  } rows[] = {
      {8, Q9_ENCODING_DIRECT | S, {}, 0x81, S_FALSE, Q9_VALUETYPE_INT64, uint64_t(-1), "sign and magnitude"},
      {8, Q9_ENCODING_DIRECT | S, {}, 0xFF, S_FALSE, Q9_VALUETYPE_INT64, uint64_t(-127), ""},
      {8, Q9_ENCODING_DIRECT | S, {}, 0x80, S_FALSE, Q9_VALUETYPE_INT64, 0, "negative zero"},
      {1, Q9_ENCODING_DIRECT | S, {}, 1, S_FALSE, Q9_VALUETYPE_INT64, uint64_t(-1), ""},
      {1, Q9_ENCODING_DIRECT | S, {}, 0, S_FALSE, Q9_VALUETYPE_INT64, 0, ""},
      {8, Q9_ENCODING_1COMPL, {}, 0xFF, S_FALSE, Q9_VALUETYPE_INT64, 0, ""},
      {8, Q9_ENCODING_1COMPL, {}, 0xFE, S_FALSE, Q9_VALUETYPE_INT64, uint64_t(-1), ""},
      {8, Q9_ENCODING_1COMPL, {}, 0x7F, S_FALSE, Q9_VALUETYPE_INT64, 127, ""},
      {8, Q9_ENCODING_2COMPL, {}, 0xFF, S_FALSE, Q9_VALUETYPE_INT64, uint64_t(-1), ""},
      {8, Q9_ENCODING_2COMPL, {}, 0x80, S_FALSE, Q9_VALUETYPE_INT64, uint64_t(-128), ""},
      {8, Q9_ENCODING_2COMPL, {}, 0x7F, S_FALSE, Q9_VALUETYPE_INT64, 127, ""},
      {64, Q9_ENCODING_2COMPL, {}, ~0ull, S_FALSE, Q9_VALUETYPE_INT64, ~0ull, ""},
      {8, Q9_ENCODING_DIRECT, {}, 0x1FF, S_FALSE, Q9_VALUETYPE_UINT64, 255, "cut to the length"},
      {64, Q9_ENCODING_DIRECT, {}, ~0ull, S_FALSE, Q9_VALUETYPE_UINT64, ~0ull, ""},
      {0, Q9_ENCODING_DIRECT, {}, 0x1234, S_FALSE, Q9_VALUETYPE_UINT64, 0x1234, ""},
      {16, Q9_ENCODING_PACKED_BCD, {}, 0x1234, S_FALSE, Q9_VALUETYPE_UINT64, 1234, ""},
      {16, Q9_ENCODING_UNPACKED_BCD, {}, 0x0402, S_FALSE, Q9_VALUETYPE_UINT64, 42, ""},
      {32, Q9_ENCODING_IEEE, {}, 0xFFFFFFFF3FC00000ull, S_FALSE, Q9_VALUETYPE_DOUBLE, bitsOf(1.5), "upper half ignored"},
      {64, Q9_ENCODING_IEEE, {}, bitsOf(-2.25), S_FALSE, Q9_VALUETYPE_DOUBLE, bitsOf(-2.25), ""},
      {16, Q9_ENCODING_IEEE, {}, 0, E_UNEXPECTED, Q9_VALUETYPE_DOUBLE, 0, "no 16-bit float"},
      {8, Q9_ENCODING_ASCII, {}, 0x41, E_UNEXPECTED, kUnchecked, 0, ""},
      {8, Q9_ENCODING_INVALID, {}, 0x41, E_UNEXPECTED, kUnchecked, 0, ""},
      {8, 99, {}, 0x41, E_UNEXPECTED, kUnchecked, 0, ""},
      {8, Q9_ENCODING_DIRECT, {1, -40, 255}, 10, S_OK, Q9_VALUETYPE_INT64, uint64_t(-30), "scale one stays integer"},
      {8, Q9_ENCODING_DIRECT, {1, -40, 255}, 50, S_OK, Q9_VALUETYPE_UINT64, 10, ""},
      {8, Q9_ENCODING_DIRECT, {1, 0.5, 255}, 10, S_OK, Q9_VALUETYPE_UINT64, 10, "integer offsets are truncated"},
      {8, Q9_ENCODING_DIRECT, {0.5, 0, 255}, 3, S_OK, Q9_VALUETYPE_DOUBLE, bitsOf(1.5), ""},
      {12, Q9_ENCODING_DIRECT, {0.1, -40, 4095}, 653, S_OK, Q9_VALUETYPE_DOUBLE, bitsOf(25.299999999999997),
       "two roundings, no fused multiply-add"},
      {8, Q9_ENCODING_DIRECT, {1.0000000000000002, 0, 255}, 7, S_OK, Q9_VALUETYPE_UINT64, 7,
       "one epsilon off still counts as one"},
      {8, Q9_ENCODING_DIRECT, {1.0000000000000004, 0, 255}, 7, S_OK, Q9_VALUETYPE_DOUBLE,
       bitsOf(7 * 1.0000000000000004), ""},
      {64, Q9_ENCODING_DIRECT, {2, 0, 1e30}, ~0ull, S_OK, Q9_VALUETYPE_DOUBLE, bitsOf(36893488147419103232.0),
       "above 2^63 the unsigned value converts with correct rounding"},
  };
  for (const auto& r : rows) {
    SCOPED_TRACE(testing::Message() << r.bitlen << "/" << std::hex << r.encoding << "/" << r.raw << " " << r.why);
    const auto& c = r.scaleOffsetUpper;
    std::vector<Q9DbNode*> computations;
    if (!c.empty()) computations.push_back(linear(c[0], c[1], 0, c[2]));
    const Q9DbPhysicalValue v = decode(signal(r.bitlen, r.encoding, computations), r.raw, r.status);
    Q9DbNode* computation = c.empty() ? nullptr : computations[0];
    if (r.type == kUnchecked) continue;
    EXPECT_EQ(v.valueType, r.type);
    if (SUCCEEDED(r.status)) {
      EXPECT_EQ(v.value.u, r.bits);
    }
    EXPECT_EQ(v.computation, computation);
    EXPECT_EQ(v.text, nullptr);
  }
}

TEST_F(ValuesTest, SignalWithoutCodingGivesTheRawValue) {
  Q9DbNode* s = create(Q9Db_createSignal, u"bare", 0, 0, 0, 0, nullptr);
  Q9DbPhysicalValue v = decode(s, 0xDEADBEEFull, S_OK);
  EXPECT_EQ(v.valueType, Q9_VALUETYPE_UINT64);
  EXPECT_EQ(v.value.u, 0xDEADBEEFull);
  Q9DbPhysicalValue in{};
  uint64_t raw = 0;
  EXPECT_EQ(Q9Db_physicalToInternal(s, nullptr, &in, &raw), E_UNEXPECTED);
  EXPECT_EQ(Q9Db_internalToPhysical(handle, 0, &v), E_INVALIDARG);
  EXPECT_EQ(Q9Db_internalToPhysical(s, 0, nullptr), E_INVALIDARG);
}

TEST_F(ValuesTest, RangesSelectComputations) {
  const struct {
    double lower, upper;
    uint32_t flags;
    uint64_t raw;
    bool holds;
  } rows[] = {{0, 10, 0, 0, false}, {0, 10, 0, 10, false}, {0, 10, 0, 5, true},  {0, 10, 1, 0, true},
              {0, 10, 1, 10, false}, {0, 10, 2, 10, true}, {0, 10, 2, 0, false}, {0, 10, 3, 0, true},
              {0, 10, 3, 10, true},  {4, 4, 0, 4, false},  {4, 4, 1, 4, true}};  // a point needs a closed flag
  for (const auto& r : rows) {
    Q9DbNode* s = signal(8, Q9_ENCODING_DIRECT, {linear(2, 0, r.lower, r.upper, r.flags)});
    EXPECT_EQ(decode(s, r.raw, r.holds ? S_OK : S_FALSE).valueType,
              r.holds ? Q9_VALUETYPE_DOUBLE : Q9_VALUETYPE_UINT64)
        << r.lower << "-" << r.upper << "/" << r.flags << "/" << r.raw;
  }
  // Two ranges holding the value apply the computation once.
  Q9DbNode* twice = linear(2, 0, 0, 10);
  Q9Db_addRange(twice, 0, 100, 3);
  EXPECT_EQ(decode(signal(8, Q9_ENCODING_DIRECT, {twice}), 5, S_OK).value.d, 10.0);
}

TEST_F(ValuesTest, CascadeSeesEarlierResults) {
  Q9DbStringSlot* ten = nullptr;
  ASSERT_EQ(Q9Db_stringCreateSlot(handle, 9, u"ten", &ten), S_OK);
  Q9DbNode* text = create(Q9Db_createMappedTextComputation, nullptr, ten);
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
  Q9DbNode* mapped = create(Q9Db_createMappedValueComputation, nullptr, 42.5);
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
  const uint32_t S = Q9_ENCODING_SIGNED;
  const Row rows[] = {
      {8, Q9_ENCODING_DIRECT | S, doubleValue(-1.0), 0xFF},
      {8, Q9_ENCODING_2COMPL, doubleValue(-1.0), ~0ull},
      {8, Q9_ENCODING_1COMPL, doubleValue(-1.0), ~0ull - 1},
      {8, Q9_ENCODING_DIRECT, doubleValue(2.9), 2},
      {8, Q9_ENCODING_2COMPL, doubleValue(-2.9), uint64_t(-2)},
      {8, Q9_ENCODING_DIRECT, typedValue(Q9_VALUETYPE_UINT64, 0x1FF), 0xFF},
      {64, Q9_ENCODING_DIRECT, doubleValue(9223372036854775808.0 * 1.5), 0xC000000000000000ull},
      {64, Q9_ENCODING_DIRECT, doubleValue(1e30), 0x8000000000000000ull},
      {64, Q9_ENCODING_2COMPL, doubleValue(NAN), 0x8000000000000000ull},
      {16, Q9_ENCODING_PACKED_BCD, doubleValue(1234), 0x1234},
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
  const Q9DbPhysicalValue minusOne = doubleValue(-1.0);
  Q9Db_physicalToInternal(oneCompl, nullptr, &minusOne, &raw);
  EXPECT_EQ(decode(oneCompl, raw & 0xFF).value.i, -1);
  // An IEEE single keeps the upper half of the raw word.
  Q9DbNode* single = signal(32, Q9_ENCODING_IEEE);
  raw = 0xAAAAAAAA00000000ull;
  const Q9DbPhysicalValue onePointFive = doubleValue(1.5);
  EXPECT_EQ(Q9Db_physicalToInternal(single, nullptr, &onePointFive, &raw), S_OK);
  EXPECT_EQ(raw, 0xAAAAAAAA3FC00000ull);
  // The computation is applied forward, not inverted.
  Q9DbNode* toRaw = linear(10, 400, 0, 0);
  raw = 0;
  const Q9DbPhysicalValue t = doubleValue(25.3);
  EXPECT_EQ(Q9Db_physicalToInternal(signal(12, Q9_ENCODING_DIRECT), toRaw, &t, &raw), S_OK);
  EXPECT_EQ(raw, 653u);
  Q9DbNode* text = create(Q9Db_createMappedTextComputation, nullptr, nullptr);
  raw = 77;
  EXPECT_EQ(Q9Db_physicalToInternal(signal(8, Q9_ENCODING_DIRECT), text, &t, &raw), S_FALSE);
  EXPECT_EQ(raw, 77u);
  EXPECT_EQ(Q9Db_physicalToInternal(signal(8, Q9_ENCODING_DIRECT), handle, &t, &raw), E_INVALIDARG);
  EXPECT_EQ(Q9Db_physicalToInternal(signal(8, Q9_ENCODING_ASCII), nullptr, &t, &raw), E_UNEXPECTED);
}

TEST_F(ValuesTest, MinMaxCheck) {
  struct Row {
    uint32_t flags;
    double v;
    HRESULT expected;
  } const rows[] = {{0, 0, Q9_VALUEBELOWRANGE}, {0, 10, Q9_VALUEABOVERANGE}, {0, 5, Q9_VALUEINRANGE},
                    {3, 0, Q9_VALUEINRANGE},    {3, 10, Q9_VALUEINRANGE},    {1, 0, Q9_VALUEINRANGE},
                    {1, 10, Q9_VALUEABOVERANGE}, {3, -1, Q9_VALUEBELOWRANGE}, {0, NAN, Q9_VALUEINRANGE}};
  for (const Row& r : rows) {
    Q9DbNode* s = signal(8, Q9_ENCODING_DIRECT, {}, r.flags, 0, 10);
    const Q9DbPhysicalValue v = doubleValue(r.v);
    EXPECT_EQ(Q9Db_checkValueInMinMax(s, &v), r.expected) << r.flags << "/" << r.v;
  }
  Q9DbPhysicalValue odd{};
  odd.valueType = 7;
  EXPECT_EQ(Q9Db_checkValueInMinMax(signal(8, 1), &odd), Q9_INCOMPATIBLEVALUETYPE);
  EXPECT_EQ(Q9Db_checkValueInMinMax(handle, &odd), E_INVALIDARG);
}

TEST(ValueText, FormatsByType) {
  const struct {
    Q9DbPhysicalValue value;
    uint32_t capacity;
    int32_t length;
    const char16_t* text;  // null: none written
  } rows[] = {
      {doubleValue(1.5), 64, 5, u"1.500"},
      {doubleValue(-25.2999), 64, 7, u"-25.300"},
      {typedValue(Q9_VALUETYPE_UINT64, 255), 64, 4, u"0xFF"},
      {typedValue(Q9_VALUETYPE_INT64, uint64_t(-3)), 64, 2, u"-3"},
      {typedValue(Q9_VALUETYPE_INT64, uint64_t(-3)), 2, -1, nullptr},  // no room for the terminator
      {typedValue(Q9_VALUETYPE_INT64, uint64_t(-3)), 3, 2, u"-3"},
      {typedValue(9, 0), 64, -1, nullptr},
  };
  for (const auto& r : rows) {
    char16_t buffer[64];
    EXPECT_EQ(Q9Db_valueToString(&r.value, buffer, r.capacity), r.length) << r.value.valueType << "/" << r.capacity;
    if (r.text) {
      EXPECT_EQ(std::u16string(buffer), r.text);
    }
  }
  char16_t buffer[64];
  EXPECT_EQ(Q9Db_valueToString(nullptr, buffer, 64), -1);
}

}  // namespace
}  // namespace q9::test
