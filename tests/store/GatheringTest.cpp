// Bulk entry against one-by-one entry: the same nodes made with and without
// gathering leave the same name index, text index and collection groups,
// also where ids repeat, where the database held ids and texts before, and
// while gathering lookups see the ids made so far.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "Q9Db.h"
#include "platform/WideText.h"
#include "store/Database.h"
#include "store/Gathering.h"
#include "store/StringStore.h"

namespace {

std::vector<std::string> listed(const q9::PagedList& list, bool texts) {
  std::vector<std::string> out;
  if (q9::Block* first = list.head) {
    q9::Block* b = first;
    do {
      for (uint64_t i = 0; i < b->count; ++i) {
        const void* item = b->pointers()[i];
        const auto* text = static_cast<const char16_t*>(texts ? item : q9::elementIdOf(item));
        std::string entry = text ? q9::platform::utf16ToUtf8(text) : "-";
        // Which node holds a listed id, by its short name.
        if (!texts) entry += "@" + q9::platform::utf16ToUtf8(q9::as<q9::ElementDetail>(item)->shortname);
        out.push_back(entry);
      }
      b = b->next;
    } while (b != first);
  }
  return out;
}

// Makes the same mixture of signals and codings in a database that holds a
// few ids and texts already; ids repeat, names repeat.
std::vector<std::vector<std::string>> build(bool gather, unsigned seed) {
  Q9DbNode* db = nullptr;
  EXPECT_EQ(Q9Db_create(u"db", &db), S_OK);
  Q9DbNode* node = nullptr;
  Q9Db_createSignal(db, u"old/5", 0, 0, 0, 0, nullptr, &node);
  Q9Db_setShortName(node, u"first");
  Q9Db_createCoding(db, u"Name 3", 8, 1, nullptr, &node);
  {
    q9::GatheringScope scope(gather ? db : nullptr);
    std::mt19937 random(seed);
    for (int i = 0; i < 3000; ++i) {
      const unsigned n = random() % 700;
      const std::u16string id = random() % 2 ? u"old/" + q9::platform::utf8ToUtf16(std::to_string(n))
                                             : u"new/x" + q9::platform::utf8ToUtf16(std::to_string(n)) + u"/y";
      const std::u16string name = u"Name " + q9::platform::utf8ToUtf16(std::to_string(i % 50));
      if (i % 3)
        EXPECT_EQ(Q9Db_createSignal(db, id.c_str(), 0, 0, 0, 0, nullptr, &node), S_OK);
      else
        EXPECT_EQ(Q9Db_createCoding(db, id.c_str(), 8, 1, nullptr, &node), S_OK);
      Q9Db_setShortName(node, (name + u"#" + q9::platform::utf8ToUtf16(std::to_string(i))).c_str());
      Q9DbNode* found = nullptr;
      EXPECT_EQ(Q9Db_findByElementId(db, id.c_str(), &found), S_OK) << "an id made while gathering is found";
    }
  }
  auto* handle = q9::asDatabase(db);
  auto* collections = static_cast<q9::DatabaseCollections*>(handle->reference);
  std::vector<std::vector<std::string>> lists = {
      listed(collections->identElements->children, false), listed(collections->signals->children, false),
      listed(collections->codings->children, false), listed(handle->stringStore->textIndex, true)};
  Q9Db_destroy(db);
  return lists;
}

TEST(Gathering, LeavesTheListsThatOneByOneEntryLeaves) {
  for (unsigned seed : {1u, 2u, 3u}) {
    const auto oneByOne = build(false, seed), gathered = build(true, seed);
    for (std::size_t k = 0; k < oneByOne.size(); ++k) EXPECT_EQ(gathered[k], oneByOne[k]) << "list " << k;
  }
}

}  // namespace
