// importDBC and importLDF: a description file to a tree of plain tables;
// the results are the reader's own (the tree, or nil and what went wrong).
#include "lua/Binding.h"

namespace q9::lua {

int importDBC(lua_State* L) { return Q9Db_importRawDBC(L, toWideText(L, 1)); }
int importLDF(lua_State* L) { return Q9Db_importRawLDF(L, toWideText(L, 1)); }

}  // namespace q9::lua
