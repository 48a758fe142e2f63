// Adding members to lists, with the back-references the lists keep. The
// owner/list/item rules of every arrival-order operation are one table.
#include "store/MemberLists.h"

#include "store/Accelerators.h"
#include "store/BlockDirectory.h"
#include "store/Database.h"
#include "store/StringStore.h"
#include "store/TriggeringIndex.h"

namespace q9 {

Allocator* allocatorOf(ObjectBase* owner) {
  // Light nodes own no lists, so every owner here has a databaseRef.
  return static_cast<DatabaseRef*>(owner)->databaseRef->allocator;
}

// An append may add a block behind a sorted list's directory, or an item
// out of order: the directory is no longer to be trusted.
void forgetAppendedList(ObjectBase* owner, const PagedList* list) {
  forgetDirectory(static_cast<DatabaseRef*>(owner)->databaseRef->directories, list);
}

HRESULT appendMember(const ListPlace& where, ObjectBase* owner, ObjectBase* item) {
  noteNodeChange(owner);
  noteNodeChange(item);  // its back-reference changes too
  PagedList* list = where.list(owner);
  forgetAppendedList(owner, list);
  const HRESULT hr = appendPointer(where.layout, allocatorOf(owner), list, item);
  if (hr != S_OK) return hr;
  // The index only speeds decoding up: where it fails, the decoder walks the list.
  if (isExact<Channel>(owner) && list == &as<Channel>(owner)->frameTriggerings)
    indexAppendedFrameTriggerings(as<Channel>(owner));
  switch (where.backReference) {
    case BackReference::Parent:
      static_cast<ElementChild*>(item)->parent = owner;
      break;
    case BackReference::Reference:
      static_cast<ElementReference*>(item)->reference = owner;
      break;
    case BackReference::Group:
      if (isA<ElementId>(item)) static_cast<ElementId*>(item)->group = static_cast<ElementGroup*>(owner);
      break;
    case BackReference::None:
      break;
  }
  return S_OK;
}

namespace {

using B = BackReference;

// The order in which an operation looks at its arguments.
enum class TestOrder {
  OwnerThenArray,       // a null owner fails the class test
  NullOwnerArrayClass,  // null owner, then the array, then the owner's class
};

struct ArrivalListOperation {
  ListPlace places[2];  // the owner classes that have this list; unused rows are empty
  uint8_t itemFirst, itemLast;
  TestOrder order;
};

constexpr ListPlace kNoPlace{0, 0, nullptr, nullptr, B::None};

const ArrivalListOperation kAppendChildren{
    {place<ElementGroup, &ElementGroup::children, B::Group>(), kNoPlace}, 1, kLastClass,
    TestOrder::OwnerThenArray};
const ArrivalListOperation kAddSignalInstances{
    {place<Signal, &Signal::signalInstances, B::Reference>(),
     place<SignalPDU, &SignalPDU::signalInstances, B::Parent>()},
    SignalInstance::kFirst, SignalInstance::kLast, TestOrder::OwnerThenArray};
const ArrivalListOperation kAddFrameTriggerings{
    {place<Channel, &Channel::frameTriggerings, B::Parent>(),
     place<Frame, &Frame::frameTriggerings, B::Reference>()},
    FrameTriggering::kFirst, FrameTriggering::kLast, TestOrder::OwnerThenArray};
const ArrivalListOperation kAddPDUTriggerings{
    {place<Channel, &Channel::PDUTriggerings, B::Parent>(),
     place<PDU, &PDU::triggerings, B::Reference>()},
    PDUTriggering::kFirst, PDUTriggering::kLast, TestOrder::OwnerThenArray};
const ArrivalListOperation kAddPDUInstances{
    {place<Frame, &Frame::PDUInstances, B::Parent>(),
     place<Channel, &Channel::PDUInstances, B::Parent>()},
    PDUInstance::kFirst, PDUInstance::kLast, TestOrder::OwnerThenArray};
const ArrivalListOperation kAddParents{
    {place<PDU, &PDU::parents>(), kNoPlace},
    PDUInstance::kFirst, MultiplexedPart::kLast,  // the two carriers are classes 20 and 21
    TestOrder::NullOwnerArrayClass};
const ArrivalListOperation kAddInternalToPhysical{
    {place<Coding, &Coding::internalToPhysicalCompus>(), kNoPlace}, Computation::kFirst,
    Computation::kLast, TestOrder::OwnerThenArray};
const ArrivalListOperation kAddPhysicalToInternal{
    {place<Coding, &Coding::physicalToInternalCompus>(), kNoPlace}, Computation::kFirst,
    Computation::kLast, TestOrder::OwnerThenArray};

const ListPlace* placeFor(const ArrivalListOperation& op, const void* owner) {
  for (const ListPlace& p : op.places)
    if (p.list && p.owns(owner)) return &p;
  return nullptr;
}

HRESULT runArrivalList(const ArrivalListOperation& op, Q9DbNode* ownerHandle, uint64_t count,
                       Q9DbNode* const* items) {
  void* owner = ownerHandle;
  if (op.order == TestOrder::NullOwnerArrayClass) {
    if (!owner) return E_INVALIDARG;
    if (!items) return E_POINTER;
  }
  const ListPlace* where = placeFor(op, owner);
  if (!where) return E_INVALIDARG;
  if (!items) return E_POINTER;
  auto* o = static_cast<ObjectBase*>(owner);
  for (uint64_t i = 0; i < count; ++i) {
    void* item = items[i];
    if (!inClasses(item, op.itemFirst, op.itemLast)) continue;
    const HRESULT hr = appendMember(*where, o, static_cast<ObjectBase*>(item));
    if (hr != S_OK) return hr;
  }
  return S_OK;
}

HRESULT insertChildrenInto(ElementGroup* group, uint64_t count, Q9DbNode* const* items,
                           uint8_t itemFirst, uint8_t itemLast, bool lightNodesAppend) {
  // The last status an item set; E_INVALIDARG when no item counted.
  HRESULT result = E_INVALIDARG;
  for (uint64_t i = 0; i < count; ++i) {
    void* item = items[i];
    if (!inClasses(item, itemFirst, itemLast)) continue;
    noteNodeChange(group);
    noteNodeChange(item);
    if (lightNodesAppend && !isA<DatabaseRef>(item)) {
      forgetAppendedList(group, &group->children);
      result = appendPointer(&childLayout, allocatorOf(group), &group->children, item);
      continue;
    }
    auto* element = static_cast<ElementId*>(static_cast<ObjectBase*>(item));
    if (!element->eid) continue;
    result = insertChildSorted(group, element, &childLayout);
  }
  return result;
}

// The seven collection groups, in the order of the collections node.
using CollectionField = ElementGroup* DatabaseCollections::*;

HRESULT addToCollection(CollectionField field, uint8_t itemFirst, uint8_t itemLast,
                        Q9DbNode* owner, uint64_t count, Q9DbNode* const* items) {
  if (!owner) return E_POINTER;
  DatabaseCollections* collections = collectionsOf(owner);
  if (!collections) {
    if (asDatabase(owner)) return S_FALSE;  // a handle without collections
    return E_INVALIDARG;
  }
  if (!items) return E_POINTER;
  if (count == 0) return E_INVALIDARG;
  return insertChildrenInto(collections->*field, count, items, itemFirst, itemLast, false);
}

HRESULT setPart(Q9DbNode* pduHandle, Q9DbNode* partHandle,
                MultiplexedPart* MultiplexedPDU::*field) {
  if (!isExact<MultiplexedPDU>(pduHandle) || !isExact<MultiplexedPart>(partHandle))
    return E_INVALIDARG;
  auto* pdu = as<MultiplexedPDU>(pduHandle);
  auto* part = as<MultiplexedPart>(partHandle);
  noteNodeChange(pdu);
  noteNodeChange(part);
  part->parent = pdu;
  pdu->*field = part;
  return S_OK;
}

}  // namespace

int32_t compareSwitchCode(const void* key, const void* item) {
  // Wrap-around difference read as signed, as the decoder's search does.
  const auto code = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(key));
  return int32_t(code - as<MultiplexedPart>(item)->switchCode);
}

