// The database walker: frames, PDUs and signals counted and found under a
// scope, the timing check over a PDU triggering's timings, the climb from a
// signal to its triggerings, and graphs that lead back into themselves.
#include <gtest/gtest.h>

#include "BusFixture.h"
#include "encoder/WalkerCommands.h"

namespace q9::test {
namespace {

class WalkerTest : public BusTest {
 protected:
  void SetUp() override {
    BusTest::SetUp();
    ASSERT_EQ(walker.SetDatabase(handle), S_OK);
    plain = signalPdu(frame(u"F", 8, 0x10));
    shared = signal(u"s", 8);
    place(shared, plain, 0);
    place(shared, plain, 8);
    mux = muxPdu(frame(u"M", 8, 0x20), 0, 4);
    field(u"a", signalPdu(part(mux, kStatic)), 0, 8);
    field(u"b", signalPdu(part(mux, 1)), 0, 8);
    field(u"c", signalPdu(part(mux, 2)), 0, 8);
    field(u"e", signalPdu(part(mux, kElse)), 0, 8);
    Q9DbNode* masked = create(Q9Db_createFrame, u"Masked", 8);
    create(Q9Db_createMaskedIdentifierTriggering, nullptr, 0x7F0, 0x300, 0, masked, nullptr, channel);
    signalPdu(masked);
    twice = frame(u"Twice", 8, 0x30);
    create(Q9Db_createIdentifierBasedTriggering, nullptr, 0x31, 0, twice, nullptr, channel);
  }

  std::string pdusWithDepth(Q9DbNode* scope) {
    std::string out;
    uint32_t depth = 99;
    for (uint32_t i = 0; Q9DbNode* pdu = node(walker.NthPDU(scope, i, &depth)); ++i)
      out += std::to_string(depth) + (isExact<MultiplexedPDU>(pdu) ? "X " : "P ");
    return out;
  }

  CQ9DbCMD walker;
  Q9DbNode *plain = nullptr, *shared = nullptr, *mux = nullptr, *twice = nullptr;
};

TEST_F(WalkerTest, CountsFollowTheTriggeringsAndTheParts) {
  EXPECT_EQ(walker.CountFrames(channel), 4u) << "masked not reached, Twice twice";
  EXPECT_EQ(walker.CountFrames(nullptr), 4u) << "the whole database, through the cluster";
  EXPECT_EQ(walker.CountPDUs(channel), 5u) << "else part not reached";
  EXPECT_EQ(walker.CountSignals(channel), 5u) << "s once per instance, e not";
  EXPECT_EQ(walker.CountSignals(shared), 2u);
  EXPECT_EQ(walker.CountPDUs(plain), 0u) << "a PDU is no scope";
  EXPECT_EQ(pdusWithDepth(channel), "1P 1X 2P 2P 2P ");

  Q9DbNode* muxFrame = node(walker.NthFrame(channel, 1));
  EXPECT_EQ(pdusWithDepth(muxFrame), "0X 1P 1P 1P ");
  EXPECT_EQ(walker.NthSignal(channel, 0, nullptr), shared);
  EXPECT_EQ(walker.NthSignal(channel, 1, nullptr), shared);
  EXPECT_EQ(walker.NthFrame(channel, 2), twice);
  EXPECT_EQ(walker.NthFrame(channel, 3), twice);
  EXPECT_EQ(walker.NthFrame(channel, 4), nullptr);
}

TEST_F(WalkerTest, TimingsAreTriedInListOrderUntilOneIsDue) {
  constexpr HRESULT kNoTiming = S_FALSE;
  const uint16_t C = Q9_NODETYPE_CyclicTiming, E = Q9_NODETYPE_EventControlledTiming;
  const struct {
    std::vector<Timing> timings;
    uint64_t last, now;
    HRESULT due;
    uint16_t kind;
  } rows[] = {
      {{cyclic(100)}, 0, 99, E_FAIL, C},
      {{cyclic(100)}, 0, 100, S_OK, C},
      {{cyclic(100)}, 100, 199, E_FAIL, C},
      {{cyclic(100)}, 100, 200, S_OK, C},
      {{cyclic(100)}, UINT64_MAX - 10, UINT64_MAX, E_FAIL, C},
      {{event(20)}, 0, 5, S_OK, E},
      {{event(20)}, 50, 69, E_FAIL, E},
      {{event(20)}, 50, 70, S_OK, E},
      {{event(0)}, 50, 50, S_OK, E},
      {{cyclic(100), event(20)}, 0, 50, S_OK, E},
      {{cyclic(100), event(20)}, 0, 100, S_OK, C},
      {{event(20), cyclic(100)}, 0, 100, S_OK, E},
      {{}, 0, 100, kNoTiming, 0},
  };
  for (const auto& r : rows) {
    Q9DbNode* triggering = timed(signalPdu(channel), r.timings);
    uint16_t kind = 0;
    EXPECT_EQ(walker.CheckTiming(triggering, r.now, r.last, &kind), r.due) << r.last << " " << r.now;
    EXPECT_EQ(kind, r.kind) << r.last << " " << r.now;
  }
}

TEST_F(WalkerTest, UpwardWalksClimbFromSignalsToTheirFrames) {
  timed(mux, {cyclic(100)});
  Q9DbNode *b = nullptr, *a = nullptr;
  Q9Db_findByElementId(handle, u"b", &b);
  Q9Db_findByElementId(handle, u"a", &a);
  EXPECT_EQ(walker.IsCyclic(b), S_OK) << "through the part to the multiplexed PDU";
  EXPECT_EQ(walker.IsCyclic(a), S_OK) << "through the static part";
  EXPECT_EQ(walker.IsCyclic(shared), S_FALSE) << "no PDU triggering up to the frame";
  timed(plain, {event(10)});
  EXPECT_EQ(walker.IsCyclic(shared), S_FALSE);
  timed(plain, {cyclic(10)});
  EXPECT_EQ(walker.IsCyclic(shared), S_OK);
  for (Q9DbNode* scope : {mux, channel, node(walker.NthFrame(channel, 1))})
    EXPECT_EQ(walker.IsCyclic(scope), S_FALSE) << "the climb ends at the triggerings";
}

TEST_F(WalkerTest, GraphsThatLeadBackIntoThemselvesEndTheWalk) {
  Q9DbNode* loop = muxPdu(frame(u"Loop", 8, 0x50), 0, 4);
  ASSERT_EQ(Q9Db_setReference(part(loop, 1), loop), S_OK);
  EXPECT_GT(walker.CountPDUs(channel), 5u);
  ASSERT_EQ(Q9Db_appendChildren(cluster, 1, &cluster), S_OK);
  EXPECT_GT(walker.CountFrames(nullptr), 4u);
}

}  // namespace
}  // namespace q9::test
