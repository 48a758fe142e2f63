/* The Lua 5.3 module face of the library. Included by Q9Db.h. */
#ifndef Q9DB_LUA_H
#define Q9DB_LUA_H

#include "Q9Db/types.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct lua_State lua_State;

/* What the report function of an import filter names an entity by. */
#define Q9_ENTITYCLASS_CLUSTER   1u
#define Q9_ENTITYCLASS_CHANNEL   2u
#define Q9_ENTITYCLASS_ECU       3u
#define Q9_ENTITYCLASS_FRAME     4u
#define Q9_ENTITYCLASS_SIGNAL    5u
#define Q9_ENTITYCLASS_MUXPDU    6u
#define Q9_ENTITYCLASS_MUXPART   7u
#define Q9_ENTITYCLASS_ELSEPART  8u
#define Q9_ENTITYCLASS_SIGNALPDU 9u
#define Q9_ENTITYCLASS_GLOBALS   10u

/* require "Q9Db": extends package.path and package.cpath by the library's
 * own folder, runs init.lua from there and leaves what it returns on top of
 * the stack. Registers nothing itself. */
Q9DB_API int luaopen_Q9Db(lua_State *L);

/* Registers the metatables of nodes, databases, values, slots and encoders,
 * and pushes the core table: version, createDb, importDBC, importLDF,
 * XSLtransform, attribs, the Q9_ constants and ModuleFilePath. init.lua
 * reaches it with package.loadlib(<library file>, "Q9Db_core"). */
Q9DB_API int Q9Db_core(lua_State *L);

/* Pushes the table of the native import engine, which the filter scripts
 * reach with package.loadlib(<library file>, "Q9Db_importEngine"):
 * importDBC and importLDF (db, node, path, prefix, language, report),
 * describeDBC and describeLDF (path, report), databaseIdDBC (path). Each
 * import or description hands its report records to the report function
 * and answers true, or raises an error with the file's name, line and
 * column and what went wrong. */
Q9DB_API int Q9Db_importEngine(lua_State *L);

/* For a client that runs scripts in a Lua state of its own: pushes node, a
 * node of a database the client owns, as the module's node userdata, and
 * answers 1, the number of values pushed (0 and nothing pushed for a null
 * state). The database node itself comes as a database userdata that doesn't
 * own it; a null node as nil. The userdata keep nothing alive: the client
 * keeps the database until the script is done with them. The module's
 * metatables are registered first when the state has none yet. Like the Lua
 * API's own pushes it may raise Lua's memory error, so call it where an
 * error is caught (inside lua_pcall). */
Q9DB_API int Q9Db_luaPushNode(lua_State *L, Q9DbNode *node);

#ifdef __cplusplus
}
#endif

#endif /* Q9DB_LUA_H */
