// Iterator closures over the lists of a node: node lists walk through an
// Enumerator, record lists (segments, ranges) through a bare cursor. Each
// lives in a userdata upvalue and dies with its closure.
#pragma once

#include "lua/Binding.h"
#include "store/PagedList.h"

namespace q9::lua {

void pushNodeListIterator(lua_State* L, PagedList* list, const BlockLayout* layout);
void pushRecordIterator(lua_State* L, PagedList* list, const BlockLayout* layout);

}  // namespace q9::lua
