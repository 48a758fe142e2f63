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
    return instanceIn(create(Q9Db_createSignalPDU, fresh(), bitlen, partOrNull(carrier)), carrier, bitpos);
  }
  Q9DbNode* muxPdu(Q9DbNode* carrier, int32_t switchPosition, int32_t switchLength, int32_t bitpos = 0,
                   int32_t switchByteOrder = Q9_BYTEORDER_LITTLEENDIAN, int32_t bitlen = 64) {
    return instanceIn(create(Q9Db_createMultiplexedPDU, fresh(), bitlen, switchByteOrder, switchPosition,
                             switchLength, 0, partOrNull(carrier)),
                      carrier, bitpos);
  }

  // A PDU triggering of pdu on the channel, with its timings in the order given.
  Q9DbNode* timed(Q9DbNode* pdu, std::vector<Timing> timings) {
    Q9DbNode* triggering = create(Q9Db_createPDUTriggering, fresh(), pdu, channel);
    for (const Timing& t : timings)
      t.debounce >= 0 ? create(Q9Db_createEventControlledTiming, t.debounce, triggering)
                      : create(Q9Db_createCyclicTiming, t.cycle, triggering);
    return triggering;
  }

  Q9DbNode* cluster = nullptr;

 private:
  static Q9DbNode* partOrNull(Q9DbNode* carrier) {
    return Q9Db_getNodeType(carrier) == Q9_NODETYPE_MultiplexedPart ? carrier : nullptr;
  }
  Q9DbNode* instanceIn(Q9DbNode* pdu, Q9DbNode* carrier, int32_t bitpos) {
    if (!partOrNull(carrier)) create(Q9Db_createPDUInstance, fresh(), 0, bitpos, -1, pdu, carrier);
    return pdu;
  }
};

}  // namespace q9::test
