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

// Whether the part assembles an image of its own from segments.
inline bool hasSegments(const MultiplexedPart& part) {
  const Block* b = part.segments.head;
  return b && (b->count != 0 || b->next != b);
}

// Calls visit(segment, d) for each segment of the part that has a length, d
// being where its bits go in the part's image. False as soon as a segment's
// length is negative or visit answers false.
template <typename Visit>
bool forEachSegment(const MultiplexedPart& part, Visit visit) {
  uint64_t d = 0;
  return forEachRecord<const Segment>(part.segments, [&](const Segment& s) {
    if (s.bitlen == 0) return true;
    if (s.bitlen < 0 || !visit(s, d)) return false;
    d += uint64_t(s.bitlen);
    return true;
  });
}

// Reads the switch of the multiplexed PDU on top of the stack and pushes the
// selected part, then the static part above it, so that the static part's
// signals come first. Parts that cannot be assembled from this message, or
// that find the stack full, are passed over.
void pushMultiplexedParts(Q9DbDecodeEnum& e, const MultiplexedPDU& pdu);

}  // namespace q9
