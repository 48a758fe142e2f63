// The table is indexed by the first class number in a node's tag, so
// classifying a node is one lookup. Classes that are only bases, the handle
// (which comes from the heap) and classes that live inside record lists are
// marked as not allocatable.
#include "store/NodeClasses.h"

#include "Q9Db.h"
#include "store/Nodes.h"

namespace q9 {

#define Q9_ROW(T, allocatable) {T::kNodeType, #T, u"" #T, sizeof(T), allocatable}
#define Q9_ROW_UNNAMED(T) {T::kNodeType, nullptr, nullptr, sizeof(T), false}

const NodeClassInfo kNodeClasses[37] = {
    Q9_ROW(ObjectBase, false),
    Q9_ROW_UNNAMED(DatabaseRef),
    Q9_ROW(ElementId, false),
    Q9_ROW(ElementDetail, false),
    Q9_ROW(ElementChild, false),
    Q9_ROW(ElementReference, true),
    Q9_ROW(Q9Db, false),  // the handle comes from the heap
    Q9_ROW(ElementGroup, true),
    Q9_ROW(DatabaseCollections, true),
    Q9_ROW(Cluster, true),
    Q9_ROW(FrameTriggering, false),
    Q9_ROW(TransmittableFrameTriggering, false),
    Q9_ROW(AbsolutelyScheduledTriggering, true),
    Q9_ROW(IdentifierBasedTriggering, true),
    Q9_ROW(MaskedIdentifierTriggering, true),
    Q9_ROW(PDUTriggering, true),
    Q9_ROW(SignalInstance, true),
    Q9_ROW(Signal, true),
    Q9_ROW(Coding, true),
    Q9_ROW(PDUInstance, true),
    Q9_ROW(MultiplexedPart, true),
    Q9_ROW(Channel, true),
    Q9_ROW(Frame, true),
    Q9_ROW(UnitSpec, true),
    Q9_ROW(Computation, false),
    Q9_ROW(IdentityComputation, true),
    Q9_ROW(LinearComputation, true),
    Q9_ROW(MappedTextComputation, true),
    Q9_ROW(MappedValueComputation, true),
    Q9_ROW(PDU, false),
    Q9_ROW(SignalPDU, true),
    Q9_ROW(MultiplexedPDU, true),
    Q9_ROW(Timing, false),
    Q9_ROW(EventControlledTiming, true),
    Q9_ROW(CyclicTiming, true),
    Q9_ROW(Segment, false),     // lives in its part's record list
    Q9_ROW(ValueRange, false),  // lives in its computation's record list
};

#undef Q9_ROW
#undef Q9_ROW_UNNAMED

const NodeClassInfo* classByNodeType(uint32_t nodeType) {
  const uint8_t first = tagFirst(nodeType);
  if (first < 1 || first > kLastClass) return nullptr;
  const NodeClassInfo& row = kNodeClasses[first - 1];
  return row.nodeType == nodeType ? &row : nullptr;
}

const NodeClassInfo* classByCode(uint32_t code) {
  for (const NodeClassInfo& row : kNodeClasses)
    if (tagCode(row.nodeType) == code) return &row;
  return nullptr;
}

const char16_t* classNameW(uint32_t nodeType) {
  const NodeClassInfo* row = classByNodeType(nodeType);
  return row ? row->wideName : nullptr;
}

const char* classNameA(uint32_t nodeType) {
  const NodeClassInfo* row = classByNodeType(nodeType);
  return row ? row->name : nullptr;
}

}  // namespace q9

using namespace q9;

extern "C" {

Q9DB_API uint32_t Q9Db_getNodeType(const void* node) {
  if (!node || !inClasses(node, 1, kLastClass)) return Q9_NODETYPE_InvalidNode;
  return tagCode(readTag(node));
}

Q9DB_API HRESULT Q9Db_isValidNode(const void* node) {
  if (!node) return E_INVALIDARG;
  return inClasses(node, 1, kLastClass) ? S_OK : S_FALSE;
}

Q9DB_API int Q9Db_isDerivedFrom(const void* node, uint32_t nodeClass) {
  if (!node) return 0;
  if (nodeClass < 0x10000u) {
    const NodeClassInfo* row = classByCode(nodeClass);
    nodeClass = row ? row->nodeType : 0;
  }
  return inClasses(node, tagFirst(nodeClass), tagLast(nodeClass)) ? 1 : 0;
}

}  // extern "C"
