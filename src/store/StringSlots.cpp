// Languages in order of first use, and multi-language string slots with a
// two-entry lookup cache.
#include <cstring>

#include "store/Database.h"
#include "store/StringStore.h"

namespace q9 {
namespace {

int languageMatches(void* context, int32_t, void* record) {
  uint32_t id;
  std::memcpy(&id, record, sizeof id);
  return id == *static_cast<const uint32_t*>(context);
}

int32_t searchLanguage(StringStore* store, uint32_t language) {
  return findRecord(&store->languageLayout, &store->textLanguages, languageMatches, &language);
}

bool isSlot(const StringSlot* slot) { return readTag(slot) == kSlotTag; }

HRESULT createSlot(StringStore* store, uint16_t language, const char16_t* interned,
                   StringSlot** out) {
  const int32_t languageIndex = resolveLanguage(store, language);
  if (languageIndex < 0) return E_OUTOFMEMORY;
  auto* slot = static_cast<StringSlot*>(appendRecord(&store->slotLayout, store->allocator,
                                                     &store->slots));
  if (!slot) return E_OUTOFMEMORY;
  writeTag(slot, kSlotTag);
  slot->firstLanguage = -1;
  HRESULT hr = initPointerList(&store->slotTextLayout, store->allocator, &slot->texts);
  if (hr != S_OK) return hr;
  hr = setAt(&store->slotTextLayout, store->allocator, &slot->texts, uint64_t(languageIndex),
             const_cast<char16_t*>(interned));
  if (hr != S_OK) return hr;
  slot->firstLanguage = languageIndex;
  *out = slot;
  return S_OK;
}

HRESULT addAlternative(StringStore* store, StringSlot* slot, uint16_t language,
                       const char16_t* interned) {
  const int32_t languageIndex = resolveLanguage(store, language);
  if (languageIndex < 0) return E_OUTOFMEMORY;
  return setAt(&store->slotTextLayout, store->allocator, &slot->texts, uint64_t(languageIndex),
               const_cast<char16_t*>(interned));
}

// Interning comes before the tag tests, so a text given to a bad slot still
// ends up in the store.
HRESULT createSlotFor(Q9DbNode* db, uint16_t language, const char16_t* interned, bool textGiven,
                      Q9DbStringSlot** out) {
  StringStore* store = storeOf(db);
  if (!store || store->tag != kStringStoreTag) return E_INVALIDARG;
  if (textGiven && !interned) return E_OUTOFMEMORY;
  return createSlot(store, language, interned, reinterpret_cast<StringSlot**>(out));
}

HRESULT addAlternativeFor(Q9DbNode* db, Q9DbStringSlot* slotHandle, uint16_t language,
                          const char16_t* interned, bool textGiven) {
  StringStore* store = storeOf(db);
  auto* slot = reinterpret_cast<StringSlot*>(slotHandle);
  if (!store || store->tag != kStringStoreTag || !slot || !isSlot(slot)) return E_INVALIDARG;
  if (textGiven && !interned) return E_OUTOFMEMORY;
  return addAlternative(store, slot, language, interned);
}

}  // namespace

int32_t resolveLanguage(StringStore* store, uint16_t language) {
  if (store->lookupCache[0].language == language) return store->lookupCache[0].index;
  const int32_t found = searchLanguage(store, language);
  if (found >= 0) {
    store->lookupCache[0] = {language, found};
    return found;
  }
  auto* record = static_cast<uint32_t*>(
      appendRecord(&store->languageLayout, store->allocator, &store->textLanguages));
  if (!record) return -1;
  const uint32_t id = language;
  std::memcpy(record, &id, sizeof id);
  return int32_t(listCount(&store->textLanguages)) - 1;
}

int32_t findLanguage(StringStore* store, uint32_t language, LanguageCacheEntry* entry) {
  if (entry->language == language) return entry->index;
  const int32_t found = searchLanguage(store, language);
  if (found >= 0) *entry = {language, found};
  return found;
}

HRESULT setSlotText(StringStore* store, StringSlot** field, uint16_t language,
                    const char16_t* text) {
  if (!field) return E_INVALIDARG;
  if (!text || !text[0]) return S_OK;
  if (!store) return E_INVALIDARG;
  const char16_t* interned = internText(store, text);
  if (!store || store->tag != kStringStoreTag) return E_INVALIDARG;
  if (!interned) return E_OUTOFMEMORY;
  if (StringSlot* slot = *field) {
    if (!isSlot(slot)) return E_INVALIDARG;
    return addAlternative(store, slot, language, interned);
  }
  StringSlot* made = nullptr;
  const HRESULT hr = createSlot(store, language, interned, &made);
  if (hr == S_OK) *field = made;
  return hr;
}

HRESULT lookupText(StringStore* store, StringSlot* slot, uint16_t language, uint16_t fallback,
                   const char16_t** out) {
  if (!out || !store || store->tag != kStringStoreTag) return E_INVALIDARG;
  if (!slot) {
    *out = nullptr;
    return S_FALSE;
  }
  if (!isSlot(slot)) return E_UNEXPECTED;
  HRESULT status = E_FAIL;
  auto fetch = [&](int32_t languageIndex) {
    void* text = const_cast<char16_t*>(*out);
    status = getAt(&slot->texts, uint64_t(languageIndex), &text);
    *out = static_cast<const char16_t*>(text);
  };
  auto gotText = [&] { return status == S_OK && *out; };
  const int32_t wanted = findLanguage(store, language, &store->lookupCache[0]);
  if (wanted >= 0) fetch(wanted);
  if (!gotText()) {
    const int32_t second = findLanguage(store, fallback, &store->lookupCache[1]);
    if (second >= 0) fetch(second);
  }
  if (!gotText() && slot->firstLanguage != -1) fetch(slot->firstLanguage);
  if (status != S_OK) return status;
  return *out ? S_OK : S_FALSE;
}

}  // namespace q9

