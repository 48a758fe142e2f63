// Interned wide texts, languages and multi-language string slots of one
// database. All memory behind the store comes from the database's allocator.
#pragma once

#include <cstdint>

#include "Q9Db.h"
#include "store/NodeType.h"
#include "store/PagedList.h"

namespace q9 {

struct Allocator;
struct BlockDirectories;
struct Gathering;

constexpr uint32_t kStringStoreTag = fourCC("STRS");
constexpr uint32_t kSlotTag = fourCC("SLOT");

struct LanguageCacheEntry {
  uint32_t language;
  int32_t index;
};

struct StringStore {
  uint32_t tag;
  Allocator* allocator;
  BlockLayout textLayout;
  PagedList textIndex;  // every interned text, sorted by code unit
  BlockLayout slotTextLayout;
  BlockLayout languageLayout;
  PagedList textLanguages;  // 32-bit records: language ids in order of first use
  BlockLayout slotLayout;
  PagedList slots;
  LanguageCacheEntry lookupCache[2];
  BlockDirectories* directories;  // the text index's, once it is long
  Gathering* gathering;           // the database's, while it gathers
};

struct StringSlot {
  uint32_t tag;
  int32_t firstLanguage;  // languageIndex of the first text; -1 while being made
  PagedList texts;        // sparse: position = languageIndex
};
static_assert(sizeof(StringSlot) == 24, "slot record is 24 bytes");

// Code-unit order; the terminator sorts before every unit. Null reads as "".
int32_t compareText(const char16_t* a, const char16_t* b);
std::size_t textLength(const char16_t* text);
// compareText of two texts given as untyped keys, both stored by
// internText or otherwise word-readable (see WordText.h).
int32_t compareStoredTexts(const void* key, const void* item);

// Makes the store and its first blocks. On failure *out is still set when the
// record itself was made, so the caller can release it.
HRESULT createStringStore(Allocator* alloc, StringStore** out);
void destroyStringStore(StringStore* store);

// The store's copy of text; stored texts are word-readable.
const char16_t* internText(StringStore* store, const char16_t* text);
const char16_t* internTextA(StringStore* store, const char* text);

int32_t resolveLanguage(StringStore* store, uint16_t language);
int32_t findLanguage(StringStore* store, uint32_t language, LanguageCacheEntry* entry);
HRESULT setSlotText(StringStore* store, StringSlot** field, uint16_t language,
                    const char16_t* text);
HRESULT lookupText(StringStore* store, StringSlot* slot, uint16_t language, uint16_t fallback,
                   const char16_t** out);

}  // namespace q9
