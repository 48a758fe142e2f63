// Helpers for the import tests: scratch files and paths of the test data,
// golden dumps to compare against, and raw imports run on a fresh Lua state
// with the resulting tree rendered as compact, deterministic text.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <lua.hpp>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Q9Db.h"
#include "import/NativeImport.h"
#include "platform/WideText.h"

namespace q9::test {

// A file under the test temp folder, removed again at the end of its scope.
class ScratchFile {
 public:
  explicit ScratchFile(const std::string& content, const std::string& suffix = ".txt") {
    static int counter = 0;
    path_ = ::testing::TempDir() + "q9db_import_" + std::to_string(::getpid()) + "_" +
            std::to_string(counter++) + suffix;
    std::ofstream(path_, std::ios::binary) << content;
  }
  ~ScratchFile() { std::remove(path_.c_str()); }
  ScratchFile(const ScratchFile&) = delete;
  ScratchFile& operator=(const ScratchFile&) = delete;

  const std::string& path() const { return path_; }
  std::u16string widePath() const { return platform::utf8ToUtf16(path_); }

 private:
  std::string path_;
};

// A path in the source tree (Q9DB_SOURCE_DIR, set by the test runner).
inline std::string sourcePath(const std::string& relative) {
  const char* root = std::getenv("Q9DB_SOURCE_DIR");
  return std::string(root ? root : ".") + "/" + relative;
}

// A file of tests/import/data/tolerant, one deviation each.
inline std::string tolerantFile(const std::string& name) {
  return sourcePath("tests/import/data/tolerant/" + name);
}

// The node of an id, for imports into an existing cluster or channel; null
// for no id.
inline Q9DbNode* targetOf(Q9DbNode* db, const char* id) {
  if (!id) return nullptr;
  Q9DbNode* node = nullptr;
  EXPECT_EQ(Q9Db_findByElementId(db, platform::utf8ToUtf16(id).c_str(), &node), S_OK) << id;
  return node;
}

// The options of a second text ("prefix=...;language=..."), as the filter
// scripts read them, for calls of the engine itself.
inline ImportOptions optionsOf(const std::string& text) {
  ImportOptions options;
  std::size_t start = 0;
  while (start < text.size()) {
    std::size_t end = text.find(';', start);
    if (end == std::string::npos) end = text.size();
    const std::string item = text.substr(start, end - start);
    const std::size_t eq = item.find('=');
    if (item.compare(0, eq, "prefix") == 0) options.prefix = item.substr(eq + 1);
    if (item.compare(0, eq, "language") == 0) options.language = uint16_t(std::stoi(item.substr(eq + 1)));
    start = end + 1;
  }
  return options;
}

inline std::string dataFilePath(const std::string& name) {
  std::string here = __FILE__;
  return here.substr(0, here.find_last_of('/') + 1) + "data/" + name;
}

inline std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline void appendQuoted(std::string& out, const char* text, std::size_t length) {
  out += '"';
  for (std::size_t i = 0; i < length; ++i) {
    const auto c = static_cast<unsigned char>(text[i]);
    if (c == '"' || c == '\\') {
      out += '\\';
      out += char(c);
    } else if (c == '\n') {
      out += "\\n";
    } else if (c < 32 || c == 127) {
      char hex[8];
      std::snprintf(hex, sizeof hex, "\\x%02X", c);
      out += hex;
    } else {
      out += char(c);  // bytes above 127 stay as they are, UTF-8 or not
    }
  }
  out += '"';
}

// Renders a Lua value. Integers and floats differ (100 against 100.0), so a
// test sees which kind the reader pushed. A table shows "tag" first, then its
// other string keys in order, then its array part; any other key is shown
// as [key]=value.
inline std::string describe(lua_State* L, int index) {
  index = lua_absindex(L, index);
  std::string out;
  switch (lua_type(L, index)) {
    case LUA_TNIL: return "nil";
    case LUA_TBOOLEAN: return lua_toboolean(L, index) ? "true" : "false";
    case LUA_TNUMBER: {
      char text[64];
      if (lua_isinteger(L, index)) {
        std::snprintf(text, sizeof text, "%lld", static_cast<long long>(lua_tointeger(L, index)));
        return text;
      }
      // The shortest form that reads back the same.
      const double value = lua_tonumber(L, index);
      std::snprintf(text, sizeof text, "%.15g", value);
      if (std::strtod(text, nullptr) != value) std::snprintf(text, sizeof text, "%.17g", value);
      std::string s = text;
      if (std::isfinite(value) && s.find_first_of(".e") == std::string::npos) s += ".0";
      return s;
    }
    case LUA_TSTRING: {
      std::size_t length = 0;
      const char* text = lua_tolstring(L, index, &length);
      appendQuoted(out, text, length);
      return out;
    }
    case LUA_TTABLE: break;
    default: return lua_typename(L, lua_type(L, index));
  }
  std::vector<std::pair<std::string, std::string>> named;
  std::vector<std::pair<lua_Integer, std::string>> numbered;
  lua_pushnil(L);
  while (lua_next(L, index)) {
    std::string value = describe(L, -1);
    if (lua_type(L, -2) == LUA_TSTRING) {
      named.emplace_back(lua_tostring(L, -2), std::move(value));
    } else if (lua_isinteger(L, -2)) {
      numbered.emplace_back(lua_tointeger(L, -2), std::move(value));
    } else {
      lua_pushvalue(L, -2);
      named.emplace_back("[" + describe(L, -1) + "]", std::move(value));
      lua_pop(L, 1);
    }
    lua_pop(L, 1);
  }
  std::sort(named.begin(), named.end(), [](const auto& a, const auto& b) {
    return (a.first != "tag") == (b.first != "tag") ? a.first < b.first : a.first == "tag";
  });
  std::sort(numbered.begin(), numbered.end());
  std::vector<std::string> parts;
  for (auto& [key, value] : named) parts.push_back(key + "=" + value);
  for (std::size_t i = 0; i < numbered.size(); ++i) {
    const bool inSequence = numbered[i].first == lua_Integer(i + 1);
    parts.push_back(inSequence ? numbered[i].second
                               : "[" + std::to_string(numbered[i].first) + "]=" +
                                     numbered[i].second);
  }
  out = "{";
  for (std::size_t i = 0; i < parts.size(); ++i) out += (i ? ", " : "") + parts[i];
  return out + "}";
}

// The golden dump tests/import/golden/<name>.dump.
inline std::string goldenPath(const std::string& name) {
  return sourcePath("tests/import/golden/" + name + ".dump");
}

// A dump against its golden file; one that differs is written to the test
// temp folder under the same name, for a look with diff.
inline void expectGoldenDump(const std::string& name, const std::string& dump) {
  const std::string golden = readFile(goldenPath(name));
  ASSERT_FALSE(golden.empty()) << goldenPath(name);
  if (dump == golden) return;
  std::ofstream(::testing::TempDir() + name + ".dump", std::ios::binary) << dump;
  ADD_FAILURE() << name << ": the import differs from " << goldenPath(name) << "; it is written to "
                << ::testing::TempDir();
}

using ImportFunction = int (*)(lua_State*, const char16_t*);

// One import on its own Lua state, which stays open for looking at the tree.
class ImportRun {
 public:
  ImportRun(ImportFunction import, const std::u16string& path) : L(luaL_newstate()) {
    lua_pushstring(L, "caller's value");  // must stay below the results
    results = import(L, path.c_str());
  }
  ~ImportRun() { lua_close(L); }
  ImportRun(const ImportRun&) = delete;
  ImportRun& operator=(const ImportRun&) = delete;

  bool succeeded() const { return results == 1 && lua_istable(L, -1); }
  // The error message of a failed run, or "" when there is none.
  std::string message() const {
    return results == 2 && lua_type(L, -1) == LUA_TSTRING ? lua_tostring(L, -1) : "";
  }
  // The whole tree, or what the import gave instead.
  std::string tree() const {
    if (succeeded()) return describe(L, -1);
    std::string out = "results " + std::to_string(results);
    for (int i = results; i >= 1; --i) out += ": " + describe(L, -i);
    return out;
  }
  // One entry of the root's array part.
  std::string entry(lua_Integer index) const {
    if (!succeeded()) return tree();
    lua_rawgeti(L, -1, index);
    std::string out = describe(L, -1);
    lua_pop(L, 1);
    return out;
  }
  lua_Integer entryCount() const { return succeeded() ? lua_Integer(lua_rawlen(L, -1)) : -1; }

  lua_State* const L;
  int results;
};

inline std::unique_ptr<ImportRun> importText(ImportFunction import, const std::string& text) {
  ScratchFile file(text);
  return std::make_unique<ImportRun>(import, file.widePath());
}

}  // namespace q9::test
