// The trigger: level by level from the deepest, PDUs go up into what carries
// them (their frames, or the multiplexed PDUs of their parts) when they
// changed, in the first phase, or when their timing says so, while running.
#include "encoder/Encoder.h"

#include "encoder/ImageWriting.h"
#include "store/Nodes.h"

namespace q9 {

HRESULT CEncode::Trigger(uint32_t phase, uint64_t time) {
  std::lock_guard<std::recursive_mutex> hold(lock_);
  if (phase != kInitPhase) schedule_.SetNow(time);
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

// The level's active records that may be due, in the order of its active
// list: the others would find nothing to send.
void CEncode::RunTimings(uint32_t level, uint64_t time) {
  schedule_.BeginLevel(level);
  while (EncoderRecord* r = schedule_.Next()) RunTiming(*r, time);
  schedule_.EndLevel();
}

void CEncode::RunTiming(EncoderRecord& r, uint64_t time) {
  uint16_t kind = 0;
  switch (schedule_.Source(r)) {
    case TimingSource::kUntimed:
      // Without a PDU triggering there is no timing to wait for.
      if (r.changeMask) SendUp(r, false);
      return;
    case TimingSource::kRules:
      kind = schedule_.DueKind(r, time);
      break;
    case TimingSource::kWalker:
      if (walker_->CheckTiming(r.triggering, time, r.lastTime, &kind) != S_OK) return;
      break;
  }
  if (kind == Q9_NODETYPE_CyclicTiming) {
    r.lastTime = time;
    SendUp(r, true);
  } else if (kind == Q9_NODETYPE_EventControlledTiming && r.changeMask) {
    r.lastTime = time;
    SendUp(r, false);
  }
}

// Writes the PDU's image into each carrier that has a record and marks the
// carrier: with the all-clients bit for a cyclic (full) send, else with the
// PDU's own marks. Then the PDU is clean.
void CEncode::SendUp(EncoderRecord& pdu, bool full) {
  const uint32_t mark = full ? kAllClients : pdu.changeMask;
  for (const PduCarrier& carrier : carriers_.Of(pdu)) {
    if (carrier.isPart) {
      writePart(*carrier.target, *as<MultiplexedPart>(carrier.link), pdu);
      MarkPdu(mark, *carrier.target);
    } else {
      writeField(*carrier.target, placeOf(*as<PDUInstance>(carrier.link)), pdu.image, pdu.bitLength);
      frameStore_.Mark(true, mark, carrier.target);
    }
  }
  pduStore_.Mark(false, ~0u, &pdu);
}

}  // namespace q9
