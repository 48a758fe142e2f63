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
  unsigned char notADatabase[64] = {};
  writeTag(notADatabase, Frame::kNodeType);
  for (const FactoryRow& row : factoryRows()) {
    SCOPED_TRACE(row.name);
    // The ECU factory alone judges the handle before out.
    const bool ecu = std::string(row.name) == "ECU";
    EXPECT_EQ(row.make(node(notADatabase), nullptr), ecu ? E_INVALIDARG : E_POINTER);
    EXPECT_EQ(row.make(node(db()->reference), nullptr), ecu ? E_INVALIDARG : E_POINTER);
    EXPECT_EQ(row.make(nullptr, nullptr), E_POINTER);
    Q9DbNode* out = nullptr;
    EXPECT_EQ(row.make(node(notADatabase), &out), E_INVALIDARG);
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
  Q9DbNode *first = nullptr, *second = nullptr;
  EXPECT_EQ(Q9Db_createCluster(handle, u"CAN", 1, &first), S_OK);
  EXPECT_EQ(Q9Db_createCluster(handle, u"CAN", 3, &second), S_OK);
  EXPECT_EQ(listed(handle, Q9Db_enumClusters), Nodes{first});
  EXPECT_EQ(as<Cluster>(second)->group, nullptr);
  Q9DbNode* found = nullptr;
  EXPECT_EQ(Q9Db_findByElementId(handle, u"CAN", &found), S_OK);
  EXPECT_EQ(found, first);
  // Channels and triggerings need no id.
  Q9DbNode* channel = nullptr;
  EXPECT_EQ(Q9Db_createChannel(handle, nullptr, nullptr, &channel), S_OK);
  Q9DbNode* trig = nullptr;
  EXPECT_EQ(Q9Db_createIdentifierBasedTriggering(handle, nullptr, 0x100, 0, nullptr, nullptr,
                                                 nullptr, &trig),
            S_OK);
}

TEST_F(StoreTest, CollectionsStaySortedById) {
  for (const char16_t* id : {u"Zeta", u"alpha", u"Beta", u"gamma", u"Alpha", u"delta", u"Eta"}) {
    Q9DbNode* f = nullptr;
    ASSERT_EQ(Q9Db_createFrame(handle, id, 8, &f), S_OK);
  }
  std::vector<std::u16string> ids;
  for (void* f : listed(handle, Q9Db_enumFrames)) ids.push_back(as<Frame>(f)->eid);
  EXPECT_EQ(ids, (std::vector<std::u16string>{u"Alpha", u"Beta", u"Eta", u"Zeta", u"alpha",
                                              u"delta", u"gamma"}));
  auto* frames = static_cast<DatabaseCollections*>(db()->reference)->frames;
  Q9DbNode* out = nullptr;
  EXPECT_EQ(Q9Db_findChildByElementId(node(frames), u"delta", &out), S_OK);
  EXPECT_EQ(as<Frame>(out)->group, frames);
}

TEST_F(StoreTest, TriggeringLinksTakeOnlyTheRightClasses) {
  Q9DbNode *channel = nullptr, *frame = nullptr, *ecu = nullptr, *cluster = nullptr;
  ASSERT_EQ(Q9Db_createChannel(handle, u"ch", nullptr, &channel), S_OK);
  ASSERT_EQ(Q9Db_createFrame(handle, u"fr", 8, &frame), S_OK);
  ASSERT_EQ(Q9Db_createECU(handle, u"ecu", &ecu), S_OK);
  ASSERT_EQ(Q9Db_createCluster(handle, u"cl", 1, &cluster), S_OK);
  Q9DbNode* swapped = nullptr;
  EXPECT_EQ(Q9Db_createIdentifierBasedTriggering(handle, u"t0", 1, 0, channel, cluster, frame,
                                                 &swapped),
            S_OK);
  EXPECT_EQ(as<FrameTriggering>(swapped)->parent, nullptr);
  EXPECT_EQ(as<FrameTriggering>(swapped)->reference, nullptr);
  EXPECT_EQ(as<FrameTriggering>(swapped)->sourceEcu, nullptr) << "a cluster is no plain ECU";
  Q9DbNode* t = nullptr;
  EXPECT_EQ(Q9Db_createMaskedIdentifierTriggering(handle, u"t1", 0x7F0, 0x120,
                                                  Q9_FLAG_CANSTD_OR_EXT, frame, ecu, channel, &t),
            S_OK);
  EXPECT_EQ(listed(channel, Q9Db_enumFrameTriggerings), Nodes{t});
  EXPECT_EQ(listed(frame, Q9Db_enumFrameTriggerings), Nodes{t});
  EXPECT_EQ(valueOf(Q9Db_getChannel, t), channel);
  EXPECT_EQ(valueOf(Q9Db_getFrame, t), frame);
  EXPECT_EQ(valueOf(Q9Db_getSourceECU, t), ecu);
}

