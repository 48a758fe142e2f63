// Every signal gets a coding of its own with its decoding and, when linear, the
// inverse for encoding. A multiplexed message keeps its selector and a few
// signals in a 16-bit static part and the rest in parts by switch code, now and
// then with an else part; a masked triggering covers a range of identifiers.
#include "GeneratedNetwork.h"

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <set>
#include <stdexcept>
#include <string>

#include "SignalPlan.h"

namespace q9bench {
namespace {

void check(HRESULT hr, const char* what) {
  if (FAILED(hr)) throw std::runtime_error(std::string("generated network: ") + what + " failed");
}

std::u16string widen(const std::string& text) { return std::u16string(text.begin(), text.end()); }

class Builder {
 public:
  Builder(Q9DbNode* db, Random& random) : db_(db), random_(random) {
    const char* texts[] = {"off", "on", "error", "not available", "init", "active", "passive", "reserved"};
    for (const char* t : texts) {
      Q9DbStringSlot* slot = nullptr;
      check(Q9Db_stringCreateSlotA(db_, 0, t, &slot), "text slot");
      texts_.push_back(slot);
    }
  }

  const char16_t* id(const std::string& name) {
    ids_.push_back(widen(name));
    return ids_.back().c_str();
  }

  void fill(Q9DbNode* pdu, const std::vector<PlannedSignal>& plan, const std::string& prefix,
            std::vector<Q9DbNode*>& signals) {
    for (std::size_t i = 0; i < plan.size(); ++i) signals.push_back(signal(pdu, plan[i], prefix + "_S" + std::to_string(i)));
  }

  Q9DbNode* signal(Q9DbNode* pdu, const PlannedSignal& planned, const std::string& name) {
    const SignalKind kind = planned.kind;
    const uint32_t length = planned.length;
    const int32_t bits = int32_t(length);
    uint32_t encoding = Q9_ENCODING_DIRECT;
    if (kind == SignalKind::Signed) encoding = Q9_ENCODING_2COMPL;
    if (kind == SignalKind::Float) encoding = Q9_ENCODING_IEEE;
    Q9DbNode *coding = nullptr, *signal = nullptr, *instance = nullptr;
    check(Q9Db_createCoding(db_, id(name + "_C"), bits, encoding, nullptr, &coding), "coding");
    const double rawMax = std::ldexp(1.0, bits) - 1;
    switch (kind) {
      case SignalKind::Scaled: {
        const double scales[] = {0.1, 0.25, 0.5, 0.01, 2.0, 0.05};
        const double offsets[] = {0, 0, -40, -100, 0, -1000};
        const double scale = scales[random_.between(0, 5)];
        const double offset = offsets[random_.between(0, 5)];
        linear(coding, scale, offset, 0, rawMax);
        break;
      }
      case SignalKind::Signed: {
        const double half = std::ldexp(1.0, bits - 1);
        linear(coding, 0.1, 0, -half, half - 1);
        break;
      }
      case SignalKind::Offset:
        linear(coding, 1.0, -40, 0, rawMax);
        break;
      case SignalKind::Float:
        linear(coding, 1.0, 0, -3.4e38, 3.4e38);
        break;
      case SignalKind::Texts: {
        const uint32_t entries = std::min<uint32_t>(uint32_t(rawMax) + 1, random_.between(2, 5));
        for (uint32_t v = 0; v < entries; ++v) {
          Q9DbNode* text = nullptr;
          check(Q9Db_createMappedTextComputation(db_, nullptr, texts_[(v + length) % texts_.size()], &text),
                "text computation");
          check(Q9Db_addRange(text, v, v, Q9_FLAG_LOWERLIMIT_CLOSED | Q9_FLAG_UPPERLIMIT_CLOSED), "range");
          check(Q9Db_addInternalToPhysicalComputations(coding, 1, &text), "computation list");
        }
        break;
      }
    }
    check(Q9Db_createSignal(db_, id(name), 0, 0, -1e300, 1e300, coding, &signal), "signal");
    const int32_t order = planned.bigEndian ? Q9_BYTEORDER_BIGENDIAN : Q9_BYTEORDER_LITTLEENDIAN;
    check(Q9Db_createSignalInstance(db_, id(name + "_I"), order, int32_t(planned.position), -1, signal, pdu,
                                    &instance),
          "signal instance");
    return signal;
  }

