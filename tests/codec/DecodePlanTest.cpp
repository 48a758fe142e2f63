// The decoder's compiled plans against the walk over the nodes: the same
// signals, raw and physical values for every kind of field and coding, and
// a change to the database seen by the very next decode.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <memory>
#include <thread>

#include "DecoderFixture.h"
#include "codec/ValueConversion.h"
#include "store/Accelerators.h"

namespace q9::test {
namespace {

class DecodePlanTest : public DecoderTest {
 protected:
  // Every signal of one message with its raw and physical value, the text of
  // a text computation and whether any matched: "name=raw/physical+text*".
  std::string decoded(uint32_t identifier, uint32_t flags, const Bytes& payload) {
    // The caller-owned form, so that the library's heap shows what the
    // walk itself takes.
    std::unique_ptr<Q9DbDecodeEnum> own(new Q9DbDecodeEnum);
    Q9DbDecodeEnum* e = own.get();
    EXPECT_EQ(Q9Db_decodeMessage(channel, identifier, flags, payload.size(), payload.data(), &e), S_OK);
    std::string out;
    char text[16];
    Q9DbDecodedSignal s{};
    s.textCapacity = sizeof text;
    s.textBuffer = text;
    while (SUCCEEDED(Q9Db_decodeNextFrametriggering(e, nullptr))) {
      HRESULT kind;
      while (SUCCEEDED(kind = Q9Db_decodeNextSignal(e, nullptr, &s))) {
        out += " " + narrow(as<ElementId>(s.signal)->eid) + "=";
        if (kind == Q9_ASCIISIGNAL) {
          out += "'" + std::string(text, s.textLength) + "'";
          continue;
        }
        Q9DbPhysicalValue v;
        std::memset(&v, 0xAB, sizeof v);  // what a failure leaves unwritten shows
        const HRESULT hr = Q9Db_internalToPhysical(s.signal, s.value, &v);
        char16_t printed[64] = {};
        Q9Db_valueToString(&v, printed, 64);
        char raw[24];
        std::snprintf(raw, sizeof raw, "%llX/", static_cast<unsigned long long>(s.value));
        const char16_t* shown = nullptr;
        if (v.text) Q9Db_stringLookup(handle, v.text, 0, 0, &shown);
        out += raw + narrow(printed) + (v.text ? "+" + narrow(shown) : "") + (hr == S_OK ? "*" : "");
      }
    }
    return out;
  }

