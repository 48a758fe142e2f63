// The exception barrier: no C++ exception leaves an export or a function Lua
// calls, even when the standard library's allocations fail. This program
// replaces the global operator new so that the N-th allocation throws
// std::bad_alloc, and runs one call of each export family that allocates
// with N = 1, 2, ... until the call makes fewer than N: every attempt must
// answer a failure or (where the library has a way around) go through, a
// thrown exception fails the test, and the database must stay usable. Its own program, since the replacement holds for the
// whole process; it allocates with malloc, which the sanitizers watch.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <string>

#include <lua.hpp>

#include "Q9Db.h"

namespace {

// Allocations until the one that fails, counting it; 0: none fails.
std::atomic<long> allocationsUntilFailure{0};

void* allocate(std::size_t size) {
  if (allocationsUntilFailure.load(std::memory_order_relaxed) > 0 && allocationsUntilFailure.fetch_sub(1) == 1)
    throw std::bad_alloc();
  if (void* p = std::malloc(size ? size : 1)) return p;
  throw std::bad_alloc();
}

}  // namespace

void* operator new(std::size_t size) { return allocate(size); }
void* operator new[](std::size_t size) { return allocate(size); }
// The nothrow forms fail nothing: the standard library falls back when they
// answer null (stable_sort sorts in place), which is no failure of a call.
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return std::malloc(size ? size : 1); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return std::malloc(size ? size : 1); }
void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t) noexcept { std::free(p); }

namespace {

const std::string kData = Q9DB_BOUNDARY_DATA;

// What one attempt made, released after the call whatever it answered.
struct Scene {
  Q9DbNode* db = nullptr;
  Q9DbNode* element = nullptr;
  lua_State* L = nullptr;
  int arguments = 0;  // on L's stack above the function
  BSTR text = nullptr;
  Q9DbFilter* filter = nullptr;
  std::u16string path;

