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

#include <stddef.h>
#include <stdint.h>
#ifndef __cplusplus
#include <uchar.h>
#endif

#if defined(_WIN32)
#  if defined(Q9DB_BUILDING)
#    define Q9DB_API __declspec(dllexport)
#  else
#    define Q9DB_API __declspec(dllimport)
#  endif
#elif defined(Q9DB_BUILDING)
#  define Q9DB_API __attribute__((visibility("default")))
#else
#  define Q9DB_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Status codes ------------------------------------------------------ */

#if defined(_WIN32)
#  include <winerror.h>
#else
typedef int32_t HRESULT;
#  ifndef S_OK
#    define S_OK           ((HRESULT)0)
#    define S_FALSE        ((HRESULT)1)
#    define E_INVALIDARG   ((HRESULT)0x80070057u)
#    define E_OUTOFMEMORY  ((HRESULT)0x8007000Eu)
#    define E_FAIL         ((HRESULT)0x80004005u)
#    define E_POINTER      ((HRESULT)0x80004003u)
#    define E_UNEXPECTED   ((HRESULT)0x8000FFFFu)
#    define E_NOTIMPL      ((HRESULT)0x80004001u)
#  endif
#  ifndef SUCCEEDED
#    define SUCCEEDED(hr)  (((HRESULT)(hr)) >= 0)
#    define FAILED(hr)     (((HRESULT)(hr)) < 0)
#  endif
#endif

/* End of a decode walk: the status form of ERROR_NOT_FOUND. */
#define Q9_E_NOT_FOUND ((HRESULT)0x80070490u)

/* ---- Handles ----------------------------------------------------------- */

/* Any node of a database, the database handle included. */
typedef struct Q9DbNode Q9DbNode;
/* A multi-language text of a database. */
typedef struct Q9DbStringSlot Q9DbStringSlot;

/* ---- Node type codes (two-letter codes as returned by Q9Db_getNodeType) - */

#define Q9_NODETYPE_ElementReference              0x7265u
#define Q9_NODETYPE_Q9Db                          0x6264u
#define Q9_NODETYPE_ElementGroup                  0x6765u
#define Q9_NODETYPE_DatabaseCollections           0x6364u
#define Q9_NODETYPE_Cluster                       0x6C63u
#define Q9_NODETYPE_AbsolutelyScheduledTriggering 0x7361u
#define Q9_NODETYPE_IdentifierBasedTriggering     0x6269u
#define Q9_NODETYPE_MaskedIdentifierTriggering    0x696Du
#define Q9_NODETYPE_PDUTriggering                 0x7470u
#define Q9_NODETYPE_SignalInstance                0x6973u
#define Q9_NODETYPE_Signal                        0x6773u
#define Q9_NODETYPE_Coding                        0x6763u
#define Q9_NODETYPE_PDUInstance                   0x6970u
#define Q9_NODETYPE_MultiplexedPart               0x7478u
#define Q9_NODETYPE_Channel                       0x6863u
#define Q9_NODETYPE_Frame                         0x7266u
#define Q9_NODETYPE_UnitSpec                      0x6E75u
#define Q9_NODETYPE_IdentityComputation           0x6369u
#define Q9_NODETYPE_LinearComputation             0x636Cu
#define Q9_NODETYPE_MappedTextComputation         0x746Du
#define Q9_NODETYPE_MappedValueComputation        0x766Du
#define Q9_NODETYPE_SignalPDU                     0x7370u
#define Q9_NODETYPE_MultiplexedPDU                0x7578u
#define Q9_NODETYPE_EventControlledTiming         0x7465u
#define Q9_NODETYPE_CyclicTiming                  0x7463u
#define Q9_NODETYPE_Segment                       0x7473u
#define Q9_NODETYPE_ValueRange                    0x7276u
#define Q9_NODETYPE_InvalidNode                   0xFFFFu

/* ---- Byte orders, cluster types, flags ---------------------------------- */

#define Q9_BYTEORDER_LITTLEENDIAN 0
#define Q9_BYTEORDER_BIGENDIAN    1

#define Q9_CLUSTERTYPE_INVALID 0
#define Q9_CLUSTERTYPE_CAN     1
#define Q9_CLUSTERTYPE_FLEXRAY 2
#define Q9_CLUSTERTYPE_LIN     3
#define Q9_CLUSTERTYPE_MAX     3

