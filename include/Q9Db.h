/*
 * Q9Db: in-memory communication description of a vehicle bus network
 * (CAN, CAN FD, LIN, FlexRay) and conversion between frames and signals.
 *
 * Plain C interface with C linkage; usable from C11 and C++.
 *
 * Conventions:
 *  - Every operation answers a status (HRESULT-style, 32-bit signed) unless
 *    its comment says otherwise; results come through out-pointers.
 *  - Wide text is zero-terminated UTF-16 in 16-bit code units (char16_t).
 *  - Texts given out are pointers into the database, valid until
 *    Q9Db_destroy; the caller never frees them.
 *  - Node handles are opaque; the library checks each node's type tag.
 */
#ifndef Q9DB_H
#define Q9DB_H

/* Clients include this header. It gathers the interface from one
 * header per concept under Q9Db/, each of which also compiles on its own. */
#include "Q9Db/types.h"
#include "Q9Db/nodes.h"
#include "Q9Db/texts.h"
#include "Q9Db/factories.h"
#include "Q9Db/lists.h"
#include "Q9Db/values.h"
#include "Q9Db/filters.h"
#include "Q9Db/decode.h"
#include "Q9Db/encode.h"
#include "Q9Db/encoder.h"
#include "Q9Db/dump.h"
#include "Q9Db/functions.h"

#include "Q9DbBits.h"
#include "Q9DbImport.h"
#include "Q9DbLua.h"

#endif /* Q9DB_H */
