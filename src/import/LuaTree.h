// Small helpers for building the plain result tables of the readers. Each
// works on the table at the top of the Lua stack unless it says otherwise.
#pragma once

#include <lua.hpp>

namespace q9 {

inline void setStringField(lua_State* L, const char* key, const char* value) {
  lua_pushstring(L, value);
  lua_setfield(L, -2, key);
}

inline void setNumberField(lua_State* L, const char* key, double value) {
  lua_pushnumber(L, value);
  lua_setfield(L, -2, key);
}

inline void setTrueField(lua_State* L, const char* key) {
  lua_pushboolean(L, 1);
  lua_setfield(L, -2, key);
}

// Pushes a new table whose "tag" names its kind.
inline void pushTaggedTable(lua_State* L, const char* tag) {
  lua_createtable(L, 0, 0);
  setStringField(L, "tag", tag);
}

// Pops the value at the top and appends it to the array part of the table
// at tableIndex.
inline void appendToArray(lua_State* L, int tableIndex) {
  const int table = lua_absindex(L, tableIndex);
  lua_rawseti(L, table, lua_Integer(lua_rawlen(L, table)) + 1);
}

}  // namespace q9