#define Q9_FLAG_LOWERLIMIT_CLOSED   0x00000001u
#define Q9_FLAG_UPPERLIMIT_CLOSED   0x00000002u
#define Q9_FLAG_INTERNALVALUES      0x40000000u
#define Q9_FLAG_SIGNALDEFAULT       0x40000003u
#define Q9_FLAG_VALID               0x80000000u
#define Q9_FLAG_CONSTRAINT_VALID    0x80000000u
#define Q9_FLAGMASK_CAN_FRAMETYPE   0x00000003u
#define Q9_FLAG_CANSTANDARD         0u
#define Q9_FLAG_CANEXTENDED         1u
#define Q9_FLAG_CANSTD_OR_EXT       2u
#define Q9_FLAG_CANFD_FRAME         0x00000004u
#define Q9_FLAG_CANFD_FASTDATA      0x00000008u
#define Q9_FLAG_CANFD_ERRORSTATEIND 0x00000010u
#define Q9_FLAG_LIN_ENH_CHECKSUM    0x00000020u

/* ---- Classification ----------------------------------------------------- */

/* Two-letter code of a node, or Q9_NODETYPE_InvalidNode. */
Q9DB_API uint32_t Q9Db_getNodeType(const void *node);
/* S_OK for a node, S_FALSE for anything else, E_INVALIDARG for null. */
Q9DB_API HRESULT Q9Db_isValidNode(const void *node);
/* 1 when node is (or derives from) the class, else 0. The class is a
 * two-letter code (Q9_NODETYPE_ form, abstract classes too) or a full tag. */
Q9DB_API int Q9Db_isDerivedFrom(const void *node, uint32_t nodeClass);

/* ---- Database ----------------------------------------------------------- */

Q9DB_API HRESULT Q9Db_create(const char16_t *id, Q9DbNode **out);
Q9DB_API HRESULT Q9Db_destroy(Q9DbNode *db);
Q9DB_API HRESULT Q9Db_getDatabaseCollections(Q9DbNode *dbOrCollections, Q9DbNode **out);
Q9DB_API HRESULT Q9Db_getDatabaseRef(Q9DbNode *node, Q9DbNode **out);
Q9DB_API HRESULT Q9Db_findByElementId(Q9DbNode *db, const char16_t *id, Q9DbNode **out);
Q9DB_API HRESULT Q9Db_findChildByElementId(Q9DbNode *group, const char16_t *id, Q9DbNode **out);

/* ---- Multi-language texts ---------------------------------------------- */

Q9DB_API HRESULT Q9Db_stringCreateSlot(Q9DbNode *db, uint16_t language, const char16_t *text,
                                       Q9DbStringSlot **out);
Q9DB_API HRESULT Q9Db_stringCreateSlotA(Q9DbNode *db, uint16_t language, const char *text,
                                        Q9DbStringSlot **out);
Q9DB_API HRESULT Q9Db_stringAddAlternative(Q9DbNode *db, Q9DbStringSlot *slot, uint16_t language,
                                           const char16_t *text);
Q9DB_API HRESULT Q9Db_stringAddAlternativeA(Q9DbNode *db, Q9DbStringSlot *slot, uint16_t language,
                                            const char *text);
/* Falls back from language to fallback to the slot's first language.
 * Pass a cleared out. Fallback 65535 means none. */
Q9DB_API HRESULT Q9Db_stringLookup(Q9DbNode *db, Q9DbStringSlot *slot, uint16_t language,
                                   uint16_t fallback, const char16_t **out);

/* ---- Element attributes: ids, names, structure -------------------------- */

Q9DB_API HRESULT Q9Db_getElementId(Q9DbNode *node, const char16_t **out);
Q9DB_API HRESULT Q9Db_setElementId(Q9DbNode *node, const char16_t *id);
Q9DB_API HRESULT Q9Db_getGroup(Q9DbNode *node, Q9DbNode **out);
Q9DB_API HRESULT Q9Db_setGroup(Q9DbNode *node, Q9DbNode *group);
Q9DB_API HRESULT Q9Db_getParam(Q9DbNode *node, uint64_t *out);
Q9DB_API HRESULT Q9Db_setParam(Q9DbNode *node, uint64_t param);
Q9DB_API HRESULT Q9Db_setShortName(Q9DbNode *node, const char16_t *name);
Q9DB_API HRESULT Q9Db_getShortName(Q9DbNode *node, const char16_t **out);
Q9DB_API HRESULT Q9Db_setLongName(Q9DbNode *node, uint16_t language, const char16_t *text);
Q9DB_API HRESULT Q9Db_getLongName(Q9DbNode *node, uint16_t language, uint16_t fallback,
                                  const char16_t **out);
