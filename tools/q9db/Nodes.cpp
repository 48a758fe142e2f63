#include "Nodes.h"

#include "Text.h"

namespace q9tool {

// Texts are looked up in language 0, the first the importers give; without
// it, the slot's first language is taken.
constexpr uint16_t kLanguage = 0;
constexpr uint16_t kNoFallback = 65535;

std::string displayName(Q9DbNode* node) {
  const char16_t* name = nullptr;
  if (Q9Db_getShortName(node, &name) == S_OK && name && *name) return utf8(name);
  name = nullptr;
  if (Q9Db_getElementId(node, &name) == S_OK && name && *name) return utf8(name);
  return "?";
}

std::string unitName(Q9DbNode* unitSpec) {
  const char16_t* name = nullptr;
  if (!unitSpec || Q9Db_getDisplayName(unitSpec, kLanguage, kNoFallback, &name) != S_OK) return {};
  return utf8(name);
}

std::string slotText(Q9DbNode* db, Q9DbStringSlot* slot) {
  const char16_t* text = nullptr;
  if (!slot || Q9Db_stringLookup(db, slot, kLanguage, kNoFallback, &text) != S_OK) return {};
  return utf8(text);
}

}  // namespace q9tool
