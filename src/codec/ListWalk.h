// Walks over member lists for the cursors that public records carry as
// Q9DbCursor. They step through the store's own Cursor, so a list is walked
// the same way here as by every enumerator.
#pragma once

#include "Q9Db.h"
#include "store/PagedList.h"

namespace q9 {

static_assert(sizeof(Q9DbCursor) == sizeof(Cursor), "Q9DbCursor mirrors Cursor");

inline void startWalk(Q9DbCursor& c, PagedList& list) { c = Q9DbCursor{&list, &childLayout, list.head, 0}; }

inline void endWalk(Q9DbCursor& c) { c = Q9DbCursor{nullptr, nullptr, nullptr, 0}; }

// Takes the next item (which may be null) into item; false at the end.
inline bool nextItem(Q9DbCursor& c, void** item) {
  if (!c.list) return false;
  Cursor cursor{static_cast<PagedList*>(c.list), static_cast<const BlockLayout*>(c.layout),
                static_cast<Block*>(c.block), c.index};
  const bool more = cursorNextPointers(&cursor, 1, item, nullptr) == S_OK;
  c.block = cursor.block;
  c.index = cursor.index;
  return more;
}

}  // namespace q9