TEST_F(StoreTest, PduFactoriesLinkTheirCarriers) {
  Q9DbNode *frame = nullptr, *instance = nullptr, *pdu = nullptr;
  ASSERT_EQ(Q9Db_createFrame(handle, u"fr", 8, &frame), S_OK);
  ASSERT_EQ(Q9Db_createPDUInstance(handle, u"pi", 0, 0, -1, nullptr, frame, &instance), S_OK);
  ASSERT_EQ(Q9Db_createSignalPDU(handle, u"pdu", 64, instance, &pdu), S_OK);
  EXPECT_EQ(listed(pdu, Q9Db_enumParents), Nodes{instance});
  EXPECT_EQ(as<PDUInstance>(instance)->reference, as<ObjectBase>(pdu));
  EXPECT_EQ(listed(frame, Q9Db_enumPDUInstances), Nodes{instance});
  EXPECT_EQ(as<PDUInstance>(instance)->parent, as<ObjectBase>(frame));

  // A signal instance as "parent" is no carrier, but its reference is set.
  Q9DbNode *si = nullptr, *other = nullptr;
  ASSERT_EQ(Q9Db_createSignalInstance(handle, u"si", 0, 0, -1, nullptr, nullptr, &si), S_OK);
  EXPECT_EQ(Q9Db_createSignalPDU(handle, u"pdu2", 8, si, &other), S_OK);
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
  Q9DbNode *channel = nullptr, *pdu = nullptr, *t = nullptr, *u = nullptr;
  ASSERT_EQ(Q9Db_createChannel(handle, u"ch", nullptr, &channel), S_OK);
  ASSERT_EQ(Q9Db_createSignalPDU(handle, u"pdu", 8, nullptr, &pdu), S_OK);
  ASSERT_EQ(Q9Db_createPDUTriggering(handle, u"t", pdu, channel, &t), S_OK);
  EXPECT_EQ(as<PDUTriggering>(t)->reference, as<ObjectBase>(pdu));
  EXPECT_EQ(as<PDUTriggering>(t)->parent, as<ObjectBase>(channel));
  EXPECT_EQ(listed(channel, Q9Db_enumPDUTriggerings), Nodes{t});
  EXPECT_EQ(listed(pdu, Q9Db_enumPDUTriggerings), Nodes{t});
  // The channel first: it stands in reference too.
  ASSERT_EQ(Q9Db_createPDUTriggering(handle, u"u", channel, nullptr, &u), S_OK);
  EXPECT_EQ(as<PDUTriggering>(u)->reference, as<ObjectBase>(channel));
  EXPECT_EQ(as<PDUTriggering>(u)->parent, as<ObjectBase>(channel));
  Q9DbNode* bad = nullptr;
  EXPECT_EQ(Q9Db_createPDUTriggering(handle, u"v", handle, nullptr, &bad), E_INVALIDARG);
}

TEST_F(StoreTest, TimingsJoinTheirGroupInArrivalOrder) {
  Q9DbNode *pt = nullptr, *cyclic = nullptr, *event = nullptr, *frame = nullptr;
  ASSERT_EQ(Q9Db_createPDUTriggering(handle, u"t", nullptr, nullptr, &pt), S_OK);
  ASSERT_EQ(Q9Db_createCyclicTiming(handle, 100, pt, &cyclic), S_OK);
  ASSERT_EQ(Q9Db_createEventControlledTiming(handle, 20, pt, &event), S_OK);
  EXPECT_EQ(listed(pt, Q9Db_enumChildren), (Nodes{cyclic, event}));
  ASSERT_EQ(Q9Db_createFrame(handle, u"f", 8, &frame), S_OK);
  Q9DbNode* t = nullptr;
  EXPECT_EQ(Q9Db_createCyclicTiming(handle, 100, frame, &t), E_INVALIDARG);
  EXPECT_EQ(Q9Db_createCyclicTiming(handle, 100, nullptr, &t), S_OK);
}

