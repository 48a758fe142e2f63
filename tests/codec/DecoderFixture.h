// A channel in a fresh database, builders for frames, PDUs, parts and
// signals, and a decode walk written out as one line of text.
#pragma once

#include <cstdio>
#include <deque>
#include <string>
#include <vector>

#include "../store/StoreFixture.h"

namespace q9::test {

constexpr int32_t BE = Q9_BYTEORDER_BIGENDIAN;
using Bytes = std::vector<uint8_t>;

inline Q9DbPhysicalValue typedValue(uint32_t type, uint64_t bits) {
  Q9DbPhysicalValue v{};
  v.valueType = type;
  v.value.u = bits;
  return v;
}
inline Q9DbPhysicalValue doubleValue(double d) {
  Q9DbPhysicalValue v = typedValue(Q9_VALUETYPE_DOUBLE, 0);
  v.value.d = d;
  return v;
}

inline std::string narrow(const char16_t* text) {
  std::string s;
  for (; text && *text; ++text) s += char(*text);
  return s;
}

struct SegmentSpec {
  int32_t bitpos;
  int32_t bitlen;
  int32_t byteOrder = Q9_BYTEORDER_LITTLEENDIAN;
};

class DecoderTest : public StoreTest {
 protected:
  static constexpr uint32_t kStatic = 0xFFFFFFFF;
  static constexpr uint32_t kElse = 0xFFFFFFFE;

  void SetUp() override {
    StoreTest::SetUp();
    ASSERT_EQ(Q9Db_createChannel(handle, u"ch", nullptr, &channel), S_OK);
  }

  const char16_t* fresh() {
    ids.push_back(u"n" + std::u16string(1, char16_t(u'A' + ids.size() % 26)) +
                  char16_t(u'0' + ids.size() / 26));
    return ids.back().c_str();
  }

  // A frame, carried on the channel by a triggering of the frame's name.
  Q9DbNode* frame(const char16_t* name, int32_t length, uint32_t identifier, uint32_t flags = 0) {
    Q9DbNode *f = nullptr, *t = nullptr;
    EXPECT_EQ(Q9Db_createFrame(handle, name, length, &f), S_OK);
    EXPECT_EQ(Q9Db_createIdentifierBasedTriggering(handle, nullptr, identifier, flags, f, nullptr, channel, &t),
              S_OK);
    return f;
  }
  // Places pdu in a frame or on the channel at bitpos, or makes it a part's.
  Q9DbNode* carry(Q9DbNode* pdu, Q9DbNode* carrier, int32_t bitpos) {
    if (Q9Db_getNodeType(carrier) == Q9_NODETYPE_MultiplexedPart) {
      EXPECT_EQ(Q9Db_setReference(carrier, pdu), S_OK);
    } else {
      Q9DbNode* instance = nullptr;
      EXPECT_EQ(Q9Db_createPDUInstance(handle, fresh(), 0, bitpos, -1, pdu, carrier, &instance), S_OK);
    }
    return pdu;
  }
  Q9DbNode* signalPdu(Q9DbNode* carrier, int32_t bitpos = 0) {
    Q9DbNode* pdu = nullptr;
    EXPECT_EQ(Q9Db_createSignalPDU(handle, fresh(), 64, nullptr, &pdu), S_OK);
    return carry(pdu, carrier, bitpos);
  }
  Q9DbNode* muxPdu(Q9DbNode* carrier, int32_t switchPosition, int32_t switchLength, int32_t bitpos = 0,
                   int32_t switchByteOrder = Q9_BYTEORDER_LITTLEENDIAN) {
    Q9DbNode* pdu = nullptr;
    EXPECT_EQ(Q9Db_createMultiplexedPDU(handle, fresh(), 64, switchByteOrder, switchPosition, switchLength, 0,
                                        nullptr, &pdu),
              S_OK);
    return carry(pdu, carrier, bitpos);
  }
  // A dynamic part of this code, or the static or else part.
  Q9DbNode* part(Q9DbNode* mux, uint32_t code, std::vector<SegmentSpec> segments = {}) {
    Q9DbNode* p = nullptr;
    EXPECT_EQ(Q9Db_createMultiplexedPart(handle, fresh(), code, mux, &p), S_OK);
    if (code == kStatic) EXPECT_EQ(Q9Db_setStaticPart(mux, p), S_OK);
    else if (code == kElse) EXPECT_EQ(Q9Db_setElsePart(mux, p), S_OK);
    else EXPECT_EQ(Q9Db_addDynamicParts(mux, 1, &p), S_OK);
    for (const SegmentSpec& s : segments) EXPECT_EQ(Q9Db_addSegment(p, s.byteOrder, s.bitpos, s.bitlen), S_OK);
    return p;
  }
  Q9DbNode* signal(const char16_t* name, int32_t bitlen, uint32_t encoding = Q9_ENCODING_DIRECT) {
    Q9DbNode *coding = nullptr, *s = nullptr;
    EXPECT_EQ(Q9Db_createCoding(handle, fresh(), bitlen, encoding, nullptr, &coding), S_OK);
    EXPECT_EQ(Q9Db_createSignal(handle, name, 0, 0, 0, 0, coding, &s), S_OK);
    return s;
  }
  Q9DbNode* place(Q9DbNode* signal, Q9DbNode* pdu, int32_t bitpos, int32_t byteOrder = Q9_BYTEORDER_LITTLEENDIAN) {
    Q9DbNode* instance = nullptr;
    EXPECT_EQ(Q9Db_createSignalInstance(handle, fresh(), byteOrder, bitpos, -1, signal, pdu, &instance), S_OK);
    return instance;
  }
  // A linear computation with one range, or none when lower > upper.
  Q9DbNode* linear(double scale, double offset, double lower = 1, double upper = 0, uint32_t flags = 3) {
    Q9DbNode* c = nullptr;
    EXPECT_EQ(Q9Db_createLinearComputation(handle, nullptr, scale, offset, &c), S_OK);
    if (lower <= upper) {
      EXPECT_EQ(Q9Db_addRange(c, lower, upper, flags), S_OK);
    }
    return c;
  }
  Q9DbNode* codingOf(Q9DbNode* signal) {
    Q9DbNode* coding = nullptr;
    Q9Db_getReference(signal, &coding);
    return coding;
  }
  // A signal of its own coding, placed in pdu.
  Q9DbNode* field(const char16_t* name, Q9DbNode* pdu, int32_t bitpos, int32_t bitlen,
                  int32_t byteOrder = Q9_BYTEORDER_LITTLEENDIAN, uint32_t encoding = Q9_ENCODING_DIRECT) {
    Q9DbNode* s = signal(name, bitlen, encoding);
    place(s, pdu, bitpos, byteOrder);
    return s;
  }