Q9DB_API HRESULT Q9Db_setDescription(Q9DbNode *node, uint16_t language, const char16_t *text);
Q9DB_API HRESULT Q9Db_getDescription(Q9DbNode *node, uint16_t language, uint16_t fallback,
                                     const char16_t **out);
Q9DB_API HRESULT Q9Db_setElementDetail(Q9DbNode *node, uint16_t language, const char16_t *longName,
                                       const char16_t *description);
Q9DB_API HRESULT Q9Db_getElementDetail(Q9DbNode *node, uint16_t language, uint16_t fallback,
                                       const char16_t **outLongName,
                                       const char16_t **outDescription);
Q9DB_API HRESULT Q9Db_setDisplayName(Q9DbNode *unitSpec, uint16_t language, const char16_t *text);
Q9DB_API HRESULT Q9Db_getDisplayName(Q9DbNode *unitSpec, uint16_t language, uint16_t fallback,
                                     const char16_t **out);
Q9DB_API HRESULT Q9Db_getTextValue(Q9DbNode *db, Q9DbNode *mappedTextComputation,
                                   uint16_t language, uint16_t fallback, const char16_t **out);

Q9DB_API HRESULT Q9Db_setParent(Q9DbNode *node, Q9DbNode *parent);
Q9DB_API HRESULT Q9Db_getParent(Q9DbNode *node, Q9DbNode **out);
Q9DB_API HRESULT Q9Db_setReference(Q9DbNode *node, Q9DbNode *reference);
Q9DB_API HRESULT Q9Db_getReference(Q9DbNode *node, Q9DbNode **out);
Q9DB_API HRESULT Q9Db_setFrame(Q9DbNode *frameTriggering, Q9DbNode *frame);
Q9DB_API HRESULT Q9Db_getFrame(Q9DbNode *frameTriggering, Q9DbNode **out);
Q9DB_API HRESULT Q9Db_setChannel(Q9DbNode *frameTriggering, Q9DbNode *channel);
Q9DB_API HRESULT Q9Db_getChannel(Q9DbNode *frameTriggering, Q9DbNode **out);
Q9DB_API HRESULT Q9Db_setSourceECU(Q9DbNode *frameTriggering, Q9DbNode *ecu);
Q9DB_API HRESULT Q9Db_getSourceECU(Q9DbNode *frameTriggering, Q9DbNode **out);
Q9DB_API HRESULT Q9Db_getStaticPart(Q9DbNode *multiplexedPdu, Q9DbNode **out);
Q9DB_API HRESULT Q9Db_getElsePart(Q9DbNode *multiplexedPdu, Q9DbNode **out);
Q9DB_API HRESULT Q9Db_getUnit(Q9DbNode *node, Q9DbNode **out);

/* ---- Element attributes: values ---------------------------------------- */

