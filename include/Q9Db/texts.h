/* Texts: multi-language text slots, and qualified ids given out as
 * caller-owned BSTRs.
 * Included by Q9Db.h; compiles on its own. */
#ifndef Q9DB_TEXTS_H
#define Q9DB_TEXTS_H

#include "types.h"

#ifdef __cplusplus
extern "C" {
#endif

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

#ifdef __cplusplus
}
#endif

#endif /* Q9DB_TEXTS_H */
