// The work runs inside a guard and records what to raise in a verdict: the
// Lua error is raised only once the session and its documents are destroyed,
// since Lua raises by longjmp, which would skip their destructors.
#include "lua/XslTransform.h"

#include <cstring>
#include <string>

#include "lua/Binding.h"
#include "lua/XslSession.h"
#include "platform/Boundary.h"

namespace {

// What the Lua function has to raise once every C++ object of the
// transformation is gone: Lua raises by longjmp, which runs no destructors.
struct Verdict {
  enum Kind { Results, BadArgument, BadName, ChainStepFailed } kind;
  const char* message;
  lua_Integer index;
};

// A file name argument: the text of a string or a number, up to an embedded
// zero; anything else reads as the empty name.
std::string nameAt(lua_State* L, int index) {
  if (!lua_isstring(L, index)) return {};
  std::size_t length = 0;
  const char* text = lua_tolstring(L, index, &length);
  return std::string(text, strnlen(text, length));
}

int pushFailure(lua_State* L, const q9::xsl::Failure& failure) {
  lua_pushnil(L);
  lua_pushnumber(L, failure.code);
  lua_pushlstring(L, failure.text.data(), failure.text.size());
  return 3;
}

// Only Lua's memory error can cut through this function; nothing else in it
// raises.
int transform(lua_State* L, Verdict& verdict) {
  const std::string input = nameAt(L, 2);
  const bool chain = lua_type(L, 1) == LUA_TTABLE;
  std::string last;
  if (!chain) {
    if (!lua_isstring(L, 1)) {
      verdict = {Verdict::BadArgument, "filename or table expected", 0};
      return 0;
    }
    last = nameAt(L, 1);
    if (last.empty()) {
      verdict = {Verdict::BadArgument, "Invalid xsltfile parameter", 0};
      return 0;
    }
  }

  q9::xsl::XslSession session;
  q9::xsl::Document current;
  if (auto failure = session.load(input, current)) return pushFailure(L, *failure);

  if (chain) {
    const auto count = lua_Integer(lua_rawlen(L, 1));
    for (lua_Integer i = 1; i < count; ++i) {
      lua_rawgeti(L, 1, i);
      const bool isName = lua_isstring(L, -1);
      const std::string name = nameAt(L, -1);
      lua_pop(L, 1);
      q9::xsl::Document next;
      if (!isName || session.toDocument(current.get(), input, name, next)) {
        verdict = {isName ? Verdict::ChainStepFailed : Verdict::BadName, nullptr, i};
        return 0;
      }
      current = std::move(next);
    }
    const lua_Integer lastIndex = count < 2 ? 1 : count;
    lua_rawgeti(L, 1, lastIndex);
    last = nameAt(L, -1);
    lua_pop(L, 1);
    if (last.empty()) {
      verdict = {Verdict::BadName, nullptr, lastIndex};
      return 0;
    }
  }

  std::string output;
  if (auto failure = session.toText(current.get(), input, last, output))
    return pushFailure(L, *failure);
  lua_pushlstring(L, output.data(), output.size());
  return 1;
}

}  // namespace

int Q9Lua_xslTransform(lua_State* L) {
  Verdict verdict{Verdict::Results, nullptr, 0};
  int results = 0;
  const HRESULT status = q9::platform::guarded([&] { results = transform(L, verdict); });
  if (status != S_OK) return q9::lua::raiseFailure(L, status);
  switch (verdict.kind) {
    case Verdict::Results:
      break;
    case Verdict::BadArgument:
      return luaL_argerror(L, 1, verdict.message);
    case Verdict::BadName:
      return luaL_error(L, "Table with filenames expexted. Invalid filename at index %d",
                        int(verdict.index));
    case Verdict::ChainStepFailed:
      return luaL_error(L, "Invalid xsltfile at index %d", int(verdict.index));
  }
  return results;
}
