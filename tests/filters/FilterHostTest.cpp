// The filter host against packages written by the test: statuses from script
// results, reports both ways, text and node arguments, and packages that are
// missing or broken.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "Q9Db.h"
#include "lua/ModuleFolder.h"
#include "platform/WideText.h"

namespace {

namespace fs = std::filesystem;

struct Report {
  int32_t first, second;
  std::string text;  // UTF-8 either way
};

class FilterHostTest : public ::testing::Test {
 protected:
  void SetUp() override {
    folder = fs::temp_directory_path() / ("q9db-host-" + std::to_string(::getpid()) + "-" +
                                          ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::create_directories(folder);
    folderText = folder.string();
    q9::lua::setModuleFolderForTesting(folderText.c_str());
    ASSERT_EQ(Q9Db_create(u"client", &db), S_OK);
  }
  void TearDown() override {
    q9::lua::setModuleFolderForTesting(nullptr);
    fs::remove_all(folder);
    Q9Db_destroy(db);
  }
  void package(const std::string& initLua) { std::ofstream(folder / "init.lua") << initLua; }

  HRESULT import(const char16_t* second = nullptr, Q9DbNode* node = nullptr) {
    return Q9Db_importFile(db, node, u"/data/f\u00e4.dbc", second, &reports, recordReport);
  }
  // Keeps script texts as bytes and host texts converted from wide text.
  static int32_t recordReport(void* context, const FilterReportRecord* record) {
    auto* self = static_cast<std::vector<Report>*>(context);
    const bool wide = record->first == 0 && record->second == 0;
    self->push_back({record->first, record->second,
                     wide ? q9::platform::utf16ToUtf8(static_cast<const char16_t*>(record->text))
                          : std::string(static_cast<const char*>(record->text))});
    return 40 + int32_t(self->size());
  }

  fs::path folder;
  std::string folderText;
  Q9DbNode* db = nullptr;
  std::vector<Report> reports;
};

TEST_F(FilterHostTest, ScriptResultsBecomeStatuses) {
  struct Row {
    const char* body;
    HRESULT status;
    size_t reports;
  } rows[] = {
      {"", S_OK, 0},
      {"return nil", S_OK, 0},
      {"return 0", S_OK, 0},
      {"return 'not a number'", S_OK, 0},
      {"return 5", HRESULT(5), 1},
      {"return 0x100000005", HRESULT(5), 1},
      {"return -2147024809", E_INVALIDARG, 1},
      {"error('boom')", E_FAIL, 1},
      {"error({})", E_FAIL, 1},
  };
  for (const Row& row : rows) {
    reports.clear();
    package(std::string("return { doimport = function() ") + row.body + " end }");
    EXPECT_EQ(import(), row.status) << row.body;
    EXPECT_EQ(reports.size(), row.reports) << row.body;
  }
  package("return { doimport = function() error('boom at line 3') end }");
  reports.clear();
  EXPECT_EQ(import(), E_FAIL);
  ASSERT_EQ(reports.size(), 1u);
  EXPECT_NE(reports[0].text.find("boom at line 3"), std::string::npos);
}

TEST_F(FilterHostTest, ArgumentsReachTheScript) {
  package(R"(return { doimport = function(db, node, path, second, report)
      assert(type(db) == "userdata", "database")
      assert(node == nil, "node")
      assert(path == "/data/f\xC3\xA4.dbc", "path " .. path)
      assert(second == "", "second")
      return report(7, -8, "\xE2\x82\xAC 1") end })");
  EXPECT_EQ(import(), HRESULT(41));  // the callback's answer, returned as a code
  ASSERT_EQ(reports.size(), 2u);
  EXPECT_EQ(reports[0].first, 7);
  EXPECT_EQ(reports[0].second, -8);
  EXPECT_EQ(reports[0].text, "\xE2\x82\xAC 1");

  reports.clear();
  package("return { doimport = function(db, node, path, second) return second == 'opt' and node ~= nil and 0 or 9 end }");
  EXPECT_EQ(import(u"opt", db), S_OK);
  EXPECT_EQ(Q9Db_importFile(db, nullptr, u"x", nullptr, nullptr, nullptr), HRESULT(9));  // no callback, no crash

  package("return { doimport = function(db, node, path, second, report) report('x', 1, 'y') end }");
  EXPECT_EQ(import(), E_FAIL);
  EXPECT_NE(reports.back().text.find("number expected"), std::string::npos) << reports.back().text;