  ~Scene() {
    SysFreeString(text);
    if (filter) Q9Db_destroyFilter(filter);
    if (L) lua_close(L);
    if (db) Q9Db_destroy(db);
  }
};

enum class Outcome { Succeeded, Failed, Wrong };

Outcome statusOutcome(HRESULT hr) { return hr == S_OK ? Outcome::Succeeded : FAILED(hr) ? Outcome::Failed : Outcome::Wrong; }

// A function of a Lua table and its arguments, ready for the call.
void prepareLua(Scene& s, int (*open)(lua_State*), const char* function) {
  s.L = luaL_newstate();
  luaL_openlibs(s.L);
  open(s.L);
  lua_getfield(s.L, -1, function);
  lua_remove(s.L, -2);
}

// A raised error, or nil and E_OUTOFMEMORY, is the failure; anything else
// the answer wanted.
Outcome luaOutcome(lua_State* L, int status, int wantedType) {
  if (status != LUA_OK) return Outcome::Failed;
  if (lua_type(L, 1) == LUA_TNIL && lua_tointeger(L, 2) == lua_Integer(E_OUTOFMEMORY)) return Outcome::Failed;
  return lua_type(L, 1) == wantedType ? Outcome::Succeeded : Outcome::Wrong;
}

std::u16string wide(const std::string& ascii) { return std::u16string(ascii.begin(), ascii.end()); }

struct Row {
  const char* family;
  void (*prepare)(Scene&);  // not counted
  Outcome (*call)(Scene&);  // counted: only the call itself
};

const Row kRows[] = {
    {"narrow texts", [](Scene&) {},
     [](Scene& s) {
       Q9DbStringSlot* slot = nullptr;
       return statusOutcome(Q9Db_stringCreateSlotA(s.db, 1, "a text too long for any inline buffer", &slot));
     }},
    {"qualified ids", [](Scene& s) { Q9Db_createECU(s.db, u"an element id longer than a buffer", &s.element); },
     [](Scene& s) { return statusOutcome(Q9Db_getQualifiedId(s.element, &s.text)); }},
    {"id list filters", [](Scene& s) { Q9Db_createECU(s.db, u"an element id longer than a buffer", &s.element); },
     [](Scene& s) {
       return statusOutcome(Q9Db_createIdListFilterA(s.db, Q9_FILTERMODE_PLAIN, "an element id longer than a buffer\0",
                                                     &s.filter));
     }},
    {"graph dumps",
     [](Scene& s) {
       Q9Db_createECU(s.db, u"an element id longer than a buffer", &s.element);
       s.path = wide(::testing::TempDir() + "q9db_barrier_graph.dot");
     },
     [](Scene& s) { return statusOutcome(Q9Db_dumpDot(s.db, s.path.c_str(), 1, 1)); }},
    {"import engine",
     [](Scene& s) {
       prepareLua(s, Q9Db_importEngine, "importDBC");
       Q9Db_luaPushNode(s.L, s.db);
       lua_pushnil(s.L);
       lua_pushstring(s.L, (kData + "/one_message.dbc").c_str());
       s.arguments = 3;
     },
     [](Scene& s) { return luaOutcome(s.L, lua_pcall(s.L, s.arguments, LUA_MULTRET, 0), LUA_TBOOLEAN); }},
    {"transformations",
     [](Scene& s) {
       prepareLua(s, Q9Db_core, "XSLtransform");
       lua_pushstring(s.L, (kData + "/names.xsl").c_str());
       lua_pushstring(s.L, (kData + "/names.xml").c_str());
       s.arguments = 2;
     },
     [](Scene& s) { return luaOutcome(s.L, lua_pcall(s.L, s.arguments, LUA_MULTRET, 0), LUA_TSTRING); }},
    // The processor's messages reach the library through C callbacks.
    {"transformation errors",
     [](Scene& s) {
       prepareLua(s, Q9Db_core, "XSLtransform");
       lua_pushstring(s.L, (kData + "/stops.xsl").c_str());
       lua_pushstring(s.L, (kData + "/names.xml").c_str());
       s.arguments = 2;
     },
     [](Scene& s) {
       const int status = lua_pcall(s.L, s.arguments, LUA_MULTRET, 0);
       if (status == LUA_OK && lua_isnil(s.L, 1) && lua_tointeger(s.L, 2) == lua_Integer(E_FAIL))
         return Outcome::Succeeded;
       return luaOutcome(s.L, status, LUA_TNONE);
     }},
    {"filter host",
     [](Scene& s) { s.path = wide(kData + "/one_message.dbc"); },
     [](Scene& s) { return statusOutcome(Q9Db_importFile(s.db, nullptr, s.path.c_str(), u"", nullptr, nullptr)); }},
};

bool usable(Q9DbNode* db) {
  Q9DbNode* made = nullptr;
  Q9DbNode* found = nullptr;
  return Q9Db_createECU(db, u"made after the call", &made) == S_OK &&
         Q9Db_findByElementId(db, u"made after the call", &found) == S_OK && found == made;
}

TEST(ExceptionBarrierTest, FailedAllocationsBecomeFailures) {
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.family);
    long n = 1;
    for (;; ++n) {
      ASSERT_LT(n, 100000) << "never went through";
      Scene scene;
      ASSERT_EQ(Q9Db_create(u"barrier", &scene.db), S_OK);
      row.prepare(scene);
      allocationsUntilFailure = n;
      const Outcome outcome = row.call(scene);
      const bool failureMade = allocationsUntilFailure.exchange(0) == 0;
      SCOPED_TRACE("allocation " + std::to_string(n));
      // A call may also go through a failed allocation where the library
      // has a way around it (a text that misses the index while gathering).
      ASSERT_NE(outcome, Outcome::Wrong);
      ASSERT_TRUE(usable(scene.db));
      if (!failureMade) {
        EXPECT_EQ(outcome, Outcome::Succeeded);
        break;
      }
    }
    EXPECT_GT(n, 1) << "the call allocates nothing: not a row for this test";
  }
}

}  // namespace