  // The whole walk of one message: "<frame>: name=hex ..." per matching
  // triggering, then "-: ..." for the channel's own PDU instances.
  std::string walk(uint32_t identifier, uint32_t flags, const std::vector<uint8_t>& payload,
                   const Q9DbFilter* filter = nullptr, uint32_t textCapacity = 16) {
    Q9DbDecodeEnum* e = nullptr;
    EXPECT_EQ(Q9Db_decodeMessage(channel, identifier, flags, payload.size(), payload.data(), &e), S_OK);
    std::string out;
    Q9DbNode* triggering = nullptr;
    HRESULT stage;
    while (SUCCEEDED(stage = Q9Db_decodeNextFrametriggering(e, &triggering))) {
      Q9DbNode* frameNode = nullptr;
      if (triggering) Q9Db_getFrame(triggering, &frameNode);
      out += std::string(out.empty() ? "" : " | ") + (frameNode ? narrow(as<ElementId>(frameNode)->eid) : "-") + ":";
      char text[16] = {};
      Q9DbDecodedSignal s{};
      s.textCapacity = textCapacity;
      s.textBuffer = textCapacity ? text : nullptr;
      HRESULT kind;
      while (SUCCEEDED(kind = Q9Db_decodeNextSignal(e, filter, &s))) {
        EXPECT_EQ(s.triggering, triggering);
        char value[24];
        std::snprintf(value, sizeof value, "%llX", static_cast<unsigned long long>(s.value));
        out += " " + narrow(as<ElementId>(s.signal)->eid) + "=" +
               (kind == Q9_ASCIISIGNAL ? "'" + std::string(text, s.textLength) + "'" : std::string(value));
      }
      EXPECT_EQ(kind, Q9_E_NOT_FOUND);
      if (stage == S_FALSE) break;
    }
    EXPECT_EQ(Q9Db_decodeNextFrametriggering(e, nullptr), Q9_E_NOT_FOUND);
    EXPECT_EQ(Q9Db_destroyDecodeEnum(e), S_OK);
    return out;
  }

  Q9DbNode* channel = nullptr;
  std::deque<std::u16string> ids;
};

}  // namespace q9::test