HRESULT addDynamicPart(MultiplexedPDU* pdu, MultiplexedPart* part) {
  Block* block = nullptr;
  uint64_t index = 0;
  const void* key = reinterpret_cast<const void*>(uintptr_t(part->switchCode));
  if (searchSorted(&pdu->dynamicParts, &block, &index, key, compareSwitchCode) == S_OK)
    return S_OK;  // two parts cannot share a switch code
  noteNodeChange(pdu);
  noteNodeChange(part);
  part->parent = pdu;
  return insertSorted(&childLayout, allocatorOf(pdu), &pdu->dynamicParts, block, index, part);
}

}  // namespace q9

using namespace q9;

extern "C" {

Q9DB_API HRESULT Q9Db_insertChildren(Q9DbNode* group, uint64_t count, Q9DbNode* const* items) {
  if (!isA<ElementGroup>(group)) return E_INVALIDARG;
  if (!items) return E_POINTER;
  if (count == 0) return E_INVALIDARG;
  return insertChildrenInto(as<ElementGroup>(group), count, items, 1, kLastClass, true);
}

Q9DB_API HRESULT Q9Db_appendChildren(Q9DbNode* group, uint64_t count, Q9DbNode* const* items) {
  return runArrivalList(kAppendChildren, group, count, items);
}

#define Q9_COLLECTION_OPERATION(name, field, ItemClass)                                    \
  Q9DB_API HRESULT name(Q9DbNode* db, uint64_t count, Q9DbNode* const* items) {            \
    return addToCollection(&DatabaseCollections::field, ItemClass::kFirst, ItemClass::kLast, \
                           db, count, items);                                              \
  }
Q9_COLLECTION_OPERATION(Q9Db_addClusters, clusters, Cluster)
Q9_COLLECTION_OPERATION(Q9Db_addECUs, ECUs, ElementGroup)
Q9_COLLECTION_OPERATION(Q9Db_addFrames, frames, Frame)
Q9_COLLECTION_OPERATION(Q9Db_addCodings, codings, Coding)
Q9_COLLECTION_OPERATION(Q9Db_addPDUs, PDUs, PDU)
Q9_COLLECTION_OPERATION(Q9Db_addSignals, signals, Signal)
Q9_COLLECTION_OPERATION(Q9Db_addViews, views, ElementGroup)
#undef Q9_COLLECTION_OPERATION

#define Q9_ARRIVAL_OPERATION(name, operation)                                       \
  Q9DB_API HRESULT name(Q9DbNode* owner, uint64_t count, Q9DbNode* const* items) { \
    return runArrivalList(operation, owner, count, items);                          \
  }
Q9_ARRIVAL_OPERATION(Q9Db_addSignalInstances, kAddSignalInstances)
Q9_ARRIVAL_OPERATION(Q9Db_addFrameTriggerings, kAddFrameTriggerings)
Q9_ARRIVAL_OPERATION(Q9Db_addPDUTriggerings, kAddPDUTriggerings)
Q9_ARRIVAL_OPERATION(Q9Db_addPDUInstances, kAddPDUInstances)
Q9_ARRIVAL_OPERATION(Q9Db_addParents, kAddParents)
Q9_ARRIVAL_OPERATION(Q9Db_addInternalToPhysicalComputations, kAddInternalToPhysical)
Q9_ARRIVAL_OPERATION(Q9Db_addPhysicalToInternalComputations, kAddPhysicalToInternal)
#undef Q9_ARRIVAL_OPERATION

Q9DB_API HRESULT Q9Db_addDynamicParts(Q9DbNode* pduHandle, uint64_t count,
                                      Q9DbNode* const* items) {
  if (!items) return E_POINTER;
  if (!isExact<MultiplexedPDU>(pduHandle)) return E_INVALIDARG;
  auto* pdu = as<MultiplexedPDU>(pduHandle);
  for (uint64_t i = 0; i < count; ++i) {
    if (!isExact<MultiplexedPart>(items[i])) continue;
    const HRESULT hr = addDynamicPart(pdu, as<MultiplexedPart>(items[i]));
    if (hr != S_OK) return hr;
  }
  return S_OK;
}

Q9DB_API HRESULT Q9Db_addSegment(Q9DbNode* partHandle, int32_t byteOrder, int32_t bitpos,
                                 int32_t bitlen) {
  if (!isExact<MultiplexedPart>(partHandle)) return E_INVALIDARG;
  auto* part = as<MultiplexedPart>(partHandle);
  noteNodeChange(part, kRoomForRecord);
  auto* segment =
      static_cast<Segment*>(appendRecord(&segmentLayout, allocatorOf(part), &part->segments));
  if (!segment) return E_OUTOFMEMORY;
  writeTag(segment, Segment::kNodeType);
  segment->byteOrder = byteOrder;
  segment->bitpos = bitpos;
  segment->bitlen = bitlen;
  return S_OK;
}

Q9DB_API HRESULT Q9Db_addRange(Q9DbNode* computationHandle, double lowerLimit, double upperLimit,
                               uint32_t flags) {
  if (!isA<Computation>(computationHandle)) return E_INVALIDARG;
  auto* computation = as<Computation>(computationHandle);
  noteNodeChange(computation, kRoomForRecord);
  auto* range = static_cast<ValueRange*>(
      appendRecord(&rangeLayout, allocatorOf(computation), &computation->ranges));
  if (!range) return E_OUTOFMEMORY;
  writeTag(range, ValueRange::kNodeType);
  range->lowerLimit = lowerLimit;
  range->upperLimit = upperLimit;
  range->flags = flags;
  return S_OK;
}

Q9DB_API HRESULT Q9Db_setStaticPart(Q9DbNode* pdu, Q9DbNode* part) {
  return setPart(pdu, part, &MultiplexedPDU::staticPart);
}

Q9DB_API HRESULT Q9Db_setElsePart(Q9DbNode* pdu, Q9DbNode* part) {
  return setPart(pdu, part, &MultiplexedPDU::elsePart);
}

Q9DB_API HRESULT Q9Db_setSignal(Q9DbNode* instanceHandle, Q9DbNode* target) {
  if (!isExact<SignalInstance>(instanceHandle) || !isA<ElementId>(target)) return E_INVALIDARG;
  auto* instance = as<SignalInstance>(instanceHandle);
  noteNodeChange(instance);
  noteNodeChange(target);
  instance->reference = as<ObjectBase>(target);
  if (isExact<SignalPDU>(target)) {
    auto* pdu = as<SignalPDU>(target);
    const HRESULT hr = appendPointer(&childLayout, allocatorOf(pdu), &pdu->signalInstances, instance);
    if (hr == S_OK) instance->parent = pdu;
    return hr;
  }
  if (isExact<Signal>(target)) {
    auto* signal = as<Signal>(target);
    return appendPointer(&childLayout, allocatorOf(signal), &signal->signalInstances, instance);
  }
  return E_INVALIDARG;
}

}  // extern "C"
