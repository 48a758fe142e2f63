// Method wrappers as templates: an argument kind says how one Lua argument
// becomes one parameter of the wrapped operation, and a result pattern says
// how its status and out-parameter come back. A method is then one line:
//   nodeResult<Q9Db_createChannel, Database, Text, NodeOf<Channel>>.
#pragma once

#include <tuple>
#include <utility>

#include "lua/Binding.h"
#include "store/Nodes.h"

namespace q9::lua {

// ---- Argument kinds: `type` and `read(L, index)` -------------------------
struct Int {  // lua_tointegerx, cut to 32 bits; unusable values give 0
  using type = int32_t;
  static type read(lua_State* L, int i) { return type(uint32_t(uint64_t(lua_tointegerx(L, i, nullptr)))); }
};
struct Int64 {
  using type = uint64_t;
  static type read(lua_State* L, int i) { return uint64_t(lua_tointegerx(L, i, nullptr)); }
};
struct Language {  // 16 bits
  using type = uint16_t;
  static type read(lua_State* L, int i) { return uint16_t(uint64_t(lua_tointegerx(L, i, nullptr))); }
};
struct U32 {
  using type = uint32_t;
  static type read(lua_State* L, int i) { return toUnsigned32(L, i); }
};
struct U64 {
  using type = uint64_t;
  static type read(lua_State* L, int i) { return toUnsigned64(L, i); }
};
struct Num {
  using type = double;
  static type read(lua_State* L, int i) { return lua_tonumberx(L, i, nullptr); }
};
// Text is converted only once every argument has been read: the wide copy
// goes onto the stack, where it must not be mistaken for an argument.
struct PendingText {
  int index;
};
struct Text {
  using type = PendingText;
  static type read(lua_State*, int i) { return PendingText{i}; }
};
struct Bytes {  // a Lua string handed over as it stands
  using type = const char*;
  static type read(lua_State* L, int i) {
    const char* s = lua_tolstring(L, i, nullptr);
    return s ? s : "";
  }
};
struct Raw {
  using type = uint64_t;
  static type read(lua_State* L, int i) { return toInternalValue(L, i); }
};
struct Slot {
  using type = Q9DbStringSlot*;
  static type read(lua_State* L, int i) { return checkStringSlot(L, i); }
};
struct Database {
  using type = Q9DbNode*;
  static type read(lua_State* L, int i) { return checkDatabase(L, i); }
};
template <class Class>
struct NodeOf {
  using type = Q9DbNode*;
  static type read(lua_State* L, int i) { return static_cast<Q9DbNode*>(checkNode(L, i, Class::kNodeType)); }
};
template <void* (*Check)(lua_State*, int)>
struct NodeBy {
  using type = Q9DbNode*;
  static type read(lua_State* L, int i) { return static_cast<Q9DbNode*>(Check(L, i)); }
};
using DatabaseOrCollections = NodeBy<checkDatabaseOrCollections>;
using ChannelOrFrame = NodeBy<checkChannelOrFrame>;
using TriggeringForTiming = NodeBy<checkTriggeringForTiming>;

// A kind read from a fixed argument position instead of its own.
template <int Index, class Kind>
struct At {
  using type = typename Kind::type;
  static type read(lua_State* L, int) { return Kind::read(L, Index); }
};

// Reads all arguments, the first from index 1, strictly left to right (a
// braced list fixes the order), so checks raise in argument order.
template <class... Kinds, std::size_t... I>
std::tuple<typename Kinds::type...> readArguments(lua_State* L, std::index_sequence<I...>) {
  return std::tuple<typename Kinds::type...>{Kinds::read(L, int(I) + 1)...};
}
template <class... Kinds>
std::tuple<typename Kinds::type...> readArguments(lua_State* L) {
  return readArguments<Kinds...>(L, std::index_sequence_for<Kinds...>{});
}

template <class T>
T finish(lua_State*, T value) {
  return value;
}
inline const char16_t* finish(lua_State* L, PendingText text) { return toWideText(L, text.index); }

// Calls fn with the arguments read so far and any out-parameters after them.
template <auto Fn, class Tuple, class... Outs>
HRESULT applyTo(lua_State* L, const Tuple& arguments, Outs*... outs) {
  return std::apply([&](auto... a) { return Fn(finish(L, a)..., outs...); }, arguments);
}
template <auto Fn, class... Kinds, class... Outs>
HRESULT callWith(lua_State* L, Outs*... outs) {
  return applyTo<Fn>(L, readArguments<Kinds...>(L), outs...);
}

inline int pushFailure(lua_State* L, HRESULT hr) {
  lua_pushnil(L);
  pushStatus(L, hr);
  return 2;
}

// ---- Result patterns -----------------------------------------------------
template <auto Fn, class... Kinds>
int nodeResult(lua_State* L) {
  Q9DbNode* out = nullptr;
  const HRESULT hr = callWith<Fn, Kinds...>(L, &out);
  return hr == S_OK ? pushNode(L, out) : pushFailure(L, hr);
}

// A node on success and nothing at all otherwise.
template <auto Fn, class... Kinds>
int nodeOrNothing(lua_State* L) {
  Q9DbNode* out = nullptr;
  return callWith<Fn, Kinds...>(L, &out) == S_OK ? pushNode(L, out) : 0;
}

template <auto Fn, class... Kinds>
int statusResult(lua_State* L) {
  pushStatus(L, callWith<Fn, Kinds...>(L));
  return 1;
}

template <auto Fn, class... Kinds>
int booleanResult(lua_State* L) {
  const HRESULT hr = callWith<Fn, Kinds...>(L);
  if (hr != S_OK) return pushFailure(L, hr);
  lua_pushboolean(L, 1);
  return 1;
}

template <auto Fn, class... Kinds>
int textResult(lua_State* L) {
  const char16_t* out = nullptr;
  const HRESULT hr = callWith<Fn, Kinds...>(L, &out);
  if (hr != S_OK) return pushFailure(L, hr);
  pushWideTextOrEmpty(L, out);
  return 1;
}

template <HRESULT (*Open)(Q9DbNode*, Q9DbEnumerator**), class Owner>
int iteratorResult(lua_State* L) {
  Q9DbNode* owner = Owner::read(L, 1);
  return pushEnumeration(L, Open, owner);
}

// Members from argument 2 on, handed over one at a time; stops at the first
// status other than S_OK, keeping what was added before it.
template <HRESULT (*Add)(Q9DbNode*, uint64_t, Q9DbNode* const*), class Owner, class Member>
int addEach(lua_State* L) {
  Q9DbNode* owner = Owner::read(L, 1);
  const int top = lua_gettop(L);
  HRESULT hr = S_OK;
  for (int i = 2; i <= top && hr == S_OK; ++i) {
    Q9DbNode* member = Member::read(L, i);
    hr = Add(owner, 1, &member);
  }
  pushStatus(L, hr);
  return 1;
}

}  // namespace q9::lua
