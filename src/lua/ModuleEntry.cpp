// luaopen_Q9Db: what require "Q9Db" finds. It points the package paths at
// the library's folder and runs init.lua from there, whose result is the
// module; the scripts then call Q9Db_core for the binding itself.
#include "lua/Binding.h"
#include "lua/ModuleFolder.h"

namespace q9::lua {
namespace {

// package[field] = package[field] .. ";" .. addition, the stack as before.
void appendPackagePath(lua_State* L, const char* field, int addition) {
  lua_getglobal(L, "package");
  lua_getfield(L, -1, field);
  const char* old = lua_tostring(L, -1);
  lua_pushfstring(L, "%s;%s", old ? old : "", lua_tostring(L, addition));
  lua_setfield(L, -3, field);
  lua_pop(L, 2);
}

}  // namespace
}  // namespace q9::lua

extern "C" Q9DB_API int luaopen_Q9Db(lua_State* L) {
  using namespace q9::lua;
  pushModuleFolder(L);
  const int folder = lua_gettop(L);
  const char* dir = lua_tostring(L, folder);
  lua_pushfstring(L, "%s/?.lua;%s/?/init.lua", dir, dir);
  appendPackagePath(L, "path", lua_gettop(L));
  lua_pushfstring(L, "%s/?.so", dir);
  appendPackagePath(L, "cpath", lua_gettop(L));
  lua_pushfstring(L, "%s/init.lua", dir);
  const char* initFile = lua_tostring(L, -1);
  // A missing or broken init.lua raises its own message, which names the
  // file, rather than a bare "attempt to call" that would hide the cause.
  if (luaL_loadfilex(L, initFile, nullptr) != LUA_OK) return lua_error(L);
  lua_callk(L, 0, 1, 0, nullptr);
  lua_replace(L, folder);
  lua_settop(L, folder);
  return 1;
}
