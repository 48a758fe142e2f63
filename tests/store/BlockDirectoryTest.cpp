// The directory must answer every search exactly as the walk from the head
// does, also on lists whose order a client has broken; through the database,
// the name index and groups stay sorted while thousands of ids go in.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "StoreFixture.h"
#include "store/Allocator.h"
#include "store/BlockDirectory.h"

namespace q9 {
namespace {

void* v(intptr_t x) { return reinterpret_cast<void*>(x); }
const void* itself(const void* item) { return item; }
int32_t compareInts(const void* key, const void* item) {
  const auto a = intptr_t(key), b = intptr_t(item);
  return a < b ? -1 : a > b ? 1 : 0;
}

// Where a search ended, independent of which list's blocks it ran over.
struct Answer {
  HRESULT status;
  uint64_t position;
  bool operator==(const Answer& o) const { return status == o.status && position == o.position; }
};

uint64_t positionOf(const PagedList& list, Block* block, uint64_t index) {
  uint64_t before = 0;
  for (Block* b = list.head; b != block; b = b->next) before += b->count;
  return before + index;
}

std::vector<Block*> chain(const PagedList& list) {
  std::vector<Block*> blocks;
  Block* b = list.head;
  do {
    blocks.push_back(b);
    b = b->next;
  } while (b != list.head);
  return blocks;
}

class BlockDirectoryTest : public ::testing::TestWithParam<uint64_t> {
 protected:
  void SetUp() override { ASSERT_EQ(createAllocator(kTrackingAllocator, &alloc), S_OK); }
  void TearDown() override { alloc->destroy(alloc); }

  Answer viaDirectory(intptr_t key) {
    Block* block = nullptr;
    uint64_t index = 0, slot = 0;
    const HRESULT hr = searchSortedWith(&directory, &fast, &block, &index, &slot, v(key), compareInts);
    if (directory.built()) {
      EXPECT_EQ(directory.at(slot).block, block);
    }
    return {hr, positionOf(fast, block, index)};
  }
  Answer viaWalk(intptr_t key) {
    Block* block = nullptr;
    uint64_t index = 0;
    const HRESULT hr = searchSorted(&walked, &block, &index, v(key), compareInts);
    return {hr, positionOf(walked, block, index)};
  }
  void insertBoth(intptr_t key) {
    prepareDirectory(&directory, &fast, itself, compareInts);
    Block* block = nullptr;
    uint64_t index = 0, slot = 0;
    if (searchSortedWith(&directory, &fast, &block, &index, &slot, v(key), compareInts) == S_FALSE) {
      ASSERT_EQ(insertSortedWith(&directory, &layout, alloc, &fast, block, index, slot, v(key)), S_OK);
    }
    block = nullptr;
    if (searchSorted(&walked, &block, &index, v(key), compareInts) == S_FALSE) {
      ASSERT_EQ(insertSorted(&layout, alloc, &walked, block, index, v(key)), S_OK);
    }
  }
  void expectSameAnswers(intptr_t upTo) {
    for (intptr_t key = -1; key <= upTo + 1; ++key)
      ASSERT_EQ(viaDirectory(key), viaWalk(key)) << "key " << key;
  }

