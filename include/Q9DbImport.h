/* Readers of description files and the filter host. Included by Q9Db.h. */
#ifndef Q9DB_IMPORT_H
#define Q9DB_IMPORT_H

#include "Q9Db.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct lua_State lua_State;

/* ---- Raw readers of description files ------------------------------------
 * Each reads the file named by path (UTF-16) and leaves its results on L,
 * returning how many it left:
 *  - 1: the result tree, a table with tag "db";
 *  - 2: nil and a message string, for a syntax error, e.g.
 *       "DBC-Import: (12, 5): ';' expected but found 'x'";
 *  - 2: nil and a status as a Lua number: E_FAIL when the file can't be
 *       opened, E_OUTOFMEMORY when memory runs out, E_INVALIDARG for a
 *       null path.
 * The parse runs in a protected call of its own, so no Lua error escapes. */

/* A DBC file (Windows-1252 text; the tree holds UTF-8). */
Q9DB_API int Q9Db_importRawDBC(lua_State *L, const char16_t *path);
/* A LIN description file (texts reach the tree as the file's bytes). */
Q9DB_API int Q9Db_importRawLDF(lua_State *L, const char16_t *path);

#ifdef __cplusplus
}
#endif

#endif /* Q9DB_IMPORT_H */
