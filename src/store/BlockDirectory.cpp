#include "store/BlockDirectory.h"

#include <new>
#include <unordered_map>

namespace q9 {

namespace {

// Below this many blocks the walk is as quick as the directory.
constexpr uint64_t kBlocksWorthADirectory = 16;

const void* lastItem(Block* b) { return b->pointers()[b->count - 1]; }

}  // namespace

HRESULT searchSortedWith(const BlockDirectory* directory, PagedList* list, Block** block,
                         uint64_t* index, uint64_t* slot, const void* key, Comparison compare) {
  *slot = 0;
  *block = nullptr;
  if (!directory || directory->blocks.empty())
    return searchSorted(list, block, index, key, compare);
  // The first block whose last item is not below the key; every block of a
  // built directory holds items.
  const std::vector<BlockDirectory::Entry>& blocks = directory->blocks;
  uint64_t low = 0, length = blocks.size();
  while (length > 0) {
    const uint64_t half = length / 2;
    if (directory->compareKeys(key, blocks[low + half].lastKey) > 0) {
      low += half + 1;
      length -= half + 1;
    } else {
      length = half;
    }
  }
  if (low == blocks.size()) {
    *slot = low - 1;
    *block = blocks[low - 1].block;
    *index = (*block)->count;
    return S_FALSE;
  }
  *slot = low;
  *block = blocks[low].block;
  return searchSorted(list, block, index, key, compare);
}

void prepareDirectory(BlockDirectory* directory, PagedList* list, KeyOf keyOf,
                      KeyComparison compareKeys) {
  if (!directory || !directory->blocks.empty() || !list->head) return;
  uint64_t n = 0;
  Block* b = list->head;
  const void* before = nullptr;
  do {
    if (b->count == 0) return;  // only an empty list has an empty block
    const void* last = keyOf(lastItem(b));
    if (n > 0 && compareKeys(before, last) > 0) return;
    before = last;
    ++n;
    b = b->next;
  } while (b != list->head);
  if (n < kBlocksWorthADirectory) return;
  directory->keyOf = keyOf;
  directory->compareKeys = compareKeys;
  try {
    directory->blocks.reserve(n);
    do {
      directory->blocks.push_back({b, keyOf(lastItem(b))});
      b = b->next;
    } while (b != list->head);
  } catch (const std::bad_alloc&) {
    directory->blocks.clear();  // searches walk again
  }
}

HRESULT insertSortedWith(BlockDirectory* directory, const BlockLayout* layout, Allocator* alloc,
                         PagedList* list, Block* block, uint64_t index, uint64_t slot, void* value) {
  const bool built = directory && !directory->blocks.empty();
  const bool splits = built && block->count >= layout->capacity;
  const HRESULT hr = insertSorted(layout, alloc, list, block, index, value);
  if (!built || hr != S_OK) return hr;
  // The item may have become the last of its block, and a split gives the
  // block a new last item and a neighbour.
  std::vector<BlockDirectory::Entry>& blocks = directory->blocks;
  BlockDirectory::Entry& entry = blocks[slot];
  entry.lastKey = directory->keyOf(lastItem(entry.block));
  if (!splits) return hr;
  Block* added = entry.block->next;
  try {
    blocks.insert(blocks.begin() + static_cast<std::ptrdiff_t>(slot + 1),
                  {added, directory->keyOf(lastItem(added))});
  } catch (const std::bad_alloc&) {
    blocks.clear();
  }
  return hr;
}

struct BlockDirectories {
  std::unordered_map<const PagedList*, BlockDirectory> byList;
};

const BlockDirectory* findDirectory(const BlockDirectories* all, const PagedList* list) {
  if (!all) return nullptr;
  auto it = all->byList.find(list);
  return it == all->byList.end() ? nullptr : &it->second;
}

BlockDirectory* directoryFor(BlockDirectories** all, const PagedList* list) {
  try {
    if (!*all) *all = new BlockDirectories;
    return &(*all)->byList[list];
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

void forgetDirectory(BlockDirectories* all, const PagedList* list) {
  if (all) all->byList.erase(list);
}

void forgetDirectories(BlockDirectories* all) {
  if (all) all->byList.clear();
}

void releaseDirectories(BlockDirectories** all) {
  delete *all;
  *all = nullptr;
}

}  // namespace q9
