// Operations are found through a table of member pointers by class code;
// where the walk goes from a node whose operation said kWalkInto is decided
// by class in one switch, upward or downward. A nesting limit cuts off a
// branch where the graph leads back into itself, so the stack stays bounded.
#include "encoder/DatabaseWalker.h"

#include "encoder/MemberWalk.h"
#include "store/Database.h"

namespace q9 {
namespace {

// A walk nests two visits per level of multiplexed PDUs and a dozen more
// from a cluster down to a computation's ranges, so 32 levels stay well
// inside this. Beyond it the graph has led back into itself, and the branch
// is cut off.
constexpr uint32_t kMaxNesting = 128;

struct NestingScope {
  explicit NestingScope(uint32_t& n) : nesting(n) { ++nesting; }
  ~NestingScope() { --nesting; }
  uint32_t& nesting;
};

using OperationPointer = uint32_t (CQ9Db::*)(uint32_t, uint32_t, void*);

struct ClassOperation {
  uint32_t code;
  OperationPointer operation;
};

const ClassOperation kClassOperations[] = {
    {Q9_NODETYPE_Cluster, &CQ9Db::OnCluster},
    {Q9_NODETYPE_Channel, &CQ9Db::OnChannel},
    {Q9_NODETYPE_Frame, &CQ9Db::OnFrame},
    {Q9_NODETYPE_Signal, &CQ9Db::OnSignal},
    {Q9_NODETYPE_Coding, &CQ9Db::OnCoding},
    {Q9_NODETYPE_PDUInstance, &CQ9Db::OnPDUInstance},
    {Q9_NODETYPE_SignalInstance, &CQ9Db::OnSignalInstance},
    {Q9_NODETYPE_MultiplexedPart, &CQ9Db::OnMultiplexedPart},
    {Q9_NODETYPE_CyclicTiming, &CQ9Db::OnCyclicTiming},
    {Q9_NODETYPE_SignalPDU, &CQ9Db::OnSignalPDU},
    {Q9_NODETYPE_MultiplexedPDU, &CQ9Db::OnMultiplexedPDU},
    {Q9_NODETYPE_PDUTriggering, &CQ9Db::OnPDUTriggering},
    {Q9_NODETYPE_IdentifierBasedTriggering, &CQ9Db::OnIdentifierBasedTriggering},
    {Q9_NODETYPE_AbsolutelyScheduledTriggering, &CQ9Db::OnAbsolutelyScheduledTriggering},
    {Q9_NODETYPE_EventControlledTiming, &CQ9Db::OnEventControlledTiming},
    {Q9_NODETYPE_MappedValueComputation, &CQ9Db::OnMappedValueComputation},
    {Q9_NODETYPE_MappedTextComputation, &CQ9Db::OnMappedTextComputation},
    {Q9_NODETYPE_LinearComputation, &CQ9Db::OnLinearComputation},
    {Q9_NODETYPE_IdentityComputation, &CQ9Db::OnIdentityComputation},
};

ListOpening openingOf(ListKind kind, uint32_t descend) {
  switch (kind) {
    case ListKind::Clusters: return Q9Db_enumClusters;
    case ListKind::ECUs: return Q9Db_enumECUs;
    case ListKind::PDUs: return Q9Db_enumPDUs;
    case ListKind::Frames: return Q9Db_enumFrames;
    case ListKind::Signals: return Q9Db_enumSignals;
    case ListKind::Codings: return Q9Db_enumCodings;
    case ListKind::IdentElements: return Q9Db_enumIdentElements;
    case ListKind::Children:
    case ListKind::ChildrenToo: return Q9Db_enumChildren;
    case ListKind::PDUInstancesOrParents: return descend ? Q9Db_enumPDUInstances : Q9Db_enumParents;
    case ListKind::SignalInstances: return Q9Db_enumSignalInstances;
    case ListKind::FrameTriggerings: return Q9Db_enumFrameTriggerings;
    case ListKind::PDUTriggerings: return Q9Db_enumPDUTriggerings;
    case ListKind::Ranges: return Q9Db_enumRanges;
    case ListKind::Segments: return Q9Db_enumSegments;
    case ListKind::DynamicParts: return Q9Db_enumDynamicParts;
    case ListKind::InternalToPhysical: return Q9Db_enumInternalToPhysicalComputations;
    case ListKind::PhysicalToInternal: return Q9Db_enumPhysicalToInternalComputations;
  }
  return nullptr;
}

bool isCollection(ListKind kind) { return uint32_t(kind) <= uint32_t(ListKind::IdentElements); }

}  // namespace

HRESULT CQ9Db::SetDatabase(Q9DbNode* db) {
  if (!asDatabase(db)) return E_INVALIDARG;
  database_ = db;
  return S_OK;
}

uint32_t CQ9Db::WalkList(uint32_t depth, uint32_t descend, ListKind kind, void* node) {
  const ListOpening open = openingOf(kind, descend);
  if (!open) return kWalkInto;
  MemberWalk members(open, isCollection(kind) ? database_ : node);
  uint32_t result = kWalkInto;
  void* member = nullptr;
  while (members.next(&member)) {
    result = Visit(depth, descend, member);
    if (result == kWalkStop) break;
  }
  return result;
}

uint32_t CQ9Db::Visit(uint32_t depth, uint32_t descend, void* node) {
  if (nesting_ >= kMaxNesting) return kWalkSkip;
  NestingScope scope(nesting_);
  const uint32_t code = Q9Db_getNodeType(node);
  const uint32_t result = Operation(code, depth, descend, node);
  return result == kWalkInto ? Continue(code, depth, descend, node) : result;
}

uint32_t CQ9Db::Operation(uint32_t code, uint32_t depth, uint32_t descend, void* node) {
  for (const ClassOperation& row : kClassOperations)
    if (row.code == code) return (this->*row.operation)(depth, descend, node);
  return kWalkInto;
}

// How the walk goes on below (or above) a node whose operation said kWalkInto.
uint32_t CQ9Db::Continue(uint32_t code, uint32_t depth, uint32_t descend, void* node) {
  const uint32_t below = depth + 1;
  switch (code) {
    case Q9_NODETYPE_Cluster:
      return descend ? WalkList(below, descend, ListKind::Children, node) : kWalkInto;
    case Q9_NODETYPE_Channel:
      if (!descend) return kWalkInto;
      if (WalkList(below, descend, ListKind::FrameTriggerings, node) == kWalkStop) return kWalkStop;
      return WalkList(below, descend, ListKind::PDUTriggerings, node);
    case Q9_NODETYPE_IdentifierBasedTriggering:
    case Q9_NODETYPE_AbsolutelyScheduledTriggering: {
      if (!descend) return kWalkInto;
      const auto* triggering = as<FrameTriggering>(node);
      Visit(depth, descend, triggering->sourceEcu);
      return Visit(depth, descend, triggering->reference);
    }
    case Q9_NODETYPE_Frame:
      // Upward, a frame has no parents list, so this answers kWalkInto.
      return WalkList(below, descend, ListKind::PDUInstancesOrParents, node);
    case Q9_NODETYPE_PDUInstance:
    case Q9_NODETYPE_SignalInstance: {
      const auto* instance = as<ElementReference>(node);
      return descend ? Visit(depth, descend, instance->reference) : Visit(depth, 0, instance->parent);
    }
    case Q9_NODETYPE_SignalPDU:
      return descend ? WalkList(below, descend, ListKind::SignalInstances, node)
                     : WalkList(below, 0, ListKind::PDUInstancesOrParents, node);
    case Q9_NODETYPE_MultiplexedPDU:
      if (!descend) return WalkList(below, 0, ListKind::PDUInstancesOrParents, node);
      if (Visit(below, descend, as<MultiplexedPDU>(node)->staticPart) == kWalkStop) return kWalkStop;
      return WalkList(below, descend, ListKind::DynamicParts, node);
    case Q9_NODETYPE_MultiplexedPart: {
      const auto* part = as<MultiplexedPart>(node);
      if (!descend) return Visit(depth, 0, part->parent);
      const uint32_t segments = WalkList(below, descend, ListKind::Segments, node);
      return part->reference ? Visit(depth, descend, part->reference) : segments;
    }
    case Q9_NODETYPE_PDUTriggering:
      return WalkList(below, descend, ListKind::Children, node);
    case Q9_NODETYPE_Signal:
      return descend ? Visit(depth, descend, as<Signal>(node)->reference) : kWalkInto;
    case Q9_NODETYPE_Coding:
      if (!descend) return kWalkInto;
      Visit(depth, descend, as<Coding>(node)->reference);
      WalkList(below, descend, ListKind::PhysicalToInternal, node);
      return WalkList(below, descend, ListKind::InternalToPhysical, node);
    case Q9_NODETYPE_MappedValueComputation:
    case Q9_NODETYPE_MappedTextComputation:
    case Q9_NODETYPE_LinearComputation:
    case Q9_NODETYPE_IdentityComputation:
      return WalkList(below, descend, ListKind::Ranges, node);
    default:
      // Timings end in their operation; other classes have nothing below.
      return kWalkInto;
  }
}

}  // namespace q9
