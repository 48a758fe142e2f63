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

// Pushes a new table whose "tag" names its kind, with room for that many
// further fields: a table filled field by field otherwise grows four or five
// times on the way, once per record of a large file.
inline void pushTaggedTable(lua_State* L, const char* tag, int fields = 0) {
  lua_createtable(L, 0, fields + 1);
  setStringField(L, "tag", tag);
}

// Pops the value at the top and appends it to the array part of the table
// at tableIndex.
inline void appendToArray(lua_State* L, int tableIndex) {
  const int table = lua_absindex(L, tableIndex);
  lua_rawseti(L, table, lua_Integer(lua_rawlen(L, table)) + 1);
}

}  // namespace q9
