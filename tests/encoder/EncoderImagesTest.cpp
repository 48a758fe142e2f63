// What the encoder writes into its images: defaults, signal values, update
// bits, PDUs into frames and parts into multiplexed PDUs; and what it
// refuses to write.
#include <gtest/gtest.h>

#include "EncoderFixture.h"

namespace q9::test {
namespace {

class EncoderImagesTest : public EncoderTest {
 protected:
  HRESULT change(Q9DbNode* s, uint64_t raw) { return Q9Db_EncoderChangeSignal(encoder, 0, s, raw); }
};

TEST_F(EncoderImagesTest, InitWritesDefaultsAndUpdateBitsOverThePattern) {
  Q9DbNode* f = frame(u"F", 8, 0x10);
  Q9DbNode* pdu = signalPdu(f);
  as<PDU>(pdu)->unusedBytePattern = 0x1AA;  // the low byte fills
  defaulted(u"speed", pdu, 0, 8, 50, 2, 8);
  field(u"plain", pdu, 16, 8);
  Q9DbNode* later = defaulted(u"later", signalPdu(frame(u"G", 4, 0x20), 0, 32), 0, 4, 0, 1, 12);
  open(channel);
  const Bytes expected = {0x64, 0xAB, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA};
  EXPECT_EQ(image(pdu), expected);
  EXPECT_EQ(image(f), expected) << "the defaults went into the frame";
  registerApp();
  EXPECT_EQ(drain(), "") << "nothing of the set-up reaches a client";

  Q9DbNode* g = nullptr;
  Q9Db_findByElementId(handle, u"G", &g);
  ASSERT_EQ(Q9Db_EncoderInsert(encoder, 0, g), S_OK);
  ASSERT_EQ(change(later, 0x3), S_OK);
  EXPECT_EQ(triggerAndDrain(1), "G");
  EXPECT_EQ(image(g), Bytes({0x03, 0x10, 0, 0})) << "update bit 12 set with the first change";
  ASSERT_EQ(change(later, 0x5), S_OK);
  EXPECT_EQ(triggerAndDrain(2), "G");
  EXPECT_EQ(image(g), Bytes({0x05, 0x10, 0, 0})) << "and kept";
}

TEST_F(EncoderImagesTest, ChangesNeedAnInsertedPduAndAWritableSignal) {
  Q9DbNode* f = frame(u"F", 8, 0x10);
  Q9DbNode* pdu = signalPdu(f);
  Q9DbNode* s = field(u"s", pdu, 0, 16);
  Q9DbNode *loose = signal(u"loose", 8), *text = field(u"text", pdu, 0, 72, 0, Q9_ENCODING_ASCII);
  Q9DbNode* uncoded = create(Q9Db_createSignal, u"uncoded", 0, 0, 0, 0, nullptr);
  place(uncoded, pdu, 0);
  open(channel);
  const Bytes before = image(pdu);
  EXPECT_EQ(change(s, 1), Q9_ENC_NO_MATCH) << "nobody inserted it";
  EXPECT_EQ(image(pdu), before);
  EXPECT_EQ(change(uncoded, 1), Q9_ENC_NOT_FOUND);
  EXPECT_EQ(change(loose, 1), E_INVALIDARG) << "no instance";
  EXPECT_EQ(change(text, 1), E_INVALIDARG) << "longer than the 8-byte scratch image";
  EXPECT_EQ(change(f, 1), E_INVALIDARG);

  // Inserts count; a delete of what isn't inserted changes nothing.
  EXPECT_EQ(Q9Db_EncoderInsert(encoder, 0, f), S_OK);
  EXPECT_EQ(Q9Db_EncoderInsert(encoder, 0, f), S_OK);
  EXPECT_EQ(Q9Db_EncoderDelete(encoder, 0, f), S_OK);
  EXPECT_EQ(change(s, 1), S_OK);
  EXPECT_EQ(Q9Db_EncoderDelete(encoder, 0, f), S_OK);
  EXPECT_EQ(change(s, 2), Q9_ENC_NO_MATCH);
  EXPECT_EQ(Q9Db_EncoderDelete(encoder, 0, f), S_FALSE);
  EXPECT_EQ(Q9Db_EncoderInsert(encoder, 0, f), S_OK);
  EXPECT_EQ(change(s, 3), S_OK) << "the count didn't go below zero";

  // The value comes from as many bytes as given, the rest is zero.
  const uint8_t data[2] = {0xAB, 0xCD};
  EXPECT_EQ(Q9Db_EncoderChangeSignalEx(encoder, 0, s, 1, data), S_OK);
  EXPECT_EQ(image(pdu)[1], 0);
  EXPECT_EQ(Q9Db_EncoderChangeSignalEx(encoder, 0, s, 2, data), S_OK);
  EXPECT_EQ(image(pdu)[1], 0xCD);
  EXPECT_EQ(Q9Db_EncoderChangeSignalEx(encoder, 0, s, 2, nullptr), E_POINTER);
}

TEST_F(EncoderImagesTest, EveryNodeOfAFrameInsertsTheFrame) {
  Q9DbNode *ecu = create(Q9Db_createECU, u"ecu"), *f = create(Q9Db_createFrame, u"F", 8);
  Q9DbNode* triggering = create(Q9Db_createIdentifierBasedTriggering, nullptr, 0x10, 0, f, ecu, channel);
  Q9DbNode* pdu = signalPdu(f);
  Q9DbNode* s = field(u"s", pdu, 0, 8);
  Q9DbNode* instance = node(listed(s, Q9Db_enumSignalInstances)[0]);
  Q9DbNode* mux = muxPdu(frame(u"M", 8, 0x20), 0, 4);
  open(channel);
  for (Q9DbNode* n : {f, triggering, pdu, s, instance, ecu}) {
    EXPECT_EQ(Q9Db_EncoderInsert(encoder, 0, n), S_OK) << Q9Db_getNodeType(n);
    EXPECT_EQ(change(s, 1), S_OK) << Q9Db_getNodeType(n);
    EXPECT_EQ(Q9Db_EncoderDelete(encoder, 0, n), S_OK) << Q9Db_getNodeType(n);
    EXPECT_EQ(change(s, 1), Q9_ENC_NO_MATCH) << Q9Db_getNodeType(n);
  }
  for (Q9DbNode* n : {channel, mux, node(nullptr), cluster})
    EXPECT_EQ(Q9Db_EncoderInsert(encoder, 0, n), S_FALSE) << Q9Db_getNodeType(n);
}

TEST_F(EncoderImagesTest, PartsGoIntoTheirMultiplexedPduWithTheirSwitch) {
  Q9DbNode* f = frame(u"M", 8, 0x20);
  Q9DbNode* mux = muxPdu(f, 7, 4, 0, Q9_BYTEORDER_BIGENDIAN);
  Q9DbNode* x = field(u"x", signalPdu(part(mux, 5, {{8, 8}}), 0, 8), 0, 8);
  Q9DbNode* y = field(u"y", signalPdu(part(mux, 3, {{16, 4}, {28, 4}}), 0, 8), 0, 8);
  Q9DbNode* st = field(u"st", signalPdu(part(mux, kStatic, {{32, 8}}), 0, 8), 0, 8);
  Q9DbNode* z = field(u"z", signalPdu(part(mux, 7)), 48, 8);  // no segments: in place
  open(channel);
  registerApp();
  ASSERT_EQ(Q9Db_EncoderInsert(encoder, 0, f), S_OK);
  const struct {
    Q9DbNode* signal;
    uint64_t raw;
    Bytes frame;
  } rows[] = {
      {x, 0x11, {0x50, 0x11, 0, 0, 0, 0, 0, 0}},
      {y, 0xBA, {0x30, 0x11, 0x0A, 0xB0, 0, 0, 0, 0}},
      {st, 0x44, {0x30, 0x11, 0x0A, 0xB0, 0x44, 0, 0, 0}},
      {z, 0x66, {0x70, 0x11, 0x0A, 0xB0, 0x44, 0, 0x66, 0}},
  };
  for (const auto& r : rows) {
    ASSERT_EQ(change(r.signal, r.raw), S_OK);
    EXPECT_EQ(triggerAndDrain(r.raw), "M");
    EXPECT_EQ(image(f), r.frame) << std::hex << r.raw;
  }
}

TEST_F(EncoderImagesTest, PdusNestedBeyondTheLevelsHaveNoImage) {
  Q9DbNode* carrier = frame(u"Deep", 8, 0x30);
  std::vector<Q9DbNode*> signalsByDepth;
  for (int depth = 1; depth <= 33; ++depth) {
    Q9DbNode* mux = muxPdu(carrier, 0, 0);
    signalsByDepth.push_back(field(fresh(), signalPdu(part(mux, 1), 0, 8), 0, 8));
    carrier = part(mux, kStatic);
  }
  open(channel);
  registerApp();
  Q9DbNode* deep = nullptr;
  Q9Db_findByElementId(handle, u"Deep", &deep);
  ASSERT_EQ(Q9Db_EncoderInsert(encoder, 0, deep), S_OK);
  EXPECT_EQ(change(signalsByDepth[29], 1), S_OK) << "part PDU at level 31";
  EXPECT_EQ(change(signalsByDepth[30], 1), Q9_ENC_NO_MATCH) << "level 32";
  EXPECT_EQ(triggerAndDrain(1), "Deep") << "up through 30 multiplexed PDUs";
  EXPECT_EQ(image(deep)[0], 1);
}

}  // namespace
}  // namespace q9::test