Q9DB_API HRESULT Q9Db_setClusterType(Q9DbNode *cluster, int32_t clusterType);
Q9DB_API HRESULT Q9Db_getClusterType(Q9DbNode *cluster, int32_t *out);
Q9DB_API HRESULT Q9Db_getFlags(Q9DbNode *node, uint32_t *out);
Q9DB_API HRESULT Q9Db_getSlotId(Q9DbNode *node, int32_t *out);
Q9DB_API HRESULT Q9Db_getCycleOffset(Q9DbNode *node, int32_t *out);
Q9DB_API HRESULT Q9Db_getRepetition(Q9DbNode *node, int32_t *out);
Q9DB_API HRESULT Q9Db_getIdentifier(Q9DbNode *node, uint32_t *out);
Q9DB_API HRESULT Q9Db_getIdentifierMask(Q9DbNode *node, uint32_t *out);
Q9DB_API HRESULT Q9Db_getIdentifierCode(Q9DbNode *node, uint32_t *out);
Q9DB_API HRESULT Q9Db_getByteOrder(Q9DbNode *node, int32_t *out);
Q9DB_API HRESULT Q9Db_getBitPosition(Q9DbNode *node, int32_t *out);
Q9DB_API HRESULT Q9Db_getUpdateBitPosition(Q9DbNode *node, int32_t *out);
Q9DB_API HRESULT Q9Db_getBitLength(Q9DbNode *node, int32_t *out);
Q9DB_API HRESULT Q9Db_getDefaultValue(Q9DbNode *signal, double *out);
Q9DB_API HRESULT Q9Db_getMinValue(Q9DbNode *signal, double *out);
Q9DB_API HRESULT Q9Db_getMaxValue(Q9DbNode *signal, double *out);
Q9DB_API HRESULT Q9Db_getEncoding(Q9DbNode *coding, uint32_t *out);
Q9DB_API HRESULT Q9Db_getSwitchCode(Q9DbNode *part, uint32_t *out);
Q9DB_API HRESULT Q9Db_getLength(Q9DbNode *frame, int32_t *out);
Q9DB_API HRESULT Q9Db_getScale(Q9DbNode *linearComputation, double *out);
Q9DB_API HRESULT Q9Db_getOffset(Q9DbNode *linearComputation, double *out);
Q9DB_API HRESULT Q9Db_getValue(Q9DbNode *mappedValueComputation, double *out);
Q9DB_API HRESULT Q9Db_getUnusedBytePattern(Q9DbNode *pdu, uint32_t *out);
Q9DB_API HRESULT Q9Db_getSwitchByteOrder(Q9DbNode *multiplexedPdu, int32_t *out);
Q9DB_API HRESULT Q9Db_getSwitchPosition(Q9DbNode *multiplexedPdu, int32_t *out);
Q9DB_API HRESULT Q9Db_getSwitchLength(Q9DbNode *multiplexedPdu, int32_t *out);
Q9DB_API HRESULT Q9Db_getDefaultSwitchCode(Q9DbNode *multiplexedPdu, uint32_t *out);
Q9DB_API HRESULT Q9Db_getDebounceTime(Q9DbNode *timing, int32_t *out);
Q9DB_API HRESULT Q9Db_getCycletime(Q9DbNode *timing, uint64_t *out);
Q9DB_API HRESULT Q9Db_getLowerLimit(Q9DbNode *range, double *out);
Q9DB_API HRESULT Q9Db_getUpperLimit(Q9DbNode *range, double *out);

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

/* ---- Qualified ids and BSTR ---------------------------------------------
 * A qualified id is "<database id>::<element id>". Results are BSTRs, owned
 * by the caller and freed with SysFreeString. */

#if !defined(_WIN32)
typedef char16_t *BSTR;
Q9DB_API BSTR SysAllocString(const char16_t *text);
Q9DB_API BSTR SysAllocStringLen(const char16_t *text, uint32_t length);
Q9DB_API BSTR SysAllocStringByteLen(const char *bytes, uint32_t byteLength);
Q9DB_API uint32_t SysStringLen(BSTR text);
Q9DB_API void SysFreeString(BSTR text);
#endif

Q9DB_API HRESULT Q9Db_getQualifiedId(Q9DbNode *node, BSTR *out);
Q9DB_API HRESULT Q9Db_splitQualifiedId(const char16_t *qualifiedId, BSTR *outDatabaseId,
                                       BSTR *outElementId);

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

/* ---- Message decoding ------------------------------------------------------
 * A pull walk over one received message on a channel:
 *   Q9Db_decodeMessage once; then, until Q9Db_decodeNextFrametriggering
 *   fails, one Q9Db_decodeNextFrametriggering and Q9Db_decodeNextSignal
 *   until that fails.
 * Each matching frame triggering is delivered in turn; the end of the
 * triggerings (S_FALSE) is followed by the channel's own PDU instances, and
 * Q9_E_NOT_FOUND ends each stage. The payload is not copied and must stay
 * valid for the whole walk; the database must not change meanwhile.
 * Heap form: set the pointer variable to NULL, end with
 * Q9Db_destroyDecodeEnum. Caller-owned form: point the variable at your own
 * Q9DbDecodeEnum and never destroy it; the walk itself allocates nothing. */

#define Q9_NUMERICSIGNAL 0
#define Q9_ASCIISIGNAL   1

