// End to end: a database built through the factories, messages decoded to
// physical values, and those values encoded back into the same bytes.
#include <gtest/gtest.h>

#include <map>

#include "DecoderFixture.h"

namespace q9::test {
namespace {

class RoundTripTest : public DecoderTest {
 protected:
  void SetUp() override {
    DecoderTest::SetUp();
    // A multiplexed frame: the static part carries the selector itself.
    Q9DbNode* mux = muxPdu(frame(u"Mux", 8, 0x100), 0, 8);
    Q9DbNode* fixed = image(part(mux, kStatic), {{0, 16}});
    field(u"selector", fixed, 0, 8);
    scaled(field(u"speed", fixed, 8, 8), 0.5, 0, 2, 0, 255);
    Q9DbNode* one = image(part(mux, 1), {{16, 16}, {48, 16}});
    field(u"temp", one, 0, 16, 0, Q9_ENCODING_2COMPL);
    field(u"bcd", one, 16, 16, 0, Q9_ENCODING_PACKED_BCD);
    field(u"ratio", image(part(mux, 2), {{16, 32}}), 0, 32, 0, Q9_ENCODING_IEEE);
    field(u"word", image(part(mux, kElse), {}), 23, 16, BE);

    Q9DbNode* fd = image(frame(u"Fd", 16, 0x200, Q9_FLAG_CANFD_FRAME), {});
    field(u"name", fd, 0, 48, 0, Q9_ENCODING_ASCII);
    scaled(field(u"temp12", fd, 55, 12, BE), 0.1, -40, 10, 400, 4095);
    field(u"count", fd, 64, 32);
    field(u"small", fd, 96, 8, 0, Q9_ENCODING_DIRECT | Q9_ENCODING_SIGNED);

    Q9DbNode* masked = create(Q9Db_createFrame, u"Masked", 4);
    create(Q9Db_createMaskedIdentifierTriggering, nullptr, 0x7F0, 0x300, 0, masked, nullptr, channel);
    Q9DbNode* levels = image(masked, {});
    field(u"level", levels, 0, 8, 0, Q9_ENCODING_2COMPL);
    field(u"mid", levels, 8, 16);
  }

  // A signal PDU in carrier whose image lies in the frame as segments say
  // (none: from bit 0 of the frame).
  Q9DbNode* image(Q9DbNode* carrier, std::vector<SegmentSpec> segments) {
    if (Q9Db_getNodeType(carrier) == Q9_NODETYPE_MultiplexedPart)
      for (const SegmentSpec& s : segments) Q9Db_addSegment(carrier, s.byteOrder, s.bitpos, s.bitlen);
    Q9DbNode* pdu = signalPdu(carrier);
    placement[pdu] = segments;
    return pdu;
  }
  // Decoding by scale and offset over [0, rawMax]; encoding by their inverse.
  void scaled(Q9DbNode* s, double scale, double offset, double inverseScale, double inverseOffset, double rawMax) {
    Q9DbNode *decode = linear(scale, offset, 0, rawMax), *encode = linear(inverseScale, inverseOffset, offset,
                                                                          rawMax * scale + offset);
    Q9Db_addInternalToPhysicalComputations(codingOf(s), 1, &decode);
    Q9Db_addPhysicalToInternalComputations(codingOf(s), 1, &encode);
  }

