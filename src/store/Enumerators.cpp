// Enumerators: a tagged cursor over one member list, in a pointer form and a
// record form. Which list each opening operation reaches is one table.
#include <cstddef>

#include "platform/Heap.h"
#include "store/Database.h"
#include "store/MemberLists.h"

namespace q9 {
namespace {

constexpr uint32_t kPointerTag = fourCC("ePli");
constexpr uint32_t kRecordTag = fourCC("eLis");
static_assert(kPointerTag == Q9_ENUMERATOR_TAG_POINTERS && kRecordTag == Q9_ENUMERATOR_TAG_RECORDS,
              "public tags");

struct Enumerator {
  uint32_t tag;
  Cursor cursor;
};
static_assert(sizeof(Enumerator) == sizeof(Q9DbEnumerator), "public layout");
static_assert(offsetof(Enumerator, cursor) == offsetof(Q9DbEnumerator, list), "public layout");

Enumerator* checked(Q9DbEnumerator* e) {
  auto* en = reinterpret_cast<Enumerator*>(e);
  return en && (en->tag == kPointerTag || en->tag == kRecordTag) ? en : nullptr;
}

HRESULT open(Q9DbEnumerator** pEnum, PagedList* list, const BlockLayout* layout, uint32_t tag) {
  if (!pEnum) return E_INVALIDARG;
  Enumerator* e;
  if (!*pEnum) {
    e = static_cast<Enumerator*>(platform::heapAlloc(sizeof(Enumerator)));
    if (!e) return E_OUTOFMEMORY;
    *pEnum = reinterpret_cast<Q9DbEnumerator*>(e);
  } else {
    e = checked(*pEnum);
    if (!e) return E_INVALIDARG;
  }
  e->tag = tag;
  return cursorInit(&e->cursor, layout, list);
}

// Lists reached from a node: up to two owner classes, each with its list.
struct NodeListOpening {
  ListPlace places[2];
  uint32_t tag;
};
constexpr ListPlace kNone{0, 0, nullptr, nullptr, BackReference::None};

HRESULT openOnNode(const NodeListOpening& o, Q9DbNode* owner, Q9DbEnumerator** pEnum) {
  for (const ListPlace& p : o.places)
    if (p.list && p.owns(owner))
      return open(pEnum, p.list(reinterpret_cast<ObjectBase*>(owner)), p.layout, o.tag);
  return E_INVALIDARG;
}

const NodeListOpening kChildren{{place<ElementGroup, &ElementGroup::children>(), kNone}, kPointerTag};
const NodeListOpening kFrameTriggerings{
    {place<Channel, &Channel::frameTriggerings>(), place<Frame, &Frame::frameTriggerings>()}, kPointerTag};
const NodeListOpening kPDUTriggerings{
    {place<Channel, &Channel::PDUTriggerings>(), place<PDU, &PDU::triggerings>()}, kPointerTag};
const NodeListOpening kPDUInstances{
    {place<Channel, &Channel::PDUInstances>(), place<Frame, &Frame::PDUInstances>()}, kPointerTag};
const NodeListOpening kSignalInstances{
    {place<SignalPDU, &SignalPDU::signalInstances>(), place<Signal, &Signal::signalInstances>()},
    kPointerTag};
const NodeListOpening kParents{{place<PDU, &PDU::parents>(), kNone}, kPointerTag};
const NodeListOpening kDynamicParts{{place<MultiplexedPDU, &MultiplexedPDU::dynamicParts>(), kNone},
                                    kPointerTag};
const NodeListOpening kInternalToPhysical{
    {place<Coding, &Coding::internalToPhysicalCompus>(), kNone}, kPointerTag};
const NodeListOpening kPhysicalToInternal{
    {place<Coding, &Coding::physicalToInternalCompus>(), kNone}, kPointerTag};
const NodeListOpening kSegments{
    {place<MultiplexedPart, &MultiplexedPart::segments>(&segmentLayout), kNone}, kRecordTag};
const NodeListOpening kRanges{{place<Computation, &Computation::ranges>(&rangeLayout), kNone},
                              kRecordTag};

HRESULT openOnCollection(ElementGroup* DatabaseCollections::*field, Q9DbNode* owner,
                         Q9DbEnumerator** pEnum) {
  Q9DbNode* collectionsHandle = nullptr;
  const HRESULT hr = Q9Db_getDatabaseCollections(owner, &collectionsHandle);
  if (hr != S_OK) return hr;
  auto* collections = as<DatabaseCollections>(collectionsHandle);
  ElementGroup* group = collections->*field;
  return open(pEnum, &group->children, field == &DatabaseCollections::identElements ? &indexLayout : &childLayout,
              kPointerTag);
}

}  // namespace
}  // namespace q9

