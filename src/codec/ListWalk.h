// Walks over member lists for the cursors that public records carry as
// Q9DbCursor. A Q9DbCursor is the store's Cursor field for field, and it
// steps as the store's cursors step, so a list is walked the same way here
// as by every enumerator.
#pragma once

#include "Q9Db.h"
#include "store/PagedList.h"

namespace q9 {

static_assert(sizeof(Q9DbCursor) == sizeof(Cursor), "Q9DbCursor mirrors Cursor");

inline void startWalk(Q9DbCursor& c, PagedList& list) { c = Q9DbCursor{&list, &childLayout, list.head, 0}; }

inline void endWalk(Q9DbCursor& c) { c = Q9DbCursor{nullptr, nullptr, nullptr, 0}; }

// Takes the next item (which may be null) into item; false at the end. The
// same steps as a one-item cursorNextPointers, kept inline for the decoder's
// hot path: a cursor that has taken the last item stays on the last block
// until a further call runs it off the end.
inline bool nextItem(Q9DbCursor& c, void** item) {
  auto* b = static_cast<Block*>(c.block);
  if (!b) return false;
  while (c.index >= b->count) {
    if (b->next == static_cast<PagedList*>(c.list)->head) {
      c.block = nullptr;
      c.index = 0;
      return false;
    }
    b = b->next;
    c.block = b;
    c.index = 0;
  }
  *item = b->pointers()[c.index++];
  return true;
}

}  // namespace q9
