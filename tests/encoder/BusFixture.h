// A channel inside a cluster (so that walks from the database's clusters
// reach it), PDUs linked as the factories link them, and PDU triggerings
// with timings.
#pragma once

#include <vector>

#include "codec/DecoderFixture.h"

namespace q9::test {

// A timing of a PDU triggering: cyclic, or event-controlled with a debounce.
struct Timing {
  uint64_t cycle;
  int32_t debounce;  // -1 for a cyclic timing
};
inline Timing cyclic(uint64_t cycle) { return {cycle, -1}; }
inline Timing event(int32_t debounce) { return {0, debounce}; }

class BusTest : public DecoderTest {
 protected:
  void SetUp() override {
    DecoderTest::SetUp();
    ASSERT_EQ(Q9Db_createCluster(handle, u"bus", Q9_CLUSTERTYPE_CAN, &cluster), S_OK);
    ASSERT_EQ(Q9Db_appendChildren(cluster, 1, &channel), S_OK);
  }

  // PDUs as the factories link them: a part's PDU lists the part among its
  // parents, so that changes climb from the PDU into the multiplexed one.
  Q9DbNode* signalPdu(Q9DbNode* carrier, int32_t bitpos = 0, int32_t bitlen = 64) {
    Q9DbNode* pdu = nullptr;
    EXPECT_EQ(Q9Db_createSignalPDU(handle, fresh(), bitlen, partOrNull(carrier), &pdu), S_OK);
    return instanceIn(pdu, carrier, bitpos);
  }
  Q9DbNode* muxPdu(Q9DbNode* carrier, int32_t switchPosition, int32_t switchLength, int32_t bitpos = 0,
                   int32_t switchByteOrder = Q9_BYTEORDER_LITTLEENDIAN, int32_t bitlen = 64) {
    Q9DbNode* pdu = nullptr;
    EXPECT_EQ(Q9Db_createMultiplexedPDU(handle, fresh(), bitlen, switchByteOrder, switchPosition, switchLength, 0,
                                        partOrNull(carrier), &pdu),
              S_OK);
    return instanceIn(pdu, carrier, bitpos);
  }

  // A PDU triggering of pdu on the channel, with its timings in the order given.
  Q9DbNode* timed(Q9DbNode* pdu, std::vector<Timing> timings) {
    Q9DbNode *triggering = nullptr, *timing = nullptr;
    EXPECT_EQ(Q9Db_createPDUTriggering(handle, fresh(), pdu, channel, &triggering), S_OK);
    for (const Timing& t : timings) {
      if (t.debounce >= 0)
        EXPECT_EQ(Q9Db_createEventControlledTiming(handle, t.debounce, triggering, &timing), S_OK);
      else
        EXPECT_EQ(Q9Db_createCyclicTiming(handle, t.cycle, triggering, &timing), S_OK);
    }
    return triggering;
  }

  Q9DbNode* cluster = nullptr;

 private:
  static Q9DbNode* partOrNull(Q9DbNode* carrier) {
    return Q9Db_getNodeType(carrier) == Q9_NODETYPE_MultiplexedPart ? carrier : nullptr;
  }
  Q9DbNode* instanceIn(Q9DbNode* pdu, Q9DbNode* carrier, int32_t bitpos) {
    Q9DbNode* instance = nullptr;
    if (!partOrNull(carrier)) {
      EXPECT_EQ(Q9Db_createPDUInstance(handle, fresh(), 0, bitpos, -1, pdu, carrier, &instance), S_OK);
    }
    return pdu;
  }
};

}  // namespace q9::test
