// The trigger: level by level from the deepest, PDUs go up into what carries
// them (their frames, or the multiplexed PDUs of their parts) when they
// changed, in the first phase, or when their timing says so, while running.
#include "encoder/Encoder.h"

#include "encoder/ImageWriting.h"
#include "encoder/MemberWalk.h"
#include "store/Nodes.h"

namespace q9 {

HRESULT CEncode::Trigger(uint32_t phase, uint64_t time) {
  std::lock_guard<std::recursive_mutex> hold(lock_);
  // Level 0 holds frames' PDUs only on a frame scope, and those stay put.
  // Deeper levels go first, so a part's PDU reaches its multiplexed PDU
  // before that one is looked at.
  for (uint32_t level = pduStore_.HighestLevel(); level >= 1; --level) {
    if (phase == kInitPhase)
      DrainChanged(level);
    else
      RunTimings(level, time);
  }
  return S_OK;
}

void CEncode::DrainChanged(uint32_t level) {
  // Each send takes the record out of the list, so the head is always next.
  // Parts that lead back into their own PDU could refill a level without
  // end; no honest database sends more often than it has records.
  uint32_t budget = pduStore_.Count();
  for (EncoderRecord* r; budget != 0 && (r = pduStore_.First(kChangedList, level)) != nullptr; --budget)
    SendUp(*r, false);
}

void CEncode::RunTimings(uint32_t level, uint64_t time) {
  for (EncoderRecord* r = pduStore_.First(kActiveList, level); r; r = EncoderStore::Next(kActiveList, r)) {
    if (!r->triggering) {
      // Without a PDU triggering there is no timing to wait for.
      if (r->changeMask) SendUp(*r, false);
      continue;
    }
    uint16_t kind = 0;
    if (walker_->CheckTiming(r->triggering, time, r->lastTime, &kind) != S_OK) continue;
    if (kind == Q9_NODETYPE_CyclicTiming) {
      r->lastTime = time;
      SendUp(*r, true);
    } else if (kind == Q9_NODETYPE_EventControlledTiming && r->changeMask) {
      r->lastTime = time;
      SendUp(*r, false);
    }
  }
}

// Writes the PDU's image into each carrier that has a record and marks the
// carrier: with the all-clients bit for a cyclic (full) send, else with the
// PDU's own marks. Then the PDU is clean.
void CEncode::SendUp(EncoderRecord& pdu, bool full) {
  const uint32_t mark = full ? kAllClients : pdu.changeMask;
  MemberWalk carriers(Q9Db_enumParents, pdu.node);
  void* carrier = nullptr;
  while (carriers.next(&carrier)) {
    if (isExact<PDUInstance>(carrier)) {
      const auto& instance = *as<PDUInstance>(carrier);
      EncoderRecord* frame = isExact<Frame>(instance.parent) ? frameStore_.Find(instance.parent) : nullptr;
      if (!frame) continue;  // a frame outside the scope stays unwritten
      writeField(*frame, placeOf(instance), pdu.image, pdu.bitLength);
      frameStore_.Mark(true, mark, frame);
    } else if (isExact<MultiplexedPart>(carrier)) {
      const auto& part = *as<MultiplexedPart>(carrier);
      EncoderRecord* multiplexed = isExact<MultiplexedPDU>(part.parent) ? pduStore_.Find(part.parent) : nullptr;
      if (!multiplexed) continue;
      writePart(*multiplexed, part, pdu);
      pduStore_.Mark(true, mark, multiplexed);
    }
  }
  pduStore_.Mark(false, ~0u, &pdu);
}

}  // namespace q9