  // An export is given a report function only by the call that takes reports.
  reports.clear();
  package("return { doexport = function(db, node, path, second, report) return report and report(1, 0, path) or 3 end }");
  EXPECT_EQ(Q9Db_exportFileWithReport(db, nullptr, u"out.dbc", nullptr, &reports, recordReport), HRESULT(41));
  ASSERT_FALSE(reports.empty());
  EXPECT_EQ(reports[0].text, "out.dbc");
  EXPECT_EQ(Q9Db_exportFile(db, nullptr, u"out.dbc", nullptr, &reports, recordReport), HRESULT(3));
}

TEST_F(FilterHostTest, BrokenPackagesFailWithAReportNamingTheFile) {
  const std::pair<const char*, const char*> rows[] = {
      {nullptr, "init.lua"},  // no package at all
      {"return { doimport = function( end }", "init.lua:1:"},
      {"error('package refuses')", "package refuses"},
      {"return {}", "no function 'doimport'"},
  };
  for (const auto& [initLua, reason] : rows) {
    if (initLua) package(initLua);
    reports.clear();
    EXPECT_EQ(import(), E_FAIL) << reason;
    ASSERT_EQ(reports.size(), 1u) << reason;
    EXPECT_NE(reports[0].text.find(reason), std::string::npos) << reports[0].text;
  }
  EXPECT_EQ(Q9Db_importDetect(u"x"), E_FAIL);
}

TEST_F(FilterHostTest, DetectionIdsAndFilterLists) {
  struct Row {
    const char* detect;
    HRESULT status;
  } detections[] = {{"return nil", S_FALSE}, {"return false", S_OK}, {"return 'dbc'", S_OK}, {"error('x')", E_FAIL}};
  for (const Row& row : detections) {
    package(std::string("return { detectfile = function(path) ") + row.detect + " end }");
    EXPECT_EQ(Q9Db_importDetect(u"a.dbc"), row.status) << row.detect;
  }

  package(R"(return { getdatabaseid = function(path) if path == "n" then return 42 end
                                                     if path == "t" then return {} end return "id-" .. path end,
                      getImportFilters = function() return "A (*.a)|*.a" end,
                      getExportFilters = function() error("no export here") end })");
  BSTR id = nullptr;
  ASSERT_EQ(Q9Db_importGetDbId(u"n", &id), S_OK);
  EXPECT_EQ(std::u16string(id), u"42");
  SysFreeString(id);
  ASSERT_EQ(Q9Db_importGetDbId(u"s", &id), S_OK);
  EXPECT_EQ(std::u16string(id), u"id-s");
  SysFreeString(id);
  BSTR untouched = reinterpret_cast<BSTR>(&id);
  EXPECT_EQ(Q9Db_importGetDbId(u"t", &untouched), E_FAIL);
  EXPECT_EQ(untouched, reinterpret_cast<BSTR>(&id));

  BSTR list = nullptr;
  ASSERT_EQ(Q9Db_importGetAvailableFilters(&list), S_OK);
  EXPECT_EQ(std::u16string(list), u"A (*.a)|*.a");
  SysFreeString(list);
  ASSERT_EQ(Q9Db_exportGetAvailableFilters(&list), E_FAIL);
  EXPECT_NE(std::u16string(list).find(u"no export here"), std::u16string::npos);
  SysFreeString(list);
}

TEST_F(FilterHostTest, NullArgumentsAreRefusedBeforeAnyScriptRuns) {
  BSTR out = nullptr;
  EXPECT_EQ(Q9Db_importFile(nullptr, nullptr, u"x", nullptr, nullptr, nullptr), E_INVALIDARG);
  EXPECT_EQ(Q9Db_importFile(db, nullptr, nullptr, nullptr, nullptr, nullptr), E_INVALIDARG);
  EXPECT_EQ(Q9Db_importGetInfo(db, nullptr, nullptr, nullptr), E_INVALIDARG);
  EXPECT_EQ(Q9Db_exportFileWithReport(nullptr, nullptr, u"x", nullptr, nullptr, nullptr), E_INVALIDARG);
  EXPECT_EQ(Q9Db_exportFileWithReport(db, nullptr, nullptr, nullptr, nullptr, nullptr), E_INVALIDARG);
  EXPECT_EQ(Q9Db_importDetect(nullptr), E_INVALIDARG);
  EXPECT_EQ(Q9Db_importGetDbId(u"x", nullptr), E_INVALIDARG);
  EXPECT_EQ(Q9Db_importGetDbId(nullptr, &out), E_INVALIDARG);
  EXPECT_EQ(Q9Db_importGetAvailableFilters(nullptr), E_INVALIDARG);
  EXPECT_EQ(Q9Db_exportGetAvailableFilters(nullptr), E_INVALIDARG);
}

TEST_F(FilterHostTest, TheClientsDatabaseSurvivesTheScript) {
  // The real binding from the shared library beside this program's folder,
  // so that the script can use the database it is lent.
  const fs::path library = fs::read_symlink("/proc/self/exe").parent_path().parent_path() / "lib" / "libQ9Db.so";
  if (!fs::exists(library)) GTEST_SKIP() << library << " not built";
  package("local core = package.loadlib('" + library.string() + "', 'Q9Db_core')()\n" +
          R"(return { doimport = function(db) assert(db:createFrame("made", 8)); db:__gc(); collectgarbage() end,
                      doexport = function(db, node, path) return db:findByElementId(path) and 0 or 3 end })");
  ASSERT_EQ(import(), S_OK);
  Q9DbNode* frame = nullptr;
  EXPECT_EQ(Q9Db_findByElementId(db, u"made", &frame), S_OK);
  EXPECT_EQ(Q9Db_exportFile(db, nullptr, u"made", nullptr, nullptr, nullptr), S_OK);
  EXPECT_EQ(Q9Db_exportFile(db, nullptr, u"missing", nullptr, nullptr, nullptr), HRESULT(3));
}

}  // namespace