  // Decoding by scale and offset over [rawLow, rawHigh], encoding by the inverse.
  void linear(Q9DbNode* coding, double scale, double offset, double rawLow, double rawHigh) {
    Q9DbNode *decode = nullptr, *encode = nullptr;
    check(Q9Db_createLinearComputation(db_, nullptr, scale, offset, &decode), "linear computation");
    check(Q9Db_addRange(decode, rawLow, rawHigh, Q9_FLAG_LOWERLIMIT_CLOSED | Q9_FLAG_UPPERLIMIT_CLOSED), "range");
    check(Q9Db_addInternalToPhysicalComputations(coding, 1, &decode), "computation list");
    check(Q9Db_createLinearComputation(db_, nullptr, 1 / scale, -offset / scale, &encode), "linear computation");
    const double a = rawLow * scale + offset, b = rawHigh * scale + offset;
    check(Q9Db_addRange(encode, std::min(a, b), std::max(a, b), Q9_FLAG_LOWERLIMIT_CLOSED | Q9_FLAG_UPPERLIMIT_CLOSED),
          "range");
    check(Q9Db_addPhysicalToInternalComputations(coding, 1, &encode), "computation list");
  }

  // A PDU triggering of the PDU with a cyclic or an event-controlled timing.
  void timed(Q9DbNode* pdu, Q9DbNode* channel, const std::string& name) {
    Q9DbNode *triggering = nullptr, *timing = nullptr;
    check(Q9Db_createPDUTriggering(db_, id(name + "_PT"), pdu, channel, &triggering), "PDU triggering");
    if (random_.chance(60))
      check(Q9Db_createCyclicTiming(db_, 10 * random_.between(1, 100), triggering, &timing), "cyclic timing");
    else
      check(Q9Db_createEventControlledTiming(db_, 0, triggering, &timing), "event timing");
  }

