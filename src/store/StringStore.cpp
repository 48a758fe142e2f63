// Each text is interned once, in the word-readable layout, into a sorted
// index searched through a block directory; while the database gathers, new
// texts wait in the gathering instead. A copy the index could not take is
// still handed out: it stays valid, later searches just miss it.
#include "store/StringStore.h"

#include <cstring>
#include <new>

#include "platform/Boundary.h"
#include "platform/Heap.h"
#include "platform/WideText.h"
#include "store/Allocator.h"
#include "store/BlockDirectory.h"
#include "store/Gathering.h"
#include "store/WordText.h"

namespace q9 {

int32_t compareText(const char16_t* a, const char16_t* b) {
  static const char16_t empty[1] = {0};
  if (!a) a = empty;
  if (!b) b = empty;
  while (*a && *a == *b) ++a, ++b;
  return int32_t(uint16_t(*a)) - int32_t(uint16_t(*b));
}

std::size_t textLength(const char16_t* text) {
  std::size_t n = 0;
  while (text[n]) ++n;
  return n;
}

int32_t compareStoredTexts(const void* key, const void* item) {
  return compareWordReadable(static_cast<const char16_t*>(key), static_cast<const char16_t*>(item));
}

HRESULT createStringStore(Allocator* alloc, StringStore** out) {
  auto* s = static_cast<StringStore*>(platform::heapAlloc(sizeof(StringStore)));
  *out = s;
  if (!s) return E_OUTOFMEMORY;
  std::memset(static_cast<void*>(s), 0, sizeof(StringStore));
  s->tag = kStringStoreTag;
  s->allocator = alloc;
  layoutPointers(&s->textLayout, 8100);
  HRESULT hr = initPointerList(&s->textLayout, alloc, &s->textIndex);
  if (hr != S_OK) return hr;
  layoutPointers(&s->slotTextLayout, 3);
  layoutRecords(&s->languageLayout, 4, 3);
  layoutRecords(&s->slotLayout, sizeof(StringSlot), 3);
  const HRESULT slotsHr = initRecordList(&s->slotLayout, alloc, &s->slots);
  const HRESULT languagesHr = initRecordList(&s->languageLayout, alloc, &s->textLanguages);
  s->lookupCache[0] = {0xFFFFFFFFu, -1};
  s->lookupCache[1] = {65535u, -1};
  return slotsHr != S_OK ? slotsHr : languagesHr;
}

void destroyStringStore(StringStore* store) {
  if (!store || store->tag != kStringStoreTag) return;
  releaseDirectories(&store->directories);
  platform::heapFree(store);
}

namespace {

// While the database gathers, a new text waits beside the index.
const char16_t* internGathered(StringStore* store, const WordReadableCopy& key) {
  Gathering& g = *store->gathering;
  std::size_t length = key.units();
  while (length > 0 && key.text()[length - 1] == 0) --length;
  const uint32_t hash = hashText(key.text(), length);
  const int64_t entry = g.find(key.text(), length, hash);
  if (entry >= 0) {
    g.lastText = entry;
    return g.texts[std::size_t(entry)].text;
  }
  BlockDirectory* directory = directoryFor(&store->directories, &store->textIndex);
  prepareDirectory(directory, &store->textIndex, [](const void* stored) { return stored; }, compareStoredTexts);
  Block* block = nullptr;
  uint64_t index = 0, slot = 0;
  if (searchSortedWith(directory, &store->textIndex, &block, &index, &slot, key.text(), compareStoredTexts) == S_OK)
    return static_cast<const char16_t*>(block->pointers()[index]);
  const std::size_t bytes = key.units() * sizeof(char16_t);
  auto* copy = static_cast<char16_t*>(store->allocator->alloc(store->allocator, bytes));
  if (!copy) return nullptr;
  std::memcpy(copy, key.text(), bytes);
  // A copy that can't wait for the index is still good; later searches miss it.
  gatherText(g, copy, length, hash);
  return copy;
}

}  // namespace

const char16_t* internText(StringStore* store, const char16_t* text) {
  if (!text) return nullptr;
  const WordReadableCopy key(text);
  if (!key.text()) return nullptr;
  if (store->gathering) return internGathered(store, key);
  BlockDirectory* directory = directoryFor(&store->directories, &store->textIndex);
  prepareDirectory(directory, &store->textIndex, [](const void* stored) { return stored; },
                   compareStoredTexts);
  Block* block = nullptr;
  uint64_t index = 0, slot = 0;
  if (searchSortedWith(directory, &store->textIndex, &block, &index, &slot, key.text(),
                       compareStoredTexts) == S_OK)
    return static_cast<const char16_t*>(block->pointers()[index]);
  const std::size_t bytes = key.units() * sizeof(char16_t);
  auto* copy = static_cast<char16_t*>(store->allocator->alloc(store->allocator, bytes));
  if (!copy) return nullptr;
  std::memcpy(copy, key.text(), bytes);
  // A copy the index could not take is still good; later searches miss it.
  insertSortedWith(directory, &store->textLayout, store->allocator, &store->textIndex, block, index,
                   slot, copy);
  return copy;
}

const char16_t* internTextA(StringStore* store, const char* text) {
  if (!text) return nullptr;
  // The wide copy comes from the standard library, which throws where
  // internText answers null.
  std::u16string wide;
  if (platform::guarded([&] { wide = platform::narrowToWide(text); }) != S_OK) return nullptr;
  return internText(store, wide.c_str());
}

}  // namespace q9
