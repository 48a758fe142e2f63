/* Member lists and the enumerators that walk them.
 * Included by Q9Db.h; compiles on its own. */
#ifndef Q9DB_LISTS_H
#define Q9DB_LISTS_H

#include "types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Member lists ---------------------------------------------------------
 * List operations take the owner, a count and an array of that many nodes;
 * null entries and entries of a wrong class are skipped. */

Q9DB_API HRESULT Q9Db_insertChildren(Q9DbNode *group, uint64_t count, Q9DbNode *const *items);
Q9DB_API HRESULT Q9Db_appendChildren(Q9DbNode *group, uint64_t count, Q9DbNode *const *items);
Q9DB_API HRESULT Q9Db_addClusters(Q9DbNode *db, uint64_t count, Q9DbNode *const *items);
Q9DB_API HRESULT Q9Db_addECUs(Q9DbNode *db, uint64_t count, Q9DbNode *const *items);
Q9DB_API HRESULT Q9Db_addFrames(Q9DbNode *db, uint64_t count, Q9DbNode *const *items);
Q9DB_API HRESULT Q9Db_addCodings(Q9DbNode *db, uint64_t count, Q9DbNode *const *items);
Q9DB_API HRESULT Q9Db_addPDUs(Q9DbNode *db, uint64_t count, Q9DbNode *const *items);
Q9DB_API HRESULT Q9Db_addSignals(Q9DbNode *db, uint64_t count, Q9DbNode *const *items);
Q9DB_API HRESULT Q9Db_addViews(Q9DbNode *db, uint64_t count, Q9DbNode *const *items);
Q9DB_API HRESULT Q9Db_addSignalInstances(Q9DbNode *owner, uint64_t count,
                                         Q9DbNode *const *items);
Q9DB_API HRESULT Q9Db_addFrameTriggerings(Q9DbNode *owner, uint64_t count,
                                          Q9DbNode *const *items);
Q9DB_API HRESULT Q9Db_addPDUTriggerings(Q9DbNode *owner, uint64_t count, Q9DbNode *const *items);
Q9DB_API HRESULT Q9Db_addPDUInstances(Q9DbNode *owner, uint64_t count, Q9DbNode *const *items);
Q9DB_API HRESULT Q9Db_addParents(Q9DbNode *pdu, uint64_t count, Q9DbNode *const *items);
Q9DB_API HRESULT Q9Db_addDynamicParts(Q9DbNode *multiplexedPdu, uint64_t count,
                                      Q9DbNode *const *items);
Q9DB_API HRESULT Q9Db_addInternalToPhysicalComputations(Q9DbNode *coding, uint64_t count,
                                                        Q9DbNode *const *items);
Q9DB_API HRESULT Q9Db_addPhysicalToInternalComputations(Q9DbNode *coding, uint64_t count,
                                                        Q9DbNode *const *items);
Q9DB_API HRESULT Q9Db_addSegment(Q9DbNode *part, int32_t byteOrder, int32_t bitpos,
                                 int32_t bitlen);
Q9DB_API HRESULT Q9Db_addRange(Q9DbNode *computation, double lowerLimit, double upperLimit,
                               uint32_t flags);
Q9DB_API HRESULT Q9Db_setStaticPart(Q9DbNode *multiplexedPdu, Q9DbNode *part);
Q9DB_API HRESULT Q9Db_setElsePart(Q9DbNode *multiplexedPdu, Q9DbNode *part);
Q9DB_API HRESULT Q9Db_setSignal(Q9DbNode *signalInstance, Q9DbNode *target);

/* ---- Enumerators ----------------------------------------------------------
 * Heap form: set the pointer variable to NULL before opening; end it with
 * Q9Db_enumeratorDestroy. Caller-owned form: write one of the two tags into
 * your own Q9DbEnumerator, zero the rest, point the variable at it, and never
 * destroy it. Passing a variable that already holds an enumerator re-aims it. */

