// Encoding one signal: an instance's field written into a PDU image, and
// the walk over the computations that hold a physical value.
#include <gtest/gtest.h>

#include "DecoderFixture.h"

namespace q9::test {
namespace {

using SignalEncoderTest = DecoderTest;

// The instance gives the field's place, length and byte order; which bits
// an insert touches is BitFieldProperty's, against the bit model.
TEST_F(SignalEncoderTest, InstancesWriteOnlyTheirFieldIntoThePduImage) {
  const struct {
    int32_t bitlen, byteOrder, bitpos;
    uint64_t raw;
    std::vector<uint8_t> before, after;
  } rows[] = {
      {8, 0, 4, 0xAB, {0, 0}, {0xB0, 0x0A}},
      {16, BE, 7, 0xCDAB, {0, 0}, {0xCD, 0xAB}},
      {16, BE, 7, 0xCDAB, {0}, {0xCD}},  // the payload's length is the field's limit
  };
  for (const auto& r : rows) {
    Q9DbNode* instance = place(signal(fresh(), r.bitlen), nullptr, r.bitpos, r.byteOrder);
    std::vector<uint8_t> payload = r.before;
    EXPECT_EQ(Q9Db_encodeSignalInstance(instance, r.raw, payload.data(), payload.size()), S_OK);
    EXPECT_EQ(payload, r.after) << r.bitlen << " bits at " << r.bitpos;
  }

  uint8_t payload[9] = {};
  Q9DbNode* bare = place(nullptr, nullptr, 0);
  EXPECT_EQ(Q9Db_encodeSignalInstance(bare, 1, payload, 8), E_UNEXPECTED) << "no signal";
  Q9DbNode* uncoded = create(Q9Db_createSignal, u"uncoded", 0, 0, 0, 0, nullptr);
  EXPECT_EQ(Q9Db_encodeSignalInstance(place(uncoded, nullptr, 0), 1, payload, 8), E_UNEXPECTED);
  EXPECT_EQ(Q9Db_encodeSignalInstance(place(signal(u"wide", 65), nullptr, 0), 1, payload, 9), E_UNEXPECTED);
  EXPECT_EQ(Q9Db_encodeSignalInstance(place(signal(u"neg", 8), nullptr, -1), 1, payload, 8), E_UNEXPECTED);
  EXPECT_EQ(Q9Db_encodeSignalInstance(place(signal(u"good", 8), nullptr, 0), 1, payload, 0), E_INVALIDARG);
  EXPECT_EQ(Q9Db_encodeSignalInstance(channel, 1, payload, 8), E_INVALIDARG);
}

TEST_F(SignalEncoderTest, ComputationWalkGivesEachHoldingComputationOnce) {
  Q9DbNode* s = signal(u"s", 8);
  Q9DbNode* twoRanges = linear(1, 0, 0, 10);
  Q9Db_addRange(twoRanges, 5, 20, 0);
  Q9DbNode* elsewhere = linear(1, 0, 100, 200);
  Q9DbNode* identity = create(Q9Db_createIdentityComputation, nullptr);
  Q9Db_addRange(identity, 0, 10, Q9_FLAG_UPPERLIMIT_CLOSED);
  Q9DbNode* list[] = {twoRanges, elsewhere, identity};
  ASSERT_EQ(Q9Db_addPhysicalToInternalComputations(codingOf(s), 3, list), S_OK);

  Q9DbEncodeEnum own;  // caller-owned storage, reused by each start
  Q9DbEncodeEnum* e = &own;
  const Q9DbPhysicalValue seven = typedValue(Q9_VALUETYPE_UINT64, 7);
  Q9DbNode* c = nullptr;
  ASSERT_EQ(Q9Db_encodeSignal(s, &seven, &e), S_OK);
  ASSERT_EQ(e, &own);
  EXPECT_EQ(Q9Db_encodeNextComputation(e, &c), S_OK);
  EXPECT_EQ(c, twoRanges);
  EXPECT_EQ(Q9Db_encodeNextComputation(e, &c), S_OK);
  EXPECT_EQ(c, identity);
  EXPECT_EQ(Q9Db_encodeNextComputation(e, &c), S_FALSE);
  const Q9DbPhysicalValue outside = doubleValue(50);
  ASSERT_EQ(Q9Db_encodeSignal(s, &outside, &e), S_OK);
  EXPECT_EQ(Q9Db_encodeNextComputation(e, &c), S_FALSE);

  Q9DbNode* uncoded = create(Q9Db_createSignal, u"uncoded", 0, 0, 0, 0, nullptr);
  EXPECT_EQ(Q9Db_encodeSignal(uncoded, &seven, &e), S_FALSE);
  EXPECT_EQ(Q9Db_encodeNextComputation(e, &c), S_FALSE);

  EXPECT_EQ(Q9Db_encodeSignal(channel, &seven, &e), E_INVALIDARG);
  own.magic = 0;
  EXPECT_EQ(Q9Db_encodeNextComputation(e, &c), E_INVALIDARG);
  EXPECT_EQ(Q9Db_destroyEncodeEnum(e), E_INVALIDARG);
  platform::HeapFailureScope noMemory(0);
  Q9DbEncodeEnum* none = nullptr;
  EXPECT_EQ(Q9Db_encodeSignal(s, &seven, &none), E_OUTOFMEMORY);
}

}  // namespace
}  // namespace q9::test
