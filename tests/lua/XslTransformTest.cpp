// XSLtransform, the Lua function that runs stylesheets: text and document
// output, chains, the stylesheet's encoding, failures naming file and line,
// argument errors, and messages kept with their own call and thread.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <lua.hpp>
#include <string>
#include <thread>
#include <vector>

#include "lua/XslTransform.h"

namespace {

const char* const kNetwork = R"xml(<?xml version="1.0"?>
<!DOCTYPE network SYSTEM "http://example.invalid/network.dtd" [
  <!ATTLIST frame kind CDATA "can">
]>
<network>
  <frame id="EngineData" length="8">
    <signal name="EngineSpeed" bitpos="0"/>
    <signal name="CoolantTemp" bitpos="23"/>
  </frame>
  <frame id="Diagnostics" length="8"/>
</network>
)xml";

// Text: one line per frame.
const char* const kFrameList = R"xml(<xsl:stylesheet version="1.0" xmlns:xsl="http://www.w3.org/1999/XSL/Transform">
  <xsl:output method="text"/>
  <xsl:template match="/">
    <xsl:for-each select="//frame">
      <xsl:value-of select="@id"/>:<xsl:value-of select="count(signal)"/>
      <xsl:text>&#10;</xsl:text>
    </xsl:for-each>
  </xsl:template>
</xsl:stylesheet>
)xml";

// Document to document: signals lifted out of their frames.
const char* const kSignalsOnly = R"xml(<xsl:stylesheet version="1.0" xmlns:xsl="http://www.w3.org/1999/XSL/Transform">
  <xsl:template match="/">
    <signals><xsl:for-each select="//signal">
      <s name="{@name}" frame="{../@id}"/>
    </xsl:for-each></signals>
  </xsl:template>
</xsl:stylesheet>
)xml";

const char* const kSignalList = R"xml(<xsl:stylesheet version="1.0" xmlns:xsl="http://www.w3.org/1999/XSL/Transform">
  <xsl:output method="text"/>
  <xsl:template match="/signals">
    <xsl:for-each select="s"><xsl:value-of select="@frame"/>.<xsl:value-of select="@name"/>;</xsl:for-each>
  </xsl:template>
</xsl:stylesheet>
)xml";

// Latin-1 output: the degree sign must come out as the single byte 0xB0.
const char* const kLatin1 = R"xml(<xsl:stylesheet version="1.0" xmlns:xsl="http://www.w3.org/1999/XSL/Transform">
  <xsl:output method="xml" encoding="ISO-8859-1" indent="no"/>
  <xsl:template match="/"><unit>&#176;C</unit></xsl:template>
</xsl:stylesheet>
)xml";

// Not well-formed: the end tag on line 3 doesn't match.
const char* const kBroken = "<xsl:stylesheet version=\"1.0\" xmlns:xsl=\"http://www.w3.org/1999/XSL/Transform\">\n"
                            "  <xsl:template match=\"/\">\n"
                            "  </xsl:templat>\n"
                            "</xsl:stylesheet>\n";

// Well-formed XML, but its expression doesn't compile.
const char* const kBadExpression = R"xml(<xsl:stylesheet version="1.0" xmlns:xsl="http://www.w3.org/1999/XSL/Transform">
  <xsl:template match="/"><xsl:value-of select="count(("/></xsl:template>
</xsl:stylesheet>
)xml";

const char* const kTerminates = R"xml(<xsl:stylesheet version="1.0" xmlns:xsl="http://www.w3.org/1999/XSL/Transform">
  <xsl:template match="/"><xsl:message terminate="yes">no frames wanted</xsl:message></xsl:template>
</xsl:stylesheet>
)xml";

class XslTransformTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = ::testing::TempDir() + "q9db_xsl_XXXXXX";
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    dir = pattern;
    const struct {
      const char* name;
      const char* content;
    } files[] = {{"network.xml", kNetwork},     {"frames.xsl", kFrameList},  {"signals.xsl", kSignalsOnly},
                 {"signallist.xsl", kSignalList}, {"latin1.xsl", kLatin1},   {"broken.xsl", kBroken},
                 {"badexpr.xsl", kBadExpression}, {"terminates.xsl", kTerminates}};
    for (const auto& file : files) std::ofstream(dir + "/" + file.name, std::ios::binary) << file.content;
    L = luaL_newstate();
    luaL_openlibs(L);
    lua_pushcfunction(L, Q9Lua_xslTransform);
    lua_setglobal(L, "XSLtransform");
    lua_pushlstring(L, dir.data(), dir.size());
    lua_setglobal(L, "dir");
  }
  void TearDown() override {
    lua_close(L);
    std::system(("rm -rf '" + dir + "'").c_str());
  }

  // Runs "return XSLtransform(<arguments>)" and writes out what came back:
  // a string as itself, the failure triple as "nil|code|text", a Lua error
  // as "error: message".
  std::string call(const std::string& arguments) {
    const std::string chunk = "return XSLtransform(" + arguments + ")";
    EXPECT_EQ(luaL_loadstring(L, chunk.c_str()), LUA_OK);
    if (lua_pcall(L, 0, LUA_MULTRET, 0) != LUA_OK) {
      std::string message = std::string("error: ") + lua_tostring(L, -1);
      lua_settop(L, 0);
      return message;
    }
    std::string out;
    for (int i = 1; i <= lua_gettop(L); ++i) {
      if (i > 1) out += "|";
      if (lua_isnil(L, i)) {
        out += "nil";
      } else if (lua_type(L, i) == LUA_TNUMBER) {
        char number[32];
        std::snprintf(number, sizeof number, "%.0f", lua_tonumber(L, i));
        out += number;
      } else {
        std::size_t length = 0;
        const char* text = lua_tolstring(L, i, &length);
        out.append(text, length);
      }
    }
    lua_settop(L, 0);
    return out;
  }

  std::string path(const std::string& name) const { return dir + "/" + name; }

  std::string dir;
  lua_State* L = nullptr;
};

TEST_F(XslTransformTest, OneStylesheetGivesItsTextOutput) {
  const std::string expected = "EngineData:2\nDiagnostics:0\n";
  EXPECT_EQ(call("dir..'/frames.xsl', dir..'/network.xml'"), expected);
  EXPECT_EQ(call("{dir..'/frames.xsl'}, dir..'/network.xml'"), expected);
}

TEST_F(XslTransformTest, ChainFeedsEachStylesheetTheDocumentBefore) {
  EXPECT_EQ(call("{dir..'/signals.xsl', dir..'/signallist.xsl'}, dir..'/network.xml'"),
            "EngineData.EngineSpeed;EngineData.CoolantTemp;");
}

TEST_F(XslTransformTest, OutputKeepsTheStylesheetsEncoding) {
  EXPECT_EQ(call("dir..'/latin1.xsl', dir..'/network.xml'"),
            "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>\n<unit>\xB0" "C</unit>");
}

TEST_F(XslTransformTest, FailuresNameTheFileAndLine) {
  const std::string in = "dir..'/network.xml'";
  const struct {
    std::string arguments, start, fragment;
  } cases[] = {
      // A stylesheet that isn't well-formed: the parser's code and position.
      {"dir..'/broken.xsl', " + in, "nil|76|" + path("broken.xsl") + " (3, ", "mismatch"},
      // Well-formed but not a working stylesheet.
      {"dir..'/badexpr.xsl', " + in, "nil|-2147467259|" + path("badexpr.xsl") + " (2): ", ""},
      // A transformation that stops: named by the input.
      {"dir..'/terminates.xsl', " + in, "nil|-2147467259|" + path("network.xml") + " (", "no frames wanted"},
      // Inputs that don't exist, or none at all; a number is a file name too.
      {"dir..'/frames.xsl', dir..'/absent.xml'", "nil|1549|" + path("absent.xml") + " (0, 0): ", ""},
      {"dir..'/frames.xsl'", "nil|1549| (0, 0): ", ""},
      {"42, " + in, "nil|1549|42 (0, 0): ", ""},
      // In a chain the input is loaded before any stylesheet name is looked at.
      {"{}, dir..'/absent.xml'", "nil|1549|", ""},
  };
  for (const auto& c : cases) {
    const std::string result = call(c.arguments);
    EXPECT_EQ(result.rfind(c.start, 0), 0u) << result;
    EXPECT_NE(result.find(c.fragment, c.start.size()), std::string::npos) << result;
  }
  EXPECT_EQ(call("dir..'/broken.xsl', " + in).back(), '\n');
}