TEST_F(StoreTest, SignalFactoriesLinkBothWays) {
  Q9DbNode *unit = nullptr, *coding = nullptr, *signal = nullptr, *pdu = nullptr, *si = nullptr;
  ASSERT_EQ(Q9Db_createUnitSpec(handle, u"rpm", 9, u"1/min", &unit), S_OK);
  ASSERT_EQ(Q9Db_createCoding(handle, u"c", 16, 0, unit, &coding), S_OK);
  ASSERT_EQ(Q9Db_createSignal(handle, u"speed", Q9_FLAG_SIGNALDEFAULT, 0, 0, 8000, coding, &signal),
            S_OK);
  ASSERT_EQ(Q9Db_createSignalPDU(handle, u"pdu", 64, nullptr, &pdu), S_OK);
  ASSERT_EQ(Q9Db_createSignalInstance(handle, u"si", 0, 8, -1, signal, pdu, &si), S_OK);
  EXPECT_EQ(listed(signal, Q9Db_enumSignalInstances), Nodes{si});
  EXPECT_EQ(listed(pdu, Q9Db_enumSignalInstances), Nodes{si});
  EXPECT_EQ(as<SignalInstance>(si)->parent, as<ObjectBase>(pdu));
  EXPECT_EQ(as<SignalInstance>(si)->reference, as<ObjectBase>(signal));
  EXPECT_EQ(valueOf(Q9Db_getUnit, signal), unit);
  const char16_t* name = nullptr;
  EXPECT_EQ(Q9Db_getDisplayName(unit, 1, 65535, &name), S_OK);
  EXPECT_EQ(std::u16string(name), u"1/min");
  // Codings and units of a wrong class are ignored.
  Q9DbNode* s2 = nullptr;
  ASSERT_EQ(Q9Db_createSignal(handle, u"s2", 0, 0, 0, 1, unit, &s2), S_OK);
  EXPECT_EQ(as<Signal>(s2)->reference, nullptr);
  Q9DbNode* si2 = nullptr;
  EXPECT_EQ(Q9Db_createSignalInstance(handle, u"si2", 0, 8, -1, signal, unit, &si2), E_INVALIDARG);
  EXPECT_EQ(listed(signal, Q9Db_enumSignalInstances), (Nodes{si, si2}));
}

TEST_F(StoreTest, GroupsAndReferencesTestTheirArgumentsFirst) {
  Q9DbNode* out = nullptr;
  unsigned char timing[16] = {};
  writeTag(timing, CyclicTiming::kNodeType);
  EXPECT_EQ(Q9Db_createElementGroup(handle, u"g", nullptr, node(timing), &out), E_INVALIDARG);
  EXPECT_EQ(out, nullptr) << "nothing made";
  Q9DbNode *group = nullptr, *view = nullptr, *ref = nullptr;
  ASSERT_EQ(Q9Db_createElementGroup(handle, u"g", nullptr, nullptr, &group), S_OK);
  ASSERT_EQ(Q9Db_createElementGroup(handle, u"v", group, group, &view), S_OK);
  EXPECT_EQ(listed(group, Q9Db_enumChildren), Nodes{view});
  EXPECT_EQ(as<ElementGroup>(view)->group, as<ElementGroup>(group));
  ASSERT_EQ(Q9Db_createElementReference(handle, u"r", view, &ref), S_OK);
  EXPECT_EQ(valueOf(Q9Db_getReference, ref), view);
  Q9DbNode* mt = nullptr;
  ASSERT_EQ(Q9Db_createMappedTextComputation(handle, u"mt", nullptr, &mt), S_OK);
  const char16_t* text = nullptr;
  EXPECT_EQ(Q9Db_getTextValue(handle, mt, 1, 2, &text), S_FALSE);
}

}  // namespace
}  // namespace q9::test
