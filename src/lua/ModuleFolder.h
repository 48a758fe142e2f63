// The folder that holds the library's own file: where init.lua and the
// filter scripts stand.
#pragma once

#include <lua.hpp>

namespace q9::lua {

// Pushes the folder as UTF-8, without a closing separator; a file name with
// no separator at all is pushed whole.
void pushModuleFolder(lua_State* L);

// Tests of the filter host point it at a folder of their own scripts; null
// returns to the library's folder. Not for concurrent use.
void setModuleFolderForTesting(const char* folder);

}  // namespace q9::lua
