// Reading a node's fields by name (node.minValue) and walking them all
// (attribs). Methods in the metatable come first, so no field hides one.
#include <cstring>

#include "lua/AttributeTables.h"
#include "store/Nodes.h"

namespace q9::lua {
namespace {

const AttributeEntry* checkedAttributes(lua_State* L, const void* node) {
  const uint32_t nodeType = readTag(node);
  const AttributeEntry* table = attributesOf(nodeType);
  if (!table) luaL_error(L, "Tried to index unknown node class (%p)", reinterpret_cast<void*>(uintptr_t(nodeType)));
  return table;
}

const unsigned char* bytesOf(const void* node) { return static_cast<const unsigned char*>(node); }

// Where a walk stands, and in which class's table: a node of another class
// handed to the same closure has other fields, and ends the walk.
struct AttributeWalk {
  const AttributeEntry* table;
  const AttributeEntry* position;
};

int iterateAttributes(lua_State* L) {
  const void* node = checkNode(L, 1, ObjectBase::kNodeType);
  const int upvalue = lua_upvalueindex(1);
  if (!node || lua_type(L, upvalue) != LUA_TUSERDATA || lua_rawlen(L, upvalue) != sizeof(AttributeWalk)) return 0;
  auto* walk = static_cast<AttributeWalk*>(lua_touserdata(L, upvalue));
  const AttributeEntry* entry = walk->position;
  if (!entry->name || attributesOf(readTag(node)) != walk->table) return 0;
  lua_pushstring(L, entry->name);
  entry->reader(L, bytesOf(node) + entry->position);
  walk->position = entry + 1;
  return 2;
}

}  // namespace

int nodeIndex(lua_State* L) {
  if (lua_getmetatable(L, 1)) {
    lua_pushvalue(L, 2);
    lua_rawget(L, -2);
    if (!lua_isnil(L, -1)) return 1;
    lua_pop(L, 2);
  }
  const void* node = checkNode(L, 1, ObjectBase::kNodeType);
  const char* key = lua_type(L, 2) == LUA_TSTRING || lua_type(L, 2) == LUA_TNUMBER ? lua_tostring(L, 2) : nullptr;
  if (!node || !key) return 0;
  for (const AttributeEntry* entry = checkedAttributes(L, node); entry->name; ++entry)
    if (std::strcmp(entry->name, key) == 0) return entry->reader(L, bytesOf(node) + entry->position);
  return 0;
}

int attribs(lua_State* L) {
  const void* node = checkNode(L, 1, ObjectBase::kNodeType);
  if (!node) luaL_argerror(L, 1, lua_pushfstring(L, "%s expected, got %s", "Q9Node", luaL_typename(L, 1)));
  const AttributeEntry* table = checkedAttributes(L, node);
  *static_cast<AttributeWalk*>(lua_newuserdata(L, sizeof(AttributeWalk))) = AttributeWalk{table, table};
  lua_pushcclosure(L, iterateAttributes, 1);
  lua_pushvalue(L, 1);
  lua_pushnil(L);
  return 3;
}

}  // namespace q9::lua
