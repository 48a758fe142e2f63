// The filter host: each import or export call makes a Lua state, loads the
// filter package from the library's folder, calls one entry of it and turns
// the result into a status. Everything that touches Lua runs inside one
// protected call, so neither a broken package nor a memory error in Lua can
// escape as a longjmp through the client's frames.
#include <cstring>

#include "Q9Db.h"
#include "lua/Binding.h"

namespace q9 {
namespace {

enum class Argument { Database, Node, Path, Second, Report };

// The package's entries and what each is handed, in order.
struct Entry {
  const char* name;
  int count;
  Argument arguments[5];
};
constexpr Entry kImport{"doimport", 5,
                        {Argument::Database, Argument::Node, Argument::Path, Argument::Second, Argument::Report}};
constexpr Entry kExport{"doexport", 4, {Argument::Database, Argument::Node, Argument::Path, Argument::Second}};
constexpr Entry kExportWithReport{"doexport", 5,
                                  {Argument::Database, Argument::Node, Argument::Path, Argument::Second, Argument::Report}};
constexpr Entry kImportInfo{"getImportInfo", 3, {Argument::Database, Argument::Path, Argument::Report}};
constexpr Entry kDetect{"detectfile", 1, {Argument::Path}};
constexpr Entry kDatabaseId{"getdatabaseid", 1, {Argument::Path}};
constexpr Entry kImportFilters{"getImportFilters", 0, {}};
constexpr Entry kExportFilters{"getExportFilters", 0, {}};

struct EntryCall {
  const Entry& entry;
  Q9DbNode* db = nullptr;
  Q9DbNode* node = nullptr;
  const char16_t* path = nullptr;
  const char16_t* second = nullptr;
  void* context = nullptr;
  FilterReportCallback callback = nullptr;
  // What came back.
  int resultType = LUA_TNONE;
  bool isInteger = false;
  lua_Integer integer = 0;
  BSTR text = nullptr;       // a string or number result, or the error's text
  bool textOutOfMemory = false;
};

// The script's report(first, second, text): one record to the client.
int reportToClient(lua_State* L) {
  const auto first = int32_t(luaL_checkinteger(L, 1));
  const auto second = int32_t(luaL_checkinteger(L, 2));
  const char* text = luaL_checklstring(L, 3, nullptr);
  void* context = lua_touserdata(L, lua_upvalueindex(1));
  auto* call = static_cast<const EntryCall*>(lua_touserdata(L, lua_upvalueindex(2)));
  int32_t answer = 0;
  if (call->callback) {
    const FilterReportRecord record{first, second, text};
    answer = call->callback(context, &record);
  }
  lua_pushinteger(L, answer);
  return 1;
}

// The value at index as a BSTR, or null when it has no string form.
BSTR textOf(lua_State* L, int index, bool* outOfMemory) {
  if (lua_type(L, index) != LUA_TSTRING && lua_type(L, index) != LUA_TNUMBER) return nullptr;
  const char16_t* wide = lua::toWideText(L, index);
  BSTR text = SysAllocString(wide);
  if (!text) *outOfMemory = true;
  return text;
}

void pushArgument(lua_State* L, Argument argument, EntryCall& call) {
  switch (argument) {
    case Argument::Database: lua::pushDatabase(L, call.db, 0); break;  // the client keeps its database
    case Argument::Node: lua::pushNode(L, call.node); break;
    case Argument::Path: lua::pushWideTextOrEmpty(L, call.path); break;
    case Argument::Second: lua::pushWideTextOrEmpty(L, call.second); break;
    case Argument::Report:
      lua_pushlightuserdata(L, call.context);
      lua_pushlightuserdata(L, &call);
      lua_pushcclosure(L, reportToClient, 2);
      break;
  }
}

// Runs protected: sets the state up, calls the entry, reads its result.
int runEntry(lua_State* L) {
  auto& call = *static_cast<EntryCall*>(lua_touserdata(L, 1));
  luaL_openlibs(L);
  lua_pushcfunction(L, luaopen_Q9Db);
  lua_call(L, 0, 1);
  const int module = lua_gettop(L);
  lua_gc(L, LUA_GCRESTART, 0);
  luaL_checkstack(L, 8, "filter arguments");
  if (lua_getfield(L, module, call.entry.name) != LUA_TFUNCTION)
    return luaL_error(L, "the filter package has no function '%s'", call.entry.name);
  for (int i = 0; i < call.entry.count; ++i) pushArgument(L, call.entry.arguments[i], call);
  lua_call(L, call.entry.count, 1);
  call.resultType = lua_type(L, -1);
  int isInteger = 0;
  call.integer = lua_tointegerx(L, -1, &isInteger);
  call.isInteger = isInteger != 0;
  call.text = textOf(L, -1, &call.textOutOfMemory);
  return 0;
}

int errorText(lua_State* L) {
  auto& call = *static_cast<EntryCall*>(lua_touserdata(L, 2));
  call.text = textOf(L, 1, &call.textOutOfMemory);
  return 0;
}

// Status of the call: S_OK, E_FAIL when the package or entry raised (the
// error's text then in call.text), E_OUTOFMEMORY when no state could be made.
HRESULT run(EntryCall& call) {
  lua_State* L = luaL_newstate();
  if (!L) return E_OUTOFMEMORY;
  lua_gc(L, LUA_GCSTOP, 0);
  lua_pushcfunction(L, runEntry);
  lua_pushlightuserdata(L, &call);
  HRESULT hr = S_OK;
  if (lua_pcall(L, 1, 0, 0) != LUA_OK) {
    hr = E_FAIL;
    SysFreeString(call.text);
    call.text = nullptr;
    lua_pushcfunction(L, errorText);
    lua_insert(L, -2);
    lua_pushlightuserdata(L, &call);
    lua_pcall(L, 2, 0, 0);
  }
  lua_close(L);
  return hr;
}

void report(const EntryCall& call, const char16_t* text) {
  if (!call.callback) return;
  const FilterReportRecord record{0, 0, text ? text : u""};
  call.callback(call.context, &record);
}

// doimport, doexport and getImportInfo: nil or 0 is success, another number
// is the status (low 32 bits), an error is E_FAIL with its text reported.
HRESULT runFilter(EntryCall& call) {
  HRESULT hr = run(call);
  if (hr == E_OUTOFMEMORY) {
    report(call, u"Out of memory");
  } else if (hr != S_OK) {
    report(call, call.text);
  } else if (call.isInteger && call.integer != 0) {
    hr = HRESULT(uint32_t(uint64_t(call.integer)));
    // The code alone says what failed; scripts report their details first.
    report(call, u"");
  }
  SysFreeString(call.text);
  return hr;
}

}  // namespace
}  // namespace q9

