// The node records. Each class adds its fields to its base's, in declaration
// order; the class number interval travels as the static kNodeType of each
// record so that tests and allocation are derived from one place.
#pragma once

#include <cstdint>

#include "store/NodeType.h"
#include "store/PagedList.h"

namespace q9 {

struct Allocator;
struct StringStore;
struct StringSlot;
struct Q9Db;
struct ElementGroup;
struct MultiplexedPart;
struct TriggeringIndex;
struct AcceleratorRoom;
struct BlockDirectories;
struct Gathering;

#define Q9_NODE_CLASS(Name, l1, l2, first, last) \
  static constexpr uint32_t kNodeType = makeNodeType(l1, l2, first, last); \
  static constexpr uint8_t kFirst = first; \
  static constexpr uint8_t kLast = last

struct ObjectBase {
  Q9_NODE_CLASS(ObjectBase, 'o', 'b', 1, 37);
  uint32_t nodeType;
};

struct DatabaseRef : ObjectBase {
  Q9_NODE_CLASS(DatabaseRef, 'd', 'r', 2, 32);
  Q9Db* databaseRef;
};

struct ElementId : DatabaseRef {
  Q9_NODE_CLASS(ElementId, 'i', 'd', 3, 32);
  const char16_t* eid;
  ElementGroup* group;
  uint64_t param;
};

struct ElementDetail : ElementId {
  Q9_NODE_CLASS(ElementDetail, 'e', 'd', 4, 32);
  const char16_t* shortname;
  StringSlot* longname;
  StringSlot* description;
};

struct ElementChild : ElementDetail {
  Q9_NODE_CLASS(ElementChild, 'e', 'c', 5, 22);
  // `channel` on frame triggerings.
  ObjectBase* parent;
};

struct ElementReference : ElementChild {
  Q9_NODE_CLASS(ElementReference, 'e', 'r', 6, 21);
  // `frame`, `collections`, `signal`, `coding`, `unit` or the PDU, by class.
  ObjectBase* reference;
};

struct Q9Db : ElementReference {
  Q9_NODE_CLASS(Q9Db, 'd', 'b', 7, 7);
  Allocator* allocator;
  StringStore* stringStore;
  // What readers compile from the nodes; emptied by every change.
  AcceleratorRoom* accelerators;
  // Directories over the blocks of long sorted lists; see BlockDirectory.h.
  BlockDirectories* directories;
  // New ids, texts and collection members kept aside during a bulk import;
  // see Gathering.h. Null otherwise.
  Gathering* gathering;
};

struct ElementGroup : ElementReference {
  Q9_NODE_CLASS(ElementGroup, 'e', 'g', 8, 16);
  PagedList children;
};

struct DatabaseCollections : ElementGroup {
  Q9_NODE_CLASS(DatabaseCollections, 'd', 'c', 9, 9);
  ElementGroup* identElements;
  ElementGroup* clusters;
  ElementGroup* ECUs;
  ElementGroup* PDUs;
  ElementGroup* frames;
  ElementGroup* signals;
  ElementGroup* codings;
  ElementGroup* views;
};

struct Cluster : ElementGroup {
  Q9_NODE_CLASS(Cluster, 'c', 'l', 10, 10);
  int32_t clusterType;
};

struct FrameTriggering : ElementGroup {
  Q9_NODE_CLASS(FrameTriggering, 'f', 't', 11, 15);
  ElementGroup* sourceEcu;
  uint32_t flags;
};

struct TransmittableFrameTriggering : FrameTriggering {
  Q9_NODE_CLASS(TransmittableFrameTriggering, 't', 'f', 12, 14);
};

struct AbsolutelyScheduledTriggering : TransmittableFrameTriggering {
  Q9_NODE_CLASS(AbsolutelyScheduledTriggering, 'a', 's', 13, 13);
  int32_t slotId;
  int32_t baseCycle;
  int32_t repetition;
};

struct IdentifierBasedTriggering : TransmittableFrameTriggering {
  Q9_NODE_CLASS(IdentifierBasedTriggering, 'i', 'b', 14, 14);
  uint32_t identifier;
};

struct MaskedIdentifierTriggering : FrameTriggering {
  Q9_NODE_CLASS(MaskedIdentifierTriggering, 'm', 'i', 15, 15);
  uint32_t code;
  uint32_t mask;
};

struct PDUTriggering : ElementGroup {
  Q9_NODE_CLASS(PDUTriggering, 'p', 't', 16, 16);
};

struct SignalInstance : ElementReference {
  Q9_NODE_CLASS(SignalInstance, 's', 'i', 17, 17);
  int32_t byteOrder;
  int32_t bitpos;
  int32_t updateBitpos;
};

struct Signal : ElementReference {
  Q9_NODE_CLASS(Signal, 's', 'g', 18, 18);
  PagedList signalInstances;
  uint32_t flags;
  double defaultValue;
  double minValue;
  double maxValue;
};

struct Coding : ElementReference {
  Q9_NODE_CLASS(Coding, 'c', 'g', 19, 19);
  int32_t bitlen;
  uint32_t encoding;
  PagedList internalToPhysicalCompus;
  PagedList physicalToInternalCompus;
  // The decoding computations compiled, published by the first decoder that
  // needs them (see Accelerators.h); null when there are none.
  void* compiledDecoding;
};

struct PDUInstance : ElementReference {
  Q9_NODE_CLASS(PDUInstance, 'p', 'i', 20, 20);
  int32_t byteOrder;
  int32_t bitpos;
  int32_t updateBitpos;
};

struct MultiplexedPart : ElementReference {
  Q9_NODE_CLASS(MultiplexedPart, 'x', 't', 21, 21);
  uint32_t switchCode;
  PagedList segments;
};

struct Channel : ElementChild {
  Q9_NODE_CLASS(Channel, 'c', 'h', 22, 22);
  PagedList frameTriggerings;
  PagedList PDUTriggerings;
  PagedList PDUInstances;
  // frameTriggerings by identifier, for the decoder; null until the first.
  TriggeringIndex* triggeringIndex;
};

struct Frame : ElementDetail {
  Q9_NODE_CLASS(Frame, 'f', 'r', 23, 23);
  int32_t length;
  PagedList frameTriggerings;
  PagedList PDUInstances;
};

struct UnitSpec : ElementDetail {
  Q9_NODE_CLASS(UnitSpec, 'u', 'n', 24, 24);
  StringSlot* displayName;
};

struct Computation : ElementDetail {
  Q9_NODE_CLASS(Computation, 'c', 'o', 25, 29);
  PagedList ranges;
};

struct IdentityComputation : Computation {
  Q9_NODE_CLASS(IdentityComputation, 'i', 'c', 26, 26);
};

struct LinearComputation : Computation {
  Q9_NODE_CLASS(LinearComputation, 'l', 'c', 27, 27);
  double scale;
  double offset;
};

struct MappedTextComputation : Computation {
  Q9_NODE_CLASS(MappedTextComputation, 'm', 't', 28, 28);
  StringSlot* textvalue;
};

struct MappedValueComputation : Computation {
  Q9_NODE_CLASS(MappedValueComputation, 'm', 'v', 29, 29);
  double value;
};

struct PDU : ElementDetail {
  Q9_NODE_CLASS(PDU, 'p', 'd', 30, 32);
  int32_t bitlen;
  uint32_t unusedBytePattern;
  PagedList triggerings;
  PagedList parents;
};

struct SignalPDU : PDU {
  Q9_NODE_CLASS(SignalPDU, 'p', 's', 31, 31);
  PagedList signalInstances;
};

struct MultiplexedPDU : PDU {
  Q9_NODE_CLASS(MultiplexedPDU, 'x', 'u', 32, 32);
  int32_t switchByteOrder;
  int32_t switchPosition;
  int32_t switchLength;
  uint32_t defaultSwitchCode;
  PagedList dynamicParts;
  MultiplexedPart* staticPart;
  MultiplexedPart* elsePart;
};

struct Timing : ObjectBase {
  Q9_NODE_CLASS(Timing, 't', 'i', 33, 35);
};

struct EventControlledTiming : Timing {
  Q9_NODE_CLASS(EventControlledTiming, 'e', 't', 34, 34);
  int32_t debounceTime;
};

struct CyclicTiming : Timing {
  Q9_NODE_CLASS(CyclicTiming, 'c', 't', 35, 35);
  uint64_t cycleTime;
};

struct Segment : ObjectBase {
  Q9_NODE_CLASS(Segment, 's', 't', 36, 36);
  int32_t byteOrder;
  int32_t bitpos;
  int32_t bitlen;
};

struct ValueRange : ObjectBase {
  Q9_NODE_CLASS(ValueRange, 'v', 'r', 37, 37);
  double lowerLimit;
  double upperLimit;
  uint32_t flags;
};

#undef Q9_NODE_CLASS

// The record lists' item sizes are part of their block layouts.
static_assert(sizeof(Segment) == 16, "Segment record is 16 bytes");
static_assert(sizeof(ValueRange) == 32, "ValueRange record is 32 bytes");

// Membership test against a record type's interval.
template <typename Node>
inline bool isA(const void* p) {
  return inClasses(p, Node::kFirst, Node::kLast);
}
// Exactly this class (whole tag compared).
template <typename Node>
inline bool isExact(const void* p) {
  return isExactly(p, Node::kNodeType);
}

// Casts for nodes whose class has been tested.
template <typename Node>
inline Node* as(void* p) {
  return static_cast<Node*>(static_cast<ObjectBase*>(p));
}
template <typename Node>
inline const Node* as(const void* p) {
  return static_cast<const Node*>(static_cast<const ObjectBase*>(p));
}

}  // namespace q9
