/* Nodes and their attributes: classification, the database handle,
 * element ids, names, links and values.
 * Included by Q9Db.h; compiles on its own. */
#ifndef Q9DB_NODES_H
#define Q9DB_NODES_H

#include "types.h"

#ifdef __cplusplus
extern "C" {
#endif

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

#endif /* Q9DB_NODES_H */
