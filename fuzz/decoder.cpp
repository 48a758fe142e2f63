// The message decoder on a fixed network that has every kind of field and
// multiplexing, fed messages of any identifier, flags, length and payload:
// every signal is walked and its physical value computed, printed and
// checked against its limits, and its raw value written back. Whole-frame
// decoding must give the walk's records, each message alone and all of
// them as a batch.
//
// Input: messages one after the other, each
//   identifier (4 bytes), flags (1), length (2), text capacity (1, also
//   the room for whole-frame records), options (1: bit 0 a filter, bit 1
//   the caller's own walk record, bits 2-7 the print capacity), then
//   length payload bytes (zero past the input's end).
#include <cstring>
#include <deque>
#include <limits>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "FuzzSupport.h"
#include "Q9Db.h"
#include "DecodeModel.h"

namespace {

using q9::fuzz::violated;

constexpr int32_t BE = Q9_BYTEORDER_BIGENDIAN;
constexpr int32_t LE = Q9_BYTEORDER_LITTLEENDIAN;
constexpr uint32_t kStatic = 0xFFFFFFFF;
constexpr uint32_t kElse = 0xFFFFFFFE;

using q9::fuzz::FieldSpec;
using q9::fuzz::Placement;
using q9::fuzz::SegmentSpec;

// Builds the network through the factories; any failure is a finding.
class Network {
 public:
  Network() {
    check(Q9Db_create(u"fuzz", &db), "database");
    Q9DbNode* cluster = nullptr;
    check(Q9Db_createCluster(db, u"can", Q9_CLUSTERTYPE_CAN, &cluster), "cluster");
    check(Q9Db_createChannel(db, u"ch", cluster, &channel), "channel");
    plainFrame();
    multiplexedFrame();
    extendedFrame();
    modelled_ = false;
    deepFrame();
    loopFrame();
    modelled_ = true;
    channelPdus();
    check(Q9Db_createIdListFilterW(db, Q9_FILTERMODE_INVERTED, kFilterIds, &filter), "filter");
  }

  // The instance ids and the signal ids that the filter lists; it is an
  // inverted filter, which passes a signal when it passes its instance.
  static constexpr const char* kFilteredOut = "plain_le12";
  static constexpr const char16_t* kFilterIds = u"s_plain_le12\0i_plain_le12\0s_mux_static\0";

  const std::map<Q9DbNode*, FieldSpec>& fields() const { return fields_; }

  // Where a signal instance reads, or null when it isn't modelled.
  const FieldSpec* fieldOf(Q9DbNode* instance) const {
    const auto found = fields_.find(instance);
    return found == fields_.end() ? nullptr : &found->second;
  }

  Q9DbNode* db = nullptr;
  Q9DbNode* channel = nullptr;
  Q9DbFilter* filter = nullptr;

 private:
  static void check(HRESULT hr, const char* what) {
    if (hr != S_OK) violated("the fixed network can't be built", what);
  }

  const char16_t* id(const std::string& name) {
    ids_.emplace_back(name.begin(), name.end());
    return ids_.back().c_str();
  }
  std::string fresh(const char* stem) { return std::string(stem) + std::to_string(counter_++); }

