// Whole-frame decoding against the walk over the nodes: every record of
// Q9Db_decodeFrame and Q9Db_decodeFrames, by plans or not, bit for bit, on
// random and realistic networks and across changes to the database; and
// the answers the interface promises for cut and invalid calls.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <map>

#include "../bench/GeneratedNetwork.h"
#include "DecoderFixture.h"
#include "codec/WholeFrameDecoding.h"
#include "store/Accelerators.h"

namespace q9::test {
namespace {

using Records = std::vector<Q9DbSignalRecord>;
constexpr uint32_t kRoom = 600;

std::string describe(const Records& records) {
  std::string out;
  for (const Q9DbSignalRecord& r : records) {
    char line[200];
    std::snprintf(line, sizeof line, "\n  #%u %p %p %p raw=%llx physical=%.17g text=%p kind=%u", r.message,
                  static_cast<void*>(r.triggering), static_cast<void*>(r.instance), static_cast<void*>(r.signal),
                  static_cast<unsigned long long>(r.raw), r.physical, static_cast<void*>(r.text), r.kind);
    out += line;
  }
  return out;
}

// Bit for bit, NaNs included.
bool same(const Records& a, const Records& b) {
  return a.size() == b.size() && (a.empty() || std::memcmp(a.data(), b.data(), a.size() * sizeof a[0]) == 0);
}

Q9DbMessage messageOf(uint32_t identifier, uint32_t flags, const Bytes& payload) {
  return {identifier, flags, payload.size(), payload.empty() ? nullptr : payload.data()};
}

Records decodeFrame(Q9DbNode* channel, const Q9DbMessage& m) {
  Records records(kRoom);
  uint32_t count = 0;
  EXPECT_EQ(Q9Db_decodeFrame(channel, m.identifier, m.flags, m.length, m.payload, records.data(), kRoom, &count), S_OK);
  records.resize(count);
  return records;
}

// The plain way with no plan to read: the room full.
Records byNodes(Q9DbNode* db, Q9DbNode* channel, const Q9DbMessage& m) {
  noteChange(asDatabase(db));
  while (claimAccelerator(asDatabase(db), 16)) {
  }
  Records records(kRoom);
  uint32_t count = 0;
  EXPECT_EQ(decodeRecordsByWalk(channel, m, 0, records.data(), kRoom, count), RecordsOutcome::Written);
  records.resize(count);
  noteChange(asDatabase(db));
  return records;
}

class WholeFrameDecodingTest : public DecoderTest {
 protected:
  // A message of the random network: mostly of a frame's length, now and
  // then another length, identifier or frame type, which nothing or only a
  // mask matches.
  Q9DbMessage randomMessage(RandomChoice& next, const std::vector<uint64_t>& frameLengths, Bytes& payload) {
    const uint32_t m = uint32_t(next(frameLengths.size()));
    payload.resize(next(6) ? frameLengths[m] : next(21));
    for (uint8_t& b : payload) b = uint8_t(next(256));
    const uint32_t identifier = 0x100 + m + (next(4) ? 0 : 0x600);
    return messageOf(identifier, next(8) ? 0 : Q9_FLAG_CANEXTENDED, payload);
  }

  // How the plans answered, so that a test can tell they were used.
  std::map<RecordsOutcome, int> planned;

