/* Writing a database out as a graph for inspection.
 * Included by Q9Db.h; compiles on its own. */
#ifndef Q9DB_DUMP_H
#define Q9DB_DUMP_H

#include "types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Graph dump ------------------------------------------------------------ */

/* Writes every node of the database reachable from its collections node to
 * fileName as a Graphviz digraph in UTF-8: one record node per database
 * node, labelled "Class [short name]: id details", and one coloured edge per
 * link; texts in language, else fallback. S_OK; E_INVALIDARG for a db that
 * isn't a database handle or a null fileName; E_UNEXPECTED when the file
 * can't be opened for writing or memory runs out (the file is then cut
 * short). */
Q9DB_API HRESULT Q9Db_dumpDot(Q9DbNode *db, const char16_t *fileName, uint16_t language, uint16_t fallback);

#ifdef __cplusplus
}
#endif

#endif /* Q9DB_DUMP_H */
