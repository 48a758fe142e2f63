// The frame encoder from scripts: a userdata that owns one encoder handle.
#include "lua/ArgumentKinds.h"

namespace q9::lua {
namespace {

Q9DbEncoder** checkEncoderSlot(lua_State* L) {
  return static_cast<Q9DbEncoder**>(luaL_checkudata(L, 1, registryName(Meta::Encoder)));
}

struct EncoderArg {
  using type = Q9DbEncoder*;
  static type read(lua_State* L, int) { return *checkEncoderSlot(L); }
};
using App = U32;

// Operations with a number out-parameter answer it and the status, always.
template <auto Fn, class... Kinds>
int numberAndStatus(lua_State* L) {
  uint32_t out = 0;
  const HRESULT hr = callWith<Fn, Kinds...>(L, &out);
  lua_pushinteger(L, out);
  pushStatus(L, hr);
  return 2;
}

int isSignalCyclic(lua_State* L) {
  lua_pushinteger(L, callWith<Q9Db_EncoderIsSignalCyclic, EncoderArg, NodeOf<ElementId>>(L));
  return 1;
}

int getNextFrame(lua_State* L) {
  Q9DbChangedFrame frame{nullptr, 0, nullptr};
  const HRESULT hr = callWith<Q9Db_EncoderGetChangedFrame, EncoderArg>(L, &frame);
  if (hr != S_OK) return pushFailure(L, hr);
  lua_createtable(L, 0, 0);
  // A copy: the encoder's image changes with the next trigger.
  lua_pushlstring(L, reinterpret_cast<const char*>(frame.data), frame.data ? std::size_t(frame.size) : 0);
  lua_setfield(L, -2, "data");
  if (frame.frame) {
    pushNode(L, frame.frame);
    lua_setfield(L, -2, "frame");
  }
  return 1;
}

int collect(lua_State* L) {
  Q9DbEncoder** slot = checkEncoderSlot(L);
  if (*slot) {
    Q9Db_DestroyEncoder(*slot);
    *slot = nullptr;
  }
  return 0;
}

}  // namespace

int createEncoder(lua_State* L) {
  auto [database, scope] = readArguments<Database, NodeOf<ElementId>>(L);
  // The userdata exists before the handle does, so a memory error in Lua
  // can't leave an encoder that nothing owns.
  auto** slot = static_cast<Q9DbEncoder**>(lua_newuserdata(L, sizeof(Q9DbEncoder*)));
  *slot = nullptr;
  luaL_setmetatable(L, registryName(Meta::Encoder));
  const HRESULT hr = Q9Db_CreateEncoder(database, scope, slot);
  return hr == S_OK ? 1 : pushFailure(L, hr);
}

const luaL_Reg kEncoderMethods[] = {
    {"registerApp", numberAndStatus<Q9Db_EncoderRegister, EncoderArg>},
    {"deregisterApp", statusResult<Q9Db_EncoderDeregister, EncoderArg, App>},
    {"getSendMode", numberAndStatus<Q9Db_EncoderGetSendMode, EncoderArg, App>},
    {"setSendMode", statusResult<Q9Db_EncoderSetSendMode, EncoderArg, App, U32>},
    {"isSignalCyclic", isSignalCyclic},
    {"insertNode", statusResult<Q9Db_EncoderInsert, EncoderArg, App, NodeOf<ElementId>>},
    {"deleteNode", statusResult<Q9Db_EncoderDelete, EncoderArg, App, NodeOf<ElementId>>},
    {"changeSignal", statusResult<Q9Db_EncoderChangeSignal, EncoderArg, App, NodeOf<Signal>, Raw>},
    {"trigger", statusResult<Q9Db_EncoderTrigger, EncoderArg, Raw>},
    {"getNextFrame", getNextFrame},
    {"__gc", collect},
    {nullptr, nullptr}};

}  // namespace q9::lua
