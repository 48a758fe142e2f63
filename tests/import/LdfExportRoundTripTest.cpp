// LDF exports read back by the native import, through the filter package of
// the build (the scripts beside libQ9Db.so).
//
// Every LDF file of the repository is imported, exported and imported
// again. The dumps of the two databases are compared whole; nothing is
// ignored, not even ids: the export writes Channel_name, from which the
// import takes every id's prefix, so an export under another file name
// still reads back under the name its database had. A file that imports
// without a warning (seats.ldf, tolerant/comments.ldf, and data/export_*.ldf,
// written for what those lack) must also give an export that imports without
// one. A file that imports with warnings may leave something in its database
// that no LDF can hold; those are listed below with what differs. For every
// file a second export must be the first byte for byte.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "import/DatabaseDump.h"
#include "import/ImportTestSupport.h"
#include "import/NativeImport.h"
#include "lua/ModuleFolder.h"

namespace {

// The source tree by this file's place, so that the program runs from anywhere.
std::string sourcePath(const std::string& relative) {
  const std::string here = __FILE__;
  return here.substr(0, here.rfind("/tests/") + 1) + relative;
}

// Files whose database the export can't give back whole, and why.
const std::map<std::string, const char*> kDiffers = {
    {"climate_panel.ldf", "a schedule slot of the undefined frame Ghost is left out"},
    {"encodings.ldf", "the ASCII encoding Asc has logical values whose computations no coding holds"},
    {"frame_kinds.ldf",
     "references to undefined frames, signals and nodes leave gaps in the ids of the references made "
     "(configurable_frame/4 after /1); an event-triggered frame without frames and command slots for "
     "undefined nodes are left out; frame FY without publisher is written as the master's"},
    {"lin13_doors.ldf",
     "a slot of the undefined frame Missing is left out; frame Dup without publisher is written as the "
     "master's"},
};

int32_t collect(void* context, const FilterReportRecord* record) {
  *static_cast<std::string*>(context) += q9::platform::utf16ToUtf8(static_cast<const char16_t*>(record->text)) + "\n";
  return 0;
}

class LdfExport : public ::testing::Test {
 protected:
  // The build puts programs into bin/ and the library with its scripts into lib/.
  void SetUp() override {
    if (const char* build = std::getenv("Q9DB_BUILD_DIR")) {
      package_ = std::string(build) + "/lib";
    } else {
      char self[4096];
      const ssize_t length = readlink("/proc/self/exe", self, sizeof self - 1);
      package_ = length > 0 ? std::string(self, std::size_t(length)) : std::string();
      package_ = package_.substr(0, package_.find_last_of('/'));
      package_ = package_.substr(0, package_.find_last_of('/') + 1) + "lib";
    }
    q9::lua::setModuleFolderForTesting(package_.c_str());  // kept, not copied
  }
  void TearDown() override { q9::lua::setModuleFolderForTesting(nullptr); }

  static std::string scratch(const std::string& name) {
    return ::testing::TempDir() + "q9db_ldf_export_" + std::to_string(::getpid()) + "_" + name;
  }