  // Puts one decoded signal back into its PDU's image through its physical
  // value; text has no physical value and goes in as it came out.
  void reencode(const Q9DbDecodedSignal& d, HRESULT kind, std::string& shown) {
    Q9DbNode* pdu = nullptr;
    Q9Db_getParent(d.instance, &pdu);
    Bytes& pduImage = images.emplace(pdu, Bytes(Q9_DECODE_BUFFER_SIZE)).first->second;
    shown += " " + narrow(as<ElementId>(d.signal)->eid) + "=";
    Q9DbPhysicalValue v{};
    uint64_t raw = 0;
    if (kind == Q9_ASCIISIGNAL) {
      shown += std::string(d.textBuffer, d.textLength);
      int32_t pos = 0, bits = 0;
      Q9Db_getBitPosition(d.instance, &pos);
      Q9Db_getBitLength(node(as<Signal>(d.signal)->reference), &bits);
      Q9bit_insert(pduImage.data(), reinterpret_cast<const uint8_t*>(d.textBuffer), pduImage.size(), pos, bits);
      EXPECT_EQ(Q9Db_physicalToInternal(d.signal, nullptr, &v, &raw), E_UNEXPECTED);
      return;
    }
    ASSERT_TRUE(SUCCEEDED(Q9Db_internalToPhysical(d.signal, d.value, &v)));
    char16_t text[32];
    Q9Db_valueToString(&v, text, 32);
    shown += narrow(text);
    Q9DbEncodeEnum* e = nullptr;
    Q9DbNode* computation = nullptr;
    ASSERT_EQ(Q9Db_encodeSignal(d.signal, &v, &e), S_OK);
    Q9Db_encodeNextComputation(e, &computation);
    Q9Db_destroyEncodeEnum(e);
    ASSERT_EQ(Q9Db_physicalToInternal(d.signal, computation, &v, &raw), S_OK);
    ASSERT_EQ(Q9Db_encodeSignalInstance(d.instance, raw, pduImage.data(), pduImage.size()), S_OK);
  }

  // Decodes the message and rebuilds it from the re-encoded PDU images.
  Bytes roundTrip(uint32_t identifier, uint32_t flags, const Bytes& payload, std::string& shown) {
    images.clear();
    Q9DbDecodeEnum* e = nullptr;
    EXPECT_EQ(Q9Db_decodeMessage(channel, identifier, flags, payload.size(), payload.data(), &e), S_OK);
    char text[64];
    Q9DbDecodedSignal d{};
    d.textBuffer = text;
    d.textCapacity = sizeof text;
    while (Q9Db_decodeNextFrametriggering(e, nullptr) == S_OK) {
      HRESULT kind;
      while (SUCCEEDED(kind = Q9Db_decodeNextSignal(e, nullptr, &d))) reencode(d, kind, shown);
    }
    Q9Db_destroyDecodeEnum(e);
    Bytes rebuilt(payload.size());
    for (const auto& [pdu, bytes] : images) {
      const std::vector<SegmentSpec>& segments = placement.at(pdu);
      if (segments.empty()) {
        for (size_t i = 0; i < rebuilt.size(); ++i) rebuilt[i] |= bytes[i];
      }
      uint32_t from = 0;
      for (const SegmentSpec& s : segments) {
        Q9bit_copy(rebuilt.data(), rebuilt.size(), s.bitpos, s.byteOrder == BE ? -s.bitlen : s.bitlen, bytes.data(),
                   from, s.bitlen);
        from += s.bitlen;
      }
    }
    return rebuilt;
  }

  std::map<Q9DbNode*, std::vector<SegmentSpec>> placement;
  std::map<Q9DbNode*, Bytes> images;
};

TEST_F(RoundTripTest, DecodedValuesEncodeToTheSameBytes) {
  const struct {
    uint32_t identifier, flags;
    Bytes payload;
    const char* shown;
  } rows[] = {
      {0x100, 0, {1, 0x64, 0x9C, 0xFF, 0, 0, 0x34, 0x12}, " selector=0x1 speed=50.000 temp=-100 bcd=0x4D2"},
      {0x100, 0, {2, 0x10, 0, 0, 0xC0, 0x3F, 0, 0}, " selector=0x2 speed=8.000 ratio=1.500"},
      {0x100, 0, {7, 0xFE, 0xAB, 0xCD, 0, 0, 0, 0}, " selector=0x7 speed=127.000 word=0xABCD"},
      {0x200, Q9_FLAG_CANFD_FRAME, {'Q', '9', '-', 'F', 'D', '!', 0x28, 0xD0, 0x78, 0x56, 0x34, 0x12, 0x05, 0, 0, 0},
       " name=Q9-FD! temp12=25.300 count=0x12345678 small=5"},
      {0x30A, 0, {0x80, 0xCD, 0xAB, 0}, " level=-128 mid=0xABCD"},
  };
  for (const auto& r : rows) {
    std::string shown;
    EXPECT_EQ(roundTrip(r.identifier, r.flags, r.payload, shown), r.payload) << r.shown;
    EXPECT_EQ(shown, r.shown);
  }
}

}  // namespace
}  // namespace q9::test
