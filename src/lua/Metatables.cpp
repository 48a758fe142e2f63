// Registry names of the six metatables and the identity test on them.
#include "lua/Binding.h"

namespace q9::lua {
namespace {

constexpr const char* kRegistryNames[] = {
    "5C0D7A3E91B64F28A7E3D05B6C19F842",  // unsigned InternalValue
    "A41E96C27F3B4D0895E1C7A2D63B0F57",  // signed InternalValue
    "2F7B83D1C6E940A5B18D73E0F5A2C694",  // StringSlot
    "E3906B5AD2174C8F9A6E01B7C4D853F2",  // node
    "7D28C4F16A9E43B0B5F2E86D1C07A93E",  // database
    "B60F1E49D38A4725C9E7A03F16B25D8C",  // encoder
};

}  // namespace

const char* registryName(Meta meta) { return kRegistryNames[int(meta)]; }

bool hasMetatable(lua_State* L, int index, Meta meta) {
  if (lua_type(L, index) != LUA_TUSERDATA || !lua_getmetatable(L, index)) return false;
  lua_getfield(L, LUA_REGISTRYINDEX, registryName(meta));
  const bool same = lua_rawequal(L, -1, -2);
  lua_pop(L, 2);
  return same;
}

}  // namespace q9::lua
