// A directory over the blocks of a long sorted list: the blocks in chain
// order, so that finding the block a key belongs in is a binary search over
// the blocks' last items instead of a walk along them. Without it, filling a
// group or the name index with n elements costs n times the walk, which grew
// with the square of a description file.
//
// The answers are those of the walk (searchSorted from the head): the first
// block whose last item sorts at or after the key. The two agree whenever the
// blocks' last items stand in order, which a directory checks when it is
// built and which sorted insertion keeps. Anything that could add blocks
// behind its back or change an item's key (appends, a new eid) forgets it;
// a list whose last items are out of order gets none and is walked.
//
// Only writers build and change directories; searches read them, so readers
// may run together as they may on the lists.
#pragma once

#include <cstdint>
#include <vector>

#include "store/PagedList.h"

namespace q9 {

// The key an item is searched by, and the order of two keys, such that
// compareKeys(key, keyOf(item)) is the list's comparison of key and item.
using KeyOf = const void* (*)(const void* item);
using KeyComparison = int32_t (*)(const void* key, const void* other);

struct BlockDirectory {
  struct Entry {
    Block* block;
    const void* lastKey;  // keyOf the block's last item, so a search reads no item
  };
  // The entries in chain order, cut into runs of bounded length so that a
  // split's new entry moves few others.
  std::vector<std::vector<Entry>> runs;  // empty until the list is long enough to need it
  KeyOf keyOf = nullptr;
  KeyComparison compareKeys = nullptr;

  bool built() const { return !runs.empty(); }
  const Entry& at(uint64_t slot) const { return runs[slot >> 32][slot & 0xFFFFFFFFu]; }
};

// searchSorted from the head, through the directory when it is built; slot
// receives the block's place in the directory (see at; 0 when not built).
HRESULT searchSortedWith(const BlockDirectory* directory, PagedList* list, Block** block,
                         uint64_t* index, uint64_t* slot, const void* key, Comparison compare);

// For a writer: builds the directory of a list that has grown long, when the
// last items of its blocks are in order.
void prepareDirectory(BlockDirectory* directory, PagedList* list, KeyOf keyOf,
                      KeyComparison compareKeys);

// insertSorted at what searchSortedWith found, keeping the directory right
// when the block splits.
HRESULT insertSortedWith(BlockDirectory* directory, const BlockLayout* layout, Allocator* alloc,
                         PagedList* list, Block* block, uint64_t index, uint64_t slot, void* value);

// The directories of one database's sorted lists, by list.
struct BlockDirectories;

// Null when the database has none for the list (for readers).
const BlockDirectory* findDirectory(const BlockDirectories* all, const PagedList* list);
// Made on first use (for writers); null only when memory runs out.
BlockDirectory* directoryFor(BlockDirectories** all, const PagedList* list);
// After a change that could leave a list out of order or with blocks the
// directory does not know.
void forgetDirectory(BlockDirectories* all, const PagedList* list);
void forgetDirectories(BlockDirectories* all);
void releaseDirectories(BlockDirectories** all);

}  // namespace q9
