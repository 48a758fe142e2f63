/* Readers of description files and the filter host. Included by Q9Db.h. */
#ifndef Q9DB_IMPORT_H
#define Q9DB_IMPORT_H

#include "Q9Db.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct lua_State lua_State;

#ifdef __cplusplus
}
#endif

#endif /* Q9DB_IMPORT_H */
