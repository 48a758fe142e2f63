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

#ifdef __cplusplus
}
#endif

#include "Q9DbBits.h"
#include "Q9DbImport.h"

#endif /* Q9DB_H */
