// Q9Db_luaPushNode: a C client that runs scripts in a Lua state of its own
// hands them nodes of a database it owns, as the module's own userdata, so
// that the scripts use the module's attributes and methods on them.
#include "lua/Binding.h"

namespace q9::lua {
namespace {

// Q9Db_core registers the metatables; a state that never loaded the module
// gets them here, as a userdata without its metatable would be useless.
void ensureMetatables(lua_State* L) {
  lua_getfield(L, LUA_REGISTRYINDEX, registryName(Meta::Node));
  const bool missing = lua_isnil(L, -1);
  lua_pop(L, 1);
  if (missing) {
    Q9Db_core(L);
    lua_pop(L, 1);  // the core table; require "Q9Db" makes the module's own
  }
}

}  // namespace
}  // namespace q9::lua

extern "C" Q9DB_API int Q9Db_luaPushNode(lua_State* L, Q9DbNode* node) {
  using namespace q9::lua;
  if (!L) return 0;
  ensureMetatables(L);
  // The database comes with its methods, as the filter host hands it over,
  // and without ownership: the client destroys it.
  if (node && Q9Db_getNodeType(node) == Q9_NODETYPE_Q9Db) return pushDatabase(L, node, 0);
  return pushNode(L, node);
}
