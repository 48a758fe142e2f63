/* Typed values, encodings, and the conversions between raw and physical
 * values.
 * Included by Q9Db.h; compiles on its own. */
#ifndef Q9DB_VALUES_H
#define Q9DB_VALUES_H

#include "types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Values and computations -------------------------------------------- */

#define Q9_VALUETYPE_DOUBLE 0u
#define Q9_VALUETYPE_UINT64 1u
#define Q9_VALUETYPE_INT64  2u

#define Q9_VALUEINRANGE          0
#define Q9_VALUEBELOWRANGE       1
#define Q9_VALUEABOVERANGE       2
#define Q9_INCOMPATIBLEVALUETYPE ((HRESULT)0xFFFFFFFFu)

#define Q9_ENCODING_TYPEMASK      0x0000FFFFu
#define Q9_ENCODING_SIGNED        0x10000000u
#define Q9_ENCODING_SIGNMASK      0x10000000u
#define Q9_ENCODING_INVALID       0u
#define Q9_ENCODING_DIRECT        1u
#define Q9_ENCODING_1COMPL        2u
#define Q9_ENCODING_2COMPL        3u
#define Q9_ENCODING_IEEE          4u
#define Q9_ENCODING_UNPACKED_BCD  5u
#define Q9_ENCODING_PACKED_BCD    6u
#define Q9_ENCODING_ASCII         7u

/* A typed value: valueType says which member of value holds it. */
typedef struct Q9DbPhysicalValue {
  uint32_t valueType;
  union {
    double d;
    uint64_t u;
    int64_t i;
  } value;
  Q9DbNode *computation;  /* the computation last applied, or NULL */
  Q9DbStringSlot *text;   /* text of the last matching text computation, or NULL */
} Q9DbPhysicalValue;

/* Raw signal value to physical value through the signal's coding and its
 * decoding computations. S_FALSE: no computation applied. */
Q9DB_API HRESULT Q9Db_internalToPhysical(Q9DbNode *signal, uint64_t raw, Q9DbPhysicalValue *out);
/* Physical value to raw value through one encoding computation (or none). */
Q9DB_API HRESULT Q9Db_physicalToInternal(Q9DbNode *signal, Q9DbNode *computation,
                                         const Q9DbPhysicalValue *value, uint64_t *outRaw);
/* Q9_VALUEINRANGE, Q9_VALUEBELOWRANGE, Q9_VALUEABOVERANGE,
 * Q9_INCOMPATIBLEVALUETYPE or E_INVALIDARG. */
Q9DB_API HRESULT Q9Db_checkValueInMinMax(Q9DbNode *signal, const Q9DbPhysicalValue *value);
/* Characters written without the terminator, or -1. */
Q9DB_API int32_t Q9Db_valueToString(const Q9DbPhysicalValue *value, char16_t *buffer,
                                    uint32_t capacity);

#ifdef __cplusplus
}
#endif

#endif /* Q9DB_VALUES_H */