using namespace q9;

extern "C" {

#define Q9_NODE_LIST_OPENING(name, opening)                                  \
  Q9DB_API HRESULT name(Q9DbNode* owner, Q9DbEnumerator** pEnum) {          \
    return openOnNode(opening, owner, pEnum);                               \
  }
Q9_NODE_LIST_OPENING(Q9Db_enumChildren, kChildren)
Q9_NODE_LIST_OPENING(Q9Db_enumFrameTriggerings, kFrameTriggerings)
Q9_NODE_LIST_OPENING(Q9Db_enumPDUTriggerings, kPDUTriggerings)
Q9_NODE_LIST_OPENING(Q9Db_enumPDUInstances, kPDUInstances)
Q9_NODE_LIST_OPENING(Q9Db_enumSignalInstances, kSignalInstances)
Q9_NODE_LIST_OPENING(Q9Db_enumParents, kParents)
Q9_NODE_LIST_OPENING(Q9Db_enumDynamicParts, kDynamicParts)
Q9_NODE_LIST_OPENING(Q9Db_enumInternalToPhysicalComputations, kInternalToPhysical)
Q9_NODE_LIST_OPENING(Q9Db_enumPhysicalToInternalComputations, kPhysicalToInternal)
Q9_NODE_LIST_OPENING(Q9Db_enumSegments, kSegments)
Q9_NODE_LIST_OPENING(Q9Db_enumRanges, kRanges)
#undef Q9_NODE_LIST_OPENING

#define Q9_COLLECTION_OPENING(name, field)                          \
  Q9DB_API HRESULT name(Q9DbNode* db, Q9DbEnumerator** pEnum) {     \
    return openOnCollection(&DatabaseCollections::field, db, pEnum); \
  }
Q9_COLLECTION_OPENING(Q9Db_enumIdentElements, identElements)
Q9_COLLECTION_OPENING(Q9Db_enumClusters, clusters)
Q9_COLLECTION_OPENING(Q9Db_enumECUs, ECUs)
Q9_COLLECTION_OPENING(Q9Db_enumPDUs, PDUs)
Q9_COLLECTION_OPENING(Q9Db_enumFrames, frames)
Q9_COLLECTION_OPENING(Q9Db_enumSignals, signals)
Q9_COLLECTION_OPENING(Q9Db_enumCodings, codings)
Q9_COLLECTION_OPENING(Q9Db_enumViews, views)
#undef Q9_COLLECTION_OPENING

Q9DB_API HRESULT Q9Db_enumeratorNext(Q9DbEnumerator* handle, uint32_t n, Q9DbNode** out,
                                     uint32_t* fetched) {
  Enumerator* e = checked(handle);
  if (!e || !out) return E_INVALIDARG;
  void** items = reinterpret_cast<void**>(out);
  return e->tag == kPointerTag ? cursorNextPointers(&e->cursor, n, items, fetched)
                               : cursorNextRecords(&e->cursor, n, items, fetched);
}

Q9DB_API HRESULT Q9Db_enumeratorSkip(Q9DbEnumerator* handle, uint32_t n) {
  Enumerator* e = checked(handle);
  return e ? cursorSkip(&e->cursor, n) : E_INVALIDARG;
}

Q9DB_API HRESULT Q9Db_enumeratorReset(Q9DbEnumerator* handle) {
  Enumerator* e = checked(handle);
  if (!e) return E_INVALIDARG;
  return cursorInit(&e->cursor, e->cursor.layout, e->cursor.list);
}

Q9DB_API HRESULT Q9Db_enumeratorGetCount(Q9DbEnumerator* handle, uint64_t* out) {
  Enumerator* e = checked(handle);
  if (!e || !out) return E_INVALIDARG;
  *out = listCount(e->cursor.list);
  return S_OK;
}

Q9DB_API HRESULT Q9Db_enumeratorFindNext(Q9DbEnumerator* handle, uint64_t key,
                                         Q9DbCompareFn comparison) {
  Enumerator* e = checked(handle);
  if (!e || e->tag != kPointerTag || !comparison) return E_INVALIDARG;
  return searchSorted(e->cursor.list, &e->cursor.block, &e->cursor.index,
                      reinterpret_cast<const void*>(uintptr_t(key)), comparison);
}

Q9DB_API HRESULT Q9Db_enumeratorDestroy(Q9DbEnumerator* handle) {
  Enumerator* e = checked(handle);
  if (!e) return E_INVALIDARG;
  e->tag = 0;
  platform::heapFree(e);
  return S_OK;
}

}  // extern "C"
