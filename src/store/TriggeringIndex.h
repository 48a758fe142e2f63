// The frame triggerings of a channel by identifier, so that a received
// message finds the triggerings it may match without a walk over all of
// them. Triggerings by exact identifier are kept in hash buckets, masked
// ones in one chain; every entry knows its position in the channel's list,
// so merging the two gives the candidates in list order.
//
// The channel's list only grows and identifiers never change, so the index
// follows the list by indexing what was appended behind the last item it
// saw. It is an accelerator and nothing more: whenever it has not seen the
// whole list (a failed allocation, an append it was not told of), a reader
// finds it stale and walks the list itself.
#pragma once

#include <cstdint>

#include "store/Nodes.h"

namespace q9 {

struct TriggeringIndexEntry {
  FrameTriggering* triggering;
  uint64_t position;  // in the channel's frameTriggerings
  TriggeringIndexEntry* next;  // same bucket, or the next masked one, in list order
  uint32_t identifier;  // exact entries only
  // The decoder's compiled plan of the triggering (see Accelerators.h),
  // and its dense form for whole-frame decoding.
  mutable void* plan;
  mutable void* dense;
};

struct TriggeringBucket {
  TriggeringIndexEntry* first;
  TriggeringIndexEntry* last;
};

struct TriggeringIndex {
  PagedList entries;  // records, in list order
  TriggeringBucket* buckets;
  uint64_t bucketCount;  // a power of two
  uint64_t exactCount;
  TriggeringIndexEntry* firstMasked;
  TriggeringIndexEntry* lastMasked;
  // Where indexing resumes in the channel's list, and what its tail looked
  // like when the index last reached it.
  Block* resumeBlock;
  uint64_t resumeIndex;
  uint64_t nextPosition;
  Block* seenTail;
  uint64_t seenTailCount;
};

// Indexes the triggerings appended to the channel's list since the last
// call. A failure leaves the index stale, never wrong.
HRESULT indexAppendedFrameTriggerings(Channel* channel);

// The channel's index if it covers the whole list, else null.
inline const TriggeringIndex* currentTriggeringIndex(const Channel& channel) {
  const TriggeringIndex* index = channel.triggeringIndex;
  const Block* tail = channel.frameTriggerings.tail;
  if (!index || !tail || index->seenTail != tail || index->seenTailCount != tail->count) return nullptr;
  return index;
}

inline uint64_t triggeringBucketOf(uint32_t identifier, uint64_t bucketCount) {
  // Fibonacci hashing spreads neighbouring identifiers over the table.
  return ((uint64_t(identifier) * 0x9E3779B97F4A7C15ull) >> 32) & (bucketCount - 1);
}

inline const TriggeringIndexEntry* nextWithIdentifier(const TriggeringIndexEntry* entry, uint32_t identifier) {
  while (entry && entry->identifier != identifier) entry = entry->next;
  return entry;
}

// The first entry that may hold this identifier; follow with
// nextWithIdentifier.
inline const TriggeringIndexEntry* firstWithIdentifier(const TriggeringIndex& index, uint32_t identifier) {
  if (!index.buckets) return nullptr;
  return nextWithIdentifier(index.buckets[triggeringBucketOf(identifier, index.bucketCount)].first, identifier);
}

}  // namespace q9
