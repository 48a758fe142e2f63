/* Factories: one function per node class that a client can create.
 * Included by Q9Db.h; compiles on its own. */
#ifndef Q9DB_FACTORIES_H
#define Q9DB_FACTORIES_H

#include "types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Factories ----------------------------------------------------------
 * The first argument is the database handle, the last receives the new node.
 * Once a node is made it is written to out whatever the status: a later
 * failure leaves it in the database, unlinked. */

Q9DB_API HRESULT Q9Db_createCluster(Q9DbNode *db, const char16_t *id, int32_t clusterType,
                                    Q9DbNode **out);
Q9DB_API HRESULT Q9Db_createChannel(Q9DbNode *db, const char16_t *id, Q9DbNode *cluster,
                                    Q9DbNode **out);
Q9DB_API HRESULT Q9Db_createFrame(Q9DbNode *db, const char16_t *id, int32_t length,
                                  Q9DbNode **out);
Q9DB_API HRESULT Q9Db_createAbsolutelyScheduledTriggering(
    Q9DbNode *db, const char16_t *id, int32_t slotId, int32_t baseCycle, int32_t repetition,
    uint32_t flags, Q9DbNode *frame, Q9DbNode *sourceEcu, Q9DbNode *channel, Q9DbNode **out);
Q9DB_API HRESULT Q9Db_createIdentifierBasedTriggering(Q9DbNode *db, const char16_t *id,
                                                      uint32_t identifier, uint32_t flags,
                                                      Q9DbNode *frame, Q9DbNode *sourceEcu,
                                                      Q9DbNode *channel, Q9DbNode **out);
Q9DB_API HRESULT Q9Db_createMaskedIdentifierTriggering(Q9DbNode *db, const char16_t *id,
                                                       uint32_t mask, uint32_t code,
                                                       uint32_t flags, Q9DbNode *frame,
                                                       Q9DbNode *sourceEcu, Q9DbNode *channel,
                                                       Q9DbNode **out);
Q9DB_API HRESULT Q9Db_createSignalPDU(Q9DbNode *db, const char16_t *id, int32_t bitlen,
                                     Q9DbNode *parent, Q9DbNode **out);
Q9DB_API HRESULT Q9Db_createMultiplexedPDU(Q9DbNode *db, const char16_t *id, int32_t bitlen,
                                          int32_t switchByteOrder, int32_t switchPosition,
                                          int32_t switchLength, uint32_t defaultSwitchCode,
                                          Q9DbNode *parent, Q9DbNode **out);
Q9DB_API HRESULT Q9Db_createMultiplexedPart(Q9DbNode *db, const char16_t *id, uint32_t switchCode,
                                           Q9DbNode *parent, Q9DbNode **out);
Q9DB_API HRESULT Q9Db_createPDUInstance(Q9DbNode *db, const char16_t *id, int32_t byteOrder,
                                       int32_t bitpos, int32_t updateBitpos, Q9DbNode *pdu,
                                       Q9DbNode *owner, Q9DbNode **out);
/* Each link node may be a Channel or a PDU. */
Q9DB_API HRESULT Q9Db_createPDUTriggering(Q9DbNode *db, const char16_t *id, Q9DbNode *first,
                                         Q9DbNode *second, Q9DbNode **out);
Q9DB_API HRESULT Q9Db_createEventControlledTiming(Q9DbNode *db, int32_t debounceTime,
                                                 Q9DbNode *group, Q9DbNode **out);
Q9DB_API HRESULT Q9Db_createCyclicTiming(Q9DbNode *db, uint64_t cycleTime, Q9DbNode *group,
                                        Q9DbNode **out);
Q9DB_API HRESULT Q9Db_createECU(Q9DbNode *db, const char16_t *id, Q9DbNode **out);
Q9DB_API HRESULT Q9Db_createSignal(Q9DbNode *db, const char16_t *id, uint32_t flags,
                                   double defaultValue, double minValue, double maxValue,
                                   Q9DbNode *coding, Q9DbNode **out);
Q9DB_API HRESULT Q9Db_createSignalInstance(Q9DbNode *db, const char16_t *id, int32_t byteOrder,
                                          int32_t bitpos, int32_t updateBitpos,
                                          Q9DbNode *signal, Q9DbNode *pdu, Q9DbNode **out);
Q9DB_API HRESULT Q9Db_createCoding(Q9DbNode *db, const char16_t *id, int32_t bitlen,
                                   uint32_t encoding, Q9DbNode *unit, Q9DbNode **out);
Q9DB_API HRESULT Q9Db_createUnitSpec(Q9DbNode *db, const char16_t *id, uint16_t language,
                                     const char16_t *displayName, Q9DbNode **out);
Q9DB_API HRESULT Q9Db_createIdentityComputation(Q9DbNode *db, const char16_t *id,
                                                Q9DbNode **out);
Q9DB_API HRESULT Q9Db_createLinearComputation(Q9DbNode *db, const char16_t *id, double scale,
                                              double offset, Q9DbNode **out);
Q9DB_API HRESULT Q9Db_createMappedValueComputation(Q9DbNode *db, const char16_t *id,
                                                   double value, Q9DbNode **out);
Q9DB_API HRESULT Q9Db_createMappedTextComputation(Q9DbNode *db, const char16_t *id,
                                                  Q9DbStringSlot *textvalue, Q9DbNode **out);
Q9DB_API HRESULT Q9Db_createElementGroup(Q9DbNode *db, const char16_t *id, Q9DbNode *parentGroup,
                                         Q9DbNode *reference, Q9DbNode **out);
Q9DB_API HRESULT Q9Db_createElementReference(Q9DbNode *db, const char16_t *id,
                                             Q9DbNode *reference, Q9DbNode **out);

#ifdef __cplusplus
}
#endif

#endif /* Q9DB_FACTORIES_H */
