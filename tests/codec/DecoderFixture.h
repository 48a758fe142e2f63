// A channel in a fresh database, builders for frames, PDUs, parts, signals
// and computations, a random network of them all, and a decode walk
// written out as one line of text.
#pragma once

#include <cmath>
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

// A small deterministic generator: next(n) is in [0, n).
class RandomChoice {
 public:
  explicit RandomChoice(uint64_t seed) : state_(seed) {}
  uint64_t operator()(uint64_t n) {
    state_ = state_ * 6364136223846793005ull + 1442695040888963407ull;
    return (state_ >> 33) % n;
  }

 private:
  uint64_t state_;
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
    Q9DbNode* f = create(Q9Db_createFrame, name, length);
    create(Q9Db_createIdentifierBasedTriggering, nullptr, identifier, flags, f, nullptr, channel);
    return f;
  }
  // Places pdu in a frame or on the channel at bitpos, or makes it a part's.
  Q9DbNode* carry(Q9DbNode* pdu, Q9DbNode* carrier, int32_t bitpos) {
    if (Q9Db_getNodeType(carrier) == Q9_NODETYPE_MultiplexedPart) {
      EXPECT_EQ(Q9Db_setReference(carrier, pdu), S_OK);
    } else {
      create(Q9Db_createPDUInstance, fresh(), 0, bitpos, -1, pdu, carrier);
    }
    return pdu;
  }
  Q9DbNode* signalPdu(Q9DbNode* carrier, int32_t bitpos = 0) {
    return carry(create(Q9Db_createSignalPDU, fresh(), 64, nullptr), carrier, bitpos);
  }
  Q9DbNode* muxPdu(Q9DbNode* carrier, int32_t switchPosition, int32_t switchLength, int32_t bitpos = 0,
                   int32_t switchByteOrder = Q9_BYTEORDER_LITTLEENDIAN) {
    return carry(create(Q9Db_createMultiplexedPDU, fresh(), 64, switchByteOrder, switchPosition, switchLength, 0,
                        nullptr),
                 carrier, bitpos);
  }
  // A dynamic part of this code, or the static or else part.
  Q9DbNode* part(Q9DbNode* mux, uint32_t code, std::vector<SegmentSpec> segments = {}) {
    Q9DbNode* p = create(Q9Db_createMultiplexedPart, fresh(), code, mux);
    if (code == kStatic) EXPECT_EQ(Q9Db_setStaticPart(mux, p), S_OK);
    else if (code == kElse) EXPECT_EQ(Q9Db_setElsePart(mux, p), S_OK);
    else EXPECT_EQ(Q9Db_addDynamicParts(mux, 1, &p), S_OK);
    for (const SegmentSpec& s : segments) EXPECT_EQ(Q9Db_addSegment(p, s.byteOrder, s.bitpos, s.bitlen), S_OK);
    return p;
  }
  Q9DbNode* signal(const char16_t* name, int32_t bitlen, uint32_t encoding = Q9_ENCODING_DIRECT) {
    return create(Q9Db_createSignal, name, 0, 0, 0, 0, create(Q9Db_createCoding, fresh(), bitlen, encoding, nullptr));
  }
  Q9DbNode* place(Q9DbNode* signal, Q9DbNode* pdu, int32_t bitpos, int32_t byteOrder = Q9_BYTEORDER_LITTLEENDIAN) {
    return create(Q9Db_createSignalInstance, fresh(), byteOrder, bitpos, -1, signal, pdu);
  }
  // A linear computation with one range, or none when lower > upper.
  Q9DbNode* linear(double scale, double offset, double lower = 1, double upper = 0, uint32_t flags = 3) {
    Q9DbNode* c = create(Q9Db_createLinearComputation, nullptr, scale, offset);
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

  Q9DbNode* compute(Q9DbNode* signal, Q9DbNode* computation, double lower, double upper, uint32_t flags = 3) {
    if (lower <= upper) Q9Db_addRange(computation, lower, upper, flags);
    Q9Db_addInternalToPhysicalComputations(codingOf(signal), 1, &computation);
    return computation;
  }
  Q9DbNode* text(const char* t) {
    Q9DbStringSlot* slot = nullptr;
    Q9Db_stringCreateSlotA(handle, 0, t, &slot);
    return create(Q9Db_createMappedTextComputation, nullptr, slot);
  }

  // Frames of many lengths with fields of every length, byte order and
  // encoding at random places, computations of every class, and
  // multiplexed PDUs of every shape. Message m (0 to 47) has identifier
  // 0x100 + m and the frame length at m of the answer; the multiplexed
  // ones (24 and up) are also under a mask.
  std::vector<uint64_t> randomNetwork(RandomChoice& next) {
    const uint32_t encodings[] = {Q9_ENCODING_DIRECT, Q9_ENCODING_DIRECT | Q9_ENCODING_SIGNED, Q9_ENCODING_1COMPL,
                                  Q9_ENCODING_2COMPL, Q9_ENCODING_IEEE, Q9_ENCODING_PACKED_BCD, Q9_ENCODING_ASCII};
    const int32_t lengths[] = {1, 3, 5, 7, 8, 9, 12, 16, 24, 32, 33, 64};
    std::vector<uint64_t> frameLengths;
    for (uint32_t m = 0; m < 24; ++m) {
      const int32_t frameLength = int32_t(1 + next(20));
      frameLengths.push_back(uint64_t(frameLength));
      Q9DbNode* pdu = signalPdu(frame(fresh(), frameLength, 0x100 + m), int32_t(next(3) * 8));
      for (int i = 0; i < 6; ++i) {
        const int32_t length = lengths[next(12)];
        const int32_t order = next(2) ? BE : Q9_BYTEORDER_LITTLEENDIAN;
        Q9DbNode* s = field(fresh(), pdu, int32_t(next(8 * uint64_t(frameLength))), length, order,
                            encodings[next(length % 8 ? 4 : 7)]);
        switch (next(7)) {
          case 0: compute(s, linear(0.5, -3), -1e9, 1e9); break;
          case 1: {
            // Limits either way round, equal, open or closed, infinite or NaN.
            const double limits[] = {0, 1, 2, 7, 100, 255, -HUGE_VAL, HUGE_VAL, std::nan("")};
            Q9DbNode* c = linear(next(2) ? 1 : 0.25, -40);
            Q9Db_addRange(c, limits[next(9)], limits[next(9)], uint32_t(next(4)));
            compute(s, c, 1, 0);
            break;
          }
          case 2:
            compute(s, text("low"), 0, 3);
            compute(s, text("high"), 4, 1e30);
            compute(s, text("overlapping"), 2, 5, uint32_t(next(4)));
            break;
          case 3: compute(s, linear(2, 0), 1, 0); break;  // no range: never applies
          case 4: compute(s, create(Q9Db_createMappedValueComputation, nullptr, 42), 0, 10); break;
          case 5: Q9Db_addRange(compute(s, create(Q9Db_createIdentityComputation, nullptr), 10, 20, 0), 0, 5, 1); break;
          default: break;
        }
      }
    }
    // Multiplexed frames: switches in the payload or the identifier, parts
    // with scattered, big-endian, empty or unreadable segments or none, else
    // and static parts, now and then a further multiplexed PDU in a part.
    const uint32_t kStaticCode = kStatic, kElseCode = kElse;
    for (uint32_t m = 24; m < 48; ++m) {
      const int32_t frameLength = int32_t(2 + next(10));
      frameLengths.push_back(uint64_t(frameLength));
      const int32_t switchLength = int32_t(next(6));
      const int32_t switchPosition = next(4) ? int32_t(next(8 * uint64_t(frameLength))) : -int32_t(1 + next(40));
      // Also under a mask, so that the identifier's top bits, which a switch
      // may read, vary.
      Q9DbNode* f = frame(fresh(), frameLength, 0x100 + m);
      create(Q9Db_createMaskedIdentifierTriggering, nullptr, 0xFF, m, 0, f, nullptr, channel);
      Q9DbNode* mux = muxPdu(f, switchPosition, switchLength, int32_t(next(2) * 8), next(2) ? BE : Q9_BYTEORDER_LITTLEENDIAN);
      for (uint32_t code : {kStaticCode, 0u, 1u, 2u, kElseCode}) {
        if (!next(4)) continue;
        std::vector<SegmentSpec> segments;
        for (uint64_t n = next(3); n > 0; --n)
          segments.push_back({next(5) ? int32_t(next(8 * uint64_t(frameLength))) : -int32_t(next(40)),
                              int32_t(next(20)) - 1, next(2) ? BE : Q9_BYTEORDER_LITTLEENDIAN});
        Q9DbNode* carrier = part(mux, code, segments);
        Q9DbNode* pdu = next(16) ? signalPdu(carrier) : muxPdu(carrier, 0, 2);
        if (Q9Db_getNodeType(pdu) == Q9_NODETYPE_MultiplexedPDU) pdu = signalPdu(part(pdu, kStatic));
        for (uint64_t n = 1 + next(3); n > 0; --n)
          field(fresh(), pdu, int32_t(next(48)), lengths[next(8)], next(2) ? BE : Q9_BYTEORDER_LITTLEENDIAN);
      }
    }
    return frameLengths;
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
