// The readers on hostile sizes: tokens of many megabytes, statements
// repeated a hundred thousand times, braces nested ten thousand deep. Each
// ends in a tree of the exact size or an error naming the position.
#include <cstring>
#include <functional>

#include "import/ImportTestSupport.h"

namespace q9 {
namespace {

constexpr std::size_t kMegabytes8 = std::size_t(8) << 20;
constexpr int kRepeats = 100000;

std::string repeated(const std::string& piece, int times) {
  std::string out;
  out.reserve(piece.size() * std::size_t(times));
  for (int i = 0; i < times; ++i) out += piece;
  return out;
}

std::string big(char c) { return std::string(kMegabytes8, c); }

// A table in brief: its tag, then each other key with the length of a
// string, a number's value, a table of names in brief, or the size (#n) of
// any other table; "#n" first for the array part.
std::string shapeOf(lua_State* L, int index) {
  index = lua_absindex(L, index);
  std::string tag, fields;
  std::vector<std::string> parts;
  lua_pushnil(L);
  while (lua_next(L, index)) {
    if (lua_type(L, -2) == LUA_TSTRING) {
      const std::string key = lua_tostring(L, -2);
      std::string value;
      switch (lua_type(L, -1)) {
        case LUA_TSTRING: value = std::to_string(lua_rawlen(L, -1)); break;
        case LUA_TTABLE: {
          std::size_t count = 0;
          bool named = true;
          lua_pushnil(L);
          while (lua_next(L, -2)) ++count, named = named && lua_type(L, -2) == LUA_TSTRING, lua_pop(L, 1);
          value = named && count ? shapeOf(L, -1) : "#" + std::to_string(count);
          break;
        }
        default: value = test::describe(L, -1);
      }
      if (key == "tag") tag = lua_tostring(L, -1);
      else parts.push_back(key + ":" + value);
    }
    lua_pop(L, 1);
  }
  std::sort(parts.begin(), parts.end());
  const std::size_t items = lua_rawlen(L, index);
  if (items) parts.insert(parts.begin(), "#" + std::to_string(items));
  for (const std::string& p : parts) fields += (fields.empty() ? "" : " ") + p;
  return tag + "{" + fields + "}";
}

// The root's entries in brief (the last one alone when there are many), or
// the message in brief, with its length when it is long.
std::string outcome(const test::ImportRun& run) {
  if (run.succeeded()) {
    const lua_Integer n = run.entryCount();
    std::string out = std::to_string(n) + " entries:";
    for (lua_Integer i = n > 8 ? n : 1; i <= n; ++i) {
      lua_rawgeti(run.L, -1, i);
      out += " " + shapeOf(run.L, -1);
      lua_pop(run.L, 1);
    }
    return out;
  }
  const std::string message = run.message();
  if (message.empty()) return run.tree();
  return message.size() <= 100 ? message : message.substr(0, 100) + "... (" + std::to_string(message.size()) + ")";
}

const std::string kLdfHead =
    "LIN_description_file;\nLIN_protocol_version = \"2.1\";\nLIN_language_version = \"2.1\";\n"
    "LIN_speed = 19.2 kbps;\n";
const std::string kLdfNodes = "Nodes { Master: M, 5 ms, 0.1 ms; Slaves: S1; }\n";
const std::string kLdfTail = "Frames { }\nNode_attributes { }\nSchedule_tables { }\n";

std::string ldf(const std::string& nodes, const std::string& signals) {
  return kLdfHead + nodes + signals + kLdfTail;
}

struct LimitCase {
  const char* name;
  test::ImportFunction reader;
  std::function<std::string()> text;
  std::string expected;
};

// A long message as outcome() gives it: its first 100 bytes, then its length.
std::string cutMessage(const std::string& head, char filler, std::size_t length) {
  return head + std::string(100 - head.size(), filler) + "... (" + std::to_string(length) + ")";
}

std::string ldfTree(const std::string& masterName, const std::string& signals) {
  return "6 entries: global{LIN_language_version:3 LIN_protocol_version:3 LIN_speed:19.2} "
         "nodes{Master:{jitter:0.1 name:" + masterName + " timebase:5.0} Slaves:#1} signals{" + signals +
         "} frames{} nodeattributes{} scheduletables{}";
}

const LimitCase kCases[] = {
    {"8 MB node name", Q9Db_importRawDBC, [] { return "BU_: " + big('N') + "\n"; },
     "1 entries: ecu{id:8388608}"},
    {"8 MB comment", Q9Db_importRawDBC, [] { return "CM_ \"" + big('c') + "\";\n"; },
     "1 entries: comment{text:8388608}"},
    {"8 MB comment that the file ends in", Q9Db_importRawDBC, [] { return "CM_ \"" + big('c'); },
     "1 entries: comment{text:8388608}"},
    {"8 MB number as a frame id", Q9Db_importRawDBC, [] { return "BO_ " + big('7') + " F: 8 E\n"; },
     "1 entries: frame{dlc:8.0 frameid:4294967295.0 id:1 sender:1}"},
    {"8 MB line that no statement starts", Q9Db_importRawDBC, [] { return big('x') + " 1 2\nBU_: A\n"; },
     "1 entries: ecu{id:1}"},
    {"8 MB name where a number belongs", Q9Db_importRawDBC, [] { return "BO_ " + big('n') + "\n"; },
     cutMessage("DBC-Import: (1, 5): 'constant' expected but found '", 'n', kMegabytes8 + 52)},
    {"100,000 attribute lines", Q9Db_importRawDBC,
     [] { return repeated("BA_ \"A\" BO_ 1 5;\n", kRepeats); },
     "100000 entries: attr{frame:1.0 id:1 ntyp:3 value:1}"},
    {"100,000 value-text lines", Q9Db_importRawDBC,
     [] { return repeated("VAL_ 1 S 0 \"zero\" 1 \"one\" ;\n", kRepeats); },
     "100000 entries: value{frame:1.0 signal:1 values:#2}"},
    {"one value-text line of 100,000 values", Q9Db_importRawDBC,
     [] {
       std::string line = "VAL_ 1 S";
       for (int i = 0; i < kRepeats; ++i) line += " " + std::to_string(i) + " \"v\"";
       return line + " ;\n";
     },
     "1 entries: value{frame:1.0 signal:1 values:#100000}"},
    {"100,000 signals in one frame", Q9Db_importRawDBC,
     [] { return "BO_ 1 F: 8 E\n" + repeated(" SG_ S : 0|1@1+ (1,0) [0|1] \"\" E\n", kRepeats); },
     "1 entries: frame{#100000 dlc:8.0 frameid:1.0 id:1 sender:1}"},
    {"an ENUM of 100,000 values", Q9Db_importRawDBC,
     [] { return "BA_DEF_ \"E\" ENUM " + repeated("\"v\",", kRepeats) + "\"v\";\n"; },
     "1 entries: attrdef{id:1 typ:4 values:#100001}"},
    {"8 MB master name", Q9Db_importRawLDF,
     [] { return ldf("Nodes { Master: " + big('M') + ", 5 ms, 0.1 ms; Slaves: S1; }\n", "Signals { }\n"); },
     ldfTree("8388608", "")},
    {"8 MB comment before the file", Q9Db_importRawLDF,
     [] { return "/*" + big('*') + "*/" + ldf(kLdfNodes, "Signals { }\n"); },
     ldfTree("1", "")},
    {"a block comment the file ends in", Q9Db_importRawLDF, [] { return kLdfHead + "/*" + big('c'); },
     "LDF-Import: (5, 8388612): 'Nodes' expected but found ''"},
    {"8 MB word after an 8 MB string", Q9Db_importRawLDF,
     [] { return "LIN_description_file; LIN_protocol_version = \"" + big('v') + "\"; " + big('w'); },
     cutMessage("LDF-Import: (1, 8388658): 'LIN_language_version' expected but found '", 'w', kMegabytes8 + 70)},
    {"10,000 nested braces", Q9Db_importRawLDF,
     [] { return ldf(kLdfNodes, "Signals " + repeated("{", 10000) + repeated("}", 10000) + "\n"); },
     "LDF-Import: (6, 10): '}' expected but found '{'"},
    {"100,000 signals", Q9Db_importRawLDF,
     [] { return ldf(kLdfNodes, "Signals {\n" + repeated("  A: 8, 0, M, S1;\n", kRepeats) + "}\n"); },
     ldfTree("1", "#100000")},
};

TEST(ReaderLimits, HugeTokensAndRepeatsEndInATreeOrAPosition) {
  for (const LimitCase& c : kCases) {
    const auto run = test::importText(c.reader, c.text());
    EXPECT_EQ(outcome(*run), c.expected) << c.name;
  }
}

}  // namespace
}  // namespace q9