 private:
  Q9DbNode* db_;
  Random& random_;
  std::vector<Q9DbStringSlot*> texts_;
  std::vector<std::u16string> ids_;
};

constexpr uint32_t kSelectorBits = 4;
constexpr uint32_t kStaticBits = 16;
// Standard identifiers above the generated ones.
constexpr uint32_t kDiagnosticCode = 0x7E8;
constexpr uint32_t kDiagnosticMask = 0x7F8;

}  // namespace

GeneratedNetwork::GeneratedNetwork(uint64_t seed, const NetworkShape& shape) {
  Random random(seed);
  check(Q9Db_create(u"generated", &db_), "database");
  Builder b(db_, random);
  Q9DbNode* cluster = nullptr;
  check(Q9Db_createCluster(db_, u"Bus", Q9_CLUSTERTYPE_CAN, &cluster), "cluster");
  check(Q9Db_createChannel(db_, u"Bus_A", cluster, &channel_), "channel");

  std::set<uint32_t> used;
  for (unsigned m = 0; m < shape.messages; ++m) {
    GeneratedMessage msg{};
    const std::string name = "M" + std::to_string(m);
    msg.flags = random.chance(shape.extendedPercent) ? Q9_FLAG_CANEXTENDED : Q9_FLAG_CANSTANDARD;
    do {
      msg.identifier = msg.flags ? random.between(0x800, 0x1FFFFFFF) : random.between(1, 0x7DF);
    } while (!used.insert(msg.identifier).second);
    msg.multiplexed = random.chance(shape.multiplexedPercent);
    msg.length = 8;
    if (!msg.multiplexed && random.chance(shape.flexibleDataPercent)) {
      const uint32_t lengths[] = {16, 32, 64};
      msg.length = lengths[random.between(0, 2)];
      msg.flags |= Q9_FLAG_CANFD_FRAME;
    }
    Q9DbNode *triggering = nullptr, *instance = nullptr, *pdu = nullptr;
    check(Q9Db_createFrame(db_, b.id(name), int32_t(msg.length), &msg.frame), "frame");
    check(Q9Db_createIdentifierBasedTriggering(db_, b.id(name + "_T"), msg.identifier, msg.flags, msg.frame, nullptr,
                                               channel_, &triggering),
          "frame triggering");
    const bool bigEndian = random.chance(shape.bigEndianPercent);
    const unsigned signalsWanted = random.between(8, 16);
    const uint32_t frameBits = 8 * msg.length;
    if (!msg.multiplexed) {
      check(Q9Db_createSignalPDU(db_, b.id(name + "_P"), int32_t(frameBits), nullptr, &pdu), "signal PDU");
      b.fill(pdu, planSignals(random, 0, frameBits, bigEndian, signalsWanted), name, msg.signals);
    } else {
      // The selector and a few signals in the first two bytes, the rest by
      // switch code in the six bytes after them.
      check(Q9Db_createMultiplexedPDU(db_, b.id(name + "_X"), int32_t(frameBits), Q9_BYTEORDER_LITTLEENDIAN, 0,
                                      kSelectorBits, 0, nullptr, &pdu),
            "multiplexed PDU");
      Q9DbNode *part = nullptr, *partPdu = nullptr;
      check(Q9Db_createMultiplexedPart(db_, b.id(name + "_Static"), 0, pdu, &part), "part");
      check(Q9Db_setStaticPart(pdu, part), "static part");
      check(Q9Db_addSegment(part, Q9_BYTEORDER_LITTLEENDIAN, 0, kStaticBits), "segment");
      check(Q9Db_createSignalPDU(db_, b.id(name + "_StaticP"), kStaticBits, part, &partPdu), "signal PDU");
      msg.signals.push_back(b.signal(partPdu, {SignalKind::Offset, 0, kSelectorBits, false}, name + "_Sel"));
      b.fill(partPdu, planSignals(random, kSelectorBits, kStaticBits, false, 3), name + "_St", msg.signals);
      const uint32_t codes = random.between(2, 6);
      for (uint32_t code = 0; code <= codes; ++code) {
        const bool isElse = code == codes;
        if (isElse && !random.chance(30)) break;
        const std::string partName = name + (isElse ? "_Else" : "_Mux" + std::to_string(code));
        check(Q9Db_createMultiplexedPart(db_, b.id(partName), code, pdu, &part), "part");
        check(isElse ? Q9Db_setElsePart(pdu, part) : Q9Db_addDynamicParts(pdu, 1, &part), "dynamic part");
        check(Q9Db_addSegment(part, Q9_BYTEORDER_LITTLEENDIAN, kStaticBits, frameBits - kStaticBits), "segment");
        check(Q9Db_createSignalPDU(db_, b.id(partName + "_P"), int32_t(frameBits - kStaticBits), part, &partPdu),
              "signal PDU");
        b.fill(partPdu, planSignals(random, 0, frameBits - kStaticBits, bigEndian, random.between(5, 10)), partName,
               msg.signals);
      }
    }
    check(Q9Db_createPDUInstance(db_, b.id(name + "_PI"), Q9_BYTEORDER_LITTLEENDIAN, 0, -1, pdu, msg.frame,
                                 &instance),
          "PDU instance");
    b.timed(pdu, channel_, name);
    messages_.push_back(std::move(msg));
  }

  // Diagnostic responses: one frame for a range of identifiers under a mask.
  GeneratedMessage diag{};
  diag.identifier = kDiagnosticCode;
  diag.mask = kDiagnosticMask;
  diag.length = 8;
  Q9DbNode *triggering = nullptr, *instance = nullptr, *pdu = nullptr;
  check(Q9Db_createFrame(db_, u"Diagnostics", 8, &diag.frame), "frame");
  check(Q9Db_createMaskedIdentifierTriggering(db_, u"Diagnostics_T", kDiagnosticMask, kDiagnosticCode, 0, diag.frame,
                                              nullptr, channel_, &triggering),
        "masked triggering");
  check(Q9Db_createSignalPDU(db_, u"Diagnostics_P", 64, nullptr, &pdu), "signal PDU");
  b.fill(pdu, planSignals(random, 0, 64, false, 8), "Diagnostics", diag.signals);
  check(Q9Db_createPDUInstance(db_, u"Diagnostics_PI", Q9_BYTEORDER_LITTLEENDIAN, 0, -1, pdu, diag.frame, &instance),
        "PDU instance");
  b.timed(pdu, channel_, "Diagnostics");
  messages_.push_back(std::move(diag));
}

GeneratedNetwork::~GeneratedNetwork() { Q9Db_destroy(db_); }

uint64_t GeneratedNetwork::signalCount() const {
  uint64_t n = 0;
  for (const GeneratedMessage& m : messages_) n += m.signals.size();
  return n;
}

std::vector<ReceivedFrame> GeneratedNetwork::receivedFrames(std::size_t count, uint64_t seed) const {
  Random random(seed);
  std::vector<ReceivedFrame> frames(count);
  for (ReceivedFrame& f : frames) {
    const GeneratedMessage& m = messages_[random.between(0, uint32_t(messages_.size() - 1))];
    f.identifier = m.identifier | (uint32_t(random.next()) & ~m.mask & 0x7FF & (m.mask ? ~0u : 0u));
    f.flags = m.flags;
    f.length = m.length;
    for (uint8_t& byte : f.payload) byte = uint8_t(random.next());
    if (m.multiplexed && random.chance(90)) f.payload[0] = uint8_t((f.payload[0] & 0xF0) | random.between(0, 6));
  }
  return frames;
}

}  // namespace q9bench
