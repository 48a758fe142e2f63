// The factories: the order in which they test their arguments, running out
// of memory, and the links and collections each new node joins.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "StoreFixture.h"

namespace q9::test {
namespace {

struct FactoryRow {
  const char* name;
  std::function<HRESULT(Q9DbNode* db, Q9DbNode** out)> make;
};

// Each factory with an id that joins nothing it cannot join.
std::vector<FactoryRow> factoryRows() {
  return {
      {"Cluster", [](Q9DbNode* d, Q9DbNode** o) { return Q9Db_createCluster(d, u"c", 1, o); }},
      {"Channel", [](Q9DbNode* d, Q9DbNode** o) { return Q9Db_createChannel(d, u"ch", nullptr, o); }},
      {"Frame", [](Q9DbNode* d, Q9DbNode** o) { return Q9Db_createFrame(d, u"f", 8, o); }},
      {"AbsolutelyScheduledTriggering", [](Q9DbNode* d, Q9DbNode** o) { return Q9Db_createAbsolutelyScheduledTriggering(d, u"a", 1, 0, 1, 0, nullptr, nullptr, nullptr, o); }},
      {"IdentifierBasedTriggering", [](Q9DbNode* d, Q9DbNode** o) { return Q9Db_createIdentifierBasedTriggering(d, u"i", 1, 0, nullptr, nullptr, nullptr, o); }},
      {"MaskedIdentifierTriggering", [](Q9DbNode* d, Q9DbNode** o) { return Q9Db_createMaskedIdentifierTriggering(d, u"m", 1, 1, 0, nullptr, nullptr, nullptr, o); }},
      {"SignalPDU", [](Q9DbNode* d, Q9DbNode** o) { return Q9Db_createSignalPDU(d, u"p", 64, nullptr, o); }},
      {"MultiplexedPDU", [](Q9DbNode* d, Q9DbNode** o) { return Q9Db_createMultiplexedPDU(d, u"x", 64, 0, 0, 8, 0, nullptr, o); }},
      {"MultiplexedPart", [](Q9DbNode* d, Q9DbNode** o) { return Q9Db_createMultiplexedPart(d, u"xp", 1, nullptr, o); }},
      {"PDUInstance", [](Q9DbNode* d, Q9DbNode** o) { return Q9Db_createPDUInstance(d, u"pi", 0, 0, -1, nullptr, nullptr, o); }},
      {"PDUTriggering", [](Q9DbNode* d, Q9DbNode** o) { return Q9Db_createPDUTriggering(d, u"pt", nullptr, nullptr, o); }},
      {"EventControlledTiming", [](Q9DbNode* d, Q9DbNode** o) { return Q9Db_createEventControlledTiming(d, 10, nullptr, o); }},
      {"CyclicTiming", [](Q9DbNode* d, Q9DbNode** o) { return Q9Db_createCyclicTiming(d, 100, nullptr, o); }},
      {"ECU", [](Q9DbNode* d, Q9DbNode** o) { return Q9Db_createECU(d, u"e", o); }},
      {"Signal", [](Q9DbNode* d, Q9DbNode** o) { return Q9Db_createSignal(d, u"s", 0, 0, 0, 1, nullptr, o); }},
      {"SignalInstance", [](Q9DbNode* d, Q9DbNode** o) { return Q9Db_createSignalInstance(d, u"si", 0, 0, -1, nullptr, nullptr, o); }},
      {"Coding", [](Q9DbNode* d, Q9DbNode** o) { return Q9Db_createCoding(d, u"cg", 8, 0, nullptr, o); }},
      {"UnitSpec", [](Q9DbNode* d, Q9DbNode** o) { return Q9Db_createUnitSpec(d, u"u", 1, u"V", o); }},
      {"IdentityComputation", [](Q9DbNode* d, Q9DbNode** o) { return Q9Db_createIdentityComputation(d, u"ic", o); }},
      {"LinearComputation", [](Q9DbNode* d, Q9DbNode** o) { return Q9Db_createLinearComputation(d, u"lc", 2, 1, o); }},
      {"MappedValueComputation", [](Q9DbNode* d, Q9DbNode** o) { return Q9Db_createMappedValueComputation(d, u"mv", 3, o); }},
      {"MappedTextComputation", [](Q9DbNode* d, Q9DbNode** o) { return Q9Db_createMappedTextComputation(d, u"mt", nullptr, o); }},
      {"ElementGroup", [](Q9DbNode* d, Q9DbNode** o) { return Q9Db_createElementGroup(d, u"g", nullptr, nullptr, o); }},
      {"ElementReference", [](Q9DbNode* d, Q9DbNode** o) { return Q9Db_createElementReference(d, u"r", nullptr, o); }},
  };
}

TEST_F(StoreTest, EveryFactoryTestsOutThenHandle) {
  Tagged notADatabase(Frame::kNodeType);
  for (const FactoryRow& row : factoryRows()) {
    SCOPED_TRACE(row.name);
    // The ECU factory alone judges the handle before out.
    const bool ecu = std::string(row.name) == "ECU";
    EXPECT_EQ(row.make(notADatabase.node(), nullptr), ecu ? E_INVALIDARG : E_POINTER);
    EXPECT_EQ(row.make(node(db()->reference), nullptr), ecu ? E_INVALIDARG : E_POINTER);
    EXPECT_EQ(row.make(nullptr, nullptr), E_POINTER);
    Q9DbNode* out = nullptr;
    EXPECT_EQ(row.make(notADatabase.node(), &out), E_INVALIDARG);
    EXPECT_EQ(row.make(node(db()->reference), &out), E_INVALIDARG) << "collections are no handle";
    EXPECT_EQ(row.make(nullptr, &out), ecu ? E_POINTER : E_INVALIDARG);
    EXPECT_EQ(out, nullptr);
    ASSERT_EQ(row.make(handle, &out), S_OK);
    ASSERT_NE(out, nullptr);
    EXPECT_EQ(std::string(classNameA(readTag(out))), ecu ? "ElementGroup" : row.name);
  }
}

TEST_F(StoreTest, FactoriesSurviveRunningOutOfMemory) {
  for (const FactoryRow& row : factoryRows()) {
    Q9DbNode* out = nullptr;
    HRESULT hr;
    {
      platform::HeapFailureScope failing(0);
      hr = row.make(handle, &out);
    }
    // Either the node itself could not be made, or it was made and a later
    // step ran out; never a crash and never a half-written out.
    if (hr == E_OUTOFMEMORY && !out) continue;
    EXPECT_TRUE(SUCCEEDED(hr) || out) << row.name;
  }
}

TEST_F(StoreTest, CollectionFactoriesNeedAnIdAndKeepTheFirstHolder) {
  Q9DbNode* anonymous = nullptr;
  EXPECT_EQ(Q9Db_createCluster(handle, nullptr, 1, &anonymous), E_INVALIDARG);
  ASSERT_NE(anonymous, nullptr);
  EXPECT_EQ(as<Cluster>(anonymous)->group, nullptr);
  Q9DbNode *first = create(Q9Db_createCluster, u"CAN", 1), *second = create(Q9Db_createCluster, u"CAN", 3);
  EXPECT_EQ(listed(handle, Q9Db_enumClusters), Nodes{first});
  EXPECT_EQ(as<Cluster>(second)->group, nullptr);
  Q9DbNode* found = nullptr;
  EXPECT_EQ(Q9Db_findByElementId(handle, u"CAN", &found), S_OK);
  EXPECT_EQ(found, first);
  // Channels and triggerings need no id.
  create(Q9Db_createChannel, nullptr, nullptr);
  create(Q9Db_createIdentifierBasedTriggering, nullptr, 0x100, 0, nullptr, nullptr, nullptr);
}

TEST_F(StoreTest, CollectionsStaySortedById) {
  for (const char16_t* id : {u"Zeta", u"alpha", u"Beta", u"gamma", u"Alpha", u"delta", u"Eta"})
    create(Q9Db_createFrame, id, 8);
  std::vector<std::u16string> ids;
  for (void* f : listed(handle, Q9Db_enumFrames)) ids.push_back(as<Frame>(f)->eid);
  EXPECT_EQ(ids, (std::vector<std::u16string>{u"Alpha", u"Beta", u"Eta", u"Zeta", u"alpha",
                                              u"delta", u"gamma"}));
  Q9DbNode* out = nullptr;
  EXPECT_EQ(Q9Db_findChildByElementId(node(collections()->frames), u"delta", &out), S_OK);
  EXPECT_EQ(as<Frame>(out)->group, collections()->frames);
}

TEST_F(StoreTest, TriggeringLinksTakeOnlyTheRightClasses) {
  Q9DbNode* channel = create(Q9Db_createChannel, u"ch", nullptr);
  Q9DbNode* frame = create(Q9Db_createFrame, u"fr", 8);
  Q9DbNode* ecu = create(Q9Db_createECU, u"ecu");
  Q9DbNode* cluster = create(Q9Db_createCluster, u"cl", 1);
  auto* swapped = as<FrameTriggering>(
      create(Q9Db_createIdentifierBasedTriggering, u"t0", 1, 0, channel, cluster, frame));
  EXPECT_EQ(swapped->parent, nullptr);
  EXPECT_EQ(swapped->reference, nullptr);
  EXPECT_EQ(swapped->sourceEcu, nullptr) << "a cluster is no plain ECU";
  Q9DbNode* t = create(Q9Db_createMaskedIdentifierTriggering, u"t1", 0x7F0, 0x120, Q9_FLAG_CANSTD_OR_EXT,
                       frame, ecu, channel);
  EXPECT_EQ(listed(channel, Q9Db_enumFrameTriggerings), Nodes{t});
  EXPECT_EQ(listed(frame, Q9Db_enumFrameTriggerings), Nodes{t});
  EXPECT_EQ(valueOf(Q9Db_getChannel, t), channel);
  EXPECT_EQ(valueOf(Q9Db_getFrame, t), frame);
  EXPECT_EQ(valueOf(Q9Db_getSourceECU, t), ecu);
}

TEST_F(StoreTest, PduFactoriesLinkTheirCarriers) {
  Q9DbNode* frame = create(Q9Db_createFrame, u"fr", 8);
  Q9DbNode* instance = create(Q9Db_createPDUInstance, u"pi", 0, 0, -1, nullptr, frame);
  Q9DbNode* pdu = create(Q9Db_createSignalPDU, u"pdu", 64, instance);
  EXPECT_EQ(listed(pdu, Q9Db_enumParents), Nodes{instance});
  EXPECT_EQ(as<PDUInstance>(instance)->reference, as<ObjectBase>(pdu));
  EXPECT_EQ(listed(frame, Q9Db_enumPDUInstances), Nodes{instance});
  EXPECT_EQ(as<PDUInstance>(instance)->parent, as<ObjectBase>(frame));

  // A signal instance as "parent" is no carrier, but its reference is set.
  Q9DbNode* si = create(Q9Db_createSignalInstance, u"si", 0, 0, -1, nullptr, nullptr);
  Q9DbNode* other = create(Q9Db_createSignalPDU, u"pdu2", 8, si);
  EXPECT_TRUE(listed(other, Q9Db_enumParents).empty());
  EXPECT_EQ(as<SignalInstance>(si)->reference, as<ObjectBase>(other));
  // A frame cannot be a carrier and has no reference field.
  Q9DbNode* third = nullptr;
  EXPECT_EQ(Q9Db_createSignalPDU(handle, u"pdu3", 8, frame, &third), E_INVALIDARG);
  EXPECT_EQ(listed(handle, Q9Db_enumPDUs).size(), 3u);

  // A PDU instance owned by a wrong class keeps its parent but joins nothing.
  Q9DbNode* stray = nullptr;
  EXPECT_EQ(Q9Db_createPDUInstance(handle, u"pi2", 0, 0, -1, pdu, si, &stray), E_INVALIDARG);
  EXPECT_EQ(as<PDUInstance>(stray)->parent, as<ObjectBase>(si));
  EXPECT_EQ(listed(pdu, Q9Db_enumParents), Nodes{instance});
}

TEST_F(StoreTest, PduTriggeringLinksBothEnds) {
  Q9DbNode* channel = create(Q9Db_createChannel, u"ch", nullptr);
  Q9DbNode* pdu = create(Q9Db_createSignalPDU, u"pdu", 8, nullptr);
  Q9DbNode* t = create(Q9Db_createPDUTriggering, u"t", pdu, channel);
  EXPECT_EQ(as<PDUTriggering>(t)->reference, as<ObjectBase>(pdu));
  EXPECT_EQ(as<PDUTriggering>(t)->parent, as<ObjectBase>(channel));
  EXPECT_EQ(listed(channel, Q9Db_enumPDUTriggerings), Nodes{t});
  EXPECT_EQ(listed(pdu, Q9Db_enumPDUTriggerings), Nodes{t});
  // The channel first: it stands in reference too.
  Q9DbNode* u = create(Q9Db_createPDUTriggering, u"u", channel, nullptr);
  EXPECT_EQ(as<PDUTriggering>(u)->reference, as<ObjectBase>(channel));
  EXPECT_EQ(as<PDUTriggering>(u)->parent, as<ObjectBase>(channel));
  Q9DbNode* bad = nullptr;
  EXPECT_EQ(Q9Db_createPDUTriggering(handle, u"v", handle, nullptr, &bad), E_INVALIDARG);
}

TEST_F(StoreTest, TimingsJoinTheirGroupInArrivalOrder) {
  Q9DbNode* pt = create(Q9Db_createPDUTriggering, u"t", nullptr, nullptr);
  Q9DbNode* cyclic = create(Q9Db_createCyclicTiming, 100, pt);
  Q9DbNode* event = create(Q9Db_createEventControlledTiming, 20, pt);
  EXPECT_EQ(listed(pt, Q9Db_enumChildren), (Nodes{cyclic, event}));
  Q9DbNode* t = nullptr;
  EXPECT_EQ(Q9Db_createCyclicTiming(handle, 100, create(Q9Db_createFrame, u"f", 8), &t), E_INVALIDARG);
  create(Q9Db_createCyclicTiming, 100, nullptr);
}

TEST_F(StoreTest, SignalFactoriesLinkBothWays) {
  Q9DbNode* unit = create(Q9Db_createUnitSpec, u"rpm", 9, u"1/min");
  Q9DbNode* coding = create(Q9Db_createCoding, u"c", 16, 0, unit);
  Q9DbNode* signal = create(Q9Db_createSignal, u"speed", Q9_FLAG_SIGNALDEFAULT, 0, 0, 8000, coding);
  Q9DbNode* pdu = create(Q9Db_createSignalPDU, u"pdu", 64, nullptr);
  Q9DbNode* si = create(Q9Db_createSignalInstance, u"si", 0, 8, -1, signal, pdu);
  EXPECT_EQ(listed(signal, Q9Db_enumSignalInstances), Nodes{si});
  EXPECT_EQ(listed(pdu, Q9Db_enumSignalInstances), Nodes{si});
  EXPECT_EQ(as<SignalInstance>(si)->parent, as<ObjectBase>(pdu));
  EXPECT_EQ(as<SignalInstance>(si)->reference, as<ObjectBase>(signal));
  EXPECT_EQ(valueOf(Q9Db_getUnit, signal), unit);
  const char16_t* name = nullptr;
  EXPECT_EQ(Q9Db_getDisplayName(unit, 1, 65535, &name), S_OK);
  EXPECT_EQ(std::u16string(name), u"1/min");
  // Codings and units of a wrong class are ignored.
  EXPECT_EQ(as<Signal>(create(Q9Db_createSignal, u"s2", 0, 0, 0, 1, unit))->reference, nullptr);
  Q9DbNode* si2 = nullptr;
  EXPECT_EQ(Q9Db_createSignalInstance(handle, u"si2", 0, 8, -1, signal, unit, &si2), E_INVALIDARG);
  EXPECT_EQ(listed(signal, Q9Db_enumSignalInstances), (Nodes{si, si2}));
}

TEST_F(StoreTest, GroupsAndReferencesTestTheirArgumentsFirst) {
  Q9DbNode* out = nullptr;
  EXPECT_EQ(Q9Db_createElementGroup(handle, u"g", nullptr, Tagged(CyclicTiming::kNodeType).node(), &out),
            E_INVALIDARG);
  EXPECT_EQ(out, nullptr) << "nothing made";
  Q9DbNode* group = create(Q9Db_createElementGroup, u"g", nullptr, nullptr);
  Q9DbNode* view = create(Q9Db_createElementGroup, u"v", group, group);
  EXPECT_EQ(listed(group, Q9Db_enumChildren), Nodes{view});
  EXPECT_EQ(as<ElementGroup>(view)->group, as<ElementGroup>(group));
  EXPECT_EQ(valueOf(Q9Db_getReference, create(Q9Db_createElementReference, u"r", view)), view);
}

}  // namespace
}  // namespace q9::test