  BlockLayout layout = makeLayout(8, GetParam());
  Allocator* alloc = nullptr;
  PagedList fast{}, walked{};
  BlockDirectory directory;
};

TEST_P(BlockDirectoryTest, SearchesAgreeWithTheWalkWhileTheListGrows) {
  std::mt19937 rng(11);
  constexpr intptr_t kKeys = 3000;
  for (int i = 0; i < 2000; ++i) {
    insertBoth(intptr_t(rng() % kKeys) * 2);  // even keys, so odd ones miss
    if (i % 250 == 0) expectSameAnswers(2 * kKeys);
  }
  expectSameAnswers(2 * kKeys);
  ASSERT_TRUE(directory.built()) << "long enough to be built";
  std::vector<Block*> listed;
  for (const auto& run : directory.runs) {
    for (const auto& entry : run) {
      listed.push_back(entry.block);
      EXPECT_EQ(entry.lastKey, entry.block->pointers()[entry.block->count - 1]);
    }
  }
  EXPECT_EQ(listed, chain(fast)) << "splits kept it in chain order";
}

TEST_P(BlockDirectoryTest, ListsOutOfOrderAreWalked) {
  for (intptr_t key = 0; key < 1000; ++key) insertBoth(key * 2);
  // As a changed key would: one block's last item now sorts after the next's.
  std::vector<Block*> blocks = chain(fast), twins = chain(walked);
  ASSERT_GT(blocks.size(), 4u);
  Block* broken = blocks[blocks.size() / 2];
  Block* twin = twins[blocks.size() / 2];
  broken->pointers()[broken->count - 1] = twin->pointers()[twin->count - 1] = v(100000);
  directory.runs.clear();  // what forgetting does
  prepareDirectory(&directory, &fast, itself, compareInts);
  EXPECT_FALSE(directory.built());
  expectSameAnswers(2000);
}

INSTANTIATE_TEST_SUITE_P(Capacities, BlockDirectoryTest, ::testing::Values(3, 10, 40));

using test::node;
using test::StoreTest;

// Through the database: ids in random order into the name index and a group,
// then a client renames registered elements, which breaks the order.
TEST_F(StoreTest, NameIndexAndGroupsAnswerAsTheWalkAfterRenames) {
  auto* group = make<ElementGroup>();
  std::vector<Frame*> frames;
  std::mt19937 rng(5);
  std::vector<int> numbers(3000);
  for (int i = 0; i < 3000; ++i) numbers[i] = i;
  std::shuffle(numbers.begin(), numbers.end(), rng);
  for (int n : numbers) {
    auto* f = make<Frame>();
    const std::u16string id = u"frame" + std::u16string(1, char16_t(u'a' + n % 26)) +
                              std::u16string(1, char16_t(0x100 + n));
    ASSERT_EQ(registerElementId(db(), id.c_str(), f), S_OK);
    ASSERT_EQ(insertChildSorted(group, f, &childLayout), S_OK);
    frames.push_back(f);
  }
  ElementGroup* index = collections()->identElements;
  auto walkFinds = [](ElementGroup* g, const char16_t* id) -> void* {
    Block* block = nullptr;
    uint64_t position = 0;
    return searchSorted(&g->children, &block, &position, id, compareElementId) == S_OK
               ? block->pointers()[position]
               : nullptr;
  };
  auto expectSameAnswers = [&] {
    for (Frame* f : frames) {
      for (ElementGroup* g : {index, group}) {
        Q9DbNode* found = nullptr;
        const HRESULT hr = Q9Db_findChildByElementId(node(g), f->eid, &found);
        ASSERT_EQ(hr == S_OK ? static_cast<void*>(found) : nullptr, walkFinds(g, f->eid)) << "group " << g;
      }
    }
  };
  expectSameAnswers();
  for (ElementGroup* g : {index, group}) {
    ASSERT_NE(g->children.head->next, g->children.head) << "more than one block";
    const void* previous = nullptr;
    forEachPointer(g->children, [&](void* item) {
      EXPECT_TRUE(!previous || compareElementId(as<ElementId>(previous)->eid, item) < 0) << "sorted, once each";
      previous = item;
    });
  }
  for (Frame* f : frames) {
    Q9DbNode* found = nullptr;
    ASSERT_EQ(Q9Db_findByElementId(handle, f->eid, &found), S_OK);
    ASSERT_EQ(static_cast<void*>(found), f);
  }

  // Renaming the last item of a few blocks to the front of the order.
  for (int k = 0; k < 5; ++k) {
    Block* b = group->children.head;
    for (int step = 0; step < 40 * k + 7; ++step) b = b->next;
    ASSERT_EQ(Q9Db_setElementId(node(b->pointers()[b->count - 1]), u"a"), S_OK);
  }
  expectSameAnswers();
  for (int i = 0; i < 200; ++i) {  // later insertions walk the broken lists too
    auto* f = make<Frame>();
    const std::u16string id = u"late" + std::u16string(1, char16_t(0x100 + i));
    ASSERT_EQ(registerElementId(db(), id.c_str(), f), S_OK);
    ASSERT_EQ(insertChildSorted(group, f, &childLayout), S_OK);
    frames.push_back(f);
  }
  expectSameAnswers();
}

}  // namespace
}  // namespace q9
