/* Node filters, which decoding uses to pick signals.
 * Included by Q9Db.h; compiles on its own. */
#ifndef Q9DB_FILTERS_H
#define Q9DB_FILTERS_H

#include "types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Node filters ---------------------------------------------------------
 * An id list passes the nodes named at creation; a combination passes what
 * any member passes. Mode 1 inverts a filter. The client owns its filters. */

typedef struct Q9DbFilter Q9DbFilter;

#define Q9_FILTERMODE_PLAIN    0
#define Q9_FILTERMODE_INVERTED 1

/* ids: a multi-string, zero-terminated texts ended by an empty one. */
Q9DB_API HRESULT Q9Db_createIdListFilterW(Q9DbNode *db, int32_t mode, const char16_t *ids,
                                          Q9DbFilter **out);
Q9DB_API HRESULT Q9Db_createIdListFilterA(Q9DbNode *db, int32_t mode, const char *ids,
                                          Q9DbFilter **out);
Q9DB_API HRESULT Q9Db_createCombinationFilter(int32_t mode, Q9DbFilter **out);
Q9DB_API HRESULT Q9Db_appendFilter(Q9DbFilter *combination, uint64_t count,
                                   Q9DbFilter *const *filters);
/* S_OK: the node passes; S_FALSE: it does not. */
Q9DB_API HRESULT Q9Db_filterNode(const Q9DbFilter *filter, const void *node);
Q9DB_API HRESULT Q9Db_destroyFilter(Q9DbFilter *filter);

#ifdef __cplusplus
}
#endif

#endif /* Q9DB_FILTERS_H */
