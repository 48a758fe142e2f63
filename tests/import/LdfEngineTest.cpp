// The native LDF import against canonical dumps of what it must build and
// report (tests/import/golden/ldf_*.dump): the repository's LDF files, each
// alone, and imports twice into one database, into an existing channel and
// cluster, and with options. The dumps were first written by the scripts'
// own Lua mapping, so a difference is a change in what a file becomes.
// Warnings are compared without their place in the file, which the Lua
// mapping didn't know; the files' summaries (describeLdfFile) are compared
// too.
//
// Q9DB_WRITE_GOLDEN_LDF=<folder of a filter package with libQ9Db.so whose
// scripts still map LDF files in Lua> writes the dumps anew through it.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "Q9DbImport.h"
#include "import/DatabaseDump.h"
#include "import/ImportTestSupport.h"
#include "import/NativeImport.h"
#include "lua/ModuleFolder.h"

namespace {

using q9::test::sourcePath;
using q9::test::optionsOf;
using q9::test::targetOf;

struct Import {
  std::string file;
  const char* target;   // null: a new cluster; else the id of the node to import into
  const char* options;  // the second text
};

struct Scenario {
  const char* name;
  std::vector<Import> imports;
  bool summary;  // whether the dump also holds the file's summary
};

const std::vector<Scenario>& scenarios() {
  static const std::vector<Scenario> all = {
      {"climate_panel", {{sourcePath("tests/filters/data/climate_panel.ldf"), nullptr, ""}}, true},
      {"seat_module", {{sourcePath("tests/import/data/seat_module.ldf"), nullptr, ""}}, true},
      {"seats", {{sourcePath("examples/seats.ldf"), nullptr, ""}}, true},
      {"lin13_doors", {{sourcePath("tests/import/data/lin13_doors.ldf"), nullptr, ""}}, true},
      {"encodings", {{sourcePath("tests/import/data/encodings.ldf"), nullptr, ""}}, true},
      {"frame_kinds", {{sourcePath("tests/import/data/frame_kinds.ldf"), nullptr, ""}}, true},
      {"targets",
       {{sourcePath("tests/import/data/seat_module.ldf"), nullptr, ""},
        {sourcePath("tests/import/data/seat_module.ldf"), nullptr, ""},
        {sourcePath("tests/filters/data/climate_panel.ldf"), "SeatLin/channel", ""},
        {sourcePath("examples/seats.ldf"), "SeatLin#2/cluster", "prefix=Seats;language=9"}},
       false},
  };
  return all;
}


void addLine(std::string& out, const char* kind, int32_t first, int32_t second, const std::string& text) {
  out += std::string(kind) + " " + std::to_string(first) + " " + std::to_string(second) + " " + text + "\n";
}

// The records of a native report as the Lua mapping wrote them: warnings
// without "path:line:col: ", and no word about the text encoding.
std::string renderRecords(const q9::ImportReport& report, const char* kind) {
  std::string out;
  const std::string place = report.path() + ":";
  for (const q9::ReportRecord& r : report.records()) {
    std::string text = r.text;
    if (r.kind == q9::kReportInfo && text.rfind("the file's text is read as ", 0) == 0) continue;
    if (text.rfind(place, 0) == 0) {
      const std::size_t line = text.find(':', place.size());
      const std::size_t column = line == std::string::npos ? line : text.find(": ", line + 1);
      if (column != std::string::npos) text.erase(0, column + 2);
    }
    addLine(out, kind, r.kind, r.subject, text);
  }
  return out;
}

struct Collected {
  std::string lines;
  const char* kind;
};

int32_t collect(void* context, const FilterReportRecord* record) {
  auto* c = static_cast<Collected*>(context);
  addLine(c->lines, c->kind, record->first, record->second, static_cast<const char*>(record->text));
  return 0;
}

// Today's reports and database, through the scripts' Lua mapping.
std::string throughScripts(const Scenario& s) {
  Q9DbNode* db = nullptr;
  EXPECT_EQ(Q9Db_create(u"test", &db), S_OK);
  Collected reports{"", "report"};
  for (const Import& i : s.imports) {
    const std::u16string path = q9::platform::utf8ToUtf16(i.file);
    const std::u16string options = q9::platform::utf8ToUtf16(i.options);
    EXPECT_EQ(Q9Db_importFile(db, targetOf(db, i.target), path.c_str(), options.c_str(), &reports, collect), S_OK)
        << i.file;
  }
  Collected summary{"", "info"};
  if (s.summary)
    Q9Db_importGetInfo(db, q9::platform::utf8ToUtf16(s.imports[0].file).c_str(), &summary, collect);
  std::string out = reports.lines + summary.lines + q9::testing::dumpDatabase(db);
  Q9Db_destroy(db);
  return out;
}

std::string natively(const Scenario& s) {
  Q9DbNode* db = nullptr;
  EXPECT_EQ(Q9Db_create(u"test", &db), S_OK);
  std::string out;
  for (const Import& i : s.imports) {
    q9::ImportReport report(i.file);
    EXPECT_TRUE(q9::importLdfFile(db, targetOf(db, i.target), i.file, optionsOf(i.options), report))
        << report.error();
    out += renderRecords(report, "report");
  }
  if (s.summary) {
    q9::ImportReport summary(s.imports[0].file);
    EXPECT_TRUE(q9::describeLdfFile(s.imports[0].file, summary)) << summary.error();
    out += renderRecords(summary, "info");
  }
  out += q9::testing::dumpDatabase(db);
  Q9Db_destroy(db);
  return out;
}

TEST(LdfEngine, BuildsAndReportsWhatTheGoldenDumpsHold) {
  if (const char* folder = std::getenv("Q9DB_WRITE_GOLDEN_LDF")) {
    q9::lua::setModuleFolderForTesting(folder);
    for (const Scenario& s : scenarios())
      std::ofstream(q9::test::goldenPath(std::string("ldf_") + s.name), std::ios::binary) << throughScripts(s);
    q9::lua::setModuleFolderForTesting(nullptr);
    return;
  }
  for (const Scenario& s : scenarios()) q9::test::expectGoldenDump(std::string("ldf_") + s.name, natively(s));
}

}  // namespace
