// The index follows the channel's list by appending: it remembers where it
// stopped, so indexing after more triggerings came costs only the new ones.
// Buckets double to stay at most half full; if they can't grow, the old ones
// stay, fuller but right.
#include "store/TriggeringIndex.h"

#include <cstring>

#include "store/Allocator.h"
#include "store/MemberLists.h"

namespace q9 {
namespace {

const BlockLayout entryLayout = makeLayout(sizeof(TriggeringIndexEntry), 64);
constexpr uint64_t kFirstBucketCount = 16;

void appendToChain(TriggeringIndexEntry*& first, TriggeringIndexEntry*& last, TriggeringIndexEntry* entry) {
  entry->next = nullptr;
  if (last)
    last->next = entry;
  else
    first = entry;
  last = entry;
}

// Rebuilds the buckets at twice the size; on failure the old ones stay,
// fuller but right.
void growBuckets(TriggeringIndex& index, Allocator* alloc) {
  const uint64_t count = index.bucketCount ? 2 * index.bucketCount : kFirstBucketCount;
  auto* buckets = static_cast<TriggeringBucket*>(alloc->alloc(alloc, count * sizeof(TriggeringBucket)));
  if (!buckets) return;
  std::memset(buckets, 0, count * sizeof(TriggeringBucket));
  // The entries list is in list order, so every chain is again.
  forEachRecord<TriggeringIndexEntry>(index.entries, [&](TriggeringIndexEntry& e) {
    if (!isExact<IdentifierBasedTriggering>(e.triggering)) return;
    TriggeringBucket& bucket = buckets[triggeringBucketOf(e.identifier, count)];
    appendToChain(bucket.first, bucket.last, &e);
  });
  if (index.buckets) alloc->free(alloc, index.buckets);
  index.buckets = buckets;
  index.bucketCount = count;
}

// Adds one list item; items that never match a message take no entry.
bool addItem(TriggeringIndex& index, Allocator* alloc, void* item, uint64_t position) {
  const bool exact = isExact<IdentifierBasedTriggering>(item);
  if (!exact && !isExact<MaskedIdentifierTriggering>(item)) return true;
  if (exact && 2 * (index.exactCount + 1) > index.bucketCount) growBuckets(index, alloc);
  if (exact && !index.buckets) return false;
  auto* entry = static_cast<TriggeringIndexEntry*>(appendRecord(&entryLayout, alloc, &index.entries));
  if (!entry) return false;
  entry->triggering = as<FrameTriggering>(item);
  entry->position = position;
  entry->plan = nullptr;
  entry->dense = nullptr;
  if (exact) {
    entry->identifier = as<IdentifierBasedTriggering>(item)->identifier;
    TriggeringBucket& bucket = index.buckets[triggeringBucketOf(entry->identifier, index.bucketCount)];
    appendToChain(bucket.first, bucket.last, entry);
    ++index.exactCount;
  } else {
    appendToChain(index.firstMasked, index.lastMasked, entry);
  }
  return true;
}

}  // namespace

HRESULT indexAppendedFrameTriggerings(Channel* channel) {
  const PagedList& list = channel->frameTriggerings;
  if (!list.head) return S_OK;
  Allocator* alloc = allocatorOf(channel);
  if (!channel->triggeringIndex) {
    auto* fresh = static_cast<TriggeringIndex*>(alloc->alloc(alloc, sizeof(TriggeringIndex)));
    if (!fresh) return E_OUTOFMEMORY;
    std::memset(fresh, 0, sizeof *fresh);
    channel->triggeringIndex = fresh;
  }
  TriggeringIndex& index = *channel->triggeringIndex;
  if (!index.resumeBlock) index.resumeBlock = list.head;
  for (;;) {
    Block* b = index.resumeBlock;
    if (index.resumeIndex < b->count) {
      if (!addItem(index, alloc, b->pointers()[index.resumeIndex], index.nextPosition)) return E_OUTOFMEMORY;
      ++index.resumeIndex;
      ++index.nextPosition;
    } else if (b->next != list.head) {
      index.resumeBlock = b->next;
      index.resumeIndex = 0;
    } else {
      break;
    }
  }
  index.seenTail = list.tail;
  index.seenTailCount = list.tail->count;
  return S_OK;
}

}  // namespace q9
