// Insert and delete: what a client wants to send, counted per record and
// shared by all apps. Every node comes down to frames, whose PDUs (those of
// multiplexer parts included) change with them.
#include "encoder/Encoder.h"

#include "encoder/MemberWalk.h"
#include "store/Nodes.h"

namespace q9 {
namespace {

// From a signal down to its frames is four steps; more only happens in a
// graph whose links lead back into themselves.
constexpr uint32_t kMaxHops = 8;

}  // namespace

HRESULT CEncode::SetNodeActive(uint32_t /*app*/, void* node, uint32_t on) {
  std::lock_guard<std::recursive_mutex> hold(lock_);
  return Activate(node, on != 0, 0);
}

HRESULT CEncode::Activate(void* node, bool on, uint32_t hops) {
  if (hops > kMaxHops) return S_FALSE;
  switch (Q9Db_getNodeType(node)) {
    case Q9_NODETYPE_Frame:
      return ActivateFrame(node, on);
    case Q9_NODETYPE_IdentifierBasedTriggering:
    case Q9_NODETYPE_AbsolutelyScheduledTriggering:
      return Activate(as<FrameTriggering>(node)->reference, on, hops + 1);
    case Q9_NODETYPE_SignalInstance:
    case Q9_NODETYPE_PDUInstance:
      return Activate(as<ElementChild>(node)->parent, on, hops + 1);
    case Q9_NODETYPE_Signal:
      return ActivateMembers(Q9Db_enumSignalInstances, node, on, hops);
    case Q9_NODETYPE_SignalPDU:
      return ActivateMembers(Q9Db_enumParents, node, on, hops);
    case Q9_NODETYPE_ElementGroup:
      return ActivateSourceFrames(node, on);
    default:
      return S_FALSE;
  }
}

// S_OK when any member reached something.
HRESULT CEncode::ActivateMembers(ListOpening open, void* owner, bool on, uint32_t hops) {
  MemberWalk members(open, owner);
  if (members.status() != S_OK) return members.status();
  HRESULT result = S_FALSE;
  void* member = nullptr;
  while (members.next(&member))
    if (Activate(member, on, hops + 1) == S_OK) result = S_OK;
  return result;
}

// The frames whose identifier-based triggerings the ECU sends. A frame with
// two records changes through the one that lookups find.
HRESULT CEncode::ActivateSourceFrames(void* ecu, bool on) {
  HRESULT result = S_FALSE;
  for (uint32_t i = 0; i < frameStore_.Count(); ++i) {
    void* frame = frameStore_.At(i).node;
    if (frameStore_.Find(frame) != &frameStore_.At(i)) continue;
    if (walker_->MatchSourceECU(frame, ecu) == S_OK && ActivateFrame(frame, on) == S_OK) result = S_OK;
  }
  return result;
}

// Every PDU in the frame changes, and the frame itself if the last of them
// did; a PDU outside the scope has no record and answers S_FALSE.
HRESULT CEncode::ActivateFrame(void* frame, bool on) {
  const uint32_t count = walker_->CountPDUs(frame);
  HRESULT last = S_FALSE;
  for (uint32_t i = 0; i < count; ++i) last = SetPduActive(walker_->NthPDU(frame, i, nullptr), on);
  return last == S_OK ? frameStore_.SetActive(frame, on) : last;
}

// The first insert puts the PDU's record into its level's queue, and the
// last delete takes it out.
HRESULT CEncode::SetPduActive(void* pdu, bool on) {
  const HRESULT result = pduStore_.SetActive(pdu, on);
  EncoderRecord* record = result == S_OK ? pduStore_.Find(pdu) : nullptr;
  if (record && record->activeCount == (on ? 1 : 0)) schedule_.SetActive(*record, on);
  return result;
}

}  // namespace q9
