// Texts are found by open addressing in a table kept at most half full, and
// sorted once at the end four code units at a time (a three-way partition
// on each word), since ids share long stems; ids and group members follow
// the texts' order. A merge that runs out of blocks keeps what was there.
#include "store/Gathering.h"

#include <algorithm>
#include <iterator>
#include <cstring>
#include <new>

#include "store/BlockDirectory.h"
#include "store/Database.h"
#include "store/StringStore.h"
#include "store/WordText.h"

namespace q9 {
namespace {

std::size_t lengthOf(const char16_t* text) {
  std::size_t n = 0;
  while (text[n]) ++n;
  return n;
}

uint64_t wordAt(const char16_t* text, std::size_t unit) {
  uint64_t word;
  std::memcpy(&word, text + unit, sizeof word);
  return word;
}

bool sameText(const GatheredText& entry, const char16_t* wordReadable, std::size_t length, uint32_t hash) {
  if (entry.hash != hash || entry.length != length) return false;
  for (std::size_t unit = 0; unit < length; unit += kUnitsPerWord)
    if (wordAt(entry.text, unit) != wordAt(wordReadable, unit)) return false;
  return true;
}

// Four code units from unit d on as one number that orders as they do.
uint64_t keyAt(const char16_t* text, std::size_t d) {
  const uint64_t w = wordAt(text, d);
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
  return (w << 48) | ((w & 0xFFFF0000ull) << 16) | ((w >> 16) & 0xFFFF0000ull) | (w >> 48);
#else
  return w;
#endif
}

bool endsIn(uint64_t key) {
  return (key & 0xFFFF) == 0 || (key & 0xFFFF0000ull) == 0 || (key & 0xFFFF00000000ull) == 0 ||
         (key & 0xFFFF000000000000ull) == 0;
}

// Sorts distinct word-readable texts by code unit, four units at a time:
// a three-way partition on the word at depth d, the equal part going on
// one word deeper. Ids share long stems, which a plain comparison sort
// reads again at every comparison.
struct SortItem {
  const char16_t* text;
  uint32_t entry;
};

void sortTexts(SortItem* a, std::size_t n, std::size_t d) {
  while (n > 1) {
    if (n < 12) {
      for (std::size_t i = 1; i < n; ++i)
        for (std::size_t j = i; j > 0 && compareWordReadable(a[j].text + d, a[j - 1].text + d) < 0; --j)
          std::swap(a[j], a[j - 1]);
      return;
    }
    const auto key = [&](std::size_t i) { return keyAt(a[i].text, d); };
    const uint64_t x = key(0), y = key(n / 2), z = key(n - 1);
    const uint64_t pivot = std::max(std::min(x, y), std::min(std::max(x, y), z));
    std::size_t lt = 0, i = 0, gt = n;
    while (i < gt) {
      const uint64_t k = key(i);
      if (k < pivot) std::swap(a[lt++], a[i++]);
      else if (k > pivot) std::swap(a[i], a[--gt]);
      else ++i;
    }
    sortTexts(a, lt, d);
    sortTexts(a + gt, n - gt, d);
    // Texts are distinct, so an equal part that ends here holds one text.
    if (endsIn(pivot)) return;
    a += lt;
    n = gt - lt;
    d += kUnitsPerWord;
  }
}

// Merges items (sorted, no two equal) into a sorted pointer list. An item
// equal to one the list holds stays out; kept[i] tells which went in. The
// blocks are refilled evenly, new ones added at the tail as needed.
template <typename Less, typename Same>
HRESULT mergeIntoList(const BlockLayout* layout, Allocator* alloc, PagedList* list, const std::vector<void*>& items,
                      Less less, Same same, std::vector<bool>* kept) {
  if (kept) kept->assign(items.size(), false);
  if (items.empty()) return S_OK;
  std::vector<void*> existing;
  uint64_t blocks = 0;
  if (Block* first = list->head) {
    Block* b = first;
    do {
      existing.insert(existing.end(), b->pointers(), b->pointers() + b->count);
      ++blocks;
      b = b->next;
    } while (b != first);
  }
  std::vector<void*> merged;
  merged.reserve(existing.size() + items.size());
  std::size_t i = 0, j = 0;
  while (j < items.size()) {
    if (i < existing.size() && !less(items[j], existing[i])) {
      if (same(items[j], existing[i])) ++j;  // the one there keeps its place
      else merged.push_back(existing[i++]);
      continue;
    }
    if (kept) (*kept)[j] = true;
    merged.push_back(items[j++]);
  }
  merged.insert(merged.end(), existing.begin() + std::ptrdiff_t(i), existing.end());

  const uint64_t needed = (merged.size() + layout->capacity - 1) / layout->capacity;
  HRESULT result = S_OK;
  for (; blocks < needed; ++blocks)
    if ((result = appendBlock(layout, alloc, list)) != S_OK) break;
  if (blocks == 0) return result;
  if (merged.size() > blocks * layout->capacity) {
    // Without the room, the newest items stay out; what was there stays.
    std::vector<void*> fits;
    std::size_t room = blocks * layout->capacity - existing.size();
    for (std::size_t k = 0, n = 0; k < merged.size(); ++k) {
      const bool isNew = std::binary_search(items.begin(), items.end(), merged[k], less) &&
                         std::find(existing.begin(), existing.end(), merged[k]) == existing.end();
      if (!isNew || n++ < room) fits.push_back(merged[k]);
      else if (kept) (*kept)[std::size_t(std::lower_bound(items.begin(), items.end(), merged[k], less) - items.begin())] = false;
    }
    merged.swap(fits);
  }
  const uint64_t base = merged.size() / blocks, extra = merged.size() % blocks;
  std::size_t at = 0;
  Block* b = list->head;
  for (uint64_t k = 0; k < blocks; ++k, b = b->next) {
    const uint64_t count = base + (k < extra ? 1 : 0);
    std::copy(merged.begin() + std::ptrdiff_t(at), merged.begin() + std::ptrdiff_t(at + count), b->pointers());
    b->count = count;
    at += count;
  }
  return result;
}

bool textLess(const void* a, const void* b) {
  return compareWordReadable(static_cast<const char16_t*>(a), static_cast<const char16_t*>(b)) < 0;
}
bool idLess(const void* a, const void* b) { return compareStoredTexts(elementIdOf(a), elementIdOf(b)) < 0; }
bool idSame(const void* a, const void* b) { return compareStoredTexts(elementIdOf(a), elementIdOf(b)) == 0; }

// Items whose ids are older texts, in id order (the first of equal ids
// kept), merged into items already in id order.
void mergeOlder(std::vector<void*>& items, std::vector<void*>& older) {
  if (older.empty()) return;
  std::stable_sort(older.begin(), older.end(), idLess);
  older.erase(std::unique(older.begin(), older.end(), idSame), older.end());
  std::vector<void*> merged;
  merged.reserve(items.size() + older.size());
  std::merge(items.begin(), items.end(), older.begin(), older.end(), std::back_inserter(merged), idLess);
  items.swap(merged);
}

HRESULT mergeGathered(Q9Db* db, Gathering& g) {
  StringStore* store = db->stringStore;
  // The texts are sorted once; ids and members follow their texts' order.
  std::vector<SortItem> order(g.texts.size());
  for (uint32_t k = 0; k < order.size(); ++k) order[k] = {g.texts[k].text, k};
  sortTexts(order.data(), order.size(), 0);
  std::vector<void*> items;
  items.reserve(order.size());
  for (const SortItem& item : order) items.push_back(const_cast<char16_t*>(item.text));
  HRESULT result = mergeIntoList(&store->textLayout, store->allocator, &store->textIndex, items, textLess,
                                 [](const void*, const void*) { return false; }, nullptr);
  forgetDirectory(store->directories, &store->textIndex);

  auto* collections = static_cast<DatabaseCollections*>(db->reference);
  if (collections) {
    items.clear();
    for (const SortItem& item : order)
      if (ElementId* holder = g.texts[item.entry].holder) items.push_back(holder);
    std::vector<void*> older;
    for (const auto& [entry, element] : g.ids)
      if (entry < 0) older.push_back(element);
    mergeOlder(items, older);
    PagedList* index = &collections->identElements->children;
    const HRESULT hr = mergeIntoList(&indexLayout, db->allocator, index, items, idLess, idSame, nullptr);
    if (hr != S_OK) result = hr;
    forgetDirectory(db->directories, index);
  }

  // Members by group, each group's in id order; among equal ids the first
  // that came keeps its place, as one-by-one insertion would have it. The
  // members of each text are chained in the order they came.
  std::vector<int64_t> firstOf(g.texts.size(), -1), next(g.members.size(), -1);
  for (std::size_t i = g.members.size(); i-- > 0;)
    if (g.members[i].text >= 0) {
      next[i] = firstOf[std::size_t(g.members[i].text)];
      firstOf[std::size_t(g.members[i].text)] = int64_t(i);
    }
  struct Group {
    ElementGroup* owner;
    std::vector<void*> items, older;
  };
  std::vector<Group> groups;
  const auto groupOf = [&](ElementGroup* owner) -> Group& {
    for (Group& group : groups)
      if (group.owner == owner) return group;
    return groups.emplace_back(Group{owner, {}, {}});
  };
  for (const Gathering::Member& m : g.members)
    if (m.text < 0) groupOf(m.owner).older.push_back(m.member);
  for (const SortItem& item : order)
    for (int64_t i = firstOf[item.entry]; i >= 0; i = next[std::size_t(i)]) {
      std::vector<void*>& list = groupOf(g.members[std::size_t(i)].owner).items;
      if (list.empty() || static_cast<ElementId*>(list.back())->eid != item.text) list.push_back(g.members[std::size_t(i)].member);
    }
  std::vector<bool> kept;
  for (Group& group : groups) {
    mergeOlder(group.items, group.older);
    const HRESULT hr = mergeIntoList(&childLayout, db->allocator, &group.owner->children, group.items, idLess, idSame, &kept);
    if (hr != S_OK) result = hr;
    for (std::size_t k = 0; k < group.items.size(); ++k)
      if (kept[k]) static_cast<ElementId*>(group.items[k])->group = group.owner;
    forgetDirectory(db->directories, &group.owner->children);
  }
  return result;
}

}  // namespace

HRESULT beginGathering(Q9DbNode* handle) {
  Q9Db* db = asDatabase(handle);
  if (!db) return E_INVALIDARG;
  if (db->gathering) return E_UNEXPECTED;
  db->gathering = new (std::nothrow) Gathering;
  if (!db->gathering) return E_OUTOFMEMORY;
  db->stringStore->gathering = db->gathering;
  return S_OK;
}

HRESULT endGathering(Q9DbNode* handle) {
  Q9Db* db = asDatabase(handle);
  if (!db) return E_INVALIDARG;
  if (!db->gathering) return S_FALSE;
  HRESULT result;
  try {
    result = mergeGathered(db, *db->gathering);
  } catch (const std::bad_alloc&) {
    result = E_OUTOFMEMORY;
  }
  releaseGathering(db);
  return result;
}

void releaseGathering(Q9Db* db) {
  delete db->gathering;
  db->gathering = nullptr;
  if (db->stringStore) db->stringStore->gathering = nullptr;
}

uint32_t hashText(const char16_t* wordReadable, std::size_t length) {
  uint64_t h = 0xcbf29ce484222325ull;
  for (std::size_t unit = 0; unit < length; unit += kUnitsPerWord) {
    h ^= wordAt(wordReadable, unit);
    h *= 0x100000001b3ull;
    h ^= h >> 29;
  }
  return uint32_t(h ^ (h >> 32));
}

int64_t Gathering::find(const char16_t* wordReadable, std::size_t length, uint32_t hash) const {
  if (slots.empty()) return -1;
  const std::size_t mask = slots.size() - 1;
  for (std::size_t at = hash & mask;; at = (at + 1) & mask) {
    const uint32_t slot = slots[at];
    if (slot == 0) return -1;
    if (sameText(texts[slot - 1], wordReadable, length, hash)) return int64_t(slot) - 1;
  }
}

int64_t Gathering::entryOf(const char16_t* interned) const {
  if (lastText >= 0 && texts[std::size_t(lastText)].text == interned) return lastText;
  const std::size_t length = lengthOf(interned);
  const int64_t entry = find(interned, length, hashText(interned, length));
  return entry >= 0 && texts[std::size_t(entry)].text == interned ? entry : -1;
}

bool gatherText(Gathering& g, const char16_t* interned, std::size_t length, uint32_t hash) {
  try {
    // At most half full, so probes stay short.
    if ((g.texts.size() + 1) * 2 > g.slots.size()) {
      std::vector<uint32_t> grown(std::max<std::size_t>(1024, g.slots.size() * 2), 0);
      const std::size_t mask = grown.size() - 1;
      for (uint32_t k = 0; k < g.texts.size(); ++k) {
        std::size_t at = g.texts[k].hash & mask;
        while (grown[at]) at = (at + 1) & mask;
        grown[at] = k + 1;
      }
      g.slots.swap(grown);
    }
    g.texts.push_back({interned, uint32_t(length), hash, nullptr});
  } catch (const std::bad_alloc&) {
    return false;
  }
  const std::size_t mask = g.slots.size() - 1;
  std::size_t at = hash & mask;
  while (g.slots[at]) at = (at + 1) & mask;
  g.slots[at] = uint32_t(g.texts.size());
  g.lastText = int64_t(g.texts.size()) - 1;
  return true;
}

HRESULT gatherId(Q9Db* db, ElementId* element) {
  Gathering& g = *db->gathering;
  try {
    const int64_t entry = g.entryOf(element->eid);
    if (entry >= 0) {
      // A text new to the database can't be an id the index holds.
      GatheredText& text = g.texts[std::size_t(entry)];
      if (!text.holder) {
        text.holder = element;
        g.ids.emplace_back(entry, element);
      }
      return S_OK;
    }
    auto* collections = static_cast<DatabaseCollections*>(db->reference);
    Q9DbNode* holder = nullptr;
    if (collections &&
        Q9Db_findChildByElementId(reinterpret_cast<Q9DbNode*>(collections->identElements), element->eid, &holder) ==
            S_OK)
      return S_OK;
    if (g.olderIds.emplace(element->eid, element).second) g.ids.emplace_back(-1, element);
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  }
  return S_OK;
}

HRESULT gatherMember(Gathering& g, ElementGroup* owner, ElementId* member) {
  try {
    g.members.push_back({owner, member, g.entryOf(member->eid)});
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  }
  return S_OK;
}

ElementId* gatheredHolder(const Gathering& g, const char16_t* wordReadable) {
  const std::size_t length = lengthOf(wordReadable);
  const int64_t entry = g.find(wordReadable, length, hashText(wordReadable, length));
  if (entry >= 0) return g.texts[std::size_t(entry)].holder;
  for (const auto& [text, holder] : g.olderIds)
    if (compareStoredTexts(text, wordReadable) == 0) return holder;
  return nullptr;
}

}  // namespace q9
