// "<database id>::<element id>": names an element across databases.
#include <new>
#include <string>

#include "platform/Boundary.h"
#include "store/Database.h"
#include "store/StringStore.h"

using namespace q9;

namespace {
constexpr char16_t kSeparator[] = u"::";
}

extern "C" {

Q9DB_API HRESULT Q9Db_getQualifiedId(Q9DbNode* node, BSTR* out) {
  if (!out || !isA<ElementDetail>(node)) return E_INVALIDARG;
  auto* element = as<ElementDetail>(node);
  Q9Db* db = element->databaseRef;
  if (!db) return E_UNEXPECTED;
  std::u16string text;
  const HRESULT joined = platform::guarded([&] {
    if (db->eid) text.append(db->eid).append(kSeparator);
    if (element->eid) text.append(element->eid);
  });
  if (joined != S_OK) return joined;
  BSTR result = SysAllocStringLen(text.data(), uint32_t(text.size()));
  if (!result) return E_OUTOFMEMORY;
  *out = result;
  return S_OK;
}

Q9DB_API HRESULT Q9Db_splitQualifiedId(const char16_t* qualifiedId, BSTR* outDatabaseId,
                                       BSTR* outElementId) {
  if (!qualifiedId) return E_INVALIDARG;
  const std::u16string_view text(qualifiedId);
  const std::size_t at = text.find(kSeparator);
  const std::u16string_view databasePart = at == text.npos ? text.substr(0, 0) : text.substr(0, at);
  const std::u16string_view elementPart = at == text.npos ? text : text.substr(at + 2);
  bool storedDatabase = false;
  if (outDatabaseId && !databasePart.empty()) {
    BSTR part = SysAllocStringLen(databasePart.data(), uint32_t(databasePart.size()));
    if (!part) return E_OUTOFMEMORY;
    *outDatabaseId = part;
    storedDatabase = true;
  }
  if (!outElementId) return storedDatabase ? S_OK : E_INVALIDARG;
  BSTR part = SysAllocStringLen(elementPart.data(), uint32_t(elementPart.size()));
  if (!part) return E_OUTOFMEMORY;
  *outElementId = part;
  return S_OK;
}

}  // extern "C"
