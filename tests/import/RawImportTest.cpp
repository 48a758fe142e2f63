// The contract of the two exports as a caller sees it: results on the
// caller's stack, status numbers for files that can't be read and for
// memory that runs out, and clear errors for every kind of bad input.
#include <random>

#include "import/ImportTestSupport.h"
#include "platform/Heap.h"

namespace q9 {
namespace {

using test::ImportRun;
using test::ScratchFile;

struct Reader {
  const char* name;
  test::ImportFunction import;
  const char* errorPrefix;
};

const Reader kReaders[] = {
    {"DBC", Q9Db_importRawDBC, "DBC-Import: ("},
    {"LDF", Q9Db_importRawLDF, "LDF-Import: ("},
};

std::string statusText(HRESULT status) {
  return "results 2: nil: " + std::to_string(status) + ".0";
}

bool startsWith(const std::string& text, const std::string& prefix) {
  return text.compare(0, prefix.size(), prefix) == 0;
}

TEST(RawImport, GivesStatusNumbersWhenThereIsNothingToRead) {
  const std::u16string folder = platform::utf8ToUtf16(::testing::TempDir());
  for (const Reader& reader : kReaders) {
    ImportRun missing(reader.import, u"/no/such/folder/file.txt");
    EXPECT_EQ(missing.tree(), statusText(E_FAIL)) << reader.name;
    ImportRun directory(reader.import, folder);
    EXPECT_EQ(directory.tree(), statusText(E_FAIL)) << reader.name;

    lua_State* L = luaL_newstate();
    EXPECT_EQ(reader.import(L, nullptr), 2);
    EXPECT_FALSE(lua_isinteger(L, -1));
    EXPECT_EQ(lua_tonumber(L, -1), double(E_INVALIDARG));
    lua_close(L);
  }
}

TEST(RawImport, LeavesItsResultsAboveTheCallersValues) {
  ScratchFile file("BU_: A\n");
  ImportRun ok(Q9Db_importRawDBC, file.widePath());
  ASSERT_EQ(ok.results, 1);
  EXPECT_EQ(lua_gettop(ok.L), 2);
  EXPECT_STREQ(lua_tostring(ok.L, 1), "caller's value");

  ScratchFile bad("BU_ A\n");
  ImportRun failed(Q9Db_importRawDBC, bad.widePath());
  ASSERT_EQ(failed.results, 2);
  EXPECT_EQ(lua_gettop(failed.L), 3);
  EXPECT_STREQ(lua_tostring(failed.L, 1), "caller's value");
  EXPECT_EQ(failed.message(), "DBC-Import: (1, 5): ':' expected but found 'A'");
}

TEST(RawImport, OpensFilesNamedWithAnyCharacters) {
  const std::string content = "BU_: A\n";
  const std::string path = ::testing::TempDir() + "q9db Fahrzeug \xC3\xA4\xE2\x82\xAC \xF0\x9F\x9A\x97.dbc";
  { std::ofstream(path, std::ios::binary) << content; }
  ImportRun run(Q9Db_importRawDBC, platform::utf8ToUtf16(path));
  std::remove(path.c_str());
  EXPECT_EQ(run.tree(), R"({tag="db", {tag="ecu", id="A"}})");
}

// Every allocation of the reader failing in turn: each gives nil and
// E_OUTOFMEMORY and frees what was made before (valgrind watches that).
TEST(RawImport, ReportsMemoryShortageAtEveryAllocation) {
  const std::string longName(5000, 'n');
  const std::string texts[] = {
      "CM_ \"" + longName + " \xB0\";\nBU_: " + longName + "\n",
      "LIN_description_file; LIN_protocol_version = \"" + longName + "\";",
  };
  for (int r = 0; r < 2; ++r) {
    ScratchFile file(texts[r]);
    bool succeeded = false;
    for (int64_t allowed = 0; allowed < 40 && !succeeded; ++allowed) {
      platform::HeapFailureScope failing(allowed);
      ImportRun run(kReaders[r].import, file.widePath());
      succeeded = run.results == 1 || !run.message().empty();
      if (!succeeded) {
        EXPECT_EQ(run.tree(), statusText(E_OUTOFMEMORY)) << allowed;
      }
    }
    EXPECT_TRUE(succeeded) << kReaders[r].name;
  }
}

TEST(RawImport, EndsBinaryGarbageWithAClearErrorOrATree) {
  std::mt19937 random(20240611);
  for (int round = 0; round < 20; ++round) {
    std::string garbage(16384, '\0');
    for (char& c : garbage) c = char(random());
    ScratchFile file(garbage);
    for (const Reader& reader : kReaders) {
      ImportRun run(reader.import, file.widePath());
      if (run.results == 1) {
        EXPECT_TRUE(run.succeeded()) << reader.name;
        EXPECT_STREQ(reader.name, "DBC");  // LDF accepts nothing without its head
      } else {
        EXPECT_TRUE(startsWith(run.message(), reader.errorPrefix)) << run.tree();
      }
    }
  }
}

TEST(RawImport, EndsTruncatedFilesWithAClearError) {
  for (const char* name : {"seat_module.ldf", "comfort_body.dbc"}) {
    const std::string whole = test::readFile(test::dataFilePath(name));
    ASSERT_FALSE(whole.empty()) << name;
    const bool isLdf = std::string(name).find(".ldf") != std::string::npos;
    // An LDF file is complete once its schedule tables are closed.
    const std::size_t complete = whole.find("\n}\n", whole.find("Schedule_tables")) + 2;
    for (std::size_t cut = 0; cut < whole.size(); cut += 7) {
      ScratchFile file(whole.substr(0, cut));
      ImportRun run(isLdf ? Q9Db_importRawLDF : Q9Db_importRawDBC, file.widePath());
      if (isLdf && cut < complete) {
        EXPECT_TRUE(startsWith(run.message(), "LDF-Import: (")) << cut << ": " << run.tree();
      } else if (!run.succeeded()) {
        EXPECT_TRUE(startsWith(run.message(), isLdf ? "LDF-Import: (" : "DBC-Import: ("))
            << cut << ": " << run.tree();
      }
    }
  }
}

// Counts the root entries of each tag, in order of first appearance.
std::string tagCounts(const ImportRun& run) {
  std::vector<std::pair<std::string, int>> counts;
  for (lua_Integer i = 1; i <= run.entryCount(); ++i) {
    const std::string entry = run.entry(i);
    const std::string tag = entry.substr(6, entry.find('"', 6) - 6);
    auto found = std::find_if(counts.begin(), counts.end(), [&](auto& c) { return c.first == tag; });
    if (found == counts.end())
      counts.emplace_back(tag, 1);
    else
      ++found->second;
  }
  std::string out;
  for (auto& [tag, count] : counts) out += tag + ":" + std::to_string(count) + " ";
  return out;
}

// The bundled files read whole; what each statement and section becomes is
// pinned case by case in DbcImportTest and LdfImportTest, and how the
// filters use the trees in dbc_filter_test.lua.
TEST(RawImport, ReadsRealisticFiles) {
  ImportRun dbc(Q9Db_importRawDBC, platform::utf8ToUtf16(test::dataFilePath("comfort_body.dbc")));
  ASSERT_TRUE(dbc.succeeded()) << dbc.tree();
  EXPECT_EQ(tagCounts(dbc), "ecu:5 frame:4 comment:5 attrdef:5 attrdefault:3 attr:5 value:3 sigvaltype:1 ");
  EXPECT_EQ(dbc.entry(14), R"({tag="comment", ntyp="EV_", refid="CabinSetpoint", text="Setpoint for the cabin – driver side."})");

  ImportRun ldf(Q9Db_importRawLDF, platform::utf8ToUtf16(test::dataFilePath("seat_module.ldf")));
  ASSERT_TRUE(ldf.succeeded()) << ldf.tree();
  EXPECT_EQ(tagCounts(ldf),
            "global:1 nodes:1 composite:1 signals:1 diagnosticsignals:1 frames:1 sporadicframes:1 "
            "eventtriggeredframes:1 diagnosticframes:1 nodeattributes:1 scheduletables:1 "
            "signalgroups:1 signalencodingtypes:1 signalrepresentations:1 ");
  // The LDF reader passes bytes through: the degree sign stays one Latin-1 byte.
  EXPECT_NE(ldf.entry(13).find("textvalue=\"\xB0""C\""), std::string::npos) << ldf.entry(13);
}

}  // namespace
}  // namespace q9
