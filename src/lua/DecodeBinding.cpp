// Decoding from scripts: a received message becomes a generic-for iterator
// over its signals, and raw values become physical ones.
#include "lua/ArgumentKinds.h"

namespace q9::lua {
namespace {

constexpr uint32_t kTextCapacity = 2048;

// One call per signal: signal, kind, value, triggering, instance; nil and
// the walk's end status (a float) when the message is done.
int iterateDecodedSignals(lua_State* L) {
  const int walkIndex = lua_upvalueindex(1);
  if (lua_type(L, walkIndex) != LUA_TUSERDATA || lua_rawlen(L, walkIndex) != sizeof(Q9DbDecodeEnum)) return 0;
  auto* walk = static_cast<Q9DbDecodeEnum*>(lua_touserdata(L, walkIndex));
  char text[kTextCapacity];
  Q9DbDecodedSignal decoded;
  HRESULT hr;
  for (;;) {
    decoded = Q9DbDecodedSignal{0, nullptr, nullptr, nullptr, 0, kTextCapacity, text};
    hr = Q9Db_decodeNextSignal(walk, nullptr, &decoded);
    if (hr >= 0) break;
    const HRESULT next = Q9Db_decodeNextFrametriggering(walk, nullptr);
    if (next < 0) {
      lua_pushnil(L);
      lua_pushnumber(L, next);
      return 2;
    }
  }
  pushNode(L, decoded.signal);
  lua_pushnumber(L, hr);
  if (hr == Q9_ASCIISIGNAL)
    lua_pushlstring(L, text, decoded.textLength);
  else
    pushUnsignedValue(L, decoded.value);
  pushNode(L, decoded.triggering);
  pushNode(L, decoded.instance);
  return 5;
}

int decodeMessage(lua_State* L) {
  auto* channel = NodeOf<Channel>::read(L, 1);
  const uint32_t identifier = uint32_t(Int::read(L, 2));
  const uint32_t flags = uint32_t(Int::read(L, 3));
  std::size_t length = 0;
  const char* payload = lua_tolstring(L, 4, &length);
  if (!payload) {
    payload = "";
    length = 0;
  }
  auto* walk = static_cast<Q9DbDecodeEnum*>(lua_newuserdata(L, sizeof(Q9DbDecodeEnum)));
  walk->magic = 0;  // no walk until decodeMessage sets one up
  Q9DbDecodeEnum* handle = walk;
  if (Q9Db_decodeMessage(channel, identifier, flags, length, reinterpret_cast<const uint8_t*>(payload), &handle) == S_OK)
    Q9Db_decodeNextFrametriggering(walk, nullptr);
  // The payload string rides along as an upvalue: the walk points into it.
  if (lua_type(L, 4) == LUA_TSTRING)
    lua_pushvalue(L, 4);
  else
    lua_pushstring(L, payload);
  lua_pushcclosure(L, iterateDecodedSignals, 2);
  return 1;
}

int internalToPhysical(lua_State* L) {
  auto* signal = NodeOf<Signal>::read(L, 1);
  const uint64_t raw = Raw::read(L, 2);
  Q9DbPhysicalValue value{};
  value.valueType = Q9_VALUETYPE_DOUBLE;
  const HRESULT hr = Q9Db_internalToPhysical(signal, raw, &value);
  if (hr == S_OK || hr == S_FALSE)
    pushPhysicalValue(L, value);
  else
    lua_pushnil(L);
  if (value.text && (hr == S_OK || hr == S_FALSE))
    pushStringSlot(L, value.text);
  else
    lua_pushnil(L);
  pushStatus(L, hr);
  return 3;
}

int checkValueInMinMax(lua_State* L) {
  auto* signal = NodeOf<Signal>::read(L, 1);
  Q9DbPhysicalValue value{};
  value.valueType = Q9_VALUETYPE_DOUBLE;
  value.value.d = luaL_checknumber(L, 2);
  lua_pushinteger(L, Q9Db_checkValueInMinMax(signal, &value));
  return 1;
}

}  // namespace

const luaL_Reg kDecodeMethods[] = {{"decodeMessage", decodeMessage},
                                   {"internalToPhysical", internalToPhysical},
                                   {"checkValueInMinMax", checkValueInMinMax},
                                   {nullptr, nullptr}};

}  // namespace q9::lua
