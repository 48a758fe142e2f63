// Blocks are never given back one by one, so records keep their address for
// the list's life, and a full block of a sorted list splits in two instead
// of pushing items into its neighbours. A sorted search walks to the first
// block whose last item is not below the key, then halves within it.
#include "store/PagedList.h"

#include <cstdio>
#include <cstring>

#include "store/Allocator.h"

namespace q9 {

const BlockLayout childLayout = makeLayout(8, 3);
const BlockLayout indexLayout = makeLayout(8, 2000);
const BlockLayout segmentLayout = makeLayout(16, 3);
const BlockLayout rangeLayout = makeLayout(32, 3);

namespace {

Block* takeBlock(const BlockLayout* layout, Allocator* alloc, bool zeroWhole) {
  auto* b = static_cast<Block*>(alloc->alloc(alloc, layout->blockSize));
  if (!b) return nullptr;
  if (zeroWhole)
    std::memset(b, 0, layout->blockSize);
  else
    b->previous = b->next = nullptr, b->count = 0;
  return b;
}

// Links a fresh block at the tail of the ring. A block that is already linked
// somewhere is refused: linking it twice would cut the other ring.
bool addTail(PagedList* list, Block* b) {
  if (b->next) {
    std::printf("error: addTail() not executed, object already in the collection=%p",
                static_cast<void*>(b));
    return false;
  }
  if (!list->head) {
    b->previous = b->next = b;
    list->head = list->tail = b;
    return true;
  }
  b->next = list->head;
  b->previous = list->tail;
  list->head->previous = b;
  list->tail->next = b;
  list->tail = b;
  return true;
}

HRESULT initList(const BlockLayout* layout, Allocator* alloc, PagedList* list) {
  Block* b = takeBlock(layout, alloc, true);
  if (!b) return E_OUTOFMEMORY;
  b->previous = b->next = b;
  list->head = list->tail = b;
  return S_OK;
}

// The tail block with room for one more item, adding a block when it is full.
Block* tailWithRoom(const BlockLayout* layout, Allocator* alloc, PagedList* list, bool zeroWhole) {
  if (!list->head && initList(layout, alloc, list) != S_OK) return nullptr;
  Block* tail = list->tail;
  if (tail->count < layout->capacity) return tail;
  Block* b = takeBlock(layout, alloc, zeroWhole);
  if (!b) return nullptr;
  if (!addTail(list, b)) return nullptr;
  return b;
}

// Moves a cursor on by up to n items; copies what it passes when out is set.
// recordSize 0 copies stored pointers, otherwise record addresses.
HRESULT cursorAdvance(Cursor* c, uint32_t n, void** out, uint32_t* fetched, uint64_t recordSize) {
  if (!c->list->head || !c->block) return S_FALSE;
  uint32_t moved = 0;
  Block* b = c->block;
  uint64_t i = c->index;
  while (moved < n) {
    if (i >= b->count) {
      if (b->next == c->list->head) {
        b = nullptr;
        i = 0;
        break;
      }
      b = b->next;
      i = 0;
      continue;
    }
    if (out) {
      out[moved] = recordSize ? static_cast<void*>(b->items() + i * recordSize) : b->pointers()[i];
    }
    ++moved;
    ++i;
  }
  c->block = b;
  c->index = i;
  if (fetched) *fetched = moved;
  return moved ? S_OK : S_FALSE;
}

}  // namespace

void layoutPointers(BlockLayout* layout, uint64_t requested) { *layout = makeLayout(8, requested); }

void layoutRecords(BlockLayout* layout, uint64_t recordSize, uint64_t requested) {
  *layout = makeLayout(recordSize, requested);
}

HRESULT initPointerList(const BlockLayout* layout, Allocator* alloc, PagedList* list) {
  return initList(layout, alloc, list);
}

HRESULT initRecordList(const BlockLayout* layout, Allocator* alloc, PagedList* list) {
  return initList(layout, alloc, list);
}

HRESULT appendPointer(const BlockLayout* layout, Allocator* alloc, PagedList* list, void* value) {
  Block* b = tailWithRoom(layout, alloc, list, false);
  if (!b) return E_OUTOFMEMORY;
  b->pointers()[b->count++] = value;
  return S_OK;
}

void* appendRecord(const BlockLayout* layout, Allocator* alloc, PagedList* list) {
  Block* b = tailWithRoom(layout, alloc, list, true);
  if (!b) return nullptr;
  return b->items() + (b->count++) * layout->recordSize;
}

HRESULT appendBlock(const BlockLayout* layout, Allocator* alloc, PagedList* list) {
  if (!list->head) return initList(layout, alloc, list);
  Block* b = takeBlock(layout, alloc, false);
  if (!b) return E_OUTOFMEMORY;
  addTail(list, b);
  return S_OK;
}

uint64_t listCount(const PagedList* list) {
  uint64_t n = 0;
  if (Block* b = list->head) {
    do {
      n += b->count;
      b = b->next;
    } while (b != list->head);
  }
  return n;
}

HRESULT getAt(const PagedList* list, uint64_t position, void** out) {
  if (!out) return E_INVALIDARG;
  if (Block* b = list->head) {
    do {
      if (position < b->count) {
        *out = b->pointers()[position];
        return S_OK;
      }
      position -= b->count;
      b = b->next;
    } while (b != list->head);
  }
  return S_FALSE;
}

HRESULT setAt(const BlockLayout* layout, Allocator* alloc, PagedList* list, uint64_t position,
              void* value) {
  if (!list->head) {
    HRESULT hr = initList(layout, alloc, list);
    if (hr != S_OK) return hr;
  }
  Block* b = list->head;
  do {
    if (position < b->count) {
      b->pointers()[position] = value;
      return S_OK;
    }
    position -= b->count;
    b = b->next;
  } while (b != list->head);

  // Past the end: position is now counted from the end of the last block, so
  // measure it from that block's start instead, and fill blocks up to it.
  Block* last = list->tail;
  uint64_t p = position + last->count;
  while (p >= layout->capacity) {
    Block* nb = takeBlock(layout, alloc, true);
    if (!nb) return E_OUTOFMEMORY;
    last->count = layout->capacity;
    addTail(list, nb);
    last = nb;
    p -= layout->capacity;
  }
  last->count = p + 1;
  last->pointers()[p] = value;
  return S_OK;
}

int32_t findRecord(const BlockLayout* layout, const PagedList* list, RecordPredicate predicate,
                   void* context) {
  int32_t position = 0;
  if (Block* b = list->head) {
    do {
      for (uint64_t i = 0; i < b->count; ++i, ++position) {
        if (predicate(context, position, b->items() + i * layout->recordSize)) return position;
      }
      b = b->next;
    } while (b != list->head);
  }
  return -1;
}

HRESULT cursorInit(Cursor* cursor, const BlockLayout* layout, PagedList* list) {
  if (!cursor || !layout || !list) return E_INVALIDARG;
  cursor->list = list;
  cursor->layout = layout;
  cursor->block = list->head;
  cursor->index = 0;
  return S_OK;
}

HRESULT cursorNextPointers(Cursor* cursor, uint32_t n, void** out, uint32_t* fetched) {
  if (!cursor || !out) return E_INVALIDARG;
  return cursorAdvance(cursor, n, out, fetched, 0);
}

HRESULT cursorNextRecords(Cursor* cursor, uint32_t n, void** out, uint32_t* fetched) {
  if (!cursor || !out) return E_INVALIDARG;
  return cursorAdvance(cursor, n, out, fetched, cursor->layout->recordSize);
}

HRESULT cursorSkip(Cursor* cursor, uint32_t n) {
  if (!cursor) return E_INVALIDARG;
  if (!cursor->list->head || !cursor->block) return S_FALSE;
  cursorAdvance(cursor, n, nullptr, nullptr, 0);
  return S_OK;
}

HRESULT searchSorted(PagedList* list, Block** block, uint64_t* index, const void* key,
                     Comparison compare) {
  if (!list || !block || !index || !compare) return E_INVALIDARG;
  if (!list->head) return S_FALSE;
  Block* b = *block ? *block : list->head;
  for (;;) {
    if (b->count > 0 && compare(key, b->pointers()[b->count - 1]) <= 0) break;
    if (b->next == list->head) {
      *block = b;
      *index = b->count;
      return S_FALSE;
    }
    b = b->next;
  }
  uint64_t low = 0, length = b->count;
  void** items = b->pointers();
  while (length > 0) {
    const uint64_t half = length / 2;
    const uint64_t mid = low + half;
    const int32_t c = compare(key, items[mid]);
    if (c == 0) {
      *block = b;
      *index = mid;
      return S_OK;
    }
    if (c > 0) {
      low = mid + 1;
      length = length - half - 1;
    } else {
      length = half;
    }
  }
  *block = b;
  *index = low;
  return S_FALSE;
}

HRESULT insertSorted(const BlockLayout* layout, Allocator* alloc, PagedList* list, Block* block,
                     uint64_t index, void* value) {
  if (!list->head) {
    HRESULT hr = initList(layout, alloc, list);
    if (hr != S_OK) return hr;
    block = list->head;
    index = 0;
  }
  if (block->count >= layout->capacity) {
    Block* nb = takeBlock(layout, alloc, false);
    if (!nb) return E_OUTOFMEMORY;
    const uint64_t c = block->count;
    const uint64_t keep = c / 2;
    std::memcpy(nb->pointers(), block->pointers() + keep, (c - keep) * sizeof(void*));
    nb->count = c - keep;
    block->count = keep;
    nb->next = block->next;
    nb->previous = block;
    block->next->previous = nb;
    block->next = nb;
    if (list->tail == block) list->tail = nb;
    if (index > keep) {
      block = nb;
      index -= keep;
    }
  }
  void** items = block->pointers();
  std::memmove(items + index + 1, items + index, (block->count - index) * sizeof(void*));
  items[index] = value;
  ++block->count;
  return S_OK;
}

}  // namespace q9