#define Q9_DECODE_STACK_DEPTH 64
#define Q9_DECODE_BUFFER_SIZE 1024

/* A position in a member list, kept for the walk that owns the record. */
typedef struct Q9DbCursor {
  void *list;
  const void *layout;
  void *block;
  uint64_t index;
} Q9DbCursor;

/* One PDU being decoded: a PDU placed in the payload, or the part of a
 * multiplexed PDU, whose scattered segments are assembled in buffer. */
typedef struct Q9DbDecodeStackEntry {
  uint32_t expanded;
  Q9DbNode *pdu;
  uint32_t bitOffset;
  const uint8_t *data;
  uint8_t buffer[Q9_DECODE_BUFFER_SIZE];
} Q9DbDecodeStackEntry;

/* The state of one message's walk. Read only what the functions give out. */
typedef struct Q9DbDecodeEnum {
  uint32_t magic;
  Q9DbNode *channel;
  uint32_t state;
  uint32_t flags;
  uint32_t identifier;
  uint32_t identifierImage;
  uint64_t length;
  const uint8_t *payload;
  const Q9DbFilter *filter;
  Q9DbNode *triggering;
  Q9DbCursor triggeringWalk;
  Q9DbCursor pduWalk;
  Q9DbCursor instanceWalk;
  uint32_t depth;
  Q9DbDecodeStackEntry stack[Q9_DECODE_STACK_DEPTH];
  uint32_t pushBudget;  /* parts the current PDU instance may still push */
} Q9DbDecodeEnum;

/* One decoded signal. textCapacity and textBuffer are the caller's; an
 * ASCII signal fills textBuffer (not zero-terminated when it is full). */
typedef struct Q9DbDecodedSignal {
  uint64_t value;          /* raw value; 0 for text */
  Q9DbNode *triggering;    /* NULL for the channel's own PDU instances */
  Q9DbNode *instance;
  Q9DbNode *signal;
  uint32_t textLength;     /* bytes of text stored */
  uint32_t textCapacity;
  char *textBuffer;        /* may be NULL: ASCII signals are then passed over */
} Q9DbDecodedSignal;

/* S_OK or E_INVALIDARG. flags: the Q9_FLAG_CAN... bits of the message. */
Q9DB_API HRESULT Q9Db_decodeMessage(Q9DbNode *channel, uint32_t identifier, uint32_t flags, uint64_t length,
                                    const uint8_t *payload, Q9DbDecodeEnum **pEnum);
/* S_OK with the next matching triggering; S_FALSE (out NULL) when they are
 * done and the channel's own PDU instances follow, S_OK from then on;
 * Q9_E_NOT_FOUND after those. out may be NULL. */
Q9DB_API HRESULT Q9Db_decodeNextFrametriggering(Q9DbDecodeEnum *e, Q9DbNode **outTriggering);
/* Q9_NUMERICSIGNAL or Q9_ASCIISIGNAL with out filled, Q9_E_NOT_FOUND at the
 * end of the current stage. A filter, when given, passes a signal if it
 * passes the Signal or the SignalInstance. */
Q9DB_API HRESULT Q9Db_decodeNextSignal(Q9DbDecodeEnum *e, const Q9DbFilter *filter, Q9DbDecodedSignal *out);
/* The current triggering; S_FALSE and NULL when there is none. */
Q9DB_API HRESULT Q9Db_getFrameTriggering(Q9DbDecodeEnum *e, Q9DbNode **out);
/* Frees a heap-form walk. */
Q9DB_API HRESULT Q9Db_destroyDecodeEnum(Q9DbDecodeEnum *e);

/* ---- Whole-frame decoding ----------------------------------------------------
 * Beside the walk: one call decodes a message on a channel into the
 * caller's array, a record per signal the walk would deliver and in its
 * order, with the physical value already converted. The arguments are
 * checked once per message; nothing is allocated. Q9Db_decodeFrames does
 * the same for a batch of messages. */