#define Q9_ENUMERATOR_TAG_POINTERS 0x696C5065u /* "ePli" */
#define Q9_ENUMERATOR_TAG_RECORDS  0x73694C65u /* "eLis" */

typedef struct Q9DbEnumerator {
  uint32_t tag;
  void *list;
  const void *layout;
  void *block;
  uint64_t index;
} Q9DbEnumerator;

/* Key versus item: negative when the key sorts before the item. */
typedef int32_t (*Q9DbCompareFn)(const void *key, const void *item);

Q9DB_API HRESULT Q9Db_enumChildren(Q9DbNode *group, Q9DbEnumerator **pEnum);
Q9DB_API HRESULT Q9Db_enumIdentElements(Q9DbNode *db, Q9DbEnumerator **pEnum);
Q9DB_API HRESULT Q9Db_enumClusters(Q9DbNode *db, Q9DbEnumerator **pEnum);
Q9DB_API HRESULT Q9Db_enumECUs(Q9DbNode *db, Q9DbEnumerator **pEnum);
Q9DB_API HRESULT Q9Db_enumPDUs(Q9DbNode *db, Q9DbEnumerator **pEnum);
Q9DB_API HRESULT Q9Db_enumFrames(Q9DbNode *db, Q9DbEnumerator **pEnum);
Q9DB_API HRESULT Q9Db_enumSignals(Q9DbNode *db, Q9DbEnumerator **pEnum);
Q9DB_API HRESULT Q9Db_enumCodings(Q9DbNode *db, Q9DbEnumerator **pEnum);
Q9DB_API HRESULT Q9Db_enumViews(Q9DbNode *db, Q9DbEnumerator **pEnum);
Q9DB_API HRESULT Q9Db_enumFrameTriggerings(Q9DbNode *owner, Q9DbEnumerator **pEnum);
Q9DB_API HRESULT Q9Db_enumPDUTriggerings(Q9DbNode *owner, Q9DbEnumerator **pEnum);
Q9DB_API HRESULT Q9Db_enumPDUInstances(Q9DbNode *owner, Q9DbEnumerator **pEnum);
Q9DB_API HRESULT Q9Db_enumSignalInstances(Q9DbNode *owner, Q9DbEnumerator **pEnum);
Q9DB_API HRESULT Q9Db_enumParents(Q9DbNode *pdu, Q9DbEnumerator **pEnum);
Q9DB_API HRESULT Q9Db_enumDynamicParts(Q9DbNode *multiplexedPdu, Q9DbEnumerator **pEnum);
Q9DB_API HRESULT Q9Db_enumInternalToPhysicalComputations(Q9DbNode *coding,
                                                         Q9DbEnumerator **pEnum);
Q9DB_API HRESULT Q9Db_enumPhysicalToInternalComputations(Q9DbNode *coding,
                                                         Q9DbEnumerator **pEnum);
Q9DB_API HRESULT Q9Db_enumSegments(Q9DbNode *part, Q9DbEnumerator **pEnum);
Q9DB_API HRESULT Q9Db_enumRanges(Q9DbNode *computation, Q9DbEnumerator **pEnum);

Q9DB_API HRESULT Q9Db_enumeratorNext(Q9DbEnumerator *e, uint32_t n, Q9DbNode **out,
                                     uint32_t *fetched);
Q9DB_API HRESULT Q9Db_enumeratorSkip(Q9DbEnumerator *e, uint32_t n);
Q9DB_API HRESULT Q9Db_enumeratorReset(Q9DbEnumerator *e);
Q9DB_API HRESULT Q9Db_enumeratorGetCount(Q9DbEnumerator *e, uint64_t *out);
Q9DB_API HRESULT Q9Db_enumeratorFindNext(Q9DbEnumerator *e, uint64_t key,
                                         Q9DbCompareFn comparison);
Q9DB_API HRESULT Q9Db_enumeratorDestroy(Q9DbEnumerator *e);

#ifdef __cplusplus
}
#endif

#endif /* Q9DB_LISTS_H */
