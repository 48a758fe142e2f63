// The decoder at the limits a hostile database or message can reach: the
// 64-entry stack, the 1024-byte assembly buffer, positions and lengths at
// the ends of their ranges, and texts longer than the caller's buffer. Each
// ends the walk normally with a defined set of signals.
#include <gtest/gtest.h>

#include <climits>

#include "DecoderFixture.h"

namespace q9::test {
namespace {

class DecoderLimitsTest : public DecoderTest {
 protected:
  // A channel of its own, which walk() then decodes.
  void freshChannel() { ASSERT_EQ(Q9Db_createChannel(handle, fresh(), nullptr, &channel), S_OK); }
  const char16_t* name(const std::string& text) {
    ids.emplace_back(text.begin(), text.end());
    return ids.back().c_str();
  }
};

// Each level is a multiplexer whose selected part holds the next level and
// whose static part holds a signal. A level's entries go on the stack
// selected part first, so the static part of the level that fills the last
// entry is the first thing left out; after the chain the channel's next PDU
// is decoded as usual.
TEST_F(DecoderLimitsTest, NestingBeyondTheStackLeavesOutTheDeeperLevels) {
  const struct {
    int levels;
    int delivered;
  } rows[] = {{10, 10}, {63, 63}, {64, 62}, {65, 62}, {1000, 62}};
  for (const auto& r : rows) {
    freshChannel();
    Q9DbNode* carrier = channel;
    std::string expected = "-:";
    for (int level = 0; level < r.levels; ++level) {
      Q9DbNode* mux = muxPdu(carrier, 0, 0);
      field(name("L" + std::to_string(level)), signalPdu(part(mux, kStatic)), 0, 8);
      carrier = part(mux, 0);
      if (level < r.delivered) expected += " L" + std::to_string(level) + "=1";
    }
    field(name("after" + std::to_string(r.levels)), signalPdu(channel), 8, 8);
    expected += " after" + std::to_string(r.levels) + "=2";
    EXPECT_EQ(walk(0, 0, {1, 2}), expected) << r.levels << " levels";
  }
}

// Parts whose segments reach past the assembly buffer, the payload or the
// position range. A segment that can't be read from the message drops its
// part; what lies past the buffer is dropped; the static part and the rest
// of the walk stay.
TEST_F(DecoderLimitsTest, SegmentsAndSwitchesAtTheEndsOfTheirRanges) {
  Bytes payload(1250);
  for (std::size_t i = 0; i < payload.size(); ++i) payload[i] = uint8_t(i * 7 + 1);
  std::vector<SegmentSpec> bitBySegment;
  for (int32_t i = 0; i < 10000; ++i) bitBySegment.push_back({i, 1});
  const struct {
    const char* what;
    std::vector<SegmentSpec> segments;
    int32_t signalPos, signalLength;
    int32_t switchPosition = 0, switchLength = 0;
    const char* expected;
  } rows[] = {
      // Payload byte 1023 is FA; the second segment holds bits 8000 on.
      {"a segment across the buffer's end keeps its head", {{0, 8000}, {8000, 400}}, 8188, 4, 0, 0,
       "-: static=1 part=F after=1"},
      {"one segment longer than the buffer is cut at its end", {{0, 9000}}, 8184, 8, 0, 0,
       "-: static=1 part=FA after=1"},
      {"1-bit segments past the buffer are dropped", bitBySegment, 8184, 8, 0, 0, "-: static=1 part=FA after=1"},
      {"a segment that starts at the payload's end", {{0, 8}, {10000, 8}}, 0, 8, 0, 0, "-: static=1 after=1"},
      {"a field past the assembled image is left out", bitBySegment, 8190, 8, 0, 0, "-: static=1 after=1"},
      {"a segment at the top of the position range", {{INT32_MAX, 8}}, 0, 8, 0, 0, "-: static=1 after=1"},
      {"a big-endian segment at the top of the position range", {{INT32_MAX, 8, BE}}, 0, 8, 0, 0,
       "-: static=1 after=1"},
      {"a segment of the greatest length", {{0, INT32_MAX}}, 0, 8, 0, 0, "-: static=1 after=1"},
      {"a segment of negative length", {{0, -8}}, 0, 8, 0, 0, "-: static=1 after=1"},
      {"a segment below the identifier image", {{INT32_MIN, 8}}, 0, 8, 0, 0, "-: static=1 part=0 after=1"},
      {"a switch at the top of the position range", {}, 0, 8, INT32_MAX, 8, "-: static=1 after=1"},
      {"a switch longer than 64 bits", {}, 0, 8, 0, 65, "-: static=1 after=1"},
      {"a switch of negative length", {}, 0, 8, 0, -1, "-: static=1 after=1"},
  };
  for (const auto& r : rows) {
    freshChannel();
    Q9DbNode* mux = muxPdu(channel, r.switchPosition, r.switchLength);
    field(u"static", signalPdu(part(mux, kStatic)), 7, 8, BE);
    field(u"part", signalPdu(part(mux, 0, r.segments)), r.signalPos, r.signalLength);
    field(u"after", signalPdu(channel), 0, 8);
    EXPECT_EQ(walk(0, 0, payload), r.expected) << r.what;
  }
}

// Texts of up to the whole assembly buffer into buffers of any capacity:
// never a byte past the capacity, and the text cut to it.
TEST_F(DecoderLimitsTest, LongTextsAreCutToTheCallersBuffer) {
  Bytes payload(1100);
  for (std::size_t i = 0; i < payload.size(); ++i) payload[i] = uint8_t('A' + i % 26);
  Q9DbNode* mux = muxPdu(channel, 0, 0);
  Q9DbNode* image = signalPdu(part(mux, kStatic, {{0, 8192}}));
  field(u"le", image, 0, 2048, Q9_BYTEORDER_LITTLEENDIAN, Q9_ENCODING_ASCII);
  field(u"be", image, 7, 2048, BE, Q9_ENCODING_ASCII);
  field(u"whole", image, 0, 8192, Q9_BYTEORDER_LITTLEENDIAN, Q9_ENCODING_ASCII);
  const std::string forward(payload.begin(), payload.end());
  const std::string backward(forward.rbegin() + 1100 - 256, forward.rend());

  constexpr uint8_t kGuard = 0xC3;
  for (uint32_t capacity : {1u, 16u, 255u, 256u, 1023u, 1024u, 5000u}) {
    std::vector<char> buffer(capacity + 16, char(kGuard));
    Q9DbDecodeEnum* e = nullptr;
    ASSERT_EQ(Q9Db_decodeMessage(channel, 0, 0, payload.size(), payload.data(), &e), S_OK);
    ASSERT_EQ(Q9Db_decodeNextFrametriggering(e, nullptr), S_FALSE);
    std::vector<std::string> texts;
    Q9DbDecodedSignal s{};
    s.textCapacity = capacity;
    s.textBuffer = buffer.data();
    while (Q9Db_decodeNextSignal(e, nullptr, &s) == Q9_ASCIISIGNAL) texts.emplace_back(buffer.data(), s.textLength);
    Q9Db_destroyDecodeEnum(e);
    ASSERT_EQ(texts.size(), 3u) << capacity;
    EXPECT_EQ(texts[0], forward.substr(0, std::min(capacity, 256u))) << capacity;
    EXPECT_EQ(texts[1], backward.substr(0, std::min(capacity, 256u))) << capacity;
    EXPECT_EQ(texts[2], forward.substr(0, std::min(capacity, 1024u))) << capacity;
    for (std::size_t i = capacity; i < buffer.size(); ++i)
      ASSERT_EQ(uint8_t(buffer[i]), kGuard) << "capacity " << capacity << ", byte " << i;
  }
}

}  // namespace
}  // namespace q9::test
