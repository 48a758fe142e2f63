// The binding from a host's side: a database lent to a script with owner 0,
// the core table in a bare state, nodes a C client lends to its own state,
// and the entry's report of a missing init.lua.
#include <gtest/gtest.h>

#include <lua.hpp>

#include "Q9Db.h"
#include "lua/Binding.h"

namespace {

class LuaStateTest : public ::testing::Test {
 protected:
  void SetUp() override {
    L = luaL_newstate();
    luaL_openlibs(L);
    ASSERT_EQ(Q9Db_core(L), 1);
    lua_setglobal(L, "Q9Db");
  }
  void TearDown() override {
    if (L) lua_close(L);
  }
  // Runs a chunk; empty on success, else Lua's message.
  std::string run(const char* chunk) {
    if (luaL_dostring(L, chunk) == LUA_OK) return {};
    std::string message = lua_tostring(L, -1);
    lua_pop(L, 1);
    return message;
  }
  lua_State* L = nullptr;
};

TEST_F(LuaStateTest, LentDatabaseOutlivesTheState) {
  Q9DbNode* db = nullptr;
  ASSERT_EQ(Q9Db_create(u"lent", &db), S_OK);
  q9::lua::pushDatabase(L, db, 0);
  lua_setglobal(L, "db");
  EXPECT_EQ(run("assert(db.eid == 'lent'); assert(db:createFrame('f', 8)); db:__gc(); db = nil; collectgarbage()"), "");
  lua_close(L);
  L = nullptr;
  Q9DbNode* frame = nullptr;
  EXPECT_EQ(Q9Db_findByElementId(db, u"f", &frame), S_OK);
  EXPECT_NE(frame, nullptr);
  EXPECT_EQ(Q9Db_destroy(db), S_OK);
}

TEST_F(LuaStateTest, NullDatabaseIsRefusedByNodeChecks) {
  q9::lua::pushDatabase(L, nullptr, 0);
  lua_setglobal(L, "db");
  EXPECT_NE(run("return db.eid").find("destroyed database"), std::string::npos);
  EXPECT_EQ(run("local f, s = db:createFrame('f', 1); assert(f == nil and s == -2147024809)"), "");
}

TEST_F(LuaStateTest, OwnedDatabaseIsDestroyedAtClose) {
  // Under the leak checkers this fails if closing the state leaks the database.
  EXPECT_EQ(run("keep = Q9Db.createDb('owned'); keep:createSignal('s', 0, 1, 2, 3)"), "");
}

TEST_F(LuaStateTest, PushNodeGivesNilForNull) {
  EXPECT_EQ(q9::lua::pushNode(L, nullptr), 1);
  EXPECT_TRUE(lua_isnil(L, -1));
}

TEST(LuaPushNodeTest, LendsNodesToAStateThatNeverLoadedTheModule) {
  Q9DbNode* db = nullptr;
  Q9DbNode* frame = nullptr;
  ASSERT_EQ(Q9Db_create(u"client", &db), S_OK);
  ASSERT_EQ(Q9Db_createFrame(db, u"f", 8, &frame), S_OK);
  EXPECT_EQ(Q9Db_luaPushNode(nullptr, frame), 0);
  lua_State* L = luaL_newstate();
  luaL_openlibs(L);
  EXPECT_EQ(Q9Db_luaPushNode(L, frame), 1);
  lua_setglobal(L, "frame");
  EXPECT_EQ(Q9Db_luaPushNode(L, db), 1);
  lua_setglobal(L, "db");
  EXPECT_EQ(Q9Db_luaPushNode(L, nullptr), 1);
  EXPECT_TRUE(lua_isnil(L, -1));
  // Attributes and the database's methods work; collecting the database
  // userdata leaves the client's database alone.
  const char* chunk =
      "assert(frame.tag == 'Frame' and frame.length == 8)\n"
      "assert(db.tag == 'Q9Db' and db:findByElementId('f').eid == 'f')\n"
      "db = nil; collectgarbage()";
  EXPECT_EQ(luaL_dostring(L, chunk), LUA_OK) << lua_tostring(L, -1);
  lua_close(L);
  Q9DbNode* found = nullptr;
  EXPECT_EQ(Q9Db_findByElementId(db, u"f", &found), S_OK);
  EXPECT_EQ(found, frame);
  EXPECT_EQ(Q9Db_destroy(db), S_OK);
}

TEST_F(LuaStateTest, MissingInitScriptRaisesNamingTheFile) {
  // In this test program the library's folder is the program's, where no
  // init.lua lies.
  lua_pushcfunction(L, luaopen_Q9Db);
  ASSERT_NE(lua_pcall(L, 0, 1, 0), LUA_OK);
  const std::string message = lua_tostring(L, -1);
  EXPECT_NE(message.find("init.lua"), std::string::npos) << message;
  lua_getglobal(L, "package");
  lua_getfield(L, -1, "cpath");
  EXPECT_NE(std::string(lua_tostring(L, -1)).find("/?.so"), std::string::npos);
}

TEST_F(LuaStateTest, WideTextCarriesEmbeddedZerosAndMalformedBytes) {
  lua_pushlstring(L, "a\0b\xFF", 4);
  const char16_t* wide = q9::lua::toWideText(L, -1);
  EXPECT_EQ(wide[0], u'a');
  EXPECT_EQ(wide[1], u'\0');
  EXPECT_EQ(wide[2], u'b');
  EXPECT_EQ(wide[3], u'\xFFFD');
  lua_pushnumber(L, 1.5);
  EXPECT_EQ(std::u16string(q9::lua::toWideText(L, -1)), u"1.5");
  lua_pushboolean(L, 1);
  EXPECT_EQ(std::u16string(q9::lua::toWideText(L, -1)), u"");
}

TEST_F(LuaStateTest, UnsignedConversionsFollowStrtoul) {
  struct Row {
    const char* text;
    uint32_t u32;
    uint64_t u64;
  } rows[] = {
      {"42", 42, 42},
      {"0x10", 16, 16},
      {"010", 8, 8},
      {"-1", 0xFFFFFFFFu, UINT64_MAX},
      {"4294967296", 0xFFFFFFFFu, 4294967296u},
      {"99999999999999999999", 0xFFFFFFFFu, UINT64_MAX},
      {"1e+15", 1, 1},
      {"  7x", 7, 7},
      {"--1", 0, 0},
      {"abc", 0, 0},
  };
  for (const Row& row : rows) {
    lua_pushstring(L, row.text);
    EXPECT_EQ(q9::lua::toUnsigned32(L, -1), row.u32) << row.text;
    EXPECT_EQ(q9::lua::toUnsigned64(L, -1), row.u64) << row.text;
    lua_pop(L, 1);
  }
  lua_pushnumber(L, 42.0);
  EXPECT_EQ(q9::lua::toUnsigned32(L, -1), 42u);
  lua_pushnil(L);
  EXPECT_EQ(q9::lua::toUnsigned32(L, -1), 0u);
}

TEST_F(LuaStateTest, FormattedTextIsCutAtTheBufferSize) {
  std::string longText(3000, 'x');
  q9::lua::pushFormatted(L, "%s-%d", longText.c_str(), 5);
  EXPECT_EQ(lua_rawlen(L, -1), 2048u);
  q9::lua::pushFormatted(L, "%s %d", "\xC3\xA4", 7);
  EXPECT_STREQ(lua_tostring(L, -1), "\xC3\xA4 7");
}

}  // namespace
