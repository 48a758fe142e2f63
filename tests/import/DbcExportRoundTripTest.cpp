// DBC exports read back by the native import: extended multiplexing and long
// names must come back as the very database the first import built, which
// the canonical dumps compare node by node. The export runs the filter
// package of the build (the scripts beside libQ9Db.so).
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "import/DatabaseDump.h"
#include "import/ImportTestSupport.h"
#include "import/NativeImport.h"
#include "lua/ModuleFolder.h"

namespace {

int32_t collect(void* context, const FilterReportRecord* record) {
  *static_cast<std::string*>(context) += q9::platform::utf16ToUtf8(static_cast<const char16_t*>(record->text)) + "\n";
  return 0;
}

// The build puts programs into bin/ and the library with its scripts into lib/.
std::string packageFolder() {
  if (const char* build = std::getenv("Q9DB_BUILD_DIR")) return std::string(build) + "/lib";
  char self[4096];
  const ssize_t length = readlink("/proc/self/exe", self, sizeof self - 1);
  std::string path = length > 0 ? std::string(self, std::size_t(length)) : std::string();
  path = path.substr(0, path.find_last_of('/'));
  return path.substr(0, path.find_last_of('/') + 1) + "lib";
}

struct RoundTrip {
  std::string dump, exported;
};

// The dump after importing `path`, and the text of its export.
RoundTrip importAndExport(const std::string& path, const std::string& exportPath) {
  Q9DbNode* db = nullptr;
  EXPECT_EQ(Q9Db_create(u"test", &db), S_OK);
  q9::ImportReport report(path);
  EXPECT_TRUE(q9::importDbcFile(db, nullptr, path, {}, report)) << report.error();
  RoundTrip result{q9::testing::dumpDatabase(db), ""};
  std::string warnings;
  EXPECT_EQ(Q9Db_exportFile(db, nullptr, q9::platform::utf8ToUtf16(exportPath).c_str(), nullptr, &warnings, collect),
            S_OK);
  EXPECT_EQ(warnings, "") << path;  // the host's failure comes as a report too
  result.exported = q9::test::readFile(exportPath);
  Q9Db_destroy(db);
  return result;
}

TEST(DbcExport, ExtendedMultiplexingAndLongNamesImportBackTheSame) {
  const std::string package = packageFolder();
  q9::lua::setModuleFolderForTesting(package.c_str());
  for (const char* name : {"multiplexing_value_lists", "multiplexing_ranges", "multiplexing_two_levels",
                           "multiplexing_chained", "long_names"}) {
    SCOPED_TRACE(name);
    // The exports have names of their own; their DBName keeps the database
    // id, and with it every element id, that of the original file.
    const std::string scratch = ::testing::TempDir() + "q9db_export_" + std::to_string(::getpid()) + "_";
    const std::string first = scratch + "1_" + name + ".dbc", second = scratch + "2_" + name + ".dbc";
    const RoundTrip original = importAndExport(q9::test::dataFilePath(std::string("tolerant/") + name + ".dbc"), first);
    const RoundTrip again = importAndExport(first, second);
    EXPECT_TRUE(again.dump == original.dump) << "the export reads back as another database:\n" << original.exported;
    EXPECT_EQ(again.exported, original.exported) << "a second export differs";
    std::remove(first.c_str());
    std::remove(second.c_str());
  }
  q9::lua::setModuleFolderForTesting(nullptr);
}

}  // namespace
