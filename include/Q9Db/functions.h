/* The function table, for clients that load the library at run time.
 * Included by Q9Db.h; compiles on its own. */
#ifndef Q9DB_FUNCTIONS_H
#define Q9DB_FUNCTIONS_H

#include "types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Function table -------------------------------------------------------- */

/* A row of the function table; cast it to the type of the function it names. */
typedef void (*Q9DbFunction)(void);
#define Q9DB_C_INTERFACE_ROWS 186

/* Versions 1 and 2: S_OK with *out pointing at a fixed, read-only table of
 * Q9DB_C_INTERFACE_ROWS functions in a fixed order, the library's function
 * set for clients that load it at run time; a client casts it to a structure
 * of its own. Another version: E_NOTIMPL, out untouched. A null out:
 * E_POINTER. */
Q9DB_API HRESULT Q9Db_GetCInterface(int32_t version, const Q9DbFunction **out);

#ifdef __cplusplus
}
#endif

#endif /* Q9DB_FUNCTIONS_H */
