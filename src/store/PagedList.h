// The library's one container: a ring of fixed-size blocks that grows and
// never moves a record. Used as a plain pointer list, a record list, and a
// sorted index (a pointer list kept in the order of a comparison).
#pragma once

#include <cstdint>
#include <type_traits>

#include "Q9Db.h"

namespace q9 {

struct Allocator;

struct Block {
  Block* previous;
  Block* next;
  uint64_t count;
  // Items follow the header.
  unsigned char* items() { return reinterpret_cast<unsigned char*>(this + 1); }
  void** pointers() { return reinterpret_cast<void**>(this + 1); }
};
static_assert(sizeof(Block) == 24, "block header is three words");

struct PagedList {
  Block* head;
  Block* tail;
};

// How big a list's blocks are; shared by many lists.
struct BlockLayout {
  uint64_t capacity;
  uint64_t blockSize;
  uint64_t recordSize;  // 8 for the pointer form
};

constexpr BlockLayout makeLayout(uint64_t itemSize, uint64_t requested) {
  const uint64_t blockSize = (requested * itemSize + 87) & ~uint64_t(63);
  return BlockLayout{(blockSize - 24) / itemSize, blockSize, itemSize};
}

struct Cursor {
  PagedList* list;
  const BlockLayout* layout;
  Block* block;   // null once the cursor has run off the end
  uint64_t index;
};

// Comparison of a key with an item: <0 key sorts before, 0 equal, >0 after.
using Comparison = int32_t (*)(const void* key, const void* item);
// Record predicate for findRecord: non-zero stops the walk.
using RecordPredicate = int (*)(void* context, int32_t position, void* record);

void layoutPointers(BlockLayout* layout, uint64_t requested);
void layoutRecords(BlockLayout* layout, uint64_t recordSize, uint64_t requested);

HRESULT initPointerList(const BlockLayout* layout, Allocator* alloc, PagedList* list);
HRESULT initRecordList(const BlockLayout* layout, Allocator* alloc, PagedList* list);
HRESULT appendPointer(const BlockLayout* layout, Allocator* alloc, PagedList* list, void* value);
void* appendRecord(const BlockLayout* layout, Allocator* alloc, PagedList* list);
// Links an empty block at the tail (a first one for an empty list).
HRESULT appendBlock(const BlockLayout* layout, Allocator* alloc, PagedList* list);
uint64_t listCount(const PagedList* list);
HRESULT getAt(const PagedList* list, uint64_t position, void** out);
HRESULT setAt(const BlockLayout* layout, Allocator* alloc, PagedList* list, uint64_t position,
              void* value);
int32_t findRecord(const BlockLayout* layout, const PagedList* list, RecordPredicate predicate,
                   void* context);

HRESULT cursorInit(Cursor* cursor, const BlockLayout* layout, PagedList* list);
HRESULT cursorNextPointers(Cursor* cursor, uint32_t n, void** out, uint32_t* fetched);
HRESULT cursorNextRecords(Cursor* cursor, uint32_t n, void** out, uint32_t* fetched);
HRESULT cursorSkip(Cursor* cursor, uint32_t n);

HRESULT searchSorted(PagedList* list, Block** block, uint64_t* index, const void* key,
                     Comparison compare);
HRESULT insertSorted(const BlockLayout* layout, Allocator* alloc, PagedList* list, Block* block,
                     uint64_t index, void* value);

// The one way to walk a list outside the decoder's cursor: visit(item) for
// each item in list order, item being an element of type Item in the
// blocks. visit answers nothing, or a bool that stops the walk when false;
// the walk answers false when it was stopped.
template <typename Item, typename Visit>
bool forEachItemOf(const PagedList& list, Visit&& visit) {
  Block* b = list.head;
  if (!b) return true;
  do {
    Item* items = reinterpret_cast<Item*>(b->items());
    for (uint64_t i = 0; i < b->count; ++i) {
      if constexpr (std::is_same_v<decltype(visit(items[i])), bool>) {
        if (!visit(items[i])) return false;
      } else {
        visit(items[i]);
      }
    }
    b = b->next;
  } while (b != list.head);
  return true;
}

// A pointer list: visit(void* item).
template <typename Visit>
bool forEachPointer(const PagedList& list, Visit&& visit) {
  return forEachItemOf<void* const>(list, [&](void* item) { return visit(item); });
}

// A record list of Record (its layout's record size).
template <typename Record, typename Visit>
bool forEachRecord(const PagedList& list, Visit&& visit) {
  return forEachItemOf<Record>(list, visit);
}

// Process-wide layouts shared by all databases.
extern const BlockLayout childLayout;
extern const BlockLayout indexLayout;
extern const BlockLayout segmentLayout;
extern const BlockLayout rangeLayout;

}  // namespace q9
