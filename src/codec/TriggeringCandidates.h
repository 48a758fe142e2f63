// The frame triggerings that a message may match, in the order of its
// channel's list. While the channel's index is current they come from it:
// the entries under the message's identifier merged by list position with
// the masked ones. Otherwise every item of the list is a candidate. Either
// walk lives in the four words of the decode walk's Q9DbCursor.
#pragma once

#include <cstring>

#include "Q9Db.h"
#include "codec/ListWalk.h"
#include "store/TriggeringIndex.h"

namespace q9 {

struct IndexedCandidates {
  void* list;         // the channel's list, as in a list walk
  const void* mode;   // &kIndexedCandidates; a list walk holds its layout here
  const TriggeringIndexEntry* exact;
  const TriggeringIndexEntry* masked;
};
static_assert(sizeof(IndexedCandidates) == sizeof(Q9DbCursor), "candidates fill a Q9DbCursor");

inline constexpr char kIndexedCandidates = 0;

inline void startCandidates(Q9DbCursor& walk, Channel& channel, uint32_t identifier) {
  const TriggeringIndex* index = currentTriggeringIndex(channel);
  if (!index) {
    startWalk(walk, channel.frameTriggerings);
    return;
  }
  const IndexedCandidates c{&channel.frameTriggerings, &kIndexedCandidates, firstWithIdentifier(*index, identifier),
                            index->firstMasked};
  std::memcpy(&walk, &c, sizeof c);
}

// The next candidate into node, with its index entry when it comes from the
// index (else null); false when there is none.
inline bool nextCandidate(Q9DbCursor& walk, uint32_t identifier, void** node, const TriggeringIndexEntry** entry) {
  *entry = nullptr;
  if (walk.layout != &kIndexedCandidates) return nextItem(walk, node);
  IndexedCandidates c;
  std::memcpy(&c, &walk, sizeof c);
  const TriggeringIndexEntry* taken;
  if (c.exact && (!c.masked || c.exact->position < c.masked->position)) {
    taken = c.exact;
    c.exact = nextWithIdentifier(c.exact->next, identifier);
  } else if (c.masked) {
    taken = c.masked;
    c.masked = c.masked->next;
  } else {
    return false;
  }
  *node = taken->triggering;
  *entry = taken;
  std::memcpy(&walk, &c, sizeof c);
  return true;
}

}  // namespace q9
