// When a change, or a cycle, takes a PDU into its frame: by the PDU
// triggering's timings, tried in list order.
#include <gtest/gtest.h>

#include "EncoderFixture.h"

namespace q9::test {
namespace {

constexpr int64_t kNoChange = -1;

struct Step {
  int64_t change;  // a value for the signal before the trigger, or kNoChange
  uint64_t time;
  const char* reported;
};

struct Scenario {
  const char* name;
  bool triggered;  // the PDU has a PDU triggering
  std::vector<Timing> timings;
  uint32_t mode;
  std::vector<Step> steps;
};

void PrintTo(const Scenario& s, std::ostream* out) { *out << s.name; }

class EncoderTimingTest : public EncoderTest {
 protected:
  void build(const Scenario& s) {
    frameNode = frame(u"F", 8, 0x10);
    Q9DbNode* pdu = signalPdu(frameNode);
    value = field(u"v", pdu, 0, 8);
    if (s.triggered) timed(pdu, s.timings);
    open(channel);
    app = registerApp(s.mode);
    ASSERT_EQ(Q9Db_EncoderInsert(encoder, app, frameNode), S_OK);
  }

  Q9DbNode *frameNode = nullptr, *value = nullptr;
  uint32_t app = 0;
};

class TimingScenarioTest : public EncoderTimingTest, public ::testing::WithParamInterface<Scenario> {};

constexpr uint32_t OFF = Q9_ENC_MODE_OFF, ON = Q9_ENC_MODE_PERIODIC;

const Scenario kScenarios[] = {
      {"cycle reaches all clients", true, {cyclic(100)}, OFF,
       {{kNoChange, 99, ""}, {kNoChange, 100, "F"}, {kNoChange, 150, ""}, {kNoChange, 200, "F"}}},
      {"event with debounce", true, {event(20)}, ON, {{1, 1000, "F"}, {2, 1010, ""}, {kNoChange, 1020, "F"}}},
      {"no timing holds changes back", true, {}, ON, {{1, 10, ""}, {kNoChange, 1000, ""}}},
      {"no triggering sends at once", false, {}, ON, {{1, 5, "F"}, {kNoChange, 6, ""}, {2, 7, "F"}}},
      {"cycle first, event second", true, {cyclic(100), event(20)}, ON, {{kNoChange, 50, ""}, {kNoChange, 100, "F"}}},
      {"event first hides the cycle", true, {event(20), cyclic(100)}, ON,
       {{kNoChange, 50, ""}, {kNoChange, 100, ""}, {kNoChange, 200, ""}, {3, 300, "F"}}},
      {"off app waits for the cycle", true, {cyclic(100)}, OFF, {{1, 50, ""}, {kNoChange, 100, "F"}}},
      // At 180 the event is the first due, and holds the frame back; at 160
      // it isn't yet, and the short cycle behind it sends.
      {"back in time, an earlier timing decides", true, {cyclic(100), event(70), cyclic(50)}, ON,
       {{kNoChange, 100, "F"}, {kNoChange, 180, ""}, {kNoChange, 160, "F"}}},
      {"the last cycle ends at the end of time", true, {cyclic(100)}, OFF,
       {{kNoChange, UINT64_MAX - 100, "F"}, {kNoChange, UINT64_MAX - 1, ""}, {kNoChange, UINT64_MAX, "F"}}},
};

TEST_P(TimingScenarioTest, FramesComeWhenTheirTimingSays) {
  const Scenario& s = GetParam();
  build(s);
  for (const Step& step : s.steps) {
    if (step.change != kNoChange) {
      EXPECT_EQ(Q9Db_EncoderChangeSignal(encoder, app, value, step.change), S_OK);
    }
    EXPECT_EQ(triggerAndDrain(step.time), step.reported) << s.name << ", at " << step.time;
  }
}

INSTANTIATE_TEST_SUITE_P(Timings, TimingScenarioTest, ::testing::ValuesIn(kScenarios));

TEST_F(EncoderTimingTest, CycleAndChangeInOneTriggerReportOnceForEveryone) {
  build({"", true, {cyclic(100)}, Q9_ENC_MODE_PERIODIC, {}});
  ASSERT_EQ(Q9Db_EncoderChangeSignal(encoder, app, value, 0x5A), S_OK);
  ASSERT_EQ(Q9Db_EncoderTrigger(encoder, 100), S_OK);
  const EncoderRecord* frameRecord = reinterpret_cast<CEncode*>(encoder)->RecordOf(frameNode);
  EXPECT_EQ(frameRecord->changeMask, kAllClients);
  EXPECT_EQ(image(frameNode)[0], 0x5A);
  EXPECT_EQ(drain(), "F");
}

TEST_F(EncoderTimingTest, ScopeDecidesTheLevelsThatTriggersReach) {
  frameNode = frame(u"F", 8, 0x10);
  value = field(u"v", signalPdu(frameNode), 0, 8);
  for (Q9DbNode* scope : {channel, frameNode}) {
    ASSERT_EQ(Q9Db_DestroyEncoder(encoder), S_OK);
    open(scope);
    app = registerApp();
    // A frame scope holds the frame's PDUs, at level 0, which triggers leave
    // alone, and no frame record: the PDUs change and go nowhere.
    EXPECT_EQ(Q9Db_EncoderInsert(encoder, app, frameNode), scope == channel ? S_OK : S_FALSE);
    ASSERT_EQ(Q9Db_EncoderChangeSignal(encoder, app, value, 7), S_OK);
    EXPECT_EQ(triggerAndDrain(1), scope == channel ? "F" : "");
  }
}

TEST_F(EncoderTimingTest, FramesDueInOneTriggerComeInTheOrderOfTheirInserts) {
  // A trigger sends the latest insert first, so it is the oldest change
  // when collected, whichever cycle came due first.
  const char16_t* names[] = {u"A", u"B", u"C"};
  std::vector<Q9DbNode*> frames;
  for (uint32_t i = 0; i < 3; ++i) {
    frames.push_back(frame(names[i], 8, 0x10 + i));
    timed(signalPdu(frames.back()), {cyclic(10 * (i + 1))});
  }
  open(channel);
  app = registerApp();
  for (Q9DbNode* f : frames) ASSERT_EQ(Q9Db_EncoderInsert(encoder, app, f), S_OK);
  EXPECT_EQ(triggerAndDrain(30), "A B C");
  ASSERT_EQ(Q9Db_EncoderDelete(encoder, app, frames[0]), S_OK);
  ASSERT_EQ(Q9Db_EncoderInsert(encoder, app, frames[0]), S_OK);
  EXPECT_EQ(triggerAndDrain(60), "B C A");
}

TEST_F(EncoderTimingTest, APduCarriedOnItsOwnLevelGoesAlongWhenItComesLaterInTheList) {
  // P stands in F1 and in a part of M, which F2 carries: both P and M are
  // PDUs of a frame, at one level. P's send changes M, which goes in the
  // same trigger only if the active list has it behind P.
  const struct {
    bool f2First;
    const char* first;
    const char* second;
  } rows[] = {{true, "F2 F1", ""}, {false, "F1", "F2"}};
  Q9DbNode* f1 = frame(u"F1", 8, 0x10);
  Q9DbNode* f2 = frame(u"F2", 8, 0x20);
  Q9DbNode* p = signalPdu(part(muxPdu(f2, 0, 4), 1, {{8, 8}}), 0, 8);
  create(Q9Db_createPDUInstance, fresh(), 0, 0, -1, p, f1);
  value = field(u"v", p, 0, 8);
  for (const auto& r : rows) {
    ASSERT_EQ(Q9Db_DestroyEncoder(encoder), S_OK);
    open(channel);
    app = registerApp();
    for (Q9DbNode* f : r.f2First ? std::vector<Q9DbNode*>{f2, f1} : std::vector<Q9DbNode*>{f1, f2})
      ASSERT_EQ(Q9Db_EncoderInsert(encoder, app, f), S_OK);
    ASSERT_EQ(Q9Db_EncoderChangeSignal(encoder, app, value, 9), S_OK);
    EXPECT_EQ(triggerAndDrain(1), r.first);
    EXPECT_EQ(triggerAndDrain(2), r.second);
  }
}

TEST_F(EncoderTimingTest, TimingsBelowAnotherChildOfTheTriggeringCount) {
  // The timing check walks into every child, so a PDU triggering placed
  // among the children lends its cycle.
  frameNode = frame(u"F", 8, 0x10);
  Q9DbNode* pdu = signalPdu(frameNode);
  Q9DbNode* outer = timed(pdu, {});
  Q9DbNode* inner = timed(signalPdu(frame(u"G", 8, 0x20)), {cyclic(10)});
  ASSERT_EQ(Q9Db_appendChildren(outer, 1, &inner), S_OK);
  open(channel);
  app = registerApp();
  ASSERT_EQ(Q9Db_EncoderInsert(encoder, app, frameNode), S_OK);
  for (const auto& [time, reported] : std::vector<std::pair<uint64_t, const char*>>{
           {9, ""}, {10, "F"}, {15, ""}, {20, "F"}})
    EXPECT_EQ(triggerAndDrain(time), reported) << time;
}

}  // namespace
}  // namespace q9::test
