// Q9Db_importEngine: the native import engine as a table of Lua functions,
// which the filter scripts open with package.loadlib beside the core.
//
//   importDBC(db, node, path, prefix, language, report)  -> true, or raises
//   importLDF(db, node, path, prefix, language, report)  -> true, or raises
//   describeDBC(path, report), describeLDF(path, report)  -> true, or raises
//   databaseIdDBC(path)                                   -> text or nil
//
// The engine runs in C++ and collects its report; Lua is called only after
// its work is done and its objects are gone, from a userdata that owns the
// report, so a Lua error in the report function can't skip a destructor.
#include <new>

#include "Q9DbLua.h"
#include "import/NativeImport.h"
#include "lua/Binding.h"
#include "platform/Boundary.h"
#include "store/Nodes.h"

namespace q9 {
namespace {

constexpr char kReportMeta[] = "Q9Db.ImportReport";

ImportReport* newReport(lua_State* L, const char* path) {
  void* block = lua_newuserdata(L, sizeof(ImportReport));
  ImportReport* report = nullptr;
  // Without its metatable yet, the block is never destroyed as a report.
  const HRESULT made = platform::guarded([&] { report = new (block) ImportReport(path); });
  if (made != S_OK) lua::raiseFailure(L, made);
  if (luaL_newmetatable(L, kReportMeta)) {
    lua_pushcfunction(L, [](lua_State* S) {
      static_cast<ImportReport*>(lua_touserdata(S, 1))->~ImportReport();
      return 0;
    });
    lua_setfield(L, -2, "__gc");
  }
  lua_setmetatable(L, -2);
  return report;
}

// Hands the records to the script's report function (if any), then answers
// true or raises the failure.
int finish(lua_State* L, const ImportReport& report, int reportIndex) {
  if (lua_isfunction(L, reportIndex)) {
    for (const ReportRecord& record : report.records()) {
      lua_pushvalue(L, reportIndex);
      lua_pushinteger(L, record.kind);
      lua_pushinteger(L, record.subject);
      lua_pushlstring(L, record.text.data(), record.text.size());
      lua_call(L, 3, 0);
    }
  }
  if (report.failed()) {
    lua_pushlstring(L, report.error().data(), report.error().size());
    return lua_error(L);
  }
  lua_pushboolean(L, 1);
  return 1;
}

// Runs work, turning what it throws (an exhausted heap, in practice) into
// the report's failure. Recording that takes memory too; when even that
// fails, the bare Lua error is raised at once.
template <typename Work>
void runEngine(lua_State* L, ImportReport& report, Work work) {
  const HRESULT status = platform::guarded([&] {
    if (!work() && !report.failed()) report.fail({}, "the import failed");
  });
  if (status == S_OK) return;
  const HRESULT noted = platform::guarded([&] {
    report.fail({}, status == E_OUTOFMEMORY ? "not enough memory" : "unexpected failure in the import engine");
  });
  if (noted != S_OK) lua::raiseFailure(L, status);
}

template <bool (*engine)(Q9DbNode*, Q9DbNode*, const std::string&, const ImportOptions&, ImportReport&)>
int importWith(lua_State* L) {
  Q9DbNode* db = lua::checkDatabase(L, 1);
  auto* node = static_cast<Q9DbNode*>(lua::checkNode(L, 2, ObjectBase::kNodeType));
  const char* path = luaL_checkstring(L, 3);
  const char* prefix = luaL_optstring(L, 4, nullptr);
  const lua_Integer language = luaL_optinteger(L, 5, 0);
  luaL_argcheck(L, language >= 0 && language <= 0xFFFF, 5, "language from 0 to 65535");
  ImportReport* report = newReport(L, path);
  runEngine(L, *report, [&] {
    ImportOptions options;
    if (prefix && *prefix) options.prefix = prefix;
    options.language = uint16_t(language);
    return engine(db, node, path, options, *report);
  });
  return finish(L, *report, 6);
}

template <bool (*engine)(const std::string&, ImportReport&)>
int describeWith(lua_State* L) {
  const char* path = luaL_checkstring(L, 1);
  ImportReport* report = newReport(L, path);
  runEngine(L, *report, [&] { return engine(path, *report); });
  return finish(L, *report, 2);
}

int databaseIdDBC(lua_State* L) {
  const char* path = luaL_checkstring(L, 1);
  // The answer waits in the userdata's report while Lua copies it.
  ImportReport* report = newReport(L, path);
  runEngine(L, *report, [&] {
    if (const auto found = dbcDatabaseId(path)) report->info(kSubjectFile, *found);
    return true;
  });
  if (report->records().empty()) {
    lua_pushnil(L);
  } else {
    const std::string& id = report->records().front().text;
    lua_pushlstring(L, id.data(), id.size());
  }
  return 1;
}

const luaL_Reg kEngineFunctions[] = {
    {"importDBC", importWith<importDbcFile>},   {"importLDF", importWith<importLdfFile>},
    {"describeDBC", describeWith<describeDbcFile>}, {"describeLDF", describeWith<describeLdfFile>},
    {"databaseIdDBC", databaseIdDBC},           {nullptr, nullptr}};

}  // namespace
}  // namespace q9

extern "C" Q9DB_API int Q9Db_importEngine(lua_State* L) {
  luaL_newlib(L, q9::kEngineFunctions);
  return 1;
}
