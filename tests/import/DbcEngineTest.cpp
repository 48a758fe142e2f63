// The native DBC import against canonical dumps of the databases it must
// build (tests/import/golden): the repository's DBC files and generated ones,
// alone, twice into one database, into an existing cluster and channel, and
// with options. The dumps were first written by the scripts' own mapping, so
// a difference is a change in what a file becomes.
//
// Q9DB_WRITE_GOLDEN=<folder of a filter package with libQ9Db.so> writes the
// dumps anew, through Q9Db_importFile and that package.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "../bench/GeneratedDbc.h"
#include "import/DatabaseDump.h"
#include "import/ImportTestSupport.h"
#include "import/NativeImport.h"
#include "lua/ModuleFolder.h"

namespace {

using q9::test::sourcePath;
using q9::test::optionsOf;
using q9::test::targetOf;

struct Import {
  std::string file;     // relative to the source tree, or a generated file
  const char* target;   // null: a new cluster; else the id of the node to import into
  const char* options;  // the second text
};

struct Scenario {
  const char* name;
  std::vector<Import> imports;
};

// A generated file under a fixed name: the name is the cluster's.
std::string generated(uint64_t seed, unsigned messages) {
  q9bench::DbcShape shape;
  shape.messages = messages;
  shape.signalsPerMessage = 6;
  const std::string path = ::testing::TempDir() + "q9db_generated_" + std::to_string(seed) + ".dbc";
  std::ofstream(path, std::ios::binary) << q9bench::generateDbc(seed, shape);
  return path;
}

const std::vector<Scenario>& scenarios() {
  static const std::vector<Scenario> all = {
      {"powertrain", {{sourcePath("tests/filters/data/powertrain.dbc"), nullptr, ""}}},
      {"fd_chassis", {{sourcePath("tests/filters/data/fd_chassis.dbc"), nullptr, ""}}},
      {"oddities", {{sourcePath("tests/filters/data/oddities.dbc"), nullptr, ""}}},
      {"comfort_body", {{sourcePath("tests/import/data/comfort_body.dbc"), nullptr, ""}}},
      {"vehicle", {{sourcePath("examples/vehicle.dbc"), nullptr, ""}}},
      {"targets",
       {{sourcePath("tests/filters/data/powertrain.dbc"), nullptr, ""},
        {sourcePath("tests/filters/data/powertrain.dbc"), nullptr, ""},
        {sourcePath("tests/filters/data/fd_chassis.dbc"), "Powertrain/channel", ""},
        {sourcePath("tests/import/data/comfort_body.dbc"), "Powertrain/cluster", "prefix=Comfort;language=7"}}},
      {"generated", {{generated(7, 12), nullptr, ""}, {generated(8, 12), nullptr, ""}}},
  };
  return all;
}

std::string build(const Scenario& s, const std::function<void(Q9DbNode*, const Import&)>& importOne) {
  Q9DbNode* db = nullptr;
  EXPECT_EQ(Q9Db_create(u"test", &db), S_OK);
  for (const Import& i : s.imports) importOne(db, i);
  std::string dump = q9::testing::dumpDatabase(db);
  Q9Db_destroy(db);
  return dump;
}

TEST(DbcEngine, BuildsTheDatabasesOfTheGoldenDumps) {
  if (const char* folder = std::getenv("Q9DB_WRITE_GOLDEN")) {
    q9::lua::setModuleFolderForTesting(folder);
    for (const Scenario& s : scenarios()) {
      const std::string dump = build(s, [](Q9DbNode* db, const Import& i) {
        const std::u16string options = q9::platform::utf8ToUtf16(i.options);
        EXPECT_EQ(Q9Db_importFile(db, targetOf(db, i.target), q9::platform::utf8ToUtf16(i.file).c_str(),
                                  options.c_str(), nullptr, nullptr),
                  S_OK)
            << i.file;
      });
      std::ofstream(q9::test::goldenPath(std::string("dbc_") + s.name), std::ios::binary) << dump;
    }
    q9::lua::setModuleFolderForTesting(nullptr);
    return;
  }
  for (const Scenario& s : scenarios()) {
    const std::string dump = build(s, [](Q9DbNode* db, const Import& i) {
      q9::ImportReport report(i.file);
      EXPECT_TRUE(q9::importDbcFile(db, targetOf(db, i.target), i.file, optionsOf(i.options), report))
          << report.error();
    });
    q9::test::expectGoldenDump(std::string("dbc_") + s.name, dump);
  }
}

}  // namespace
