// One thread changes signals while another triggers and collects: every
// frame collected decodes to values the changing thread actually set, in
// the order it set them.
#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <thread>

#include "EncoderFixture.h"

namespace q9::test {
namespace {

constexpr uint64_t kChanges = 2000;

// The value b gets in round i, so that a frame can't pass off one signal's
// value as the other's.
uint64_t partner(uint64_t i) { return (i * 7919) & 0xFFFF; }

class EncoderThreadsTest : public EncoderTest {
 protected:
  void SetUp() override {
    EncoderTest::SetUp();
    Q9DbNode* pair = signalPdu(frame(u"Pair", 8, 0x10));
    a = field(u"a", pair, 0, 16);
    b = field(u"b", pair, 16, 16);
    Q9DbNode* ticking = signalPdu(frame(u"Tick", 8, 0x20));
    timed(ticking, {cyclic(3)});
    c = field(u"c", ticking, 0, 32);
    open(channel);
    app = registerApp();
    ASSERT_EQ(Q9Db_EncoderInsert(encoder, app, channel), S_FALSE);
    for (uint32_t id : {0x10u, 0x20u}) {
      Q9DbNode* f = nullptr;
      Q9Db_findByElementId(handle, id == 0x10 ? u"Pair" : u"Tick", &f);
      ASSERT_EQ(Q9Db_EncoderInsert(encoder, app, f), S_OK);
      identifiers[f] = id;
    }
  }

  // The raw values of one message, by signal.
  std::map<Q9DbNode*, uint64_t> decode(uint32_t identifier, const Bytes& payload) {
    std::map<Q9DbNode*, uint64_t> values;
    Q9DbDecodeEnum walkState;
    Q9DbDecodeEnum* e = &walkState;
    if (Q9Db_decodeMessage(channel, identifier, 0, payload.size(), payload.data(), &e) != S_OK) return values;
    Q9DbDecodedSignal d{};
    while (Q9Db_decodeNextFrametriggering(e, nullptr) == S_OK)
      while (Q9Db_decodeNextSignal(e, nullptr, &d) == Q9_NUMERICSIGNAL) values[d.signal] = d.value;
    return values;
  }

  Q9DbNode *a = nullptr, *b = nullptr, *c = nullptr;
  std::map<Q9DbNode*, uint32_t> identifiers;
  uint32_t app = 0;
};

TEST_F(EncoderThreadsTest, CollectedFramesHoldValuesThatWereSet) {
  std::atomic<bool> started{false};
  std::atomic<bool> changing{true};
  std::thread changer([&] {
    // Start only once the collector runs, so that the two really overlap.
    while (!started) std::this_thread::yield();
    for (uint64_t i = 1; i <= kChanges; ++i) {
      Q9Db_EncoderChangeSignal(encoder, app, a, i);
      Q9Db_EncoderChangeSignal(encoder, app, b, partner(i));
      Q9Db_EncoderChangeSignal(encoder, app, c, i);
    }
    changing = false;
  });

  // The frame images are only written by triggers, which this thread alone
  // makes, so a frame can be decoded here between two triggers. The loop
  // ends with one round after the changer is done, however slow it is.
  std::vector<std::pair<uint32_t, Bytes>> collected;
  uint64_t time = 0;
  for (bool last = false; !last;) {
    last = !changing;
    Q9Db_EncoderTrigger(encoder, ++time);
    started = true;
    Q9DbChangedFrame changed{};
    while (Q9Db_EncoderGetChangedFrame(encoder, &changed) == S_OK)
      collected.emplace_back(identifiers.at(changed.frame), Bytes(changed.data, changed.data + changed.size));
  }
  changer.join();

  uint64_t lastA = 0, lastC = 0;
  for (const auto& [identifier, payload] : collected) {
    const auto values = decode(identifier, payload);
    if (identifier == 0x10) {
      ASSERT_EQ(values.size(), 2u);
      const uint64_t i = values.at(a), j = std::max<uint64_t>(i, 1) - 1;
      EXPECT_LE(i, kChanges);
      EXPECT_GE(i, lastA) << "frames never go back";
      // b trails a by at most the one change between the two calls.
      EXPECT_TRUE(values.at(b) == partner(i) || values.at(b) == partner(j)) << i;
      lastA = i;
    } else {
      ASSERT_EQ(values.size(), 1u);
      EXPECT_LE(values.at(c), kChanges);
      EXPECT_GE(values.at(c), lastC);
      lastC = values.at(c);
    }
  }
  EXPECT_EQ(lastA, kChanges) << "the last change was collected";
  EXPECT_FALSE(collected.empty());
}

}  // namespace
}  // namespace q9::test
