// One raw reader over the fuzz input, on a fresh Lua state, and the check of
// what it promises to leave: the tree (a table tagged "db") or nil and a
// message naming line and column, right above the caller's own values.
#pragma once

#include <lua.hpp>

#include "FuzzSupport.h"
#include "Q9Db.h"

namespace q9::fuzz {

using RawReader = int (*)(lua_State*, const char16_t*);

// Whether text is well-formed UTF-8: no stray continuation bytes, no
// overlong forms, no surrogates, nothing above U+10FFFF.
inline bool isUtf8(const unsigned char* s, size_t n) {
  for (size_t i = 0; i < n;) {
    const unsigned c = s[i];
    size_t extra;
    unsigned min;
    if (c < 0x80) { ++i; continue; }
    if (c >= 0xC2 && c <= 0xDF) extra = 1, min = 0x80;
    else if (c >= 0xE0 && c <= 0xEF) extra = 2, min = 0x800;
    else if (c >= 0xF0 && c <= 0xF4) extra = 3, min = 0x10000;
    else return false;
    if (n - i <= extra) return false;
    unsigned code = c & (0x3F >> extra);
    for (size_t k = 1; k <= extra; ++k) {
      if ((s[i + k] & 0xC0) != 0x80) return false;
      code = (code << 6) | (s[i + k] & 0x3F);
    }
    if (code < min || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) return false;
    i += extra + 1;
  }
  return true;
}

// Every string key and value of the tree is UTF-8.
inline void checkTexts(lua_State* L, int index, int depth) {
  if (depth > 16) violated("the tree nests deeper than its format");
  index = lua_absindex(L, index);
  lua_pushnil(L);
  while (lua_next(L, index)) {
    for (int at : {-2, -1}) {
      if (lua_type(L, at) != LUA_TSTRING) continue;
      size_t n = 0;
      const char* text = lua_tolstring(L, at, &n);
      if (!isUtf8(reinterpret_cast<const unsigned char*>(text), n)) violated("a text of the tree is no UTF-8");
    }
    if (lua_type(L, -1) == LUA_TTABLE) checkTexts(L, -1, depth + 1);
    lua_pop(L, 1);
  }
}

inline void checkRawRead(RawReader reader, const char* errorPrefix, bool utf8Tree, const uint8_t* data,
                         size_t size) {
  static InputFile file(".txt");
  file.write(data, size);
  lua_State* L = luaL_newstate();
  if (!L) violated("no Lua state");
  lua_pushliteral(L, "caller's value");
  const int results = reader(L, file.widePath());
  if (lua_gettop(L) != 1 + results) violated("results and stack disagree");
  if (lua_type(L, 1) != LUA_TSTRING) violated("the caller's value was touched");
  if (results == 1) {
    if (lua_type(L, -1) != LUA_TTABLE) violated("one result that is no table");
    lua_getfield(L, -1, "tag");
    const char* tag = lua_tostring(L, -1);
    if (!tag || std::strcmp(tag, "db") != 0) violated("the tree's root is no \"db\"");
    lua_pop(L, 1);
    if (utf8Tree) checkTexts(L, -1, 0);
  } else if (results == 2) {
    if (!lua_isnil(L, -2)) violated("a failure without nil");
    // A readable file fails only with a syntax error, never with a status.
    if (lua_type(L, -1) != LUA_TSTRING) violated("a failure without a message");
    const char* message = lua_tostring(L, -1);
    if (std::strncmp(message, errorPrefix, std::strlen(errorPrefix)) != 0)
      violated("a message without line and column", std::string(message).substr(0, 200));
  } else {
    violated("a result count other than 1 or 2");
  }
  lua_close(L);
}

}  // namespace q9::fuzz
