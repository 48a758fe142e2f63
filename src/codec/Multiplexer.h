// Multiplexed PDUs in a decode walk: the switch selects a dynamic part (or
// the else part), and each part's segments are assembled into a contiguous
// image on the walk's stack.
#pragma once

#include "Q9Db.h"
#include "store/Nodes.h"

namespace q9 {

// The PDU classes a stack entry can hold.
inline bool isDecodablePdu(const void* node) {
  return isExact<SignalPDU>(node) || isExact<MultiplexedPDU>(node);
}

// Reads the switch of the multiplexed PDU on top of the stack and pushes the
// selected part, then the static part above it, so that the static part's
// signals come first. Parts that cannot be assembled from this message, or
// that find the stack full, are passed over.
void pushMultiplexedParts(Q9DbDecodeEnum& e, const MultiplexedPDU& pdu);

}  // namespace q9
