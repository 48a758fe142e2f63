// Nodes as userdata of one bare pointer, and the argument check that every
// method of the module uses on them.
#include "lua/Binding.h"
#include "store/NodeClasses.h"
#include "store/Nodes.h"

namespace q9::lua {
namespace {

[[noreturn]] void typeError(lua_State* L, int index, const char* expected, const char* got) {
  luaL_argerror(L, index, lua_pushfstring(L, "%s expected, got %s", expected, got));
  __builtin_unreachable();  // luaL_argerror does not return
}

// The node pointer of a node or database userdata; raises with `expected`
// for any other value. Null only for a database that was already destroyed.
void* nodeOfUserdata(lua_State* L, int index, const char* expected) {
  void* userdata = lua_touserdata(L, index);
  if (!userdata || !(hasMetatable(L, index, Meta::Node) || hasMetatable(L, index, Meta::Database)))
    typeError(L, index, expected, luaL_typename(L, index));
  void* node = *static_cast<void**>(userdata);
  if (!node) typeError(L, index, expected, "destroyed database");
  return node;
}

void* checkEither(lua_State* L, int index, uint32_t one, uint32_t other, const char* expected) {
  if (lua_type(L, index) <= LUA_TNIL) return nullptr;
  void* node = nodeOfUserdata(L, index, expected);
  if (!isExactly(node, one) && !isExactly(node, other)) typeError(L, index, expected, luaL_typename(L, index));
  return node;
}

}  // namespace

void* checkNode(lua_State* L, int index, uint32_t required) {
  if (lua_type(L, index) <= LUA_TNIL) return nullptr;
  void* node = nodeOfUserdata(L, index, "Q9Node");
  if (!inClasses(node, tagFirst(required), tagLast(required)))
    typeError(L, index, classNameA(required), classNameA(readTag(node)));
  return node;
}

void* checkDatabaseOrCollections(lua_State* L, int index) {
  return checkEither(L, index, Q9Db::kNodeType, DatabaseCollections::kNodeType, "Q9Db or DatabaseCollections");
}

void* checkChannelOrFrame(lua_State* L, int index) {
  return checkEither(L, index, Channel::kNodeType, Frame::kNodeType, "Channel or Frame");
}

void* checkTriggeringForTiming(lua_State* L, int index) {
  return checkEither(L, index, PDUTriggering::kNodeType, IdentifierBasedTriggering::kNodeType,
                     "PDUTriggering or IdentifierBasedTriggering");
}

int pushNode(lua_State* L, const void* node) {
  if (!node) {
    lua_pushnil(L);
    return 1;
  }
  *static_cast<const void**>(lua_newuserdata(L, sizeof node)) = node;
  luaL_setmetatable(L, registryName(Meta::Node));
  return 1;
}

}  // namespace q9::lua