  Q9DbNode* frame(const char* name, int32_t length) {
    Q9DbNode* f = nullptr;
    check(Q9Db_createFrame(db, id(name), length, &f), name);
    return f;
  }
  void byIdentifier(Q9DbNode* f, uint32_t identifier, uint32_t flags) {
    Q9DbNode* t = nullptr;
    check(Q9Db_createIdentifierBasedTriggering(db, id(fresh("t")), identifier, flags, f, nullptr, channel, &t),
          "triggering");
  }
  void masked(Q9DbNode* f, uint32_t mask, uint32_t code, uint32_t flags) {
    Q9DbNode* t = nullptr;
    check(Q9Db_createMaskedIdentifierTriggering(db, id(fresh("t")), mask, code, flags, f, nullptr, channel, &t),
          "masked triggering");
  }
  // Places pdu in a frame or on the channel, or makes it a part's PDU.
  Q9DbNode* carry(Q9DbNode* pdu, Q9DbNode* carrier, int32_t bitpos) {
    Placement placement;
    if (Q9Db_getNodeType(carrier) == Q9_NODETYPE_MultiplexedPart) {
      check(Q9Db_setReference(carrier, pdu), "part reference");
      const PartOf& part = parts_.at(carrier);
      placement = Placement{Placement::Part, 0, nullptr, placements_.at(part.mux), part.segments};
    } else {
      Q9DbNode* instance = nullptr;
      check(Q9Db_createPDUInstance(db, id(fresh("pi")), LE, bitpos, -1, pdu, carrier, &instance), "PDU instance");
      placement = Placement{Placement::Payload, bitpos, carrier, nullptr, {}};
    }
    if (!modelled_) placement = Placement{};
    placementStore_.push_back(placement);
    placements_[pdu] = &placementStore_.back();
    return pdu;
  }
  Q9DbNode* signalPdu(Q9DbNode* carrier, int32_t bitpos = 0) {
    Q9DbNode* pdu = nullptr;
    check(Q9Db_createSignalPDU(db, id(fresh("pdu")), 64, nullptr, &pdu), "signal PDU");
    return carry(pdu, carrier, bitpos);
  }
  Q9DbNode* muxPdu(Q9DbNode* carrier, int32_t switchPosition, int32_t switchLength, int32_t order = LE,
                   int32_t bitpos = 0) {
    Q9DbNode* pdu = nullptr;
    check(Q9Db_createMultiplexedPDU(db, id(fresh("mux")), 64, order, switchPosition, switchLength, 0,
                                    nullptr, &pdu),
          "multiplexed PDU");
    return carry(pdu, carrier, bitpos);
  }
  Q9DbNode* part(Q9DbNode* mux, uint32_t code, const std::vector<SegmentSpec>& segments = {}) {
    Q9DbNode* p = nullptr;
    check(Q9Db_createMultiplexedPart(db, id(fresh("part")), code, mux, &p), "part");
    if (code == kStatic) check(Q9Db_setStaticPart(mux, p), "static part");
    else if (code == kElse) check(Q9Db_setElsePart(mux, p), "else part");
    else check(Q9Db_addDynamicParts(mux, 1, &p), "dynamic part");
    for (const SegmentSpec& s : segments) {
      check(Q9Db_addSegment(p, s.byteOrder, s.bitpos, s.bitlen), "segment");
      // The model reads big-endian fields bit by bit, which longer copies don't.
      if (s.byteOrder == BE && s.bitlen > 64) violated("the fixed network has a long big-endian segment");
    }
    parts_[p] = PartOf{mux, segments};
    return p;
  }
  Q9DbNode* computation(Q9DbNode* coding, Q9DbNode* c, double lo, double hi) {
    check(Q9Db_addRange(c, lo, hi, Q9_FLAG_LOWERLIMIT_CLOSED | Q9_FLAG_UPPERLIMIT_CLOSED), "range");
    check(Q9Db_addInternalToPhysicalComputations(coding, 1, &c), "computation");
    return c;
  }
  // A signal of its own coding placed in pdu, with a scaling, a text for
  // its all-ones value and limits, so that every value path is taken.
  void field(const char* name, Q9DbNode* pdu, int32_t bitpos, int32_t bitlen, int32_t order = LE,
             uint32_t encoding = Q9_ENCODING_DIRECT) {
    Q9DbNode *coding = nullptr, *signal = nullptr, *instance = nullptr;
    check(Q9Db_createCoding(db, id(std::string("c_") + name), bitlen, encoding, nullptr, &coding), name);
    if (encoding != Q9_ENCODING_ASCII) {
      const double top = bitlen >= 64 ? 1.8e19 : double((uint64_t(1) << bitlen) - 1);
      Q9DbStringSlot* text = nullptr;
      check(Q9Db_stringCreateSlotA(db, 0, "all ones", &text), "text");
      Q9DbNode *named = nullptr, *linear = nullptr, *inverse = nullptr;
      check(Q9Db_createMappedTextComputation(db, nullptr, text, &named), "text computation");
      computation(coding, named, top, top);
      check(Q9Db_createLinearComputation(db, nullptr, 0.5, -10, &linear), "linear");
      computation(coding, linear, -1e300, 1e300);
      check(Q9Db_createLinearComputation(db, nullptr, 2, 20, &inverse), "inverse");
      check(Q9Db_addRange(inverse, -1e300, 1e300, 3), "inverse range");
      check(Q9Db_addPhysicalToInternalComputations(coding, 1, &inverse), "inverse");
    }
    check(Q9Db_createSignal(db, id(std::string("s_") + name), Q9_FLAG_LOWERLIMIT_CLOSED | Q9_FLAG_UPPERLIMIT_CLOSED,
                            0, -100, 1000, coding, &signal),
          name);
    check(Q9Db_createSignalInstance(db, id(std::string("i_") + name), order, bitpos, -1, signal, pdu,
                                    &instance),
          name);
    fields_[instance] = FieldSpec{placements_.at(pdu), bitpos, order == BE ? -bitlen : bitlen,
                                  encoding == Q9_ENCODING_ASCII, std::strcmp(name, kFilteredOut) == 0};
  }

