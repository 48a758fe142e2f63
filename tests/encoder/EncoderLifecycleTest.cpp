// An encoder's creation, its failures, and the promise that running it
// takes nothing from the heap.
#include <gtest/gtest.h>

#include "EncoderFixture.h"

namespace q9::test {
namespace {

class EncoderLifecycleTest : public EncoderTest {
 protected:
  void SetUp() override {
    EncoderTest::SetUp();
    // One PDU of each kind of timing, and one without a triggering.
    for (int kind = 0; kind < 3; ++kind) {
      Q9DbNode* f = frame(fresh(), 8, 0x10 + kind);
      Q9DbNode* pdu = signalPdu(f);
      signals.push_back(field(fresh(), pdu, 0, 8));
      if (kind == 1) timed(pdu, {cyclic(10)});
      if (kind == 2) timed(pdu, {event(5)});
      frames.push_back(f);
    }
  }
  std::vector<Q9DbNode*> signals, frames;
};

TEST_F(EncoderLifecycleTest, CreationRefusesWhatItCantWalk) {
  Q9DbNode* other = nullptr;
  ASSERT_EQ(Q9Db_create(u"other", &other), S_OK);
  Q9DbNode* foreign = nullptr;
  Q9Db_createChannel(other, u"ch", nullptr, &foreign);
  const struct {
    Q9DbNode *db, *scope;
    HRESULT status;
  } rows[] = {
      {nullptr, nullptr, E_INVALIDARG}, {channel, nullptr, E_INVALIDARG},  {handle, signals[0], S_OK},
      {handle, frames[0], S_OK},        {handle, cluster, S_OK},           {handle, foreign, E_INVALIDARG},
      {handle, signalPdu(channel), E_INVALIDARG},
  };
  for (const auto& r : rows) {
    Q9DbEncoder* e = nullptr;
    EXPECT_EQ(Q9Db_CreateEncoder(r.db, r.scope, &e), r.status) << Q9Db_getNodeType(r.scope);
    EXPECT_EQ(e != nullptr, r.status == S_OK);
    Q9Db_DestroyEncoder(e);
  }
  EXPECT_EQ(Q9Db_CreateEncoder(handle, nullptr, nullptr), E_POINTER);
  Q9Db_destroy(other);
}

TEST_F(EncoderLifecycleTest, RunningOutOfMemoryLeavesNothingBehind) {
  for (int64_t allowed = 0;; ++allowed) {
    Q9DbEncoder* e = nullptr;
    HRESULT status;
    {
      platform::HeapFailureScope failing(allowed);
      status = Q9Db_CreateEncoder(handle, channel, &e);
    }
    if (status == S_OK) {
      EXPECT_GT(allowed, 5) << "walker, engine, two blocks and the images";
      Q9Db_DestroyEncoder(e);
      break;
    }
    EXPECT_EQ(status, E_OUTOFMEMORY) << allowed;
    EXPECT_EQ(e, nullptr);
  }
}

TEST_F(EncoderLifecycleTest, RunningTakesNothingFromTheHeap) {
  open(channel);
  const uint32_t app = registerApp();
  for (Q9DbNode* f : frames) ASSERT_EQ(Q9Db_EncoderInsert(encoder, app, f), S_OK);
  const uint64_t before = platform::heapAllocationCount();
  std::string reported;
  for (uint64_t time = 1; time <= 20; ++time) {
    for (Q9DbNode* s : signals) ASSERT_EQ(Q9Db_EncoderChangeSignal(encoder, app, s, time), S_OK);
    reported += triggerAndDrain(time) + "|";
  }
  EXPECT_EQ(platform::heapAllocationCount(), before);
  const std::string cyclicFrame = narrow(as<ElementId>(frames[1])->eid);
  EXPECT_NE(reported.find(cyclicFrame + "|"), std::string::npos) << "the cycle came: " << reported;
  EXPECT_EQ(Q9Db_EncoderIsSignalCyclic(encoder, signals[1]), S_OK);
  EXPECT_EQ(Q9Db_EncoderIsSignalCyclic(encoder, signals[2]), S_FALSE);
}

}  // namespace
}  // namespace q9::test
