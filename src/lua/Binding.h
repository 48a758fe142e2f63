// Pieces that every part of the Lua face shares: the registered metatables,
// the text and number conversions at the boundary, and the node checks.
//
// Lua raises errors with longjmp, which skips C++ destructors. Nothing here
// therefore keeps an owning C++ object alive across a call that may raise:
// temporary wide texts live in userdata on the Lua stack instead.
#pragma once

#include <lua.hpp>

#include <cstddef>
#include <cstdint>

#include "Q9Db.h"

namespace q9::lua {

enum class Meta : int { UnsignedValue, SignedValue, StringSlot, Node, Database, Encoder };

// Fixed registry names; scripts see them in type errors, so they never change.
const char* registryName(Meta meta);
// True when the value at index is a full userdata whose metatable is meta's.
bool hasMetatable(lua_State* L, int index, Meta meta);

// ---- Text --------------------------------------------------------------
// Wide copy of what lua_tolstring gives (a number gives its text form);
// anything without a string form gives the empty text. The copy lives in a
// userdata pushed onto the stack, so it is freed by the collector even when
// a later argument check raises.
const char16_t* toWideText(lua_State* L, int index);
// UTF-8 of a wide text; length 0 means zero-terminated.
void pushWideText(lua_State* L, const char16_t* text, std::size_t length);
// As pushWideText, with a null text pushed as the empty string.
void pushWideTextOrEmpty(lua_State* L, const char16_t* text);
// printf-style formatting into at most 2048 UTF-16 units, pushed as UTF-8.
void pushFormatted(lua_State* L, const char* format, ...) __attribute__((format(printf, 2, 3)));

// ---- Exceptions --------------------------------------------------------
// C++ code that can throw runs inside platform::guarded (platform/Boundary.h)
// when Lua calls it: an exception must not unwind Lua's C frames. The
// failed status then becomes this Lua error, raised once the exception is
// gone (a long jump out of a handler would leak it).
inline int raiseFailure(lua_State* L, HRESULT status) {
  return luaL_error(L, "%s", status == E_OUTOFMEMORY ? "not enough memory" : "unexpected failure inside the library");
}

// ---- Numbers -----------------------------------------------------------
// The value's text form read like strtoul with base 0 into 32 or 64 bits;
// 0 for a value without a string form.
uint32_t toUnsigned32(lua_State* L, int index);
uint64_t toUnsigned64(lua_State* L, int index);
// A number, a text or an InternalValue as 64 raw bits; other types raise.
uint64_t toInternalValue(lua_State* L, int index);
void pushUnsignedValue(lua_State* L, uint64_t value);
void pushSignedValue(lua_State* L, int64_t value);
// Float, unsigned or signed InternalValue by the value's type.
void pushPhysicalValue(lua_State* L, const Q9DbPhysicalValue& value);
// A status as the signed 32-bit integer scripts compare with.
inline void pushStatus(lua_State* L, HRESULT status) { lua_pushinteger(L, status); }

// ---- String slots ------------------------------------------------------
void pushStringSlot(lua_State* L, Q9DbStringSlot* slot);
Q9DbStringSlot* checkStringSlot(lua_State* L, int index);

// ---- Nodes -------------------------------------------------------------
// Null for nil or none; raises for anything that isn't a node of the class.
void* checkNode(lua_State* L, int index, uint32_t requiredNodeType);
// The three checks that accept exactly one of two classes.
void* checkDatabaseOrCollections(lua_State* L, int index);
void* checkChannelOrFrame(lua_State* L, int index);
void* checkTriggeringForTiming(lua_State* L, int index);
// Nil for null, else a new node userdata.
int pushNode(lua_State* L, const void* node);

// ---- Databases ---------------------------------------------------------
struct DatabaseUserdata {
  Q9DbNode* database;  // first, so the node checks read it like a node
  uint32_t owner;      // 1: __gc destroys the database
};
int pushDatabase(lua_State* L, Q9DbNode* database, uint32_t owner);
// The database of argument index, which must be a database userdata.
Q9DbNode* checkDatabase(lua_State* L, int index);

// ---- Lists -------------------------------------------------------------
// A walk over a node list opened by an enumerating operation; pushes the
// iterator function, or nil and the status.
int pushEnumeration(lua_State* L, HRESULT (*open)(Q9DbNode*, Q9DbEnumerator**), Q9DbNode* owner);

// ---- Method tables -----------------------------------------------------
extern const luaL_Reg kNodeMethods[];
extern const luaL_Reg kCollectionMethods[];  // in both node and database tables
extern const luaL_Reg kDecodeMethods[];      // likewise
extern const luaL_Reg kDatabaseMethods[];
extern const luaL_Reg kEncoderMethods[];
extern const luaL_Reg kUnsignedValueMethods[];
extern const luaL_Reg kSignedValueMethods[];

// Module functions that live with their subject.
int createDb(lua_State* L);
int attribs(lua_State* L);
int nodeIndex(lua_State* L);
int importDBC(lua_State* L);
int importLDF(lua_State* L);

}  // namespace q9::lua