  // Every encoding and both byte orders in a classic 8-byte frame.
  void plainFrame() {
    Q9DbNode* f = frame("Plain", 8);
    byIdentifier(f, 0x100, 0);
    byIdentifier(f, 0x101, Q9_FLAG_CANSTD_OR_EXT);
    Q9DbNode* pdu = signalPdu(f);
    field("plain_le12", pdu, 3, 12);
    field("plain_be16", pdu, 23, 16, BE, Q9_ENCODING_2COMPL);
    field("plain_signed9", pdu, 40, 9, LE, Q9_ENCODING_DIRECT | Q9_ENCODING_SIGNED);
    field("plain_1compl", pdu, 50, 13, LE, Q9_ENCODING_1COMPL);
    field("plain_float", pdu, 32, 32, LE, Q9_ENCODING_IEEE);
    field("plain_double", pdu, 7, 64, BE, Q9_ENCODING_IEEE);
    field("plain_packed", pdu, 48, 16, LE, Q9_ENCODING_PACKED_BCD);
    field("plain_unpacked", pdu, 31, 24, BE, Q9_ENCODING_UNPACKED_BCD);
    field("plain_le64", pdu, 0, 64);
    field("plain_text_le", pdu, 8, 48, LE, Q9_ENCODING_ASCII);
    field("plain_text_be", pdu, 15, 56, BE, Q9_ENCODING_ASCII);
    field("plain_odd_float", pdu, 1, 33, LE, Q9_ENCODING_IEEE);
    field("plain_wide", pdu, 0, 65, LE);
    field("plain_negative", pdu, -3, 8, LE);
  }

  // A CAN FD frame, its PDU at an offset, multiplexed with segments from the
  // payload and the identifier, a multiplexer inside a part, long texts, a
  // part larger than the assembly buffer, and an else part.
  void multiplexedFrame() {
    Q9DbNode* f = frame("Mux", 64);
    masked(f, 0x7F0, 0x200, Q9_FLAG_CANFD_FRAME);
    Q9DbNode* mux = muxPdu(f, 0, 8, LE, 8);
    field("mux_static", signalPdu(part(mux, kStatic)), 0, 8);
    Q9DbNode* one = signalPdu(part(mux, 1, {{8, 16}, {100, 12, BE}, {-8, 8}, {300, 0}}));
    field("mux1_a", one, 0, 12);
    field("mux1_b", one, 23, 20, BE);
    field("mux1_c", one, 30, 8);
    Q9DbNode* inner = muxPdu(part(mux, 2, {{16, 200}, {7, 8, BE}}), 3, 5, BE);
    field("inner_static", signalPdu(part(inner, kStatic)), 100, 64);
    field("inner_a", signalPdu(part(inner, 1, {{8, 64}})), 0, 64, BE);
    Q9DbNode* innermost = muxPdu(part(inner, 2, {{0, 208}}), -4, 4);
    field("innermost_a", signalPdu(part(innermost, 0, {{200, 8}})), 0, 8);
    field("innermost_else", signalPdu(part(innermost, kElse, {{8, 64, BE}})), 7, 64, BE);
    Q9DbNode* text = signalPdu(part(mux, 3));
    field("mux3_text", text, 16, 400, LE, Q9_ENCODING_ASCII);
    field("mux3_text_be", text, 23, 392, BE, Q9_ENCODING_ASCII);
    field("mux3_long", text, 0, 2048, LE, Q9_ENCODING_ASCII);
    Q9DbNode* huge = signalPdu(part(mux, 4, {{0, 9000}, {8, 8}}));
    field("mux4_edge", huge, 8184, 8);
    field("mux4_past", huge, 8190, 8, BE);
    Q9DbNode* far = signalPdu(part(mux, 5, {{504, 8}, {1 << 30, 8}, {-40, 8}}));
    field("mux5_far", far, 0, 24);
    field("mux_else", signalPdu(part(mux, kElse, {{15, 32, BE}})), 31, 32, BE, Q9_ENCODING_2COMPL);
  }

