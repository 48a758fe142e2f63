// The node classes: every class's number, tag, name and base, and the
// membership test Q9Db_isDerivedFrom over every pair of classes.
#include <gtest/gtest.h>

#include <cstring>

#include "StoreFixture.h"
#include "store/NodeClasses.h"
#include "store/NodeType.h"

namespace {

// The class tree with the tags clients and stored databases rely on, so
// none may change: number, tag, base class number.
struct FixedClass {
  int number;
  const char* name;
  uint32_t nodeType;
  int base;
};
const FixedClass kTree[] = {
    {1, "ObjectBase", 0x0125626F, 0}, {2, nullptr, 0x02207264, 1}, {3, "ElementId", 0x03206469, 2},
    {4, "ElementDetail", 0x04206465, 3}, {5, "ElementChild", 0x05166365, 4}, {6, "ElementReference", 0x06157265, 5},
    {7, "Q9Db", 0x07076264, 6}, {8, "ElementGroup", 0x08106765, 6}, {9, "DatabaseCollections", 0x09096364, 8},
    {10, "Cluster", 0x0A0A6C63, 8}, {11, "FrameTriggering", 0x0B0F7466, 8},
    {12, "TransmittableFrameTriggering", 0x0C0E6674, 11}, {13, "AbsolutelyScheduledTriggering", 0x0D0D7361, 12},
    {14, "IdentifierBasedTriggering", 0x0E0E6269, 12}, {15, "MaskedIdentifierTriggering", 0x0F0F696D, 11},
    {16, "PDUTriggering", 0x10107470, 8}, {17, "SignalInstance", 0x11116973, 6}, {18, "Signal", 0x12126773, 6},
    {19, "Coding", 0x13136763, 6}, {20, "PDUInstance", 0x14146970, 6}, {21, "MultiplexedPart", 0x15157478, 6},
    {22, "Channel", 0x16166863, 5}, {23, "Frame", 0x17177266, 4}, {24, "UnitSpec", 0x18186E75, 4},
    {25, "Computation", 0x191D6F63, 4}, {26, "IdentityComputation", 0x1A1A6369, 25},
    {27, "LinearComputation", 0x1B1B636C, 25}, {28, "MappedTextComputation", 0x1C1C746D, 25},
    {29, "MappedValueComputation", 0x1D1D766D, 25}, {30, "PDU", 0x1E206470, 4}, {31, "SignalPDU", 0x1F1F7370, 30},
    {32, "MultiplexedPDU", 0x20207578, 30}, {33, "Timing", 0x21236974, 1},
    {34, "EventControlledTiming", 0x22227465, 33}, {35, "CyclicTiming", 0x23237463, 33},
    {36, "Segment", 0x24247473, 1}, {37, "ValueRange", 0x25257276, 1},
};

bool descendsFrom(int number, int ancestor) {
  for (int n = number; n; n = kTree[n - 1].base)
    if (n == ancestor) return true;
  return false;
}

using TagBuffer = q9::test::Tagged;

TEST(NodeClasses, TableMatchesFixedTags) {
  for (const FixedClass& c : kTree) {
    SCOPED_TRACE(c.number);
    EXPECT_EQ(q9::kNodeClasses[c.number - 1].nodeType, c.nodeType);
    const char* name = q9::classNameA(c.nodeType);
    if (c.name)
      EXPECT_STREQ(name, c.name);
    else
      EXPECT_EQ(name, nullptr);
    TagBuffer b(c.nodeType);
    EXPECT_EQ(std::memcmp(b.bytes, &c.nodeType, 4), 0) << "tags are stored little-endian";
  }
  EXPECT_EQ(q9::classNameW(0x17177266), std::u16string_view(u"Frame"));
  EXPECT_EQ(q9::classNameA(0x17177267), nullptr);
}

TEST(NodeClasses, MembershipFollowsTheTreeForEveryPair) {
  for (const FixedClass& node : kTree) {
    TagBuffer b(node.nodeType);
    for (const FixedClass& cls : kTree) {
      const bool expected = descendsFrom(node.number, cls.number);
      EXPECT_EQ(Q9Db_isDerivedFrom(b.bytes, cls.nodeType & 0xFFFF), expected ? 1 : 0)
          << node.number << " in " << cls.number << " by code";
      EXPECT_EQ(Q9Db_isDerivedFrom(b.bytes, cls.nodeType), expected ? 1 : 0)
          << node.number << " in " << cls.number << " by tag";
    }
  }
}

TEST(NodeClasses, ClassificationOfNonNodes) {
  TagBuffer zero(0);
  TagBuffer tooHigh(0x26267A7A);  // last byte 38
  TagBuffer frame(0x17177266);
  EXPECT_EQ(Q9Db_getNodeType(nullptr), Q9_NODETYPE_InvalidNode);
  EXPECT_EQ(Q9Db_isValidNode(nullptr), E_INVALIDARG);
  EXPECT_EQ(Q9Db_isDerivedFrom(nullptr, 0x6F62), 0);
  EXPECT_EQ(Q9Db_getNodeType(zero.bytes), Q9_NODETYPE_InvalidNode);
  EXPECT_EQ(Q9Db_isValidNode(zero.bytes), S_FALSE);
  EXPECT_EQ(Q9Db_getNodeType(tooHigh.bytes), Q9_NODETYPE_InvalidNode);
  EXPECT_EQ(Q9Db_isValidNode(tooHigh.bytes), S_FALSE);
  EXPECT_EQ(Q9Db_getNodeType(frame.bytes), Q9_NODETYPE_Frame);
  EXPECT_EQ(Q9Db_isValidNode(frame.bytes), S_OK);
  // An unknown code matches nothing.
  EXPECT_EQ(Q9Db_isDerivedFrom(frame.bytes, 0x7A7A), 0);
}

}  // namespace
