// The directory is kept in runs of bounded length, so a block split shifts
// the entries of one run, not of the whole directory. It is built only over
// enough blocks already in key order, and when memory runs out it is dropped:
// searches go back to walking the blocks, slower but still right.
#include "store/BlockDirectory.h"

#include <new>
#include <unordered_map>

namespace q9 {

namespace {

// Below this many blocks the walk is as quick as the directory.
constexpr uint64_t kBlocksWorthADirectory = 16;
// Runs are built this long and split in two when they reach twice that.
constexpr uint64_t kRunLength = 256;

const void* lastItem(Block* b) { return b->pointers()[b->count - 1]; }

uint64_t slotOf(uint64_t run, uint64_t entry) { return run << 32 | entry; }

// The first of n things whose key is not below key, or n.
template <typename KeyAt>
uint64_t firstNotBelow(const BlockDirectory& d, uint64_t n, const void* key, KeyAt keyAt) {
  uint64_t low = 0, length = n;
  while (length > 0) {
    const uint64_t half = length / 2;
    if (d.compareKeys(key, keyAt(low + half)) > 0) {
      low += half + 1;
      length -= half + 1;
    } else {
      length = half;
    }
  }
  return low;
}

}  // namespace

HRESULT searchSortedWith(const BlockDirectory* directory, PagedList* list, Block** block,
                         uint64_t* index, uint64_t* slot, const void* key, Comparison compare) {
  *slot = 0;
  *block = nullptr;
  if (!directory || !directory->built()) return searchSorted(list, block, index, key, compare);
  // The first block whose last item is not below the key; every block of a
  // built directory holds items, and every run entries.
  const auto& runs = directory->runs;
  const uint64_t run = firstNotBelow(*directory, runs.size(), key,
                                     [&](uint64_t r) { return runs[r].back().lastKey; });
  if (run == runs.size()) {
    *slot = slotOf(run - 1, runs.back().size() - 1);
    *block = runs.back().back().block;
    *index = (*block)->count;
    return S_FALSE;
  }
  const auto& entries = runs[run];
  const uint64_t entry = firstNotBelow(*directory, entries.size(), key,
                                       [&](uint64_t e) { return entries[e].lastKey; });
  *slot = slotOf(run, entry);
  *block = entries[entry].block;
  return searchSorted(list, block, index, key, compare);
}

void prepareDirectory(BlockDirectory* directory, PagedList* list, KeyOf keyOf,
                      KeyComparison compareKeys) {
  if (!directory || directory->built() || !list->head) return;
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
    do {
      if (directory->runs.empty() || directory->runs.back().size() == kRunLength)
        directory->runs.emplace_back().reserve(kRunLength);
      directory->runs.back().push_back({b, keyOf(lastItem(b))});
      b = b->next;
    } while (b != list->head);
  } catch (const std::bad_alloc&) {
    directory->runs.clear();  // searches walk again
  }
}

HRESULT insertSortedWith(BlockDirectory* directory, const BlockLayout* layout, Allocator* alloc,
                         PagedList* list, Block* block, uint64_t index, uint64_t slot, void* value) {
  const bool built = directory && directory->built();
  const bool splits = built && block->count >= layout->capacity;
  const HRESULT hr = insertSorted(layout, alloc, list, block, index, value);
  if (!built || hr != S_OK) return hr;
  // The item may have become the last of its block, and a split gives the
  // block a new last item and a neighbour.
  auto& runs = directory->runs;
  const uint64_t run = slot >> 32, entry = slot & 0xFFFFFFFFu;
  auto& entries = runs[run];
  entries[entry].lastKey = directory->keyOf(lastItem(entries[entry].block));
  if (!splits) return hr;
  Block* added = entries[entry].block->next;
  try {
    entries.insert(entries.begin() + static_cast<std::ptrdiff_t>(entry + 1),
                   {added, directory->keyOf(lastItem(added))});
    if (entries.size() >= 2 * kRunLength) {
      std::vector<BlockDirectory::Entry> upper(entries.begin() + kRunLength, entries.end());
      entries.resize(kRunLength);
      runs.insert(runs.begin() + static_cast<std::ptrdiff_t>(run + 1), std::move(upper));
    }
  } catch (const std::bad_alloc&) {
    runs.clear();
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