typedef struct Q9DbSignalRecord {
  Q9DbNode *triggering;     /* the frame triggering; NULL for the channel's own PDU instances */
  Q9DbNode *instance;       /* the signal instance read */
  Q9DbNode *signal;
  uint64_t raw;             /* the raw value; 0 for a text signal */
  double physical;          /* the physical value as a double; NaN for a text signal or a
                               raw value no computation converts */
  Q9DbStringSlot *text;     /* the value's text (Q9Db_stringLookup), or NULL */
  uint32_t kind;            /* Q9_NUMERICSIGNAL or Q9_ASCIISIGNAL (its text: the walk) */
  uint32_t message;         /* Q9Db_decodeFrames: the index of the message in the batch; else 0 */
} Q9DbSignalRecord;

/* S_OK with *count records; S_FALSE when more records were due than
 * capacity holds (*count = capacity; the message's records are cut there);
 * E_INVALIDARG for a channel that is no Channel, a null payload with a
 * length, a null count, or null records with a capacity. A message that no
 * triggering takes gives S_OK and 0 records. */
Q9DB_API HRESULT Q9Db_decodeFrame(Q9DbNode *channel, uint32_t identifier, uint32_t flags, uint64_t length,
                                  const uint8_t *payload, Q9DbSignalRecord *records, uint32_t capacity,
                                  uint32_t *count);

/* One message of a batch. */
typedef struct Q9DbMessage {
  uint32_t identifier;
  uint32_t flags;           /* Q9_FLAG_CAN... bits */
  uint64_t length;
  const uint8_t *payload;
} Q9DbMessage;

/* Decodes messages[0..messageCount) in order into records, each record
 * naming its message. *decoded: the messages whose records were all
 * written; *count: the records written. S_OK when all were; S_FALSE when
 * the records ran out first: only whole messages are written, so the
 * caller goes on from messages + *decoded. E_INVALIDARG as for
 * Q9Db_decodeFrame, for null messages with a count, or for a message too
 * big for the whole of records. */
Q9DB_API HRESULT Q9Db_decodeFrames(Q9DbNode *channel, const Q9DbMessage *messages, uint32_t messageCount,
                                   Q9DbSignalRecord *records, uint32_t capacity, uint32_t *decoded,
                                   uint32_t *count);

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

/* ---- Frame encoder -----------------------------------------------------------
 * Live images of every frame and PDU under a scope node (a Channel, Cluster,
 * Frame or Signal; NULL for the whole database). The client's cycle:
 *   Q9Db_CreateEncoder once; Q9Db_EncoderRegister for an app number;
 *   Q9Db_EncoderSetSendMode; Q9Db_EncoderInsert for what it sends;
 *   Q9Db_EncoderChangeSignal with raw values whenever they change; and at
 *   its own rate Q9Db_EncoderTrigger with the current time, in the unit of
 *   the database's timings, then Q9Db_EncoderGetChangedFrame until S_FALSE.
 * Every operation takes the encoder's own lock, so one thread may change
 * signals while another triggers and collects. The database must not change
 * while an encoder exists; destroy the encoder before the database. */

typedef struct Q9DbEncoder Q9DbEncoder;

/* Send modes of an app. Once: its changes are reported until the first
 * Q9Db_EncoderGetChangedFrame that finds none; a new Q9Db_EncoderSetSendMode
 * brings it back. Periodic: until told otherwise. Off: changes are kept in
 * the images and go out with the next cyclic send. */
#define Q9_ENC_MODE_OFF      0u
#define Q9_ENC_MODE_ONCE     1u
#define Q9_ENC_MODE_PERIODIC 2u

/* Apps are numbered 0 to Q9_ENC_APP_COUNT - 1. A change made as app
 * Q9_ENC_APP_ALL reaches every client, whatever the send modes. */
#define Q9_ENC_APP_COUNT 24u
#define Q9_ENC_APP_ALL   31u

/* Answers of the signal change operations. They are plain positive numbers,
 * not success: NOT_FOUND, the signal has no coding; NO_MATCH, the (last)
 * instance's PDU has no image, or none that a client inserted. */
#define Q9_ENC_NOT_FOUND ((HRESULT)1168)
#define Q9_ENC_NO_MATCH  ((HRESULT)1169)

/* A frame that changed: data points into the encoder's image of the frame,
 * valid until the next trigger that changes the frame or the encoder's
 * destruction. Nothing is copied. */
typedef struct Q9DbChangedFrame {
  Q9DbNode *frame;
  uint64_t size;
  const uint8_t *data;
} Q9DbChangedFrame;

