/* Encoding one signal value into a payload. The enumerator shares its
 * list cursor with decoding.
 * Included by Q9Db.h; compiles on its own. */
#ifndef Q9DB_ENCODE_H
#define Q9DB_ENCODE_H

#include "types.h"
#include "values.h"
#include "decode.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Signal encoding ---------------------------------------------------------
 * One value into a payload: Q9Db_encodeSignal, Q9Db_encodeNextComputation
 * until the caller finds a computation it can use, Q9Db_physicalToInternal,
 * then Q9Db_encodeSignalInstance for each instance to fill. The enumerator
 * has the same two forms as Q9DbDecodeEnum; the heap form ends with
 * Q9Db_destroyEncodeEnum. */

typedef struct Q9DbEncodeEnum {
  uint32_t magic;
  uint32_t valueType;
  union {
    double d;
    uint64_t u;
    int64_t i;
  } value;
  Q9DbCursor computationWalk;
} Q9DbEncodeEnum;

/* S_OK; S_FALSE when the signal has no coding (no computation follows);
 * E_INVALIDARG; E_OUTOFMEMORY. */
Q9DB_API HRESULT Q9Db_encodeSignal(Q9DbNode *signal, const Q9DbPhysicalValue *value, Q9DbEncodeEnum **pEnum);
/* The next encoding computation with a range that holds the value, in list
 * order; S_FALSE at the end. */
Q9DB_API HRESULT Q9Db_encodeNextComputation(Q9DbEncodeEnum *e, Q9DbNode **outComputation);
/* Writes the low coding-length bits of raw at the instance's place in the
 * PDU image payload; other bits keep their values, and bits past the end
 * are dropped. E_UNEXPECTED for an instance without signal or coding, or one
 * that no 64-bit value can fill (negative position, length above 64). */
Q9DB_API HRESULT Q9Db_encodeSignalInstance(Q9DbNode *instance, uint64_t raw, uint8_t *payload,
                                           uint64_t length);
/* Frees a heap-form enumerator. */
Q9DB_API HRESULT Q9Db_destroyEncodeEnum(Q9DbEncodeEnum *e);

#ifdef __cplusplus
}
#endif

#endif /* Q9DB_ENCODE_H */