TEST_F(XslTransformTest, ArgumentErrorsRaise) {
  const std::string in = "dir..'/network.xml'";
  const struct {
    std::string arguments;
    std::string message;
  } cases[] = {
      {"true, " + in, "bad argument #1 to 'XSLtransform' (filename or table expected)"},
      {"nil, " + in, "bad argument #1 to 'XSLtransform' (filename or table expected)"},
      {"'', " + in, "bad argument #1 to 'XSLtransform' (Invalid xsltfile parameter)"},
      {"{}, " + in, "Table with filenames expexted. Invalid filename at index 1"},
      {"{''}, " + in, "Table with filenames expexted. Invalid filename at index 1"},
      {"{dir..'/signals.xsl', {}}, " + in, "Table with filenames expexted. Invalid filename at index 2"},
      {"{{}, dir..'/frames.xsl'}, " + in, "Table with filenames expexted. Invalid filename at index 1"},
      {"{dir..'/signals.xsl', dir..'/broken.xsl', dir..'/frames.xsl'}, " + in, "Invalid xsltfile at index 2"},
      {"{dir..'/absent.xsl', dir..'/frames.xsl'}, " + in, "Invalid xsltfile at index 1"},
  };
  // Lua puts the caller's position before the message.
  for (const auto& c : cases) {
    const std::string result = call(c.arguments);
    EXPECT_EQ(result.rfind("error: [string ", 0), 0u) << result;
    EXPECT_EQ(result.substr(result.find("]:1: ") + 5), c.message) << c.arguments;
  }
}

// Messages of the parser and the processor go to the result, never to the
// process's stderr, and each thread gets only its own.
TEST_F(XslTransformTest, MessagesStayWithTheirCall) {
  const std::string errors = path("stderr.txt");
  std::fflush(stderr);
  const int savedStderr = dup(2);
  std::FILE* sink = std::fopen(errors.c_str(), "w");
  dup2(fileno(sink), 2);

  std::string good, bad;
  std::thread other([&] {
    lua_State* T = luaL_newstate();
    for (int i = 0; i < 20; ++i) {
      lua_pushcfunction(T, Q9Lua_xslTransform);
      lua_pushstring(T, path("badexpr.xsl").c_str());
      lua_pushstring(T, path("network.xml").c_str());
      lua_call(T, 2, 3);
      bad = lua_tostring(T, -1);
      lua_settop(T, 0);
    }
    lua_close(T);
  });
  for (int i = 0; i < 20; ++i) good = call("{dir..'/signals.xsl', dir..'/signallist.xsl'}, dir..'/network.xml'");
  const std::string broken = call("dir..'/broken.xsl', dir..'/network.xml'");
  other.join();

  std::fflush(stderr);
  dup2(savedStderr, 2);
  close(savedStderr);
  std::fclose(sink);
  std::ifstream in(errors);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), "");
  EXPECT_EQ(good, "EngineData.EngineSpeed;EngineData.CoolantTemp;");
  EXPECT_EQ(bad.rfind(path("badexpr.xsl") + " (2): ", 0), 0u) << bad;
  EXPECT_EQ(broken.find("badexpr"), std::string::npos) << broken;
}

}  // namespace
