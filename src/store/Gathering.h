// Bulk entry for a whole import. Entered one by one, every new text, id and
// collection member of a large file is a search and an insertion that moves
// half a block of its sorted list, and a file brings hundreds of thousands.
// While a database gathers, they are kept aside instead (found by hash, so
// texts stay unique and ids keep their first holder) and merged into their
// lists in one pass when the gathering ends. The lists end up as the
// one-by-one insertions would have left them.
#pragma once

#include <cstdint>
#include <unordered_map>
#include <utility>
#include <vector>

#include "Q9Db.h"
#include "store/Nodes.h"

namespace q9 {

struct StringStore;

// A text interned while gathering, with what the gathering knows of it.
struct GatheredText {
  const char16_t* text;  // word-readable
  uint32_t length;
  uint32_t hash;
  ElementId* holder;  // the first node to take it as its id, or null
};

struct Gathering {
  // Texts interned while gathering, none of them in the text index yet, and
  // an open-addressing table over them by content (entry + 1; 0 is empty).
  std::vector<GatheredText> texts;
  std::vector<uint32_t> slots;
  int64_t lastText = -1;  // the entry interned last: an id is entered right after
  // Ids whose text was interned before the gathering, by text: the first
  // holder (the index may hold such an id already).
  std::unordered_map<const char16_t*, ElementId*> olderIds;
  std::vector<std::pair<int64_t, ElementId*>> ids;  // with their text's entry, or -1
  // Members for sorted groups, in the order they came, with their id's entry
  // among the texts (-1 for an older text).
  struct Member {
    ElementGroup* owner;
    ElementId* member;
    int64_t text;
  };
  std::vector<Member> members;

  // The entry of a text of this content, or -1.
  int64_t find(const char16_t* wordReadable, std::size_t length, uint32_t hash) const;
  // The entry of an interned text, or -1.
  int64_t entryOf(const char16_t* interned) const;
};

uint32_t hashText(const char16_t* wordReadable, std::size_t length);

// Starts gathering: E_INVALIDARG for no database, E_UNEXPECTED when one is
// under way, E_OUTOFMEMORY.
HRESULT beginGathering(Q9DbNode* db);
// Merges what was gathered and stops: S_OK, S_FALSE when none was under way,
// E_OUTOFMEMORY (what could not be merged is then missing from its list).
HRESULT endGathering(Q9DbNode* db);
void releaseGathering(Q9Db* db);

// Hooks of the store's own operations, for a database that gathers.
// Keeps a new text aside; false when memory ran out.
bool gatherText(Gathering& g, const char16_t* interned, std::size_t length, uint32_t hash);
// Enters an id whose text is interned: S_OK, also when an earlier holder keeps it.
HRESULT gatherId(Q9Db* db, ElementId* element);
// Keeps a member for a sorted group aside.
HRESULT gatherMember(Gathering& g, ElementGroup* owner, ElementId* member);
// The holder of a gathered id of this word-readable text, or null.
ElementId* gatheredHolder(const Gathering& g, const char16_t* wordReadable);

// While it lives, db gathers (when it wasn't already). For C++ callers.
class GatheringScope {
 public:
  explicit GatheringScope(Q9DbNode* db) : db_(db), began_(beginGathering(db) == S_OK) {}
  ~GatheringScope() { finish(); }
  HRESULT finish() {
    if (!began_) return S_OK;
    began_ = false;
    return endGathering(db_);
  }
  GatheringScope(const GatheringScope&) = delete;
  GatheringScope& operator=(const GatheringScope&) = delete;

 private:
  Q9DbNode* db_;
  bool began_;
};

}  // namespace q9
