// End to end: a channel with a cyclic frame and an event-driven frame that
// carries a multiplexed PDU; defaults, update bits and client changes go in
// through the encoder, and what it hands out decodes back to them.
#include <gtest/gtest.h>

#include <map>

#include "EncoderFixture.h"

namespace q9::test {
namespace {

constexpr int32_t BE = Q9_BYTEORDER_BIGENDIAN;

class EncoderEndToEndTest : public EncoderTest {
 protected:
  void SetUp() override {
    EncoderTest::SetUp();
    Q9DbNode* cyclicFrame = frame(u"Cyc", 8, 0x100);
    Q9DbNode* values = signalPdu(cyclicFrame);
    timed(values, {cyclic(100)});
    speed = defaulted(u"speed", values, 0, 16, 12.5, 10, -1);
    temp = defaulted(u"temp", values, 23, 8, 20, 1, 32, BE);

    Q9DbNode* eventFrame = frame(u"Evt", 8, 0x200);
    Q9DbNode* mux = muxPdu(eventFrame, 0, 4);
    timed(mux, {event(50)});
    counter = defaulted(u"counter", signalPdu(part(mux, kStatic, {{8, 8}}), 0, 8), 0, 8, 3, 1, -1);
    volt = defaulted(u"volt", signalPdu(part(mux, 1, {{16, 24}}), 0, 24), 0, 16, 0, 1, 16);
    amp = defaulted(u"amp", signalPdu(part(mux, 2, {{16, 8}, {40, 8}}), 0, 16), 0, 16, 0, 1, -1);
    identifiers = {{cyclicFrame, 0x100}, {eventFrame, 0x200}};

    open(channel);
    app = registerApp();
    ASSERT_EQ(Q9Db_EncoderInsert(encoder, app, cyclicFrame), S_OK);
    ASSERT_EQ(Q9Db_EncoderInsert(encoder, app, eventFrame), S_OK);
  }

  // Triggers at time and decodes every frame handed out.
  std::string sent(uint64_t time) {
    EXPECT_EQ(Q9Db_EncoderTrigger(encoder, time), S_OK);
    std::string out;
    Q9DbChangedFrame changed{};
    while (Q9Db_EncoderGetChangedFrame(encoder, &changed) == S_OK) {
      lastPayload = Bytes(changed.data, changed.data + changed.size);
      std::string decoded = walk(identifiers.at(changed.frame), 0, lastPayload);
      decoded.resize(decoded.rfind(" | -:"));  // the channel carries no PDUs of its own
      out += (out.empty() ? "" : " | ") + decoded;
    }
    return out;
  }
  void change(Q9DbNode* s, uint64_t raw) { ASSERT_EQ(Q9Db_EncoderChangeSignal(encoder, app, s, raw), S_OK); }

  Q9DbNode *speed = nullptr, *temp = nullptr, *counter = nullptr, *volt = nullptr, *amp = nullptr;
  std::map<Q9DbNode*, uint32_t> identifiers;
  Bytes lastPayload;
  uint32_t app = 0;
};

TEST_F(EncoderEndToEndTest, EmittedFramesDecodeToTheValuesSet) {
  EXPECT_EQ(sent(99), "") << "the event frame is due, but nothing changed";
  EXPECT_EQ(sent(100), "Cyc: speed=7D temp=14") << "defaults, by the cycle";
  EXPECT_EQ(lastPayload[4] & 1, 1) << "temp's update bit";
  Q9DbPhysicalValue physical{};
  ASSERT_EQ(Q9Db_internalToPhysical(speed, 0x7D, &physical), S_OK);
  EXPECT_DOUBLE_EQ(physical.value.d, 12.5);

  change(volt, 0x1234);
  change(counter, 7);
  EXPECT_EQ(sent(110), "Evt: counter=7 volt=1234");
  EXPECT_EQ(lastPayload[4] & 1, 1) << "volt's update bit, bit 16 of its part, goes through the segment";

  change(amp, 0xBEEF);
  EXPECT_EQ(sent(150), "") << "debounced until 160";
  change(speed, 300);
  EXPECT_EQ(sent(160), "Evt: counter=7 amp=BEEF") << "the part sent last sets the switch";
  EXPECT_EQ(sent(200), "Cyc: speed=12C temp=14");
  EXPECT_EQ(sent(250), "");
}

}  // namespace
}  // namespace q9::test
