// The list operations: the order in which they test their arguments, sorted
// and arrival-order lists, the back-references they set, and records.
#include <gtest/gtest.h>

#include <functional>
#include <vector>

#include "StoreFixture.h"

namespace q9::test {
namespace {

using ListOperation = HRESULT (*)(Q9DbNode*, uint64_t, Q9DbNode* const*);

class MemberListsTest : public StoreTest {
 protected:
  Q9DbNode* frame(const char16_t* id) { return create(Q9Db_createFrame, id, 8); }
  Q9DbNode* anonymous(uint32_t type) { return node(allocNode(db(), type)); }
};

// The order in which each operation tests its arguments, as seen from four
// probes: null owner, wrong owner with null array, right owner with null
// array, right owner with count zero.
TEST_F(MemberListsTest, ArgumentTestsComeInTheirOrder) {
  Q9DbNode* group = anonymous(ElementGroup::kNodeType);
  Q9DbNode* signal = anonymous(Signal::kNodeType);
  Q9DbNode* channel = anonymous(Channel::kNodeType);
  Q9DbNode* pdu = anonymous(SignalPDU::kNodeType);
  Q9DbNode* mux = anonymous(MultiplexedPDU::kNodeType);
  Q9DbNode* coding = anonymous(Coding::kNodeType);
  Q9DbNode* wrong = anonymous(UnitSpec::kNodeType);
  Q9DbNode* item = anonymous(Frame::kNodeType);
  struct Row {
    const char* name;
    ListOperation op;
    Q9DbNode* owner;
    HRESULT nullOwner, wrongOwnerNullArray, nullArray, countZero;
  } const rows[] = {
      {"insertChildren", Q9Db_insertChildren, group, E_INVALIDARG, E_INVALIDARG, E_POINTER, E_INVALIDARG},
      {"appendChildren", Q9Db_appendChildren, group, E_INVALIDARG, E_INVALIDARG, E_POINTER, S_OK},
      {"addClusters", Q9Db_addClusters, handle, E_POINTER, E_INVALIDARG, E_POINTER, E_INVALIDARG},
      {"addViews", Q9Db_addViews, node(db()->reference), E_POINTER, E_INVALIDARG, E_POINTER, E_INVALIDARG},
      {"addSignalInstances", Q9Db_addSignalInstances, signal, E_INVALIDARG, E_INVALIDARG, E_POINTER, S_OK},
      {"addFrameTriggerings", Q9Db_addFrameTriggerings, channel, E_INVALIDARG, E_INVALIDARG, E_POINTER, S_OK},
      {"addPDUTriggerings", Q9Db_addPDUTriggerings, pdu, E_INVALIDARG, E_INVALIDARG, E_POINTER, S_OK},
      {"addPDUInstances", Q9Db_addPDUInstances, channel, E_INVALIDARG, E_INVALIDARG, E_POINTER, S_OK},
      {"addParents", Q9Db_addParents, pdu, E_INVALIDARG, E_POINTER, E_POINTER, S_OK},
      {"addDynamicParts", Q9Db_addDynamicParts, mux, E_INVALIDARG, E_POINTER, E_POINTER, S_OK},
      {"addInternalToPhysicalComputations", Q9Db_addInternalToPhysicalComputations, coding, E_INVALIDARG, E_INVALIDARG, E_POINTER, S_OK},
      {"addPhysicalToInternalComputations", Q9Db_addPhysicalToInternalComputations, coding, E_INVALIDARG, E_INVALIDARG, E_POINTER, S_OK},
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(r.name);
    EXPECT_EQ(r.op(nullptr, 1, &item), r.nullOwner);
    EXPECT_EQ(r.op(wrong, 1, nullptr), r.wrongOwnerNullArray);
    EXPECT_EQ(r.op(r.owner, 1, nullptr), r.nullArray);
    EXPECT_EQ(r.op(r.owner, 0, &item), r.countZero);
  }
}

TEST_F(MemberListsTest, CollectionsTakeOnlyIdentifiedMembersOfTheirClass) {
  Q9DbNode* nameless = anonymous(Frame::kNodeType);
  EXPECT_EQ(Q9Db_addFrames(handle, 1, &nameless), E_INVALIDARG);
  Q9DbNode* good = anonymous(Frame::kNodeType);
  ASSERT_EQ(Q9Db_setElementId(good, u"good"), S_OK);
  Q9DbNode* mixed[] = {nullptr, good};
  EXPECT_EQ(Q9Db_addFrames(handle, 2, mixed), S_OK);
  EXPECT_EQ(listed(handle, Q9Db_enumFrames), Nodes{good});
  // Same id again: S_OK, the group does not grow.
  Q9DbNode* twin = anonymous(Frame::kNodeType);
  Q9Db_setElementId(twin, u"good");
  EXPECT_EQ(Q9Db_addFrames(handle, 1, &twin), S_OK);
  EXPECT_EQ(listed(handle, Q9Db_enumFrames).size(), 1u);
  EXPECT_EQ(as<Frame>(twin)->group, nullptr);
  // An ECU can be any group, a cluster too; a frame is no ECU.
  Q9DbNode* cluster = create(Q9Db_createCluster, u"bus", 1);
  EXPECT_EQ(Q9Db_addECUs(handle, 1, &cluster), S_OK);
  EXPECT_EQ(listed(handle, Q9Db_enumECUs), Nodes{cluster});
  Q9DbNode* f = frame(u"f2");
  EXPECT_EQ(Q9Db_addECUs(handle, 1, &f), E_INVALIDARG);
}

TEST_F(MemberListsTest, SortedAndArrivalOrderChildren) {
  Q9DbNode* group = anonymous(ElementGroup::kNodeType);
  Q9DbNode* b = frame(u"b");
  Q9DbNode* a = frame(u"a");
  Q9DbNode* timing = anonymous(CyclicTiming::kNodeType);
  Q9DbNode* twice[] = {b, a, b};
  EXPECT_EQ(Q9Db_insertChildren(group, 3, twice), S_OK);
  EXPECT_EQ(listed(group, Q9Db_enumChildren), (Nodes{a, b}));
  Q9DbNode* found = nullptr;
  EXPECT_EQ(Q9Db_findChildByElementId(group, u"b", &found), S_OK);
  EXPECT_EQ(found, b);
  EXPECT_EQ(as<Frame>(a)->group, as<ElementGroup>(group));

  Q9DbNode* arrival = anonymous(ElementGroup::kNodeType);
  Q9DbNode* nameless = anonymous(Frame::kNodeType);
  Q9DbNode* items[] = {b, a, b, nameless, timing};
  EXPECT_EQ(Q9Db_appendChildren(arrival, 5, items), S_OK);
  EXPECT_EQ(listed(arrival, Q9Db_enumChildren), (Nodes{b, a, b, nameless, timing}));
  EXPECT_EQ(as<Frame>(nameless)->group, as<ElementGroup>(arrival));
  // Only light nodes or elements without id: nothing counted by insert.
  Q9DbNode* none[] = {nameless};
  EXPECT_EQ(Q9Db_insertChildren(group, 1, none), E_INVALIDARG);
  // Light nodes have no id: they are appended.
  Q9DbNode* timings = anonymous(ElementGroup::kNodeType);
  Q9DbNode* light[] = {timing, timing};
  EXPECT_EQ(Q9Db_insertChildren(timings, 2, light), S_OK);
  EXPECT_EQ(listed(timings, Q9Db_enumChildren), (Nodes{timing, timing}));
}

TEST_F(MemberListsTest, BackReferencesOfArrivalLists) {
  Q9DbNode* si = anonymous(SignalInstance::kNodeType);
  Q9DbNode* pdu = anonymous(SignalPDU::kNodeType);
  Q9DbNode* signal = anonymous(Signal::kNodeType);
  EXPECT_EQ(Q9Db_addSignalInstances(pdu, 1, &si), S_OK);
  EXPECT_EQ(Q9Db_addSignalInstances(signal, 1, &si), S_OK);
  EXPECT_EQ(as<SignalInstance>(si)->parent, as<ObjectBase>(pdu));
  EXPECT_EQ(as<SignalInstance>(si)->reference, as<ObjectBase>(signal));

  Q9DbNode* ft = anonymous(IdentifierBasedTriggering::kNodeType);
  Q9DbNode* channel = anonymous(Channel::kNodeType);
  Q9DbNode* f = anonymous(Frame::kNodeType);
  Q9DbNode* stray = anonymous(Coding::kNodeType);
  Q9DbNode* items[] = {stray, ft};
  EXPECT_EQ(Q9Db_addFrameTriggerings(channel, 2, items), S_OK);
  EXPECT_EQ(Q9Db_addFrameTriggerings(f, 2, items), S_OK);
  EXPECT_EQ(listed(channel, Q9Db_enumFrameTriggerings), Nodes{ft});
  EXPECT_EQ(as<FrameTriggering>(ft)->parent, as<ObjectBase>(channel));
  EXPECT_EQ(as<FrameTriggering>(ft)->reference, as<ObjectBase>(f));

  Q9DbNode* pi = anonymous(PDUInstance::kNodeType);
  Q9DbNode* part = anonymous(MultiplexedPart::kNodeType);
  Q9DbNode* carriers[] = {pi, part, stray};
  EXPECT_EQ(Q9Db_addParents(pdu, 3, carriers), S_OK);
  EXPECT_EQ(listed(pdu, Q9Db_enumParents), (Nodes{pi, part}));
  EXPECT_EQ(as<PDUInstance>(pi)->reference, nullptr) << "addParents keeps no back-reference";

  Q9DbNode* coding = anonymous(Coding::kNodeType);
  Q9DbNode* linear = anonymous(LinearComputation::kNodeType);
  EXPECT_EQ(Q9Db_addInternalToPhysicalComputations(coding, 1, &linear), S_OK);
  EXPECT_EQ(listed(coding, Q9Db_enumInternalToPhysicalComputations), Nodes{linear});
  EXPECT_TRUE(listed(coding, Q9Db_enumPhysicalToInternalComputations).empty());
}

TEST_F(MemberListsTest, DynamicPartsAreSortedBySwitchCodeWithoutDuplicates) {
  Q9DbNode* mux = anonymous(MultiplexedPDU::kNodeType);
  std::vector<Q9DbNode*> parts;
  for (uint32_t code : {3u, 1u, 2u, 0xFFFFFFFFu, 0x80000000u}) {
    Q9DbNode* p = anonymous(MultiplexedPart::kNodeType);
    as<MultiplexedPart>(p)->switchCode = code;
    parts.push_back(p);
  }
  EXPECT_EQ(Q9Db_addDynamicParts(mux, 3, parts.data()), S_OK);
  EXPECT_EQ(listed(mux, Q9Db_enumDynamicParts), (Nodes{parts[1], parts[2], parts[0]}));
  Q9DbNode* duplicate = anonymous(MultiplexedPart::kNodeType);
  as<MultiplexedPart>(duplicate)->switchCode = 2;
  EXPECT_EQ(Q9Db_addDynamicParts(mux, 1, &duplicate), S_OK);
  EXPECT_EQ(listed(mux, Q9Db_enumDynamicParts).size(), 3u);
  EXPECT_EQ(as<MultiplexedPart>(duplicate)->parent, nullptr);
  EXPECT_EQ(as<MultiplexedPart>(parts[0])->parent, as<ObjectBase>(mux));
}

TEST_F(MemberListsTest, SegmentsAndRangesAreRecordsThatStayPut) {
  Q9DbNode* part = anonymous(MultiplexedPart::kNodeType);
  for (int i = 0; i < 8; ++i) ASSERT_EQ(Q9Db_addSegment(part, i & 1, i * 8, 4), S_OK);
  Q9DbNode* linear = anonymous(LinearComputation::kNodeType);
  ASSERT_EQ(Q9Db_addRange(linear, -10, 10, Q9_FLAG_SIGNALDEFAULT), S_OK);
  Nodes first = listed(linear, Q9Db_enumRanges);
  for (int i = 0; i < 10; ++i) ASSERT_EQ(Q9Db_addRange(linear, i, i + 1, 0), S_OK);
  Nodes ranges = listed(linear, Q9Db_enumRanges);
  ASSERT_EQ(ranges.size(), 11u);
  EXPECT_EQ(ranges[0], first[0]) << "records never move";
  EXPECT_EQ(Q9Db_getNodeType(ranges[0]), Q9_NODETYPE_ValueRange);
  EXPECT_EQ(valueOf(Q9Db_getLowerLimit, ranges[0]), -10);
  EXPECT_EQ(valueOf(Q9Db_getFlags, ranges[0]), Q9_FLAG_SIGNALDEFAULT);
  Nodes segments = listed(part, Q9Db_enumSegments);
  ASSERT_EQ(segments.size(), 8u);
  EXPECT_EQ(valueOf(Q9Db_getBitPosition, segments[7]), 56);
  EXPECT_EQ(Q9Db_addSegment(linear, 0, 0, 1), E_INVALIDARG);
  EXPECT_EQ(Q9Db_addRange(part, 0, 1, 0), E_INVALIDARG);
}

TEST_F(MemberListsTest, PartAndSignalSetters) {
  Q9DbNode* mux = anonymous(MultiplexedPDU::kNodeType);
  Q9DbNode* part = anonymous(MultiplexedPart::kNodeType);
  Q9DbNode* f = anonymous(Frame::kNodeType);
  EXPECT_EQ(Q9Db_setStaticPart(mux, f), E_INVALIDARG);
  EXPECT_EQ(as<MultiplexedPDU>(mux)->staticPart, nullptr);
  EXPECT_EQ(Q9Db_setStaticPart(mux, part), S_OK);
  EXPECT_EQ(Q9Db_setElsePart(mux, part), S_OK);
  EXPECT_EQ(valueOf(Q9Db_getElsePart, mux), part);
  EXPECT_EQ(as<MultiplexedPart>(part)->parent, as<ObjectBase>(mux));

  Q9DbNode* si = anonymous(SignalInstance::kNodeType);
  EXPECT_EQ(Q9Db_setSignal(si, f), E_INVALIDARG);
  EXPECT_EQ(as<SignalInstance>(si)->reference, as<ObjectBase>(f)) << "written before the test";
  Q9DbNode* signal = anonymous(Signal::kNodeType);
  EXPECT_EQ(Q9Db_setSignal(si, signal), S_OK);
  EXPECT_EQ(Q9Db_setSignal(si, signal), S_OK);
  EXPECT_EQ(listed(signal, Q9Db_enumSignalInstances), (Nodes{si, si}));
  Q9DbNode* pdu = anonymous(SignalPDU::kNodeType);
  EXPECT_EQ(Q9Db_setSignal(si, pdu), S_OK);
  EXPECT_EQ(as<SignalInstance>(si)->parent, as<ObjectBase>(pdu));
}

}  // namespace
}  // namespace q9::test
