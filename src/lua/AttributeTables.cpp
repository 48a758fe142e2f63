// One table per concrete class, built from four shared heads that widen down
// the class hierarchy, so each field is declared once per level. Readers copy
// fields out with memcpy, lists come back as iterators, and the class index
// is checked at compile time to be sorted for the halving search.
#include "lua/AttributeTables.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <iterator>

#include "lua/ListIterators.h"
#include "store/NodeClasses.h"
#include "store/Nodes.h"

// Field positions come from offsetof on the node records, which use plain
// single inheritance without virtual members: the layout is fixed.
#pragma GCC diagnostic ignored "-Winvalid-offsetof"

namespace q9::lua {
namespace {

template <class T>
T fieldAt(const unsigned char* field) {
  T value;
  std::memcpy(&value, field, sizeof value);
  return value;
}

int readNodeType(lua_State* L, const unsigned char* node) {
  lua_pushinteger(L, Q9Db_getNodeType(node));
  return 1;
}
int readClassName(lua_State* L, const unsigned char* node) {
  const char16_t* name = classNameW(readTag(node));
  if (name)
    pushWideText(L, name, 0);
  else
    lua_pushnil(L);
  return 1;
}
int readUnsigned(lua_State* L, const unsigned char* f) {
  lua_pushnumber(L, fieldAt<uint32_t>(f));
  return 1;
}
int readSigned(lua_State* L, const unsigned char* f) {
  lua_pushnumber(L, fieldAt<int32_t>(f));
  return 1;
}
int readParam(lua_State* L, const unsigned char* f) {  // low half, sign-extended
  lua_pushinteger(L, int32_t(uint32_t(fieldAt<uint64_t>(f))));
  return 1;
}
int readDouble(lua_State* L, const unsigned char* f) {
  lua_pushnumber(L, fieldAt<double>(f));
  return 1;
}
int read64(lua_State* L, const unsigned char* f) {
  pushUnsignedValue(L, fieldAt<uint64_t>(f));
  return 1;
}
int readText(lua_State* L, const unsigned char* f) {
  const auto* text = fieldAt<const char16_t*>(f);
  if (!text)
    lua_pushnil(L);
  else
    pushWideTextOrEmpty(L, text);
  return 1;
}
int readSlot(lua_State* L, const unsigned char* f) {
  pushStringSlot(L, fieldAt<Q9DbStringSlot*>(f));
  return 1;
}
int readNode(lua_State* L, const unsigned char* f) { return pushNode(L, fieldAt<const void*>(f)); }

PagedList* listAt(const unsigned char* f) {
  return reinterpret_cast<PagedList*>(const_cast<unsigned char*>(f));
}
int readNodeList(lua_State* L, const unsigned char* f) {
  pushNodeListIterator(L, listAt(f), &childLayout);
  return 1;
}
int readChildList(lua_State* L, const unsigned char* f) {
  pushNodeListIterator(L, listAt(f), &indexLayout);
  return 1;
}
int readSegments(lua_State* L, const unsigned char* f) {
  pushRecordIterator(L, listAt(f), &segmentLayout);
  return 1;
}
int readRanges(lua_State* L, const unsigned char* f) {
  pushRecordIterator(L, listAt(f), &rangeLayout);
  return 1;
}

#define Q9_AT(Class, field, reader) {#field, int32_t(offsetof(Class, field)), reader}
#define Q9_AS(name, Class, field, reader) {name, int32_t(offsetof(Class, field)), reader}
#define Q9_END {nullptr, 0, nullptr}

// The four heads that classes share, widening from the plainest record.
#define Q9_HEAD_A(C) {"nodetype", 0, readNodeType}, {"tag", 0, readClassName}
#define Q9_HEAD_B(C)                                                                      \
  Q9_HEAD_A(C), Q9_AT(C, databaseRef, readNode), Q9_AT(C, eid, readText), Q9_AT(C, group, readNode), \
      Q9_AT(C, param, readParam)
#define Q9_HEAD_C(C) \
  Q9_HEAD_B(C), Q9_AT(C, shortname, readText), Q9_AT(C, longname, readSlot), Q9_AT(C, description, readSlot)
#define Q9_HEAD_D(C) Q9_HEAD_C(C), Q9_AT(C, parent, readNode), Q9_AT(C, reference, readNode)

#define Q9_TRIGGERING_LINKS(C)                                                                     \
  Q9_AT(C, children, readChildList), Q9_AS("channel", C, parent, readNode),                        \
      Q9_AS("frame", C, reference, readNode), Q9_AT(C, sourceEcu, readNode), Q9_AT(C, flags, readUnsigned)

const AttributeEntry kElementReference[] = {Q9_HEAD_D(ElementReference), Q9_END};
const AttributeEntry kQ9Db[] = {Q9_HEAD_D(Q9Db), Q9_AS("collections", Q9Db, reference, readNode), Q9_END};
const AttributeEntry kElementGroup[] = {Q9_HEAD_D(ElementGroup), Q9_AT(ElementGroup, children, readChildList),
                                        Q9_END};
const AttributeEntry kDatabaseCollections[] = {
    Q9_HEAD_D(DatabaseCollections),
    Q9_AT(DatabaseCollections, children, readChildList),
    Q9_AT(DatabaseCollections, identElements, readNode),
    Q9_AT(DatabaseCollections, clusters, readNode),
    Q9_AT(DatabaseCollections, ECUs, readNode),
    Q9_AT(DatabaseCollections, PDUs, readNode),
    Q9_AT(DatabaseCollections, frames, readNode),
    Q9_AT(DatabaseCollections, signals, readNode),
    Q9_AT(DatabaseCollections, codings, readNode),
    Q9_AT(DatabaseCollections, views, readNode),
    Q9_END};
const AttributeEntry kCluster[] = {Q9_HEAD_D(Cluster), Q9_AT(Cluster, children, readChildList),
                                   Q9_AT(Cluster, clusterType, readSigned), Q9_END};
const AttributeEntry kAbsolutelyScheduledTriggering[] = {
    Q9_HEAD_D(AbsolutelyScheduledTriggering),
    Q9_TRIGGERING_LINKS(AbsolutelyScheduledTriggering),
    Q9_AT(AbsolutelyScheduledTriggering, slotId, readSigned),
    Q9_AT(AbsolutelyScheduledTriggering, baseCycle, readSigned),
    Q9_AT(AbsolutelyScheduledTriggering, repetition, readSigned),
    Q9_END};
const AttributeEntry kIdentifierBasedTriggering[] = {
    Q9_HEAD_D(IdentifierBasedTriggering), Q9_TRIGGERING_LINKS(IdentifierBasedTriggering),
    Q9_AT(IdentifierBasedTriggering, identifier, readSigned), Q9_END};
const AttributeEntry kMaskedIdentifierTriggering[] = {
    Q9_HEAD_D(MaskedIdentifierTriggering), Q9_TRIGGERING_LINKS(MaskedIdentifierTriggering),
    Q9_AT(MaskedIdentifierTriggering, mask, readUnsigned), Q9_AT(MaskedIdentifierTriggering, code, readUnsigned),
    Q9_END};
const AttributeEntry kPDUTriggering[] = {Q9_HEAD_D(PDUTriggering), Q9_AT(PDUTriggering, children, readChildList),
                                         Q9_END};
const AttributeEntry kSignalInstance[] = {
    Q9_HEAD_D(SignalInstance), Q9_AS("signal", SignalInstance, reference, readNode),
    Q9_AT(SignalInstance, byteOrder, readSigned), Q9_AT(SignalInstance, bitpos, readSigned),
    Q9_AT(SignalInstance, updateBitpos, readSigned), Q9_END};
const AttributeEntry kSignal[] = {Q9_HEAD_C(Signal),
                                  Q9_AT(Signal, signalInstances, readNodeList),
                                  Q9_AT(Signal, flags, readUnsigned),
                                  Q9_AT(Signal, defaultValue, readDouble),
                                  Q9_AT(Signal, minValue, readDouble),
                                  Q9_AT(Signal, maxValue, readDouble),
                                  Q9_AS("coding", Signal, reference, readNode),
                                  Q9_END};
const AttributeEntry kCoding[] = {Q9_HEAD_C(Coding),
                                  Q9_AS("unit", Coding, reference, readNode),
                                  Q9_AT(Coding, bitlen, readSigned),
                                  Q9_AT(Coding, encoding, readSigned),
                                  Q9_AT(Coding, internalToPhysicalCompus, readNodeList),
                                  Q9_AT(Coding, physicalToInternalCompus, readNodeList),
                                  Q9_END};
const AttributeEntry kPDUInstance[] = {Q9_HEAD_D(PDUInstance), Q9_AT(PDUInstance, byteOrder, readSigned),
                                       Q9_AT(PDUInstance, bitpos, readSigned),
                                       Q9_AT(PDUInstance, updateBitpos, readSigned), Q9_END};
const AttributeEntry kMultiplexedPart[] = {Q9_HEAD_D(MultiplexedPart),
                                           Q9_AT(MultiplexedPart, switchCode, readUnsigned),
                                           Q9_AT(MultiplexedPart, segments, readSegments), Q9_END};
const AttributeEntry kChannel[] = {Q9_HEAD_C(Channel),
                                   Q9_AT(Channel, parent, readNode),
                                   Q9_AT(Channel, frameTriggerings, readNodeList),
                                   Q9_AT(Channel, PDUTriggerings, readNodeList),
                                   Q9_AT(Channel, PDUInstances, readNodeList),
                                   Q9_END};
const AttributeEntry kFrame[] = {Q9_HEAD_C(Frame), Q9_AT(Frame, length, readSigned),
                                 Q9_AT(Frame, PDUInstances, readNodeList), Q9_END};
const AttributeEntry kUnitSpec[] = {Q9_HEAD_B(UnitSpec), Q9_AT(UnitSpec, displayName, readSlot), Q9_END};
const AttributeEntry kIdentityComputation[] = {Q9_HEAD_B(IdentityComputation),
                                               Q9_AT(IdentityComputation, ranges, readRanges), Q9_END};
const AttributeEntry kLinearComputation[] = {Q9_HEAD_B(LinearComputation),
                                             Q9_AT(LinearComputation, ranges, readRanges),
                                             Q9_AT(LinearComputation, scale, readDouble),
                                             Q9_AT(LinearComputation, offset, readDouble), Q9_END};
const AttributeEntry kMappedTextComputation[] = {Q9_HEAD_B(MappedTextComputation),
                                                 Q9_AT(MappedTextComputation, ranges, readRanges),
                                                 Q9_AT(MappedTextComputation, textvalue, readSlot), Q9_END};
const AttributeEntry kMappedValueComputation[] = {Q9_HEAD_B(MappedValueComputation),
                                                  Q9_AT(MappedValueComputation, ranges, readRanges),
                                                  Q9_AT(MappedValueComputation, value, readDouble), Q9_END};
const AttributeEntry kSignalPDU[] = {Q9_HEAD_C(SignalPDU),
                                     Q9_AT(SignalPDU, bitlen, readSigned),
                                     Q9_AT(SignalPDU, triggerings, readNodeList),
                                     Q9_AT(SignalPDU, parents, readNodeList),
                                     Q9_AT(SignalPDU, signalInstances, readNodeList),
                                     Q9_END};
const AttributeEntry kMultiplexedPDU[] = {Q9_HEAD_C(MultiplexedPDU),
                                          Q9_AT(MultiplexedPDU, bitlen, readSigned),
                                          Q9_AT(MultiplexedPDU, triggerings, readNodeList),
                                          Q9_AT(MultiplexedPDU, parents, readNodeList),
                                          Q9_AT(MultiplexedPDU, switchByteOrder, readSigned),
                                          Q9_AT(MultiplexedPDU, switchPosition, readSigned),
                                          Q9_AT(MultiplexedPDU, switchLength, readSigned),
                                          Q9_AT(MultiplexedPDU, defaultSwitchCode, readUnsigned),
                                          Q9_AT(MultiplexedPDU, dynamicParts, readNodeList),
                                          Q9_AT(MultiplexedPDU, staticPart, readNode),
                                          Q9_AT(MultiplexedPDU, elsePart, readNode),
                                          Q9_END};
const AttributeEntry kEventControlledTiming[] = {
    Q9_HEAD_A(EventControlledTiming), Q9_AT(EventControlledTiming, debounceTime, readSigned), Q9_END};
const AttributeEntry kCyclicTiming[] = {Q9_HEAD_A(CyclicTiming), Q9_AT(CyclicTiming, cycleTime, read64), Q9_END};
const AttributeEntry kSegment[] = {Q9_HEAD_A(Segment), Q9_AT(Segment, byteOrder, readSigned),
                                   Q9_AT(Segment, bitpos, readSigned), Q9_AT(Segment, bitlen, readSigned), Q9_END};
const AttributeEntry kValueRange[] = {Q9_HEAD_A(ValueRange), Q9_AT(ValueRange, lowerLimit, readDouble),
                                      Q9_AT(ValueRange, upperLimit, readDouble), Q9_AT(ValueRange, flags, readUnsigned),
                                      Q9_END};

struct ClassAttributes {
  uint32_t nodeType;
  const AttributeEntry* attributes;
};

#define Q9_CLASS(C) {C::kNodeType, k##C}
// Sorted by tag as a signed number, for the halving search.
constexpr ClassAttributes kClassAttributeIndex[] = {
    Q9_CLASS(ElementReference), Q9_CLASS(Q9Db), Q9_CLASS(ElementGroup), Q9_CLASS(DatabaseCollections),
    Q9_CLASS(Cluster), Q9_CLASS(AbsolutelyScheduledTriggering), Q9_CLASS(IdentifierBasedTriggering),
    Q9_CLASS(MaskedIdentifierTriggering), Q9_CLASS(PDUTriggering), Q9_CLASS(SignalInstance), Q9_CLASS(Signal),
    Q9_CLASS(Coding), Q9_CLASS(PDUInstance), Q9_CLASS(MultiplexedPart), Q9_CLASS(Channel), Q9_CLASS(Frame),
    Q9_CLASS(UnitSpec), Q9_CLASS(IdentityComputation), Q9_CLASS(LinearComputation),
    Q9_CLASS(MappedTextComputation), Q9_CLASS(MappedValueComputation), Q9_CLASS(SignalPDU),
    Q9_CLASS(MultiplexedPDU), Q9_CLASS(EventControlledTiming), Q9_CLASS(CyclicTiming), Q9_CLASS(Segment),
    Q9_CLASS(ValueRange)};
static_assert(std::size(kClassAttributeIndex) == 27, "one row per concrete class");

constexpr bool sortedBySignedTag() {
  for (std::size_t i = 1; i < std::size(kClassAttributeIndex); ++i)
    if (int32_t(kClassAttributeIndex[i - 1].nodeType) >= int32_t(kClassAttributeIndex[i].nodeType)) return false;
  return true;
}
static_assert(sortedBySignedTag(), "the index is searched by halving");

}  // namespace

const AttributeEntry* attributesOf(uint32_t nodeType) {
  const auto* end = std::end(kClassAttributeIndex);
  const auto* row = std::lower_bound(std::begin(kClassAttributeIndex), end, int32_t(nodeType),
                                     [](const ClassAttributes& r, int32_t t) { return int32_t(r.nodeType) < t; });
  return row != end && row->nodeType == nodeType ? row->attributes : nullptr;
}

}  // namespace q9::lua