using namespace q9;

extern "C" {

Q9DB_API HRESULT Q9Db_stringCreateSlot(Q9DbNode* db, uint16_t language, const char16_t* text,
                                       Q9DbStringSlot** out) {
  StringStore* store = storeOf(db);
  if (!store) return E_INVALIDARG;
  return createSlotFor(db, language, internText(store, text), text != nullptr, out);
}

Q9DB_API HRESULT Q9Db_stringCreateSlotA(Q9DbNode* db, uint16_t language, const char* text,
                                        Q9DbStringSlot** out) {
  StringStore* store = storeOf(db);
  if (!store) return E_INVALIDARG;
  return createSlotFor(db, language, internTextA(store, text), text != nullptr, out);
}

Q9DB_API HRESULT Q9Db_stringAddAlternative(Q9DbNode* db, Q9DbStringSlot* slot, uint16_t language,
                                           const char16_t* text) {
  StringStore* store = storeOf(db);
  if (!store) return E_INVALIDARG;
  return addAlternativeFor(db, slot, language, internText(store, text), text != nullptr);
}

Q9DB_API HRESULT Q9Db_stringAddAlternativeA(Q9DbNode* db, Q9DbStringSlot* slot,
                                            uint16_t language, const char* text) {
  StringStore* store = storeOf(db);
  if (!store) return E_INVALIDARG;
  return addAlternativeFor(db, slot, language, internTextA(store, text), text != nullptr);
}

Q9DB_API HRESULT Q9Db_stringLookup(Q9DbNode* db, Q9DbStringSlot* slot, uint16_t language,
                                   uint16_t fallback, const char16_t** out) {
  StringStore* store = storeOf(db);
  if (!store) return E_INVALIDARG;
  return lookupText(store, reinterpret_cast<StringSlot*>(slot), language, fallback, out);
}

}  // extern "C"
