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

}  // namespace
}  // namespace q9::test
