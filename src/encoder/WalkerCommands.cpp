// A command is a target and a result kept in fields that the class
// operations test and update as the walk passes; an index to count down
// lives in the target's low half. An operation that has counted answers
// kWalkSkip, so the count doesn't go on into what it counted.
#include "encoder/WalkerCommands.h"

#include "encoder/TimingRules.h"
#include "store/Nodes.h"

namespace q9 {
namespace {

uint64_t pointerTarget(const void* node) { return uint64_t(reinterpret_cast<uintptr_t>(node)); }

// The list a walk over a scope starts with. Upward walks start a frame at
// its triggerings, as a frame has no parents.
bool scopeList(const void* scope, uint32_t descend, ListKind* kind) {
  switch (Q9Db_getNodeType(scope)) {
    case Q9_NODETYPE_InvalidNode:
      if (scope) return false;
      *kind = ListKind::Clusters;
      return true;
    case Q9_NODETYPE_Signal: *kind = ListKind::SignalInstances; return true;
    case Q9_NODETYPE_Channel: *kind = ListKind::FrameTriggerings; return true;
    case Q9_NODETYPE_Cluster: *kind = ListKind::Children; return true;
    case Q9_NODETYPE_Frame:
      *kind = descend ? ListKind::PDUInstancesOrParents : ListKind::FrameTriggerings;
      return true;
    default: return false;
  }
}

}  // namespace

uint32_t CQ9DbCMD::WalkScope(void* scope, uint32_t descend) {
  ListKind kind;
  if (!scopeList(scope, descend, &kind)) return kWalkInto;
  return WalkList(0, descend, kind, scope);
}

void CQ9DbCMD::Start(Command command, uint64_t target) {
  command_ = command;
  target_ = target;
  result_ = 0;
  found_ = nullptr;
}

HRESULT CQ9DbCMD::FlagAnswer(uint32_t walkResult) const {
  return (walkResult == kWalkSkip || walkResult == kWalkStop) && Flag() ? S_OK : S_FALSE;
}

uint32_t CQ9DbCMD::Count() {
  ++result_;
  return kWalkSkip;
}

// At index 0 the node is the one looked for; before that, one fewer to go.
uint32_t CQ9DbCMD::Countdown(uint32_t depth, void* node, uint32_t whileCounting) {
  const uint32_t index = uint32_t(target_);
  if (index == 0) {
    found_ = node;
    result_ = depth;
    return kWalkStop;
  }
  target_ = (target_ & ~uint64_t(0xFFFFFFFFu)) | (index - 1);
  return whileCounting;
}

void* CQ9DbCMD::FindPDUTriggering(void* pdu) {
  Start(kFindPDUTriggering, pointerTarget(pdu));
  WalkList(0, 1, ListKind::Clusters, nullptr);
  return found_;
}

uint32_t CQ9DbCMD::CountFrames(void* scope) {
  Start(kCountFrames, 0);
  WalkScope(scope, 1);
  return uint32_t(result_);
}

uint32_t CQ9DbCMD::CountPDUs(void* scope) {
  Start(kCountPDUs, 0);
  WalkScope(scope, 1);
  return uint32_t(result_);
}

uint32_t CQ9DbCMD::CountSignals(void* scope) {
  Start(kCountSignals, 0);
  WalkScope(scope, 1);
  return uint32_t(result_);
}

void* CQ9DbCMD::FindNth(Command command, void* scope, uint32_t index, uint32_t* depth) {
  Start(command, index);
  WalkScope(scope, 1);
  if (found_ && depth) *depth = uint32_t(result_);
  return found_;
}

void* CQ9DbCMD::NthSignal(void* scope, uint32_t index, uint32_t* depth) {
  return FindNth(kNthSignal, scope, index, depth);
}

void* CQ9DbCMD::NthPDU(void* scope, uint32_t index, uint32_t* depth) {
  return FindNth(kNthPDU, scope, index, depth);
}

void* CQ9DbCMD::NthFrame(void* scope, uint32_t index) { return FindNth(kNthFrame, scope, index, nullptr); }

HRESULT CQ9DbCMD::CheckTiming(void* pduTriggering, uint64_t now, uint64_t last, uint16_t* kind) {
  Start(kCheckTiming, 0);
  now_ = now;
  last_ = last;
  const uint32_t walk = Visit(0, 1, pduTriggering);
  if (walk != kWalkSkip && walk != kWalkStop) return S_FALSE;  // no timing at all
  if (kind) *kind = uint16_t(result_);
  return Flag() ? S_OK : E_FAIL;
}

HRESULT CQ9DbCMD::MatchSourceECU(void* scope, void* ecu) {
  Start(kMatchSourceECU, pointerTarget(ecu));
  return FlagAnswer(WalkScope(scope, 0));
}

HRESULT CQ9DbCMD::IsCyclic(void* scope) {
  Start(kIsCyclic, 0);
  return FlagAnswer(WalkScope(scope, 0));
}

uint32_t CQ9DbCMD::OnFrame(uint32_t depth, uint32_t descend, void* node) {
  if (!descend) return kWalkStop;  // an upward walk ends at the frame
  if (command_ == kCountFrames) return Count();
  if (command_ == kNthFrame) return Countdown(depth, node, kWalkSkip);
  return kWalkInto;
}

uint32_t CQ9DbCMD::OnSignal(uint32_t depth, uint32_t, void* node) {
  if (command_ == kCountSignals) return Count();
  if (command_ == kNthSignal) return Countdown(depth, node, kWalkSkip);
  return kWalkInto;
}

uint32_t CQ9DbCMD::OnSignalPDU(uint32_t depth, uint32_t descend, void* node) {
  if (command_ == kCountPDUs) return Count();
  // Nothing below a signal PDU is a PDU, so the count needn't go in.
  if (command_ == kNthPDU) return Countdown(depth, node, kWalkSkip);
  if (command_ == kIsCyclic) return WalkList(depth, descend, ListKind::PDUTriggerings, node);
  return kWalkInto;
}

uint32_t CQ9DbCMD::OnMultiplexedPDU(uint32_t depth, uint32_t descend, void* node) {
  // The PDUs of its parts count too.
  if (command_ == kCountPDUs) {
    Count();
    return kWalkInto;
  }
  if (command_ == kNthPDU) return Countdown(depth, node, kWalkInto);
  if (command_ == kIsCyclic) return WalkList(depth, descend, ListKind::PDUTriggerings, node);
  return kWalkInto;
}

uint32_t CQ9DbCMD::OnPDUTriggering(uint32_t, uint32_t, void* node) {
  if (command_ != kFindPDUTriggering) return kWalkInto;
  if (pointerTarget(as<PDUTriggering>(node)->reference) != target_) return kWalkInto;
  found_ = node;
  return kWalkStop;
}

uint32_t CQ9DbCMD::OnIdentifierBasedTriggering(uint32_t, uint32_t, void* node) {
  if (command_ != kMatchSourceECU) return kWalkInto;
  const bool matched = pointerTarget(as<IdentifierBasedTriggering>(node)->sourceEcu) == target_;
  SetFlag(matched);
  return matched ? kWalkStop : kWalkSkip;
}

uint32_t CQ9DbCMD::OnCyclicTiming(uint32_t, uint32_t, void* node) {
  if (command_ == kIsCyclic) {
    SetFlag(true);
    return kWalkStop;
  }
  if (command_ != kCheckTiming) return kWalkInto;
  result_ = Q9_NODETYPE_CyclicTiming;  // due cleared
  const uint64_t cycle = as<CyclicTiming>(node)->cycleTime;
  if (cycle == 0 || withinInterval(now_, last_, cycle)) return kWalkSkip;
  SetFlag(true);
  return kWalkStop;
}

uint32_t CQ9DbCMD::OnEventControlledTiming(uint32_t, uint32_t, void* node) {
  if (command_ != kCheckTiming) return kWalkInto;
  const uint32_t debounce = uint32_t(as<EventControlledTiming>(node)->debounceTime);
  result_ = (result_ & ~uint64_t(0xFFFFu)) | Q9_NODETYPE_EventControlledTiming;
  if (debounce != 0 && last_ != 0 && withinInterval(now_, last_, debounce)) {
    SetFlag(false);
    return kWalkSkip;
  }
  SetFlag(true);
  return kWalkStop;
}

}  // namespace q9
