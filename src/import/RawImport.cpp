// The scanner's holder is a heap block outside the protected call, so it is
// freed whether the parser returns or jumps out. The collector rests during
// the parse, as the tree being built is all reachable anyway; out of memory
// and a read that broke off are told apart from a syntax error.
#include "import/RawImport.h"

#include "platform/Heap.h"

namespace q9 {
namespace {

// The parser runs inside lua_pcall and leaves by a long jump on error, so
// the scanner's owner has to stand outside that call: this block.
struct RawImportHolder {
  void* scanner;
  const RawReader* reader;
};

int parseInProtectedCall(lua_State* L) {
  auto* holder = static_cast<RawImportHolder*>(lua_touserdata(L, lua_upvalueindex(1)));
  if (!holder || !holder->scanner) return luaL_error(L, "invalid parser instance");
  return holder->reader->parse(L, holder->scanner);
}

int pushFailure(lua_State* L, HRESULT status) {
  lua_pushnil(L);
  lua_pushnumber(L, lua_Number(status));
  return 2;
}

}  // namespace

int importRaw(lua_State* L, const char16_t* path, const RawReader& reader) {
  // Room for the closure and its upvalue, and later for two results.
  if (!lua_checkstack(L, 4)) return 0;
  const int base = lua_gettop(L);
  if (!path) return pushFailure(L, E_INVALIDARG);

  auto* holder = static_cast<RawImportHolder*>(platform::heapAlloc(sizeof(RawImportHolder)));
  if (!holder) return pushFailure(L, E_OUTOFMEMORY);
  *holder = RawImportHolder{nullptr, &reader};

  platform::LexerInput* input = nullptr;
  HRESULT status = platform::openLexerInput(path, &input);
  if (SUCCEEDED(status)) status = reader.createScanner(input, &holder->scanner);
  if (FAILED(status)) {
    platform::heapFree(holder);
    return pushFailure(L, status);
  }

  // Everything the parser makes stays reachable until it returns, so the
  // collector would only walk the growing tree again and again; it rests
  // during the parse.
  const bool collecting = lua_gc(L, LUA_GCISRUNNING, 0) != 0;
  lua_gc(L, LUA_GCSTOP, 0);
  lua_pushlightuserdata(L, holder);
  lua_pushcclosure(L, parseInProtectedCall, 1);
  const int outcome = lua_pcall(L, 0, LUA_MULTRET, 0);
  if (collecting) lua_gc(L, LUA_GCRESTART, 0);

  if (outcome == LUA_ERRMEM || (outcome != LUA_OK && reader.ranOutOfMemory(holder->scanner)))
    status = E_OUTOFMEMORY;
  else if (outcome == LUA_OK && reader.input(holder->scanner)->readFailed)
    status = E_FAIL;  // the file broke off while it was read
  reader.destroyScanner(holder->scanner);
  platform::heapFree(holder);

  if (FAILED(status)) {
    lua_settop(L, base);
    return pushFailure(L, status);
  }
  if (outcome != LUA_OK) {
    lua_pushnil(L);
    lua_rotate(L, -2, 1);
    return 2;
  }
  return lua_gettop(L) - base;
}

}  // namespace q9