  void expectAsTheNodes(const Q9DbMessage& m, const char* when) {
    Records byPlans(kRoom);
    uint32_t count = 0;
    const RecordsOutcome outcome = decodeRecordsByPlans(*as<Channel>(channel), m, 0, byPlans.data(), kRoom, count);
    ++planned[outcome];
    byPlans.resize(count);
    const Records decoded = decodeFrame(channel, m);
    const Records reference = byNodes(handle, channel, m);
    EXPECT_TRUE(same(decoded, reference))
        << when << std::hex << " identifier " << m.identifier << "\nexport:" << describe(decoded)
        << "\nwalk over the nodes:" << describe(reference);
    if (outcome == RecordsOutcome::Written) {
      EXPECT_TRUE(same(byPlans, reference)) << when << describe(byPlans);
    }
  }
};

// Every kind of field, coding and multiplexing, messages that match one,
// two (by identifier and under a mask) or no triggering; then with PDU
// instances of the channel's own, decoded from every message.
TEST_F(WholeFrameDecodingTest, RecordsAreTheWalksOnARandomNetwork) {
  RandomChoice next(11);
  const std::vector<uint64_t> frameLengths = randomNetwork(next);
  Bytes payload;
  for (int round = 0; round < 400; ++round) {
    if (round == 300) {
      field(u"own", signalPdu(channel, 8), 0, 12, BE);
      field(u"ownText", signalPdu(channel, 0), 0, 16, Q9_BYTEORDER_LITTLEENDIAN, Q9_ENCODING_ASCII);
    }
    expectAsTheNodes(randomMessage(next, frameLengths, payload), round < 300 ? "" : "with the channel's PDUs");
  }
  EXPECT_GT(planned[RecordsOutcome::Written], 250) << "most messages decode by plans";
  EXPECT_GT(planned[RecordsOutcome::NeedsWalk], 0) << "nested multiplexing goes back to the walk";
}

// A change between two calls is seen by the second: each row changes what
// the plans of the first had compiled.
TEST_F(WholeFrameDecodingTest, AChangeBetweenCallsIsSeen) {
  RandomChoice next(5);
  const std::vector<uint64_t> frameLengths = randomNetwork(next);
  Q9DbNode* wide = signal(u"wide", 32, Q9_ENCODING_2COMPL);
  const std::function<void(const Q9DbSignalRecord&)> changes[] = {
      [&](const Q9DbSignalRecord& r) { compute(r.signal, linear(-0.5, 7), -1e300, 1e300); },
      [&](const Q9DbSignalRecord& r) { Q9Db_setSignal(r.instance, wide); },
      [&](const Q9DbSignalRecord& r) { compute(r.signal, text("changed"), 0, 1e300); },
  };
  Bytes payload;
  int changed = 0;
  for (int round = 0; round < 300; ++round) {
    const Q9DbMessage m = randomMessage(next, frameLengths, payload);
    const Records before = decodeFrame(channel, m);
    if (before.empty()) continue;
    changes[round % 3](before[next(before.size())]);
    ++changed;
    expectAsTheNodes(m, "after a change");
  }
  EXPECT_GT(changed, 100);
}

// Codings at the edges of the plan's dense form (scale * x + offset on
// doubles), which must give what the integer sums and the general
// conversion give, or leave the field to them.
TEST_F(WholeFrameDecodingTest, ScalingsAtTheEdgesOfTheDenseForm) {
  struct Row {
    int32_t bits;
    uint32_t encoding;
    double scale, offset;  // scale 0: an identity
    double lower, upper;
  };
  const double all = 1e300, one = 1 + std::ldexp(1.0, -52);
  const Row rows[] = {
      {52, Q9_ENCODING_DIRECT, 1, 3, -all, all},      {60, Q9_ENCODING_DIRECT, 1, 3, -all, all},
      {12, Q9_ENCODING_DIRECT, 1, -40.5, -all, all},  {16, Q9_ENCODING_2COMPL, one, 7.25, -all, all},
      {16, Q9_ENCODING_2COMPL, one, 7, -all, all},    {12, Q9_ENCODING_DIRECT, 1, std::ldexp(1.0, 60), -all, all},
      {64, Q9_ENCODING_2COMPL, 0.1, -5, -all, all},   {63, Q9_ENCODING_DIRECT, 0.1, 0, -all, all},
      {64, Q9_ENCODING_DIRECT, 0.5, 0, -all, all},    {8, Q9_ENCODING_DIRECT, 0.5, 1, 0, 200},
      {3, Q9_ENCODING_2COMPL, 0.5, 1, -3, 2},         {20, Q9_ENCODING_DIRECT, 0, 0, -all, all},
      {60, Q9_ENCODING_2COMPL, 0, 0, -all, all},      {4, Q9_ENCODING_DIRECT, 0, 0, 1, 9},
  };
  uint32_t identifier = 0x200;
  for (const Row& row : rows) {
    Q9DbNode* s = field(fresh(), signalPdu(frame(fresh(), 8, identifier++)), 0, row.bits, Q9_BYTEORDER_LITTLEENDIAN,
                        row.encoding);
    compute(s, row.scale == 0 ? create(Q9Db_createIdentityComputation, nullptr) : linear(row.scale, row.offset),
            row.lower, row.upper);
  }
  RandomChoice next(3);
  Bytes payload(8);
  for (int round = 0; round < 200; ++round)
    for (uint32_t id = 0x200; id < identifier; ++id) {
      // Now and then the ends of the field's values.
      const int shape = int(next(4));
      for (uint8_t& b : payload) b = shape == 0 ? 0 : shape == 1 ? 0xFF : uint8_t(next(256));
      expectAsTheNodes(messageOf(id, 0, payload), "edges");
    }
}

// The network the benchmarks decode, all of it: CAN FD lengths, big-endian
// fields, multiplexed frames and the masked diagnostic frame.
TEST(WholeFrameDecoding, RecordsAreTheWalksOnTheBenchmarkNetwork) {
  const q9bench::GeneratedNetwork network(3, q9bench::NetworkShape{60, 25, 30, 20, 20});
  const auto frames = network.receivedFrames(600, 9);
  Q9DbMessage batch[600];
  Records expected;
  for (size_t i = 0; i < frames.size(); ++i) {
    const q9bench::ReceivedFrame& f = frames[i];
    batch[i] = {f.identifier, f.flags, f.length, f.payload};
    const Records reference = byNodes(network.database(), network.channel(), batch[i]);
    const Records decoded = decodeFrame(network.channel(), batch[i]);
    ASSERT_TRUE(same(decoded, reference)) << i << "\nexport:" << describe(decoded) << "\nwalk:" << describe(reference);
    for (Q9DbSignalRecord r : reference) {
      r.message = uint32_t(i);
      expected.push_back(r);
    }
  }
  // The batch, whole and in pieces of at most 100 records.
  Records all(expected.size());
  uint32_t decoded = 0, count = 0;
  ASSERT_EQ(Q9Db_decodeFrames(network.channel(), batch, 600, all.data(), uint32_t(all.size()), &decoded, &count), S_OK);
  EXPECT_EQ(decoded, 600u);
  EXPECT_TRUE(same(all, expected));
  Records pieces;
  for (uint32_t first = 0; first < 600; first += decoded) {
    Records piece(100);
    const HRESULT hr =
        Q9Db_decodeFrames(network.channel(), batch + first, 600 - first, piece.data(), 100, &decoded, &count);
    ASSERT_EQ(hr, first + decoded == 600 ? S_OK : S_FALSE);
    ASSERT_GT(decoded, 0u);
    for (uint32_t i = 0; i < count; ++i) {
      piece[i].message += first;
      pieces.push_back(piece[i]);
    }
  }
  EXPECT_TRUE(same(pieces, expected));
}

// What the interface promises for calls that are cut short or invalid.
TEST_F(WholeFrameDecodingTest, CutAndInvalidCalls) {
  Q9DbNode* f = frame(u"F", 2, 0x10);
  Q9DbNode* pdu = signalPdu(f);
  field(u"a", pdu, 0, 8);
  field(u"b", pdu, 8, 8);
  frame(u"Empty", 0, 0x11);
  const uint8_t payload[2] = {1, 2};
  const Q9DbMessage one{0x10, 0, 2, payload}, unknown{0x99, 0, 2, payload}, cut{0x10, 0, 1, payload},
      empty{0x11, 0, 0, nullptr}, nullPayload{0x10, 0, 2, nullptr};
  const Q9DbMessage two[] = {one, one}, mixed[] = {one, nullPayload};
  Q9DbSignalRecord records[4];
  constexpr uint32_t U = 99;  // untouched
  // Single rows go to Q9Db_decodeFrame with their one message, batch rows
  // to Q9Db_decodeFrames.
  const struct {
    const char* what;
    bool batch;
    Q9DbNode* target;
    const Q9DbMessage* messages;
    uint32_t messageCount;
    Q9DbSignalRecord* room;
    uint32_t capacity;
    HRESULT expected;
    uint32_t count, decoded;
  } rows[] = {
      {"all records", false, channel, &one, 1, records, 4, S_OK, 2, U},
      {"one record of two", false, channel, &one, 1, records, 1, S_FALSE, 1, U},
      {"no room", false, channel, &one, 1, nullptr, 0, S_FALSE, 0, U},
      {"no room, no record due", false, channel, &unknown, 1, nullptr, 0, S_OK, 0, U},
      {"no triggering takes it", false, channel, &cut, 1, records, 4, S_OK, 0, U},
      {"no payload, no length", false, channel, &empty, 1, records, 4, S_OK, 0, U},
      {"no payload with a length", false, channel, &nullPayload, 1, records, 4, E_INVALIDARG, U, U},
      {"no records with a capacity", false, channel, &one, 1, nullptr, 4, E_INVALIDARG, U, U},
      {"a frame for the channel", false, f, &one, 1, records, 4, E_INVALIDARG, U, U},
      {"no channel", false, nullptr, &one, 1, records, 4, E_INVALIDARG, U, U},
      {"batch: all", true, channel, two, 2, records, 4, S_OK, 4, 2},
      {"batch: the first message only", true, channel, two, 2, records, 3, S_FALSE, 2, 1},
      {"batch: none fits", true, channel, two, 2, records, 1, E_INVALIDARG, 0, 0},
      {"batch: empty", true, channel, nullptr, 0, nullptr, 0, S_OK, 0, 0},
      {"batch: no messages with a count", true, channel, nullptr, 2, records, 4, E_INVALIDARG, U, U},
      {"batch: a message without its payload", true, channel, mixed, 2, records, 4, E_INVALIDARG, 0, 0},
      {"batch: a frame for the channel", true, f, two, 2, records, 4, E_INVALIDARG, U, U},
  };
  for (const auto& r : rows) {
    SCOPED_TRACE(r.what);
    uint32_t count = U, decoded = U;
    const Q9DbMessage m = r.batch ? Q9DbMessage{} : *r.messages;
    EXPECT_EQ(r.batch ? Q9Db_decodeFrames(r.target, r.messages, r.messageCount, r.room, r.capacity, &decoded, &count)
                      : Q9Db_decodeFrame(r.target, m.identifier, m.flags, m.length, m.payload, r.room, r.capacity,
                                         &count),
              r.expected);
    EXPECT_EQ(count, r.count);
    EXPECT_EQ(decoded, r.decoded);
  }
  uint32_t count = U;
  EXPECT_EQ(Q9Db_decodeFrame(channel, 0x10, 0, 2, payload, records, 4, nullptr), E_INVALIDARG) << "no count";
  EXPECT_EQ(Q9Db_decodeFrames(channel, two, 2, records, 4, nullptr, &count), E_INVALIDARG) << "no decoded";
  EXPECT_EQ(count, U);
  // A cut message keeps the records it has, in the walk's order.
  ASSERT_EQ(Q9Db_decodeFrame(channel, 0x10, 0, 2, payload, records, 1, &count), S_FALSE);
  EXPECT_EQ(records[0].raw, 1u);
  EXPECT_EQ(records[0].message, 0u);
}

}  // namespace
}  // namespace q9::test