  // The same message decoded over the nodes (the room full, so that no plan
  // can be built) and by plans; the two must agree.
  std::string bothWays(uint32_t identifier, uint32_t flags, const Bytes& payload) {
    noteChange(db());
    while (claimAccelerator(db(), 1024)) {
    }
    while (claimAccelerator(db(), 16)) {
    }
    const std::string byNodes = decoded(identifier, flags, payload);
    noteChange(db());
    const std::string byPlans = decoded(identifier, flags, payload);
    EXPECT_EQ(byPlans, byNodes) << std::hex << identifier;
    return byPlans;
  }
};

// Frames of many lengths with fields of every length, byte order and
// encoding at random places, computations of every class and multiplexed
// PDUs of every shape: each message decodes by its plan exactly as over the
// nodes.
TEST_F(DecodePlanTest, PlansDecodeAsTheNodesDo) {
  RandomChoice next(7);
  const std::vector<uint64_t> frameLengths = randomNetwork(next);
  for (int round = 0; round < 600; ++round) {
    const uint32_t m = uint32_t(next(48));
    Bytes payload(next(5) ? frameLengths[m] : 1 + next(20));
    for (uint8_t& b : payload) b = uint8_t(next(256));
    bothWays(0x100 + m + (next(3) ? 0 : 0x600), 0, payload);
  }
}

// The closed interval that stands for a range holds exactly what the range
// holds, at and around every limit.
TEST(ClosedInterval, HoldsWhatTheRangeHolds) {
  const double limits[] = {-HUGE_VAL, -1, 0, 0.5, 1, 2, 1e300, HUGE_VAL, std::nan("")};
  int intervals = 0;
  for (double lower : limits)
    for (double upper : limits)
      for (uint32_t flags = 0; flags < 4; ++flags) {
        double low = 0, high = 0;
        if (!closedInterval(lower, upper, flags, &low, &high)) continue;
        ++intervals;
        for (double limit : limits)
          for (double x : {std::nextafter(limit, -HUGE_VAL), limit, std::nextafter(limit, HUGE_VAL)})
            EXPECT_EQ(intervalHolds(low, high, x), limitsHold(lower, upper, flags, x))
                << lower << " " << upper << " " << flags << " at " << x;
      }
  EXPECT_EQ(intervals, 4 * (28 + 8)) << "every range with lower below upper, and every point";
}

// A realistic fault of any cache: the database changes after a decode, and
// the next decode must see the change. Each row changes one link or list;
// what it links was made before the first decode.
TEST_F(DecodePlanTest, AChangeIsSeenByTheNextDecode) {
  struct Spare {
    Q9DbNode *frame, *pdu, *s, *instance, *triggering;  // decoded at first
    Q9DbNode *signal4, *coding2c, *scale, *rangeless, *looseInstance, *loosePlacement, *otherFrame, *looseTriggering;
  };
  struct Row {
    const char* what;
    std::function<void(const Spare&)> change;
    const char* after;
  };
  const Row rows[] = {
      {"nothing", [](const Spare&) {}, " s=F2/0xF2"},
      {"instance to another signal", [](const Spare& n) { Q9Db_setReference(n.instance, n.signal4); }, " t=2/0x2"},
      {"instance to another signal, by setSignal", [](const Spare& n) { Q9Db_setSignal(n.instance, n.signal4); },
       " t=2/0x2"},
      {"signal to another coding", [](const Spare& n) { Q9Db_setReference(n.s, n.coding2c); }, " s=F2/-14"},
      {"a computation added",
       [this](const Spare& n) { Q9Db_addInternalToPhysicalComputations(codingOf(n.s), 1, &n.scale); },
       " s=F2/121.000*"},
      {"a range added to a computation that had none", [](const Spare& n) { Q9Db_addRange(n.rangeless, 0, 1000, 0); },
       " s=F2/485.000*"},
      {"a signal instance added", [](const Spare& n) { Q9Db_addSignalInstances(n.pdu, 1, &n.looseInstance); },
       " s=F2/0xF2 u=34/0x34"},
      {"a PDU instance added", [](const Spare& n) { Q9Db_addPDUInstances(n.frame, 1, &n.loosePlacement); },
       " s=F2/0xF2 v=4/0x4"},
      {"the triggering to another frame", [](const Spare& n) { Q9Db_setFrame(n.triggering, n.otherFrame); },
       " w=3/0x3"},
      {"a second triggering of the identifier",
       [this](const Spare& n) { Q9Db_addFrameTriggerings(channel, 1, &n.looseTriggering); }, " s=F2/0xF2 s=F2/0xF2"},
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(r.what);
    Q9Db_destroy(handle);
    ASSERT_EQ(Q9Db_create(u"db", &handle), S_OK);
    ASSERT_EQ(Q9Db_createChannel(handle, u"ch", nullptr, &channel), S_OK);
    Spare n{};
    Q9Db_createFrame(handle, fresh(), 2, &n.frame);
    Q9Db_createIdentifierBasedTriggering(handle, nullptr, 0x55, 0, n.frame, nullptr, channel, &n.triggering);
    n.pdu = signalPdu(n.frame);
    n.s = signal(u"s", 8);
    n.instance = place(n.s, n.pdu, 0);
    n.signal4 = signal(u"t", 4);
    Q9Db_createCoding(handle, fresh(), 8, Q9_ENCODING_2COMPL, nullptr, &n.coding2c);
    n.scale = linear(0.5, 0, 0, 255);
    n.rangeless = compute(n.s, linear(2, 1), 1, 0);
    Q9Db_createSignalInstance(handle, fresh(), 0, 8, -1, signal(u"u", 8), nullptr, &n.looseInstance);
    Q9DbNode* vPdu = create(Q9Db_createSignalPDU, fresh(), 8, nullptr);
    place(signal(u"v", 4), vPdu, 0);
    Q9Db_createPDUInstance(handle, fresh(), 0, 8, -1, vPdu, nullptr, &n.loosePlacement);
    Q9Db_createFrame(handle, fresh(), 2, &n.otherFrame);
    field(u"w", signalPdu(n.otherFrame), 12, 4);
    Q9Db_createIdentifierBasedTriggering(handle, nullptr, 0x55, 0, n.frame, nullptr, nullptr, &n.looseTriggering);

    const Bytes payload = {0xF2, 0x34};
    ASSERT_EQ(decoded(0x55, 0, payload), " s=F2/0xF2");
    r.change(n);
    EXPECT_EQ(decoded(0x55, 0, payload), r.after);
  }
}

// Between a signal's delivery and the question for its physical value the
// database may change; the answer follows the change.
TEST_F(DecodePlanTest, APhysicalValueAfterAChangeFollowsIt) {
  Q9DbNode* s = field(u"s", signalPdu(frame(u"F", 8, 1)), 0, 8);
  const uint8_t payload[8] = {10};
  Q9DbDecodeEnum* e = nullptr;
  Q9DbDecodedSignal d{};
  ASSERT_EQ(Q9Db_decodeMessage(channel, 1, 0, 8, payload, &e), S_OK);
  ASSERT_EQ(Q9Db_decodeNextFrametriggering(e, nullptr), S_OK);
  ASSERT_EQ(Q9Db_decodeNextSignal(e, nullptr, &d), Q9_NUMERICSIGNAL);
  Q9Db_destroyDecodeEnum(e);
  Q9DbPhysicalValue v;
  ASSERT_EQ(Q9Db_internalToPhysical(s, d.value, &v), S_FALSE);
  compute(s, linear(3, 0), 0, 100);
  ASSERT_EQ(Q9Db_internalToPhysical(s, d.value, &v), S_OK);
  EXPECT_EQ(v.valueType, uint32_t(Q9_VALUETYPE_DOUBLE));
  EXPECT_EQ(v.value.d, 30.0);
  EXPECT_EQ(Q9Db_internalToPhysical(nullptr, d.value, &v), E_INVALIDARG);
}

// Plans are built in room the changes set aside: decoding after a change
// takes nothing from the heap either, multiplexed frames included.
TEST_F(DecodePlanTest, RebuildingAfterAChangeTakesNothingFromTheHeap) {
  Q9DbNode* mux = muxPdu(frame(u"M", 8, 1), 0, 4);
  field(u"s", signalPdu(part(mux, kStatic, {{8, 16}})), 0, 8);
  Q9DbNode* d = field(u"d", signalPdu(part(mux, 1, {{24, 8}})), 0, 8);
  compute(d, text("one"), 1, 1);
  EXPECT_EQ(decoded(1, 0, {1, 2, 3, 4, 5, 6, 7, 8}), " s=2/0x2 d=4/0x4");
  Q9Db_setParam(d, 7);
  const uint64_t allocations = platform::heapAllocationCount();
  EXPECT_EQ(decoded(1, 0, {1, 2, 3, 1, 5, 6, 7, 8}), " s=2/0x2 d=1/0x1+one*");
  EXPECT_EQ(platform::heapAllocationCount(), allocations);
}

// A plan is taken away by changes to its own database only, so a frame
// that reaches into another database is decoded over the nodes, and a
// change there is seen too.
TEST_F(DecodePlanTest, FramesReachingIntoAnotherDatabase) {
  Q9DbNode* other = nullptr;
  ASSERT_EQ(Q9Db_create(u"other", &other), S_OK);
  Q9DbNode *coding = nullptr, *s = nullptr, *scale = nullptr;
  Q9Db_createCoding(other, u"c", 8, Q9_ENCODING_DIRECT, nullptr, &coding);
  Q9Db_createSignal(other, u"remote", 0, 0, 0, 0, coding, &s);
  place(s, signalPdu(frame(u"F", 1, 1)), 0);
  EXPECT_EQ(decoded(1, 0, {7}), " remote=7/0x7");
  Q9Db_createLinearComputation(other, nullptr, 2, 0, &scale);
  Q9Db_addRange(scale, 0, 255, 3);
  Q9Db_addInternalToPhysicalComputations(coding, 1, &scale);
  EXPECT_EQ(decoded(1, 0, {7}), " remote=7/14.000*");
  Q9Db_destroy(other);
}

// Readers build plans at the same time; every walk gives the same answer.
TEST_F(DecodePlanTest, ConcurrentWalksAgree) {
  for (uint32_t m = 0; m < 16; ++m) {
    Q9DbNode* pdu = signalPdu(frame(fresh(), 8, m));
    for (int32_t i = 0; i < 8; ++i) compute(field(fresh(), pdu, 8 * i, 8), linear(0.5, m), 0, 255);
  }
  const Bytes payload = {1, 2, 3, 4, 5, 6, 7, 8};
  std::vector<std::string> expected(16);
  for (uint32_t m = 0; m < 16; ++m) expected[m] = bothWays(m, 0, payload);
  noteChange(db());
  std::vector<std::thread> threads;
  std::vector<int> mismatches(4);
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([&, t] {
      for (int round = 0; round < 50; ++round)
        for (uint32_t m = 0; m < 16; ++m) mismatches[t] += decoded((m + t) % 16, 0, payload) != expected[(m + t) % 16];
    });
  for (std::thread& t : threads) t.join();
  EXPECT_EQ(mismatches, std::vector<int>(4, 0));
}

}  // namespace
}  // namespace q9::test