 private:
  std::string package_;
};

// A database with the file imported, or an empty one for no path.
struct Imported {
  Q9DbNode* db = nullptr;
  bool usable = false;
  std::string warnings, dump;
  explicit Imported(const std::string& path) {
    EXPECT_EQ(Q9Db_create(u"test", &db), S_OK);
    if (path.empty()) return;
    q9::ImportReport report(path);
    usable = q9::importLdfFile(db, nullptr, path, {}, report);
    for (const q9::ReportRecord& r : report.records())
      if (r.kind != q9::kReportInfo) warnings += r.text + "\n";
    dump = q9::testing::dumpDatabase(db);
  }
  ~Imported() { Q9Db_destroy(db); }
};

// Exports db (node: its id, or null for the first LIN cluster) to path;
// the host's status and reports.
HRESULT exportTo(Q9DbNode* db, const char* node, const std::string& path, std::string& reports) {
  return Q9Db_exportFile(db, q9::test::targetOf(db, node), q9::platform::utf8ToUtf16(path).c_str(), nullptr,
                         &reports, collect);
}

std::vector<std::string> repositoryFiles() {
  std::vector<std::string> files{sourcePath("examples/seats.ldf")};
  for (const auto& entry : std::filesystem::recursive_directory_iterator(sourcePath("tests")))
    if (entry.path().extension() == ".ldf") files.push_back(entry.path().string());
  std::sort(files.begin(), files.end());
  return files;
}

TEST_F(LdfExport, ImportsBackAsTheSameDatabase) {
  int clean = 0;
  for (const std::string& path : repositoryFiles()) {
    SCOPED_TRACE(path);
    const std::string name = std::filesystem::path(path).filename().string();
    const Imported original(path);
    if (!original.usable) continue;  // a file of which nothing can be used
    const std::string first = scratch("1_" + name), second = scratch("2_" + name);
    std::string reports;
    ASSERT_EQ(exportTo(original.db, nullptr, first, reports), S_OK) << reports;
    const Imported again(first);
    ASSERT_EQ(exportTo(again.db, nullptr, second, reports), S_OK) << reports;
    const std::string text = q9::test::readFile(first);
    EXPECT_EQ(q9::test::readFile(second), text) << "a second export differs";
    std::remove(first.c_str());
    std::remove(second.c_str());
    if (!kDiffers.count(name)) {
      EXPECT_TRUE(again.dump == original.dump) << "the export reads back as another database:\n" << text;
    }
    if (original.warnings.empty()) {
      ++clean;
      EXPECT_EQ(again.warnings, "") << text;
    }
  }
  EXPECT_GE(clean, 4) << "seats.ldf, export_features.ldf, export_lin13.ldf and comments.ldf import cleanly";
}

TEST_F(LdfExport, FailuresSayWhy) {
  struct Failure {
    const char* what;
    bool seats;          // the database holds examples/seats.ldf
    const char* can;     // the id of a CAN cluster made beside it, or null
    const char* node;    // the id of the node to export, or null
    const char* file;    // under the temp folder
    const char* report;  // {path} stands for the path
  };
  const Failure failures[] = {
      {"an empty database", false, nullptr, nullptr, "empty.ldf", "the database holds no LIN cluster to export"},
      {"only a CAN cluster", false, "Body", nullptr, "can.ldf", "the database holds no LIN cluster to export"},
      {"a CAN cluster given", true, "Body", "Body", "given.ldf", "cluster Body is no LIN cluster"},
      {"a frame given", true, nullptr, "SeatLin/frame/SeatCommand", "frame.ldf",
       "an LDF file is written from a cluster or a channel, not from a Frame"},
      {"a folder that isn't there", true, nullptr, nullptr, "no-such-folder/seats.ldf",
       "{path}: the file can't be written (No such file or directory)"},
  };
  for (const Failure& f : failures) {
    SCOPED_TRACE(f.what);
    const Imported imported(f.seats ? sourcePath("examples/seats.ldf") : "");
    if (f.can) {
      Q9DbNode* cluster = nullptr;
      ASSERT_EQ(Q9Db_createCluster(imported.db, q9::platform::utf8ToUtf16(f.can).c_str(), Q9_CLUSTERTYPE_CAN,
                                   &cluster),
                S_OK);
    }
    const std::string path = scratch(f.file);
    std::string report = f.report, reports;
    if (report.find("{path}") != std::string::npos) report.replace(report.find("{path}"), 6, path);
    EXPECT_EQ(exportTo(imported.db, f.node, path, reports), E_FAIL);
    EXPECT_EQ(reports, report + "\n");
    EXPECT_FALSE(std::filesystem::exists(path));
  }
}

}  // namespace
