// The folder that holds the library's own file: where init.lua and the
// filter scripts stand.
#pragma once

#include <lua.hpp>

namespace q9::lua {

// Pushes the folder as UTF-8, without a closing separator; a file name with
// no separator at all is pushed whole.
void pushModuleFolder(lua_State* L);

}  // namespace q9::lua
