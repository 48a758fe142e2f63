// Clients of an encoder: app numbers, send modes, and which changes reach
// whom.
#include <gtest/gtest.h>

#include "EncoderFixture.h"

namespace q9::test {
namespace {

class EncoderAppsTest : public EncoderTest {
 protected:
  void SetUp() override {
    EncoderTest::SetUp();
    frameNode = frame(u"F", 8, 0x10);
    value = field(u"v", signalPdu(frameNode), 0, 8);
    open(channel);
    ASSERT_EQ(Q9Db_EncoderInsert(encoder, 0, frameNode), S_OK);
  }
  void change(uint32_t app, uint64_t raw) { ASSERT_EQ(Q9Db_EncoderChangeSignal(encoder, app, value, raw), S_OK); }
  uint32_t maskOfFrame() { return reinterpret_cast<CEncode*>(encoder)->RecordOf(frameNode)->changeMask; }

  Q9DbNode *frameNode = nullptr, *value = nullptr;
};

TEST_F(EncoderAppsTest, TwentyFourAppsAndTheLowestFreeNumberFirst) {
  for (uint32_t expected = 0; expected < Q9_ENC_APP_COUNT; ++expected) EXPECT_EQ(registerApp(), expected);
  uint32_t app = 99;
  EXPECT_EQ(Q9Db_EncoderRegister(encoder, &app), E_FAIL);
  EXPECT_EQ(app, 99u);
  EXPECT_EQ(Q9Db_EncoderDeregister(encoder, 3), S_OK);
  EXPECT_EQ(Q9Db_EncoderDeregister(encoder, 3), E_FAIL);
  EXPECT_EQ(Q9Db_EncoderRegister(encoder, &app), S_OK);
  EXPECT_EQ(app, 3u);
  uint32_t mode = 99;
  EXPECT_EQ(Q9Db_EncoderGetSendMode(encoder, 3, &mode), S_OK);
  EXPECT_EQ(mode, Q9_ENC_MODE_OFF) << "a new app is off";

  EXPECT_EQ(Q9Db_EncoderSetSendMode(encoder, Q9_ENC_APP_ALL, Q9_ENC_MODE_ONCE), E_FAIL);
}

TEST_F(EncoderAppsTest, OnceAppSeesChangesUntilTheListRunsDry) {
  const uint32_t once = registerApp(Q9_ENC_MODE_ONCE);
  change(once, 1);
  EXPECT_EQ(triggerAndDrain(1), "F");
  change(once, 2);
  EXPECT_EQ(triggerAndDrain(2), "") << "fell out when the list ran dry";
  uint32_t mode = 0;
  EXPECT_EQ(Q9Db_EncoderGetSendMode(encoder, once, &mode), S_OK);
  EXPECT_EQ(mode, Q9_ENC_MODE_ONCE);
  EXPECT_EQ(Q9Db_EncoderSetSendMode(encoder, once, Q9_ENC_MODE_ONCE), S_OK);
  EXPECT_EQ(drain(), "F") << "the kept mark counts again";
}

TEST_F(EncoderAppsTest, OneReportClearsTheActiveAppsAndKeepsTheOthers) {
  const uint32_t a = registerApp(), b = registerApp(), off = registerApp(Q9_ENC_MODE_OFF);
  for (uint32_t app : {a, b, off}) change(app, app);
  ASSERT_EQ(Q9Db_EncoderTrigger(encoder, 1), S_OK);
  EXPECT_EQ(maskOfFrame(), (1u << a) | (1u << b) | (1u << off));
  EXPECT_EQ(drain(), "F") << "once for both periodic apps";
  EXPECT_EQ(maskOfFrame(), 1u << off);
  EXPECT_EQ(Q9Db_EncoderSetSendMode(encoder, off, Q9_ENC_MODE_PERIODIC), S_OK);
  EXPECT_EQ(drain(), "F") << "the kept mark counts once its app is active";
  EXPECT_EQ(maskOfFrame(), 0u);
}

TEST_F(EncoderAppsTest, AllClientsAppReachesEveryoneWhateverTheModes) {
  change(Q9_ENC_APP_ALL, 1);
  ASSERT_EQ(Q9Db_EncoderTrigger(encoder, 1), S_OK);
  EXPECT_EQ(maskOfFrame(), kAllClients);
  EXPECT_EQ(Q9Db_EncoderGetChangedFrame(encoder, nullptr), S_FALSE);
  Q9DbChangedFrame changed{};
  ASSERT_EQ(Q9Db_EncoderGetChangedFrame(encoder, &changed), S_OK) << "a null record took nothing";
  EXPECT_EQ(changed.frame, frameNode);
  EXPECT_EQ(changed.size, 8u);
  EXPECT_EQ(changed.data[0], 1);
  EXPECT_EQ(Q9Db_EncoderGetChangedFrame(encoder, &changed), S_FALSE);
}

}  // namespace
}  // namespace q9::test