using q9::EntryCall;

Q9DB_API HRESULT Q9Db_importFile(Q9DbNode* db, Q9DbNode* node, const char16_t* path, const char16_t* second,
                                 void* context, FilterReportCallback callback) {
  if (!db || !path) return E_INVALIDARG;
  EntryCall call{q9::kImport};
  call.db = db, call.node = node, call.path = path, call.second = second;
  call.context = context, call.callback = callback;
  return q9::runFilter(call);
}

Q9DB_API HRESULT Q9Db_exportFile(Q9DbNode* db, Q9DbNode* node, const char16_t* path, const char16_t* second,
                                 void* context, FilterReportCallback callback) {
  // Unlike the import entries, export has always left its arguments to the
  // package, and clients get the package's answer for a null, not
  // E_INVALIDARG. Nothing here dereferences them: a null path reaches the
  // script as the empty text, which names no export format (an error, so
  // E_FAIL); a null database as a userdata on a null handle, which the
  // binding refuses as a destroyed database (an error again).
  EntryCall call{q9::kExport};
  call.db = db, call.node = node, call.path = path, call.second = second;
  call.context = context, call.callback = callback;
  return q9::runFilter(call);
}

// What a format can't hold is left out of the file; this export lets the
// script say so, where Q9Db_exportFile gives it nobody to tell.
Q9DB_API HRESULT Q9Db_exportFileWithReport(Q9DbNode* db, Q9DbNode* node, const char16_t* path,
                                           const char16_t* second, void* context, FilterReportCallback callback) {
  if (!db || !path) return E_INVALIDARG;
  EntryCall call{q9::kExportWithReport};
  call.db = db, call.node = node, call.path = path, call.second = second;
  call.context = context, call.callback = callback;
  return q9::runFilter(call);
}

Q9DB_API HRESULT Q9Db_importGetInfo(Q9DbNode* db, const char16_t* path, void* context,
                                    FilterReportCallback callback) {
  if (!db || !path) return E_INVALIDARG;
  EntryCall call{q9::kImportInfo};
  call.db = db, call.path = path, call.context = context, call.callback = callback;
  return q9::runFilter(call);
}

Q9DB_API HRESULT Q9Db_importDetect(const char16_t* path) {
  if (!path) return E_INVALIDARG;
  EntryCall call{q9::kDetect};
  call.path = path;
  const HRESULT hr = q9::run(call);
  SysFreeString(call.text);
  if (hr != S_OK) return hr;
  return call.resultType == LUA_TNIL ? S_FALSE : S_OK;
}

Q9DB_API HRESULT Q9Db_importGetDbId(const char16_t* path, BSTR* out) {
  if (!path || !out) return E_INVALIDARG;
  EntryCall call{q9::kDatabaseId};
  call.path = path;
  const HRESULT hr = q9::run(call);
  if (hr != S_OK || !call.text) {
    SysFreeString(call.text);
    return hr == E_OUTOFMEMORY || call.textOutOfMemory ? E_OUTOFMEMORY : E_FAIL;
  }
  *out = call.text;
  return S_OK;
}

namespace q9 {
namespace {

HRESULT filterList(const Entry& entry, BSTR* out) {
  if (!out) return E_INVALIDARG;
  EntryCall call{entry};
  const HRESULT hr = run(call);
  if (hr == E_OUTOFMEMORY) {
    *out = SysAllocString(u"error: Out of memory.");
    return hr;
  }
  *out = call.text ? call.text : SysAllocString(u"");
  if (!*out) return E_OUTOFMEMORY;
  return hr;
}

}  // namespace
}  // namespace q9

Q9DB_API HRESULT Q9Db_importGetAvailableFilters(BSTR* out) { return q9::filterList(q9::kImportFilters, out); }
Q9DB_API HRESULT Q9Db_exportGetAvailableFilters(BSTR* out) { return q9::filterList(q9::kExportFilters, out); }
