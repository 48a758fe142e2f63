/* Readers of description files and the filter host. Included by Q9Db.h. */
#ifndef Q9DB_IMPORT_H
#define Q9DB_IMPORT_H

#include "Q9Db/types.h"
#include "Q9Db/texts.h"

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

/* ---- Filter host -----------------------------------------------------------
 * Imports and exports run the filter scripts that stand beside the library
 * (init.lua and what it loads), each call in a Lua state of its own.
 *
 * A report reaches the client's callback in two forms: from a script, first
 * and second are its two numbers and text is its UTF-8 string (char); once
 * at the end of a failed operation, first and second are 0 and text is wide
 * (char16_t) and names what went wrong. The record lives during the call
 * only. The callback's result goes back to the script; NULL is allowed. */

typedef struct FilterReportRecord {
  int32_t first;
  int32_t second;
  const void *text;
} FilterReportRecord;

typedef int32_t (*FilterReportCallback)(void *context, const FilterReportRecord *record);

/* Status: S_OK; the script's own code; E_FAIL when a script or the package
 * fails (reported with its message); E_INVALIDARG for a null db or path;
 * E_OUTOFMEMORY. node selects what to import into (NULL: the script
 * decides); second is passed to the script (NULL as ""). */
Q9DB_API HRESULT Q9Db_importFile(Q9DbNode *db, Q9DbNode *node, const char16_t *path, const char16_t *second,
                                 void *context, FilterReportCallback callback);
Q9DB_API HRESULT Q9Db_exportFile(Q9DbNode *db, Q9DbNode *node, const char16_t *path, const char16_t *second,
                                 void *context, FilterReportCallback callback);
/* Q9Db_exportFile with the script's reports: what the file's format can't
 * hold is left out and reported through the callback (first 1: a warning),
 * as an import reports what it leaves out. Refuses a null db or path with
 * E_INVALIDARG, as Q9Db_importFile does. */
Q9DB_API HRESULT Q9Db_exportFileWithReport(Q9DbNode *db, Q9DbNode *node, const char16_t *path,
                                           const char16_t *second, void *context, FilterReportCallback callback);
/* Reports what the file holds without changing the database. */
Q9DB_API HRESULT Q9Db_importGetInfo(Q9DbNode *db, const char16_t *path, void *context,
                                    FilterReportCallback callback);
/* S_OK when a filter takes the file, S_FALSE when none does, E_FAIL when the
 * package fails. */
Q9DB_API HRESULT Q9Db_importDetect(const char16_t *path);
/* The identity of the database the file describes, as a BSTR to free with
 * SysFreeString; E_FAIL (out untouched) when there is none. */
Q9DB_API HRESULT Q9Db_importGetDbId(const char16_t *path, BSTR *out);
/* The filter lists as one text each, in the usual file dialog form
 * "Description (*.ext)|*.ext|...". On E_FAIL out holds the error text. */
Q9DB_API HRESULT Q9Db_importGetAvailableFilters(BSTR *out);
Q9DB_API HRESULT Q9Db_exportGetAvailableFilters(BSTR *out);

#ifdef __cplusplus
}
#endif

#endif /* Q9DB_IMPORT_H */
