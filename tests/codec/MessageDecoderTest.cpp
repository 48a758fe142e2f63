// The decode walk over one message: which triggerings match it, the order
// of frames and the channel's own PDUs, multiplexing, texts and filters.
#include <gtest/gtest.h>

#include "DecoderFixture.h"

namespace q9::test {
namespace {

constexpr uint32_t EXT = Q9_FLAG_CANEXTENDED;
constexpr uint32_t FD = Q9_FLAG_CANFD_FRAME;
struct MatchRow {
  const char* what;
  int kind;  // 0 by identifier, 1 masked (mask 0x7F0, code 0x120), 2 scheduled
  uint32_t triggeringFlags;
  uint32_t identifier, flags;
  uint64_t length;
  bool matches;
};

TEST_F(DecoderTest, MessagesMatchTriggeringsByIdentifierTypeAndLength) {
  const MatchRow rows[] = {
      {"same identifier and length", 0, 0, 0x123, 0, 8, true},
      {"message one byte short", 0, 0, 0x123, 0, 7, false},
      {"other identifier", 0, 0, 0x124, 0, 8, false},
      {"extended message, standard triggering", 0, 0, 0x123, EXT, 8, false},
      {"standard message, extended triggering", 0, EXT, 0x123, 0, 8, false},
      {"either frame type", 0, Q9_FLAG_CANSTD_OR_EXT, 0x123, EXT, 8, true},
      {"CAN FD message, classic triggering", 0, 0, 0x123, FD, 8, false},
      {"classic message, CAN FD triggering", 0, FD, 0x123, 0, 8, false},
      {"fast data is not compared", 0, FD, 0x123, FD | Q9_FLAG_CANFD_FASTDATA, 8, true},
      {"masked, lowest", 1, 0, 0x120, 0, 8, true},
      {"masked, highest", 1, 0, 0x12F, 0, 8, true},
      {"masked, outside", 1, 0, 0x130, 0, 8, false},
      {"scheduled triggerings never match", 2, 0, 0, 0, 8, false},
  };
  for (const MatchRow& r : rows) {
    SCOPED_TRACE(r.what);
    Q9DbNode *ch = create(Q9Db_createChannel, nullptr, nullptr), *f = create(Q9Db_createFrame, fresh(), 8), *t = nullptr;
    if (r.kind == 0) Q9Db_createIdentifierBasedTriggering(handle, nullptr, 0x123, r.triggeringFlags, f, nullptr, ch, &t);
    if (r.kind == 1) Q9Db_createMaskedIdentifierTriggering(handle, nullptr, 0x7F0, 0x120, 0, f, nullptr, ch, &t);
    if (r.kind == 2) Q9Db_createAbsolutelyScheduledTriggering(handle, nullptr, 0, 0, 1, 0, f, nullptr, ch, &t);
    const uint8_t payload[8] = {};
    Q9DbDecodeEnum* e = nullptr;
    ASSERT_EQ(Q9Db_decodeMessage(ch, r.identifier, r.flags, r.length, payload, &e), S_OK);
    Q9DbNode* found = nullptr;
    EXPECT_EQ(Q9Db_decodeNextFrametriggering(e, &found), r.matches ? S_OK : S_FALSE);
    EXPECT_EQ(found, r.matches ? t : nullptr);
    Q9Db_destroyDecodeEnum(e);
  }
}

TEST_F(DecoderTest, EveryMatchIsDecodedThenTheChannelsOwnPdus) {
  field(u"a", signalPdu(frame(u"A", 2, 0x10)), 0, 8);
  Q9DbNode* b = frame(u"B", 2, 0x99);
  create(Q9Db_createMaskedIdentifierTriggering, nullptr, 0x7F0, 0x10, 0, b, nullptr, channel);
  field(u"b", signalPdu(b), 8, 8);
  field(u"c", signalPdu(channel, 4), 0, 4);
  EXPECT_EQ(walk(0x10, 0, {0x12, 0x34}), "A: a=12 | B: b=34 | -: c=1");
  EXPECT_EQ(walk(0x99, 0, {0x12, 0x34}), "B: b=34 | -: c=1");
  EXPECT_EQ(walk(0x10, 0, {0x12}), "-: c=1");
}

TEST_F(DecoderTest, WalkOrderStatesAndArguments) {
  field(u"a", signalPdu(frame(u"A", 1, 0x10)), 0, 8);
  const uint8_t payload[1] = {0x5A};
  Q9DbDecodeEnum own;  // caller-owned: the walk must not allocate
  Q9DbDecodeEnum* e = &own;
  Q9DbDecodedSignal s{};
  Q9DbNode* t = nullptr;
  const uint64_t allocations = platform::heapAllocationCount();
  ASSERT_EQ(Q9Db_decodeMessage(channel, 0x10, 0, 1, payload, &e), S_OK);
  EXPECT_EQ(e, &own);
  EXPECT_EQ(Q9Db_decodeNextSignal(e, nullptr, &s), Q9_E_NOT_FOUND) << "no walk before the first triggering";
  EXPECT_EQ(Q9Db_getFrameTriggering(e, &t), S_FALSE);
  ASSERT_EQ(Q9Db_decodeNextFrametriggering(e, nullptr), S_OK);
  EXPECT_EQ(Q9Db_getFrameTriggering(e, &t), S_OK);
  EXPECT_EQ(Q9Db_decodeNextSignal(e, nullptr, &s), Q9_NUMERICSIGNAL);
  EXPECT_EQ(s.value, 0x5Au);
  EXPECT_EQ(s.triggering, t);
  EXPECT_EQ(Q9Db_decodeNextSignal(e, nullptr, &s), Q9_E_NOT_FOUND);
  EXPECT_EQ(Q9Db_decodeNextFrametriggering(e, &t), S_FALSE);
  EXPECT_EQ(t, nullptr);
  EXPECT_EQ(Q9Db_decodeNextFrametriggering(e, nullptr), S_OK) << "the channel stage stays until its PDUs end";
  EXPECT_EQ(Q9Db_decodeNextSignal(e, nullptr, &s), Q9_E_NOT_FOUND);
  EXPECT_EQ(Q9Db_decodeNextFrametriggering(e, nullptr), Q9_E_NOT_FOUND);
  EXPECT_EQ(Q9Db_decodeNextSignal(e, nullptr, &s), Q9_E_NOT_FOUND);
  EXPECT_EQ(platform::heapAllocationCount(), allocations);

  EXPECT_EQ(Q9Db_decodeNextSignal(e, nullptr, nullptr), E_INVALIDARG);
  EXPECT_EQ(Q9Db_decodeMessage(handle, 0, 0, 1, payload, &e), E_INVALIDARG);
  own.magic = 0;
  EXPECT_EQ(Q9Db_decodeNextFrametriggering(e, nullptr), E_INVALIDARG);
  EXPECT_EQ(Q9Db_destroyDecodeEnum(e), E_INVALIDARG);
  platform::HeapFailureScope noMemory(0);
  Q9DbDecodeEnum* none = nullptr;
  EXPECT_EQ(Q9Db_decodeMessage(channel, 0, 0, 1, payload, &none), E_INVALIDARG);
  EXPECT_EQ(none, nullptr);
}

TEST_F(DecoderTest, PositionsAddThePduInstanceOffset) {
  Q9DbNode* pdu = signalPdu(frame(u"F", 4, 1), 8);
  field(u"be", pdu, 7, 8, BE);
  field(u"le", pdu, 4, 8);
  EXPECT_EQ(walk(1, 0, {0x12, 0x34, 0x56, 0x78}), "F: be=34 le=63 | -:");
}

TEST_F(DecoderTest, SwitchSelectsDynamicOrElsePartAfterTheStaticPart) {
  Q9DbNode* withElse = muxPdu(frame(u"M", 5, 1), 0, 4);
  Q9DbNode* withoutElse = muxPdu(frame(u"N", 5, 2), 0, 4);
  Q9DbNode *s = signal(u"s", 8), *d1 = signal(u"d1", 8), *d2 = signal(u"d2", 8);
  for (Q9DbNode* mux : {withElse, withoutElse}) {
    place(s, signalPdu(part(mux, kStatic)), 8);
    place(d1, signalPdu(part(mux, 1)), 16);
    place(d2, signalPdu(part(mux, 2)), 24);
  }
  field(u"e", signalPdu(part(withElse, kElse)), 32, 8);
  const struct {
    uint32_t identifier;
    uint8_t selector;
    const char* expected;
  } rows[] = {
      {1, 0x01, "M: s=A d1=B | -:"}, {1, 0x02, "M: s=A d2=C | -:"}, {1, 0x03, "M: s=A e=D | -:"},
      {1, 0xF1, "M: s=A d1=B | -:"},  // the switch is cut to its 4 bits
      {2, 0x03, "N: s=A | -:"},
  };
  for (const auto& r : rows) EXPECT_EQ(walk(r.identifier, 0, {r.selector, 0xA, 0xB, 0xC, 0xD}), r.expected);
}

TEST_F(DecoderTest, SwitchReadsTheIdentifierAtNegativePositions) {
  Q9DbNode* standard = muxPdu(frame(u"S", 1, 0x5A5), -11, 11);
  field(u"s", signalPdu(part(standard, 0x5A5)), 0, 8);
  Q9DbNode* extended = muxPdu(frame(u"X", 1, 0x1ABCDEF, EXT), -29, 29);
  field(u"x", signalPdu(part(extended, 0x1ABCDEF)), 0, 8);
  Q9DbNode* below = muxPdu(frame(u"B", 1, 0x7FF), -40, 8);
  field(u"b", signalPdu(part(below, 0)), 0, 8);
  EXPECT_EQ(walk(0x5A5, 0, {7}), "S: s=7 | -:");
  EXPECT_EQ(walk(0x1ABCDEF, EXT, {7}), "X: x=7 | -:");
  EXPECT_EQ(walk(0x7FF, 0, {7}), "B: b=7 | -:") << "below the identifier image the switch reads 0";
}

TEST_F(DecoderTest, SegmentsAssembleAContiguousImageForNestedMultiplexers) {
  Q9DbNode* mux = muxPdu(frame(u"F", 6, 0x401), 0, 8);
  field(u"joined", signalPdu(part(mux, 1, {{8, 8}, {32, 4}})), 0, 12);
  // Part 2's image is bytes 1-2 taken big-endian, then the identifier's top
  // 8 bits; a multiplexer inside it switches on the image's low nibble.
  Q9DbNode* inner = muxPdu(part(mux, 2, {{15, 16, BE}, {-8, 8}}), 0, 4);
  field(u"inner", signalPdu(part(inner, 0xD)), 4, 20);
  EXPECT_EQ(walk(0x401, 0, {1, 0xAB, 0, 0, 0xFC, 0}), "F: joined=CAB | -:");
  EXPECT_EQ(walk(0x401, 0, {2, 0x12, 0x3D, 0, 0, 0}), "F: inner=80123 | -:");
}

TEST_F(DecoderTest, AsciiSignalsFillTheCallersTextBuffer) {
  Q9DbNode* pdu = signalPdu(channel);
  field(u"le", pdu, 0, 24, Q9_BYTEORDER_LITTLEENDIAN, Q9_ENCODING_ASCII);
  field(u"be", pdu, 7, 24, BE, Q9_ENCODING_ASCII);
  field(u"n", pdu, 0, 8);
  const Bytes abc = {'A', 'B', 'C'};
  EXPECT_EQ(walk(0, 0, abc), "-: le='ABC' be='CBA' n=41");
  EXPECT_EQ(walk(0, 0, abc, nullptr, 0), "-: n=41") << "text without a buffer is passed over";
}

TEST_F(DecoderTest, FiltersPassASignalOrItsInstance) {
  Q9DbNode* pdu = signalPdu(channel);
  field(u"a", pdu, 0, 8);
  Q9DbNode* b = signal(u"b", 8);
  Q9DbNode* bInstance = place(b, pdu, 8);
  Q9DbFilter *onlyA = nullptr, *bInstanceOnly = nullptr;
  ASSERT_EQ(Q9Db_createIdListFilterW(handle, 0, u"a\0", &onlyA), S_OK);
  const std::u16string bInstanceId = std::u16string(as<ElementId>(bInstance)->eid) + u'\0';
  ASSERT_EQ(Q9Db_createIdListFilterW(handle, 0, bInstanceId.c_str(), &bInstanceOnly), S_OK);
  EXPECT_EQ(walk(0, 0, {1, 2}, onlyA), "-: a=1");
  EXPECT_EQ(walk(0, 0, {1, 2}, bInstanceOnly), "-: b=2");
  Q9Db_destroyFilter(onlyA);
  Q9Db_destroyFilter(bInstanceOnly);
}

TEST_F(DecoderTest, HostileDatabasesAndPayloadsEndTheWalkNormally) {
  // Fields past the payload are passed over alone.
  Q9DbNode* pdu = signalPdu(channel);
  field(u"tail", pdu, 56, 16);
  field(u"beTail", pdu, 63, 16, BE);
  field(u"ok", pdu, 0, 8);
  // A multiplexer that contains itself twice over: nesting stops at the
  // stack's depth and the work per PDU instance is bounded.
  Q9DbNode* loop = muxPdu(channel, 1, 1);
  carry(loop, part(loop, kStatic), 0);
  carry(loop, part(loop, 0), 0);
  // A switch past the payload selects nothing; the static part remains.
  Q9DbNode* far = muxPdu(channel, 100, 8);
  field(u"fs", signalPdu(part(far, kStatic)), 0, 8);
  field(u"fe", signalPdu(part(far, kElse)), 0, 8);
  EXPECT_EQ(walk(0, 0, {1, 2, 3, 4, 5, 6, 7, 8}), "-: ok=1 fs=1");
  EXPECT_EQ(walk(0, 0, {}), "-:");

  Q9DbDecodeEnum* e = nullptr;
  Q9DbDecodedSignal s{};
  ASSERT_EQ(Q9Db_decodeMessage(channel, 0, 0, 8, nullptr, &e), S_OK);
  EXPECT_EQ(Q9Db_decodeNextFrametriggering(e, nullptr), S_FALSE);
  EXPECT_EQ(Q9Db_decodeNextSignal(e, nullptr, &s), Q9_E_NOT_FOUND) << "no payload, no signals";
  Q9Db_destroyDecodeEnum(e);
}

}  // namespace
}  // namespace q9::test