/* S_OK with the new encoder in out; E_INVALIDARG for a db that is no
 * database, or a scope of another class or database; E_POINTER for a null
 * out; E_OUTOFMEMORY. On failure nothing is stored in out. */
Q9DB_API HRESULT Q9Db_CreateEncoder(Q9DbNode *db, Q9DbNode *scope, Q9DbEncoder **out);
/* S_OK, also for NULL. */
Q9DB_API HRESULT Q9Db_DestroyEncoder(Q9DbEncoder *encoder);

/* The rest answer E_INVALIDARG for a NULL encoder. */

/* S_OK with the lowest free app number, in mode off; E_FAIL when all 24 are
 * taken or app is NULL. */
Q9DB_API HRESULT Q9Db_EncoderRegister(Q9DbEncoder *encoder, uint32_t *app);
/* E_FAIL for an app that isn't registered. */
Q9DB_API HRESULT Q9Db_EncoderDeregister(Q9DbEncoder *encoder, uint32_t app);
Q9DB_API HRESULT Q9Db_EncoderSetSendMode(Q9DbEncoder *encoder, uint32_t app, uint32_t mode);
Q9DB_API HRESULT Q9Db_EncoderGetSendMode(Q9DbEncoder *encoder, uint32_t app, uint32_t *mode);
/* Insert and delete count: what was inserted twice stays until deleted
 * twice. node: a Frame, a frame triggering, a SignalPDU, a Signal, a signal
 * or PDU instance, or an ECU (all frames it sends). S_OK; S_FALSE when
 * nothing under the encoder's scope was reached, or for a delete of what
 * isn't inserted. */
Q9DB_API HRESULT Q9Db_EncoderInsert(Q9DbEncoder *encoder, uint32_t app, Q9DbNode *node);
Q9DB_API HRESULT Q9Db_EncoderDelete(Q9DbEncoder *encoder, uint32_t app, Q9DbNode *node);
/* S_OK when a PDU triggering on the way from the signal up to its frame has
 * a cyclic timing; S_FALSE when not. */
Q9DB_API HRESULT Q9Db_EncoderIsSignalCyclic(Q9DbEncoder *encoder, Q9DbNode *signal);
/* Writes the raw value into every instance of the signal whose PDU is
 * inserted, and marks those PDUs as changed by app. S_OK;
 * Q9_ENC_NOT_FOUND; Q9_ENC_NO_MATCH; E_INVALIDARG for no signal, a signal
 * without instances or a coding longer than 64 bits. */
Q9DB_API HRESULT Q9Db_EncoderChangeSignal(Q9DbEncoder *encoder, uint32_t app, Q9DbNode *signal,
                                          uint64_t raw);
/* The same with the value as size bytes, little-endian; bits the data
 * doesn't cover are zero. E_POINTER for NULL data with a size. */
Q9DB_API HRESULT Q9Db_EncoderChangeSignalEx(Q9DbEncoder *encoder, uint32_t app, Q9DbNode *signal,
                                            uint64_t size, const uint8_t *data);
/* Sends the changed PDUs whose timing allows it, and those that came due by
 * their cycle, into their frames. S_OK. */
Q9DB_API HRESULT Q9Db_EncoderTrigger(Q9DbEncoder *encoder, uint64_t time);
/* S_OK with the most recently changed frame not yet reported to the active
 * apps; S_FALSE when none is left. A NULL out answers S_FALSE and leaves
 * the frame for the next caller. */
Q9DB_API HRESULT Q9Db_EncoderGetChangedFrame(Q9DbEncoder *encoder, Q9DbChangedFrame *out);

/* ---- Graph dump ------------------------------------------------------------ */

/* Writes every node of the database reachable from its collections node to
 * fileName as a Graphviz digraph in UTF-8: one record node per database
 * node, labelled "Class [short name]: id details", and one coloured edge per
 * link; texts in language, else fallback. S_OK; E_INVALIDARG for a db that
 * isn't a database handle or a null fileName; E_UNEXPECTED when the file
 * can't be opened for writing. */
Q9DB_API HRESULT Q9Db_dumpDot(Q9DbNode *db, const char16_t *fileName, uint16_t language, uint16_t fallback);

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

#include "Q9DbBits.h"
#include "Q9DbImport.h"
#include "Q9DbLua.h"

#endif /* Q9DB_H */
