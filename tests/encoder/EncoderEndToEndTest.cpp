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
    speed = withDefault(u"speed", values, 0, 16, 0, 12.5, 10, -1);
    temp = withDefault(u"temp", values, 23, 8, BE, 20, 1, 32);

    Q9DbNode* eventFrame = frame(u"Evt", 8, 0x200);
    Q9DbNode* mux = muxPdu(eventFrame, 0, 4);
    timed(mux, {event(50)});
    counter = withDefault(u"counter", signalPdu(part(mux, kStatic, {{8, 8}}), 0, 8), 0, 8, 0, 3, 1, -1);
    volt = withDefault(u"volt", signalPdu(part(mux, 1, {{16, 24}}), 0, 24), 0, 16, 0, 0, 1, 16);
    amp = withDefault(u"amp", signalPdu(part(mux, 2, {{16, 8}, {40, 8}}), 0, 16), 0, 16, 0, 0, 1, -1);
    identifiers = {{cyclicFrame, 0x100}, {eventFrame, 0x200}};

    open(channel);
    app = registerApp();
    ASSERT_EQ(Q9Db_EncoderInsert(encoder, app, cyclicFrame), S_OK);
    ASSERT_EQ(Q9Db_EncoderInsert(encoder, app, eventFrame), S_OK);
  }

  // A signal whose default reaches the raw value through a scale, and whose
  // raw values read back through the inverse scale.
  Q9DbNode* withDefault(const char16_t* name, Q9DbNode* pdu, int32_t bitpos, int32_t bitlen, int32_t byteOrder,
                        double physical, double scale, int32_t updateBit) {
    Q9DbNode *coding = nullptr, *s = nullptr, *encode = nullptr, *decode = nullptr, *instance = nullptr;
    EXPECT_EQ(Q9Db_createCoding(handle, fresh(), bitlen, Q9_ENCODING_DIRECT, nullptr, &coding), S_OK);
    Q9Db_createLinearComputation(handle, fresh(), scale, 0, &encode);
    Q9Db_createLinearComputation(handle, fresh(), 1 / scale, 0, &decode);
    Q9Db_addRange(decode, 0, 65535, Q9_FLAG_LOWERLIMIT_CLOSED | Q9_FLAG_UPPERLIMIT_CLOSED);
    Q9Db_addPhysicalToInternalComputations(coding, 1, &encode);
    Q9Db_addInternalToPhysicalComputations(coding, 1, &decode);
    EXPECT_EQ(Q9Db_createSignal(handle, name, 0, physical, 0, 1000, coding, &s), S_OK);
    EXPECT_EQ(Q9Db_createSignalInstance(handle, fresh(), byteOrder, bitpos, updateBit, s, pdu, &instance), S_OK);
    return s;
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
