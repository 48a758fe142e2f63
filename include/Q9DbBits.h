/* Bit and byte buffer primitives and BCD conversions. Included by Q9Db.h. */
#ifndef Q9DB_BITS_H
#define Q9DB_BITS_H

#include "Q9Db.h"

#ifdef __cplusplus
extern "C" {
#endif

#ifdef __cplusplus
}
#endif

#endif /* Q9DB_BITS_H */