  // A switch on the identifier's low byte, read from the identifier image.
  void extendedFrame() {
    Q9DbNode* f = frame("Ext", 4);
    masked(f, 0x1FFFFF00, 0x1ABCDE00, Q9_FLAG_CANEXTENDED);
    Q9DbNode* mux = muxPdu(f, -29, 8);
    for (uint32_t code : {0x00u, 0x01u, 0xEFu, 0xFFu}) {
      field(fresh("ext_").c_str(), signalPdu(part(mux, code, {{-32, 32}, {0, 32, BE}})), int32_t(code % 32), 16);
    }
    field("ext_below", signalPdu(part(mux, kStatic, {{-100, 8}, {-33, 2}})), 0, 10);
  }

  // Static parts nested beyond the walk's stack, a signal at each level.
  void deepFrame() {
    Q9DbNode* carrier = frame("Deep", 2);
    byIdentifier(carrier, 0x300, 0);
    for (int level = 0; level < 80; ++level) {
      Q9DbNode* mux = muxPdu(carrier, level % 16, 1);
      field(fresh("deep_").c_str(), signalPdu(part(mux, 1, level % 2 ? std::vector<SegmentSpec>{{0, 16}}
                                                                     : std::vector<SegmentSpec>{})),
            level % 8, 8);
      carrier = part(mux, kStatic, level % 3 ? std::vector<SegmentSpec>{} : std::vector<SegmentSpec>{{0, 16}});
    }
  }

  // Parts that contain their own multiplexer, twice over.
  void loopFrame() {
    Q9DbNode* f = frame("Loop", 1);
    byIdentifier(f, 0x301, 0);
    Q9DbNode* loop = muxPdu(f, 0, 1);
    carry(loop, part(loop, kStatic, {{0, 8}}), 0);
    carry(loop, part(loop, 0), 0);
    field("loop_plain", signalPdu(part(loop, 1)), 0, 8);
  }

  // PDUs of the channel itself, decoded from every message: one of codings
  // of odd lengths and encodings, so that every message reaches them.
  void channelPdus() {
    field("channel_head", signalPdu(channel), 0, 16, BE);
    field("channel_tail", signalPdu(channel, 500), 0, 12);
    field("channel_far", signalPdu(channel, 0x7FFFFFF0), 8, 8);
    Q9DbNode* odd = signalPdu(channel, 3);
    const uint32_t S = Q9_ENCODING_SIGNED;
    const struct {
      int32_t bitlen;
      uint32_t encoding;
    } codings[] = {{65, Q9_ENCODING_DIRECT},      {200, Q9_ENCODING_2COMPL | S}, {64, Q9_ENCODING_1COMPL | S},
                   {1, Q9_ENCODING_2COMPL},        {1, Q9_ENCODING_1COMPL},       {33, Q9_ENCODING_IEEE},
                   {64, Q9_ENCODING_IEEE | S},     {16, Q9_ENCODING_IEEE},        {64, Q9_ENCODING_PACKED_BCD},
                   {3, Q9_ENCODING_UNPACKED_BCD},  {72, Q9_ENCODING_PACKED_BCD},  {13, Q9_ENCODING_ASCII},
                   {24, Q9_ENCODING_ASCII | S},    {8, Q9_ENCODING_INVALID},      {8, 99},
                   {0, Q9_ENCODING_DIRECT},        {64, Q9_ENCODING_DIRECT | S},  {63, Q9_ENCODING_2COMPL}};
    int n = 0;
    for (const auto& c : codings) {
      const int32_t pos = (n * 37) % 480;
      field(fresh("odd_").c_str(), odd, pos, c.bitlen, n % 2 ? BE : LE, c.encoding);
      ++n;
    }
  }

