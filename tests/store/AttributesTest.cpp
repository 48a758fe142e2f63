// The attribute accessors: which classes each takes, which field each reads
// and writes, and how names, texts, links and units are found.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "StoreFixture.h"

namespace q9::test {
namespace {

using Classes = std::vector<int>;
Classes span(int first, int last) {
  Classes c;
  for (int i = first; i <= last; ++i) c.push_back(i);
  return c;
}
Classes operator+(Classes a, const Classes& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

// A call of a getter that takes only an out.
template <typename T>
std::function<HRESULT(Q9DbNode*, Q9DbNode*)> getter(HRESULT (*get)(Q9DbNode*, T*)) {
  return [get](Q9DbNode* self, Q9DbNode*) {
    T out;
    return get(self, &out);
  };
}

struct AccessorRow {
  const char* name;
  Classes accepted;
  std::function<HRESULT(Q9DbNode* self, Q9DbNode* db)> call;
};

// Which classes each accessor takes. Anything else must answer E_INVALIDARG
// and leave the node alone.
std::vector<AccessorRow> accessorRows() {
  static const char16_t* textOut;
  auto refOrSelf = [](Q9DbNode* self) {
    Q9DbNode* current = nullptr;
    Q9Db_getReference(self, &current);
    return current ? current : self;
  };
  return {
      {"getDatabaseRef", span(2, 32), getter(Q9Db_getDatabaseRef)},
      {"getElementId", span(3, 32), getter(Q9Db_getElementId)},
      {"setElementId", span(3, 32), [](Q9DbNode* s, Q9DbNode*) { return Q9Db_setElementId(s, u"renamed"); }},
      {"getGroup", span(3, 32), getter(Q9Db_getGroup)},
      {"getParam", span(3, 32), getter(Q9Db_getParam)},
      {"setParam", span(3, 32), [](Q9DbNode* s, Q9DbNode*) { return Q9Db_setParam(s, 42); }},
      {"setShortName", span(4, 32), [](Q9DbNode* s, Q9DbNode*) { return Q9Db_setShortName(s, u"sn"); }},
      {"getShortName", span(4, 32), getter(Q9Db_getShortName)},
      {"setLongName", span(4, 32), [](Q9DbNode* s, Q9DbNode*) { return Q9Db_setLongName(s, 1, u"ln"); }},
      {"getLongName", span(4, 32), [](Q9DbNode* s, Q9DbNode*) { return Q9Db_getLongName(s, 1, 2, &textOut); }},
      {"setDescription", span(4, 32), [](Q9DbNode* s, Q9DbNode*) { return Q9Db_setDescription(s, 1, u"d"); }},
      {"getDescription", span(4, 32), [](Q9DbNode* s, Q9DbNode*) { return Q9Db_getDescription(s, 1, 2, &textOut); }},
      {"setElementDetail", span(4, 32), [](Q9DbNode* s, Q9DbNode*) { return Q9Db_setElementDetail(s, 1, u"l", u"d"); }},
      {"getElementDetail", span(4, 32), [](Q9DbNode* s, Q9DbNode*) { return Q9Db_getElementDetail(s, 1, 2, &textOut, nullptr); }},
      {"setDisplayName", {24}, [](Q9DbNode* s, Q9DbNode*) { return Q9Db_setDisplayName(s, 1, u"km/h"); }},
      {"getDisplayName", {24}, [](Q9DbNode* s, Q9DbNode*) { return Q9Db_getDisplayName(s, 1, 2, &textOut); }},
      {"getTextValue", {28}, [](Q9DbNode* s, Q9DbNode* db) { return Q9Db_getTextValue(db, s, 1, 2, &textOut); }},
      {"setParent", span(5, 22), [](Q9DbNode* s, Q9DbNode*) { return Q9Db_setParent(s, s); }},
      {"getParent", span(5, 22), getter(Q9Db_getParent)},
      // The database's own reference (class 7) is its collections link and fixed.
      {"setReference", Classes{6} + span(8, 21), [refOrSelf](Q9DbNode* s, Q9DbNode*) { return Q9Db_setReference(s, refOrSelf(s)); }},
      {"getReference", span(6, 21), getter(Q9Db_getReference)},
      {"setFrame", span(11, 15), [](Q9DbNode* s, Q9DbNode*) { return Q9Db_setFrame(s, nullptr); }},
      {"getFrame", span(11, 15), getter(Q9Db_getFrame)},
      {"setChannel", span(11, 15), [](Q9DbNode* s, Q9DbNode*) { return Q9Db_setChannel(s, nullptr); }},
      {"getChannel", span(11, 15), getter(Q9Db_getChannel)},
      {"setSourceECU", span(11, 15), [](Q9DbNode* s, Q9DbNode*) { return Q9Db_setSourceECU(s, nullptr); }},
      {"getSourceECU", span(11, 15), getter(Q9Db_getSourceECU)},
      {"getStaticPart", {32}, getter(Q9Db_getStaticPart)},
      {"getElsePart", {32}, getter(Q9Db_getElsePart)},
      {"getUnit", Classes{19, 24} + span(6, 21), getter(Q9Db_getUnit)},
      {"setClusterType", {10}, [](Q9DbNode* s, Q9DbNode*) { return Q9Db_setClusterType(s, 1); }},
      {"getClusterType", {10}, getter(Q9Db_getClusterType)},
      {"getFlags", span(11, 15) + Classes{18, 37}, getter(Q9Db_getFlags)},
      {"getSlotId", {13}, getter(Q9Db_getSlotId)},
      {"getCycleOffset", {13}, getter(Q9Db_getCycleOffset)},
      {"getRepetition", {13}, getter(Q9Db_getRepetition)},
      {"getIdentifier", {14}, getter(Q9Db_getIdentifier)},
      {"getIdentifierMask", {15}, getter(Q9Db_getIdentifierMask)},
      {"getIdentifierCode", {15}, getter(Q9Db_getIdentifierCode)},
      {"getByteOrder", {17, 20, 36}, getter(Q9Db_getByteOrder)},
      {"getBitPosition", {17, 20, 36}, getter(Q9Db_getBitPosition)},
      {"getUpdateBitPosition", {17, 20}, getter(Q9Db_getUpdateBitPosition)},
      {"getBitLength", Classes{19, 36} + span(30, 32), getter(Q9Db_getBitLength)},
      {"getDefaultValue", {18}, getter(Q9Db_getDefaultValue)},
      {"getMinValue", {18}, getter(Q9Db_getMinValue)},
      {"getMaxValue", {18}, getter(Q9Db_getMaxValue)},
      {"getEncoding", {19}, getter(Q9Db_getEncoding)},
      {"getSwitchCode", {21}, getter(Q9Db_getSwitchCode)},
      {"getLength", {23}, getter(Q9Db_getLength)},
      {"getScale", {27}, getter(Q9Db_getScale)},
      {"getOffset", {27}, getter(Q9Db_getOffset)},
      {"getValue", {29}, getter(Q9Db_getValue)},
      {"getUnusedBytePattern", span(30, 32), getter(Q9Db_getUnusedBytePattern)},
      {"getSwitchByteOrder", {32}, getter(Q9Db_getSwitchByteOrder)},
      {"getSwitchPosition", {32}, getter(Q9Db_getSwitchPosition)},
      {"getSwitchLength", {32}, getter(Q9Db_getSwitchLength)},
      {"getDefaultSwitchCode", {32}, getter(Q9Db_getDefaultSwitchCode)},
      {"getDebounceTime", {34}, getter(Q9Db_getDebounceTime)},
      {"getCycletime", {35}, getter(Q9Db_getCycletime)},
      {"getLowerLimit", {37}, getter(Q9Db_getLowerLimit)},
      {"getUpperLimit", {37}, getter(Q9Db_getUpperLimit)},
  };
}

TEST_F(StoreTest, EveryAccessorTakesExactlyItsClasses) {
  for (const AccessorRow& row : accessorRows()) {
    for (int number : concreteClassNumbers()) {
      void* self = makeByNumber(number);
      const HRESULT hr = row.call(node(self), handle);
      const bool accepted =
          std::find(row.accepted.begin(), row.accepted.end(), number) != row.accepted.end();
      if (accepted)
        EXPECT_TRUE(hr == S_OK || hr == S_FALSE) << row.name << " on class " << number << ": " << hr;
      else
        EXPECT_EQ(hr, E_INVALIDARG) << row.name << " on class " << number;
    }
    EXPECT_EQ(row.call(nullptr, handle), E_INVALIDARG) << row.name << " on null";
  }
}

TEST_F(StoreTest, NullOutsAreRefused) {
  auto* f = make<Frame>();
  auto* coding = make<Coding>();
  EXPECT_EQ(Q9Db_getLength(node(f), nullptr), E_INVALIDARG);
  EXPECT_EQ(Q9Db_getShortName(node(f), nullptr), E_INVALIDARG);
  EXPECT_EQ(Q9Db_getLongName(node(f), 1, 2, nullptr), E_INVALIDARG);
  EXPECT_EQ(Q9Db_getUnit(node(coding), nullptr), E_INVALIDARG);
  EXPECT_EQ(Q9Db_getBitLength(node(coding), nullptr), E_INVALIDARG);
  EXPECT_EQ(Q9Db_getElementDetail(node(f), 1, 2, nullptr, nullptr), E_UNEXPECTED);
}

// Each getter reads its own field: the fields of a node hold distinct values.
TEST_F(StoreTest, ValuesAreReadFromTheirOwnFields) {
  auto* instance = make<SignalInstance>();
  instance->byteOrder = 1, instance->bitpos = 12, instance->updateBitpos = 7;
  auto* placement = make<PDUInstance>();
  placement->byteOrder = 0, placement->bitpos = 32, placement->updateBitpos = 3;
  Segment segment{};
  writeTag(&segment, Segment::kNodeType);
  segment.byteOrder = 1, segment.bitpos = 40, segment.bitlen = 16;
  auto* trig = make<MaskedIdentifierTriggering>();
  trig->mask = 0x7F0, trig->code = 0x120, trig->flags = Q9_FLAG_CANEXTENDED;
  auto* cyclic = make<CyclicTiming>();
  cyclic->cycleTime = 0x1'0000'0064ull;
  auto* cluster = make<Cluster>();
  ASSERT_EQ(Q9Db_setClusterType(node(cluster), Q9_CLUSTERTYPE_LIN), S_OK);
  ASSERT_EQ(Q9Db_setParam(node(cluster), 0xFFFF'0000'1234'5678ull), S_OK);
  const struct {
    uint64_t read, expected;
  } rows[] = {
      {uint64_t(valueOf(Q9Db_getByteOrder, instance)), 1},
      {uint64_t(valueOf(Q9Db_getBitPosition, instance)), 12},
      {uint64_t(valueOf(Q9Db_getUpdateBitPosition, instance)), 7},
      {uint64_t(valueOf(Q9Db_getBitPosition, placement)), 32},
      {uint64_t(valueOf(Q9Db_getUpdateBitPosition, placement)), 3},
      {uint64_t(valueOf(Q9Db_getByteOrder, &segment)), 1},
      {uint64_t(valueOf(Q9Db_getBitPosition, &segment)), 40},
      {uint64_t(valueOf(Q9Db_getBitLength, &segment)), 16},
      {valueOf(Q9Db_getIdentifierMask, trig), 0x7F0},
      {valueOf(Q9Db_getIdentifierCode, trig), 0x120},
      {valueOf(Q9Db_getFlags, trig), Q9_FLAG_CANEXTENDED},
      {valueOf(Q9Db_getCycletime, cyclic), 0x1'0000'0064ull},
      {uint64_t(valueOf(Q9Db_getClusterType, cluster)), Q9_CLUSTERTYPE_LIN},
      {valueOf(Q9Db_getParam, cluster), 0xFFFF'0000'1234'5678ull},
  };
  for (std::size_t i = 0; i < std::size(rows); ++i) EXPECT_EQ(rows[i].read, rows[i].expected) << "row " << i;
}

TEST_F(StoreTest, NamesFallBackToTheId) {
  auto* f = make<Frame>();
  const char16_t* out = u"x";
  EXPECT_EQ(Q9Db_getShortName(node(f), &out), S_FALSE);
  EXPECT_EQ(out, nullptr);
  ASSERT_EQ(registerElementId(db(), u"EngineData", f), S_OK);
  EXPECT_EQ(std::u16string(valueOf(Q9Db_getShortName, f)), u"EngineData");
  ASSERT_EQ(Q9Db_setShortName(node(f), u"Engine"), S_OK);
  EXPECT_EQ(std::u16string(valueOf(Q9Db_getShortName, f)), u"Engine");
  ASSERT_EQ(Q9Db_setShortName(node(f), nullptr), S_OK);
  EXPECT_EQ(std::u16string(valueOf(Q9Db_getShortName, f)), u"EngineData");
  // Clearing the id does not touch the index entry.
  EXPECT_EQ(Q9Db_setElementId(node(f), nullptr), S_OK);
  EXPECT_EQ(valueOf(Q9Db_getElementId, f), nullptr);
}

TEST_F(StoreTest, LongNamesAndDescriptions) {
  auto* s = make<Signal>();
  const char16_t* out = u"x";
  EXPECT_EQ(Q9Db_getLongName(node(s), 1, 2, &out), S_FALSE);
  EXPECT_EQ(out, nullptr);
  EXPECT_EQ(Q9Db_setLongName(node(s), 1, u""), S_OK);
  EXPECT_EQ(s->longname, nullptr) << "an empty text makes no slot";
  ASSERT_EQ(Q9Db_setElementDetail(node(s), 7, u"Drehzahl", u"Motordrehzahl"), S_OK);
  ASSERT_EQ(Q9Db_setLongName(node(s), 9, u"speed"), S_OK);
  const char16_t* lname = nullptr;
  const char16_t* desc = nullptr;
  EXPECT_EQ(Q9Db_getElementDetail(node(s), 9, 65535, &lname, &desc), S_OK);
  EXPECT_EQ(std::u16string(lname), u"speed");
  EXPECT_EQ(std::u16string(desc), u"Motordrehzahl");
  EXPECT_EQ(Q9Db_setElementDetail(node(s), 7, nullptr, u"d"), E_UNEXPECTED);
  ASSERT_EQ(Q9Db_setLongName(node(s), 9, nullptr), S_OK);
  out = nullptr;
  EXPECT_EQ(Q9Db_getLongName(node(s), 9, 2, &out), S_FALSE);

  auto* unit = make<UnitSpec>();
  EXPECT_EQ(Q9Db_setDisplayName(node(unit), 1, nullptr), E_INVALIDARG);
  ASSERT_EQ(Q9Db_setDisplayName(node(unit), 1, u"km/h"), S_OK);
  out = nullptr;
  EXPECT_EQ(Q9Db_getDisplayName(node(unit), 5, 65535, &out), S_OK);
  EXPECT_EQ(std::u16string(out), u"km/h");

  auto* mapped = make<MappedTextComputation>();
  out = u"x";
  EXPECT_EQ(Q9Db_getTextValue(handle, node(mapped), 1, 2, &out), S_FALSE);
  EXPECT_EQ(out, nullptr);
  Q9DbStringSlot* slot = nullptr;
  ASSERT_EQ(Q9Db_stringCreateSlot(handle, 1, u"Off", &slot), S_OK);
  mapped->textvalue = reinterpret_cast<StringSlot*>(slot);
  EXPECT_EQ(Q9Db_getTextValue(handle, node(mapped), 1, 2, &out), S_OK);
  EXPECT_EQ(std::u16string(out), u"Off");
  EXPECT_EQ(Q9Db_getTextValue(node(mapped), node(mapped), 1, 2, &out), E_INVALIDARG);
}

TEST_F(StoreTest, LinkSettersCheckTheirValues) {
  auto* trig = make<IdentifierBasedTriggering>();
  auto* frame = make<Frame>();
  auto* channel = make<Channel>();
  auto* cluster = make<Cluster>();
  auto* ecu = make<ElementGroup>();
  EXPECT_EQ(Q9Db_setFrame(node(trig), node(channel)), E_FAIL);
  EXPECT_EQ(Q9Db_setFrame(node(trig), node(frame)), S_OK);
  EXPECT_EQ(valueOf(Q9Db_getFrame, trig), node(frame));
  EXPECT_EQ(Q9Db_setChannel(node(trig), node(frame)), E_FAIL);
  EXPECT_EQ(Q9Db_setChannel(node(trig), node(channel)), S_OK);
  EXPECT_EQ(valueOf(Q9Db_getChannel, trig), node(channel));
  EXPECT_EQ(valueOf(Q9Db_getParent, trig), node(channel)) << "channel and parent are one field";
  EXPECT_EQ(Q9Db_setSourceECU(node(trig), node(frame)), E_FAIL);
  EXPECT_EQ(Q9Db_setSourceECU(node(trig), node(cluster)), S_OK);
  EXPECT_EQ(Q9Db_setFrame(node(frame), node(frame)), E_INVALIDARG) << "owner class comes first";
  EXPECT_EQ(Q9Db_setFrame(node(trig), nullptr), S_OK);
  EXPECT_EQ(valueOf(Q9Db_getFrame, trig), nullptr);

  EXPECT_EQ(Q9Db_setGroup(node(frame), node(cluster)), S_OK);
  EXPECT_EQ(Q9Db_setGroup(node(frame), node(channel)), S_FALSE);
  EXPECT_EQ(valueOf(Q9Db_getGroup, frame), node(cluster)) << "a refused group leaves the old one";
  EXPECT_EQ(Q9Db_setGroup(node(frame), nullptr), S_OK);
  EXPECT_EQ(valueOf(Q9Db_getGroup, frame), nullptr);

  // A frame has no parent: its length stands there.
  frame->length = 8;
  EXPECT_EQ(Q9Db_setParent(node(frame), node(ecu)), E_INVALIDARG);
  EXPECT_EQ(frame->length, 8);
  EXPECT_EQ(Q9Db_setParent(node(channel), nullptr), E_INVALIDARG);
  EXPECT_EQ(Q9Db_setParent(node(channel), Tagged(CyclicTiming::kNodeType).node()), E_INVALIDARG);
  EXPECT_EQ(Q9Db_setReference(node(ecu), node(frame)), S_OK);
}

TEST_F(StoreTest, UnitsThroughCodings) {
  auto* unit = make<UnitSpec>();
  auto* coding = make<Coding>();
  auto* signal = make<Signal>();
  EXPECT_EQ(valueOf(Q9Db_getUnit, signal), nullptr) << "no coding: no unit";
  coding->reference = unit;
  signal->reference = coding;
  for (void* n : Nodes{signal, coding, unit}) EXPECT_EQ(valueOf(Q9Db_getUnit, n), node(unit));
}

// The database's reference is its collections node; neither a setter nor a
// factory that links a PDU to its "parent" may rewrite it.
TEST_F(StoreTest, DatabaseKeepsItsCollectionsLink) {
  Q9DbNode* frame = create(Q9Db_createFrame, u"f", 8);
  Q9DbNode* pdu = nullptr;
  EXPECT_EQ(Q9Db_setReference(handle, frame), E_INVALIDARG);
  EXPECT_EQ(Q9Db_createSignalPDU(handle, u"p", 64, handle, &pdu), E_INVALIDARG);
  EXPECT_EQ(valueOf(Q9Db_getDatabaseCollections, handle), node(collections()));
  EXPECT_EQ(Q9Db_findByElementId(handle, u"p", &pdu), S_OK) << "the PDU was made all the same";
}

}  // namespace
}  // namespace q9::test
