// The entry shared by the DBC and LDF readers: open the file, build a
// scanner, run the parser as a protected call on the caller's Lua state, and
// tidy up whatever happened.
#pragma once

#include <lua.hpp>

#include "Q9Db.h"
#include "platform/LexerInput.h"

namespace q9 {

struct RawReader {
  // Takes over the input, also when it fails.
  HRESULT (*createScanner)(platform::LexerInput* input, void** scanner);
  void (*destroyScanner)(void* scanner);
  bool (*ranOutOfMemory)(const void* scanner);
  const platform::LexerInput* (*input)(const void* scanner);
  // Pushes the tree and returns 1, or raises a Lua error.
  int (*parse)(lua_State* L, void* scanner);
};

// Leaves the tree (1 result), or nil and a message, or nil and a status as
// a number (2 results), and returns the number of results.
int importRaw(lua_State* L, const char16_t* path, const RawReader& reader);

}  // namespace q9