  struct PartOf {
    Q9DbNode* mux;
    std::vector<SegmentSpec> segments;
  };

  std::deque<std::u16string> ids_;
  int counter_ = 0;
  bool modelled_ = true;  // off for the frames that lead back into themselves or nest too deep
  std::deque<Placement> placementStore_;
  std::map<Q9DbNode*, const Placement*> placements_;
  std::map<Q9DbNode*, PartOf> parts_;
  std::map<Q9DbNode*, FieldSpec> fields_;
};

Network& network() {
  static Network* built = new Network;  // lives as long as the process
  return *built;
}

void usePhysicalValue(Q9DbNode* signal, Q9DbNode* instance, uint64_t raw, uint32_t printCapacity) {
  Q9DbPhysicalValue value{};
  const HRESULT hr = Q9Db_internalToPhysical(signal, raw, &value);
  if (FAILED(hr)) return;
  if (value.valueType > Q9_VALUETYPE_INT64) violated("a physical value of no known type");
  std::vector<char16_t> printed(printCapacity ? printCapacity : 1);
  const int32_t n = Q9Db_valueToString(&value, printed.data(), printCapacity);
  if (n >= int32_t(printCapacity) || n < -1) violated("printed past the capacity");
  if (n >= 0 && printed[size_t(n)] != 0) violated("printed text without its terminator");
  Q9Db_checkValueInMinMax(signal, &value);
  if (value.text) {
    const char16_t* text = nullptr;
    Q9Db_stringLookup(network().db, value.text, 0, 0, &text);
  }
  // Back again: the first inverse that takes the value, into an image of
  // just the bytes a 64-bit field can reach.
  Q9DbEncodeEnum encode{};
  Q9DbEncodeEnum* e = &encode;
  if (Q9Db_encodeSignal(signal, &value, &e) != S_OK) return;
  Q9DbNode* inverse = nullptr;
  uint64_t back = 0;
  if (Q9Db_encodeNextComputation(e, &inverse) == S_OK && Q9Db_physicalToInternal(signal, inverse, &value, &back) == S_OK) {
    std::unique_ptr<uint8_t[]> image(new uint8_t[9]());
    Q9Db_encodeSignalInstance(instance, back, image.get(), 9);
  }
}

using Records = std::vector<Q9DbSignalRecord>;
constexpr double kNone = std::numeric_limits<double>::quiet_NaN();

// The records of one message by the walk, as whole-frame decoding promises
// them: every signal, a text's kind without its bytes, the physical value
// of a conversion that succeeded.
Records walkRecords(const Q9DbMessage& m) {
  Records records;
  Q9DbDecodeEnum* walk = nullptr;
  if (Q9Db_decodeMessage(network().channel, m.identifier, m.flags, m.length, m.payload, &walk) != S_OK)
    violated("a message on a channel was refused");
  char text[8];
  Q9DbDecodedSignal s{};
  s.textBuffer = text;
  s.textCapacity = sizeof text;
  for (HRESULT stage; (stage = Q9Db_decodeNextFrametriggering(walk, nullptr)) >= 0;) {
    for (HRESULT kind; (kind = Q9Db_decodeNextSignal(walk, nullptr, &s)) >= 0;) {
      Q9DbSignalRecord r{s.triggering, s.instance, s.signal, s.value, kNone, nullptr, uint32_t(kind), 0};
      Q9DbPhysicalValue v{};
      if (kind == Q9_NUMERICSIGNAL && Q9Db_internalToPhysical(s.signal, s.value, &v) == S_OK) {
        r.physical = v.valueType == Q9_VALUETYPE_DOUBLE ? v.value.d
                     : v.valueType == Q9_VALUETYPE_UINT64 ? double(v.value.u)
                     : v.valueType == Q9_VALUETYPE_INT64  ? double(v.value.i)
                                                          : kNone;
        r.text = v.text;
      }
      records.push_back(r);
    }
    if (stage == S_FALSE) break;
  }
  Q9Db_destroyDecodeEnum(walk);
  return records;
}

// Bit for bit, NaNs included: both ways convert alike.
bool same(const Q9DbSignalRecord* a, const Q9DbSignalRecord* b, size_t n) {
  return n == 0 || std::memcmp(a, b, n * sizeof *a) == 0;
}

// The first record where a and b differ, both ways, for the report.
std::string firstDifference(const Q9DbSignalRecord* a, const Q9DbSignalRecord* b, size_t n) {
  size_t i = 0;
  while (i < n && std::memcmp(a + i, b + i, sizeof *a) == 0) ++i;
  std::string out = "record " + std::to_string(i) + " of " + std::to_string(n);
  for (const Q9DbSignalRecord* r : {a + i, b + i}) {
    char line[200];
    std::snprintf(line, sizeof line, "; %p %p %p raw %llx physical %.17g text %p kind %u message %u",
                  static_cast<void*>(r->triggering), static_cast<void*>(r->instance), static_cast<void*>(r->signal),
                  static_cast<unsigned long long>(r->raw), r->physical, static_cast<void*>(r->text), r->kind,
                  r->message);
    out += line;
  }
  return out;
}

// Q9Db_decodeFrame into records of exactly room entries, so that a write
// past them shows.
void checkWholeFrame(const Q9DbMessage& m, const Records& expected, uint32_t room) {
  std::unique_ptr<Q9DbSignalRecord[]> records(room ? new Q9DbSignalRecord[room] : nullptr);
  uint32_t count = 0;
  const HRESULT hr = Q9Db_decodeFrame(network().channel, m.identifier, m.flags, m.length, m.payload, records.get(),
                                      room, &count);
  const bool fits = expected.size() <= room;
  if (hr != (fits ? S_OK : S_FALSE)) violated("whole-frame decoding answered otherwise than the walk's count");
  if (count != (fits ? expected.size() : room)) violated("whole-frame decoding gave another count");
  if (!same(records.get(), expected.data(), count))
    violated("a whole-frame record differs from the walk's", firstDifference(records.get(), expected.data(), count));
}

// The input's messages as one batch, in room for all their records and in
// room for one fewer: then the messages that fit whole come, and E_INVALIDARG
// when not even the first does.
void checkBatch(const std::vector<Q9DbMessage>& messages, const Records& expected) {
  const uint32_t n = uint32_t(messages.size());
  for (const size_t room : {expected.size(), expected.size() ? expected.size() - 1 : 0}) {
    uint32_t fit = 0;
    size_t fitting = 0;
    for (; fit < n; ++fit) {
      size_t end = fitting;
      while (end < expected.size() && expected[end].message == fit) ++end;
      if (end > room) break;
      fitting = end;
    }
    std::unique_ptr<Q9DbSignalRecord[]> records(room ? new Q9DbSignalRecord[room] : nullptr);
    uint32_t decoded = 0, count = 0;
    const HRESULT hr = Q9Db_decodeFrames(network().channel, messages.data(), n, records.get(), uint32_t(room),
                                         &decoded, &count);
    const HRESULT due = fit == n ? S_OK : fit > 0 ? S_FALSE : E_INVALIDARG;
    if (hr != due || decoded != fit || count != fitting) violated("a batch was cut otherwise than its records");
    if (!same(records.get(), expected.data(), count))
      violated("a batch record differs from the walk's", firstDifference(records.get(), expected.data(), count));
  }
}

// Walks one message and checks its whole-frame records; the message and
// its expected records join the batch.
void decodeOne(q9::fuzz::InputReader& in, std::vector<std::unique_ptr<uint8_t[]>>& payloads,
               std::vector<Q9DbMessage>& batch, Records& batchRecords) {
  Network& net = network();
  const auto identifier = in.take<uint32_t>();
  const auto flags = uint32_t(in.take<uint8_t>());
  const auto length = size_t(in.take<uint16_t>() % 2049);
  const auto textCapacity = uint32_t(in.take<uint8_t>());
  const auto options = in.take<uint8_t>();
  const uint32_t printCapacity = options >> 2;
  // The payload and the text buffer at their exact sizes, so that a read or
  // write past either shows.
  std::unique_ptr<uint8_t[]> payload(new uint8_t[length ? length : 1]());
  size_t got = 0;
  const uint8_t* bytes = in.takeBytes(length, &got);
  if (got) std::memcpy(payload.get(), bytes, got);
  std::unique_ptr<char[]> text(textCapacity ? new char[textCapacity] : nullptr);

  static Q9DbDecodeEnum ownRecord;
  Q9DbDecodeEnum* walk = (options & 2) ? &ownRecord : nullptr;
  if (Q9Db_decodeMessage(net.channel, identifier, flags, length, payload.get(), &walk) != S_OK)
    violated("a message on a channel was refused");
  const Q9DbFilter* filter = (options & 1) ? net.filter : nullptr;
  q9::fuzz::MessageModel model(payload.get(), length, identifier << ((flags & Q9_FLAG_CANEXTENDED) ? 3 : 21));
  uint64_t delivered = 0;
  std::map<Q9DbNode*, int> seen;
  for (int stage = 0;; ++stage) {
    Q9DbNode* triggering = nullptr;
    const HRESULT found = Q9Db_decodeNextFrametriggering(walk, &triggering);
    if (found == Q9_E_NOT_FOUND) break;
    if (found != S_OK && found != S_FALSE) violated("the triggering walk failed");
    if (stage > 16) violated("more matches than the channel has triggerings");
    seen.clear();
    Q9DbDecodedSignal s{};
    s.textCapacity = textCapacity;
    s.textBuffer = text.get();
    HRESULT kind;
    while ((kind = Q9Db_decodeNextSignal(walk, filter, &s)) == Q9_NUMERICSIGNAL || kind == Q9_ASCIISIGNAL) {
      if (++delivered > 200000) violated("the walk doesn't end");
      ++seen[s.instance];
      if (s.triggering != triggering) violated("a signal of another triggering");
      if (const FieldSpec* f = net.fieldOf(s.instance)) model.check(*f, kind, s.value, s.textBuffer, s.textLength);
      if (kind == Q9_ASCIISIGNAL) {
        if (s.textLength > textCapacity) violated("more text than the buffer holds");
      } else {
        usePhysicalValue(s.signal, s.instance, s.value, printCapacity);
      }
    }
    if (kind != Q9_E_NOT_FOUND) violated("a signal walk ended with a failure");
    // Every readable field of the PDUs placed in this frame (or on the
    // channel) came once, and no other.
    Q9DbNode* carrier = net.channel;
    if (triggering) Q9Db_getFrame(triggering, &carrier);
    for (const auto& [instance, f] : net.fields()) {
      if (f.placement->kind != Placement::Payload || f.placement->carrier != carrier) continue;
      const bool expected = model.readableInPayload(f) && !(f.text && !textCapacity) && !(filter && f.filteredOut);
      if (seen[instance] != int(expected)) violated(expected ? "a readable field didn't come" : "a field came that can't");
    }
    if (found == S_FALSE) {
      if (Q9Db_decodeNextSignal(walk, filter, &s) != Q9_E_NOT_FOUND) violated("signals after the end");
    }
  }
  if (walk != &ownRecord && Q9Db_destroyDecodeEnum(walk) != S_OK) violated("the walk can't be destroyed");

  const Q9DbMessage message{identifier, flags, length, payload.get()};
  const Records expected = walkRecords(message);
  checkWholeFrame(message, expected, textCapacity);
  for (Q9DbSignalRecord r : expected) {
    r.message = uint32_t(batch.size());
    batchRecords.push_back(r);
  }
  batch.push_back(message);
  payloads.push_back(std::move(payload));
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  network();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  q9::fuzz::InputReader in(data, size);
  std::vector<std::unique_ptr<uint8_t[]>> payloads;
  std::vector<Q9DbMessage> batch;
  Records batchRecords;
  for (int message = 0; message < 16 && in.left() > 0; ++message) decodeOne(in, payloads, batch, batchRecords);
  checkBatch(batch, batchRecords);
  return 0;
}
