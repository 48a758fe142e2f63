// Paged lists: block layouts, cursors across block ends, sorted insertion
// against sorting, sparse arrays, records that stay in place; allocators.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "store/Allocator.h"
#include "store/PagedList.h"

namespace q9 {
namespace {

class PagedListTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(createAllocator(kTrackingAllocator, &alloc), S_OK); }
  void TearDown() override { alloc->destroy(alloc); }

  std::vector<uint64_t> blockCounts() const {
    std::vector<uint64_t> counts;
    if (Block* b = list.head) do {
        counts.push_back(b->count);
        b = b->next;
      } while (b != list.head);
    return counts;
  }
  std::vector<intptr_t> items(const BlockLayout& layout = childLayout) {
    Cursor c;
    cursorInit(&c, &layout, &list);
    std::vector<intptr_t> out;
    void* item;
    while (cursorNextPointers(&c, 1, &item, nullptr) == S_OK) out.push_back(intptr_t(item));
    return out;
  }
  static void* v(intptr_t x) { return reinterpret_cast<void*>(x); }
  static int32_t compareInts(const void* key, const void* item) {
    const auto a = intptr_t(key), b = intptr_t(item);
    return a < b ? -1 : a > b ? 1 : 0;
  }
  HRESULT insert(intptr_t x, const BlockLayout& layout = childLayout) {
    Block* block = nullptr;
    uint64_t index = 0;
    if (searchSorted(&list, &block, &index, v(x), compareInts) == S_OK) return S_FALSE;
    return insertSorted(&layout, alloc, &list, block, index, v(x));
  }

  Allocator* alloc = nullptr;
  PagedList list{};
};

TEST(BlockLayouts, SizesAndCapacities) {
  struct Row {
    uint64_t itemSize, requested, blockSize, capacity;
  } const rows[] = {{8, 3, 64, 5},   {8, 2000, 16064, 2005}, {16, 3, 128, 6},
                    {32, 3, 128, 3}, {8, 8100, 64832, 8101}, {4, 3, 64, 10},
                    {24, 3, 128, 4}, {8, 128, 1088, 133}};
  for (const Row& r : rows) {
    const BlockLayout l = makeLayout(r.itemSize, r.requested);
    EXPECT_EQ(l.blockSize, r.blockSize) << r.itemSize << "x" << r.requested;
    EXPECT_EQ(l.capacity, r.capacity) << r.itemSize << "x" << r.requested;
  }
}

// The walks agree with the cursor over several blocks, stop where the
// visitor says, and pass over an empty list.
TEST_F(PagedListTest, ForEachWalksInCursorOrderAndStops) {
  std::vector<intptr_t> seen;
  EXPECT_TRUE(forEachPointer(list, [&](void* item) { seen.push_back(intptr_t(item)); }));
  EXPECT_TRUE(seen.empty());
  ASSERT_EQ(initPointerList(&childLayout, alloc, &list), S_OK);
  for (intptr_t x = 1; x <= 40; ++x) ASSERT_EQ(appendPointer(&childLayout, alloc, &list, v(x)), S_OK);
  ASSERT_GT(blockCounts().size(), 2u);
  EXPECT_TRUE(forEachPointer(list, [&](void* item) { seen.push_back(intptr_t(item)); }));
  EXPECT_EQ(seen, items());
  seen.clear();
  EXPECT_FALSE(forEachPointer(list, [&](void* item) {
    seen.push_back(intptr_t(item));
    return intptr_t(item) < 17;
  }));
  EXPECT_EQ(seen.size(), 17u);
}

TEST_F(PagedListTest, EmptyListsAndEmptyFirstBlock) {
  EXPECT_EQ(listCount(&list), 0u);
  Cursor c;
  ASSERT_EQ(cursorInit(&c, &childLayout, &list), S_OK);
  void* item = nullptr;
  uint32_t fetched = 77;
  EXPECT_EQ(cursorNextPointers(&c, 1, &item, &fetched), S_FALSE);
  EXPECT_EQ(fetched, 77u) << "a list without blocks writes nothing";
  EXPECT_EQ(cursorSkip(&c, 1), S_FALSE);

  ASSERT_EQ(initPointerList(&childLayout, alloc, &list), S_OK);
  cursorInit(&c, &childLayout, &list);
  EXPECT_EQ(cursorNextPointers(&c, 1, &item, &fetched), S_FALSE);
  EXPECT_EQ(fetched, 0u);
  EXPECT_EQ(cursorInit(nullptr, &childLayout, &list), E_INVALIDARG);
  EXPECT_EQ(cursorInit(&c, nullptr, &list), E_INVALIDARG);
  EXPECT_EQ(cursorNextPointers(&c, 1, nullptr, nullptr), E_INVALIDARG);
}

TEST_F(PagedListTest, AppendFillsBlocksAndFetchCrossesBorders) {
  for (intptr_t i = 1; i <= 5; ++i) ASSERT_EQ(appendPointer(&childLayout, alloc, &list, v(i)), S_OK);
  EXPECT_EQ(blockCounts(), (std::vector<uint64_t>{5}));
  ASSERT_EQ(appendPointer(&childLayout, alloc, &list, v(6)), S_OK);
  EXPECT_EQ(blockCounts(), (std::vector<uint64_t>{5, 1}));

  Cursor c;
  cursorInit(&c, &childLayout, &list);
  void* out[8] = {};
  uint32_t fetched = 0;
  EXPECT_EQ(cursorNextPointers(&c, 6, out, &fetched), S_OK);
  EXPECT_EQ(fetched, 6u);
  for (int i = 0; i < 6; ++i) EXPECT_EQ(out[i], v(i + 1));
  // Ending exactly on the last item keeps the cursor on the block...
  EXPECT_NE(c.block, nullptr);
  // ...so it sees an item appended now.
  ASSERT_EQ(appendPointer(&childLayout, alloc, &list, v(7)), S_OK);
  EXPECT_EQ(cursorNextPointers(&c, 8, out, &fetched), S_OK);
  EXPECT_EQ(fetched, 1u);
  EXPECT_EQ(out[0], v(7));
  // A short fetch ran off the end; later appends stay unseen.
  EXPECT_EQ(c.block, nullptr);
  appendPointer(&childLayout, alloc, &list, v(8));
  EXPECT_EQ(cursorNextPointers(&c, 1, out, &fetched), S_FALSE);
  EXPECT_EQ(listCount(&list), 8u);

  // n = 0 changes nothing.
  cursorInit(&c, &childLayout, &list);
  EXPECT_EQ(cursorNextPointers(&c, 0, out, &fetched), S_FALSE);
  EXPECT_EQ(fetched, 0u);
  EXPECT_EQ(cursorSkip(&c, 0), S_OK);
  EXPECT_EQ(cursorNextPointers(&c, 1, out, &fetched), S_OK);
  EXPECT_EQ(out[0], v(1));
}

TEST_F(PagedListTest, SkipPastTheEnd) {
  for (intptr_t i = 1; i <= 7; ++i) appendPointer(&childLayout, alloc, &list, v(i));
  Cursor c;
  cursorInit(&c, &childLayout, &list);
  EXPECT_EQ(cursorSkip(&c, 6), S_OK);
  void* out = nullptr;
  EXPECT_EQ(cursorNextPointers(&c, 1, &out, nullptr), S_OK);
  EXPECT_EQ(out, v(7));
  cursorInit(&c, &childLayout, &list);
  EXPECT_EQ(cursorSkip(&c, 100), S_OK);
  uint32_t fetched = 9;
  EXPECT_EQ(cursorNextPointers(&c, 1, &out, &fetched), S_FALSE);
  EXPECT_EQ(fetched, 9u) << "already off the end: nothing written";
  EXPECT_EQ(cursorSkip(&c, 1), S_FALSE);
}

TEST_F(PagedListTest, SplitOfAFullSortedBlock) {
  for (intptr_t x : {10, 20, 40, 50, 60}) ASSERT_EQ(insert(x), S_OK);
  EXPECT_EQ(blockCounts(), (std::vector<uint64_t>{5}));
  // The sixth item sorts between the halves (10 20 | 40 50 60): it stays in
  // the first block, at its end.
  ASSERT_EQ(insert(30), S_OK);
  EXPECT_EQ(blockCounts(), (std::vector<uint64_t>{3, 3}));
  EXPECT_EQ(list.head->pointers()[2], v(30));
  EXPECT_EQ(items(), (std::vector<intptr_t>{10, 20, 30, 40, 50, 60}));

  PagedList other{};
  std::swap(list, other);
  for (intptr_t x : {10, 20, 30, 40, 50}) insert(x);
  insert(45);  // goes to the new block
  EXPECT_EQ(blockCounts(), (std::vector<uint64_t>{2, 4}));
  EXPECT_EQ(items(), (std::vector<intptr_t>{10, 20, 30, 40, 45, 50}));
}

// Where a miss lands shows in the sorted insertion below; from a later
// block, earlier blocks are never looked at.
TEST_F(PagedListTest, SearchFromALaterBlock) {
  for (intptr_t x = 10; x <= 100; x += 10) insert(x);  // splits into several blocks
  ASSERT_GT(blockCounts().size(), 1u);
  uint64_t index = 99;
  Block* later = list.head->next;
  Block* block = later;
  EXPECT_EQ(searchSorted(&list, &block, &index, v(10), compareInts), S_FALSE);
  EXPECT_EQ(block, later);
  EXPECT_EQ(index, 0u);
  EXPECT_EQ(searchSorted(nullptr, &block, &index, v(1), compareInts), E_INVALIDARG);
  EXPECT_EQ(searchSorted(&list, &block, &index, v(1), nullptr), E_INVALIDARG);
}

TEST_F(PagedListTest, SortedInsertionAgreesWithSortingForManyLayouts) {
  std::mt19937 rng(7);
  for (const BlockLayout& layout : {childLayout, makeLayout(8, 10), makeLayout(8, 40)}) {
    list = PagedList{};
    std::vector<intptr_t> reference;
    for (int i = 0; i < 600; ++i) {
      const intptr_t x = intptr_t(rng() % 1000);
      const bool fresh = std::find(reference.begin(), reference.end(), x) == reference.end();
      EXPECT_EQ(insert(x, layout), fresh ? S_OK : S_FALSE);
      if (fresh) reference.push_back(x);
    }
    std::sort(reference.begin(), reference.end());
    EXPECT_EQ(items(layout), reference);
    EXPECT_EQ(listCount(&list), reference.size());
    for (intptr_t x : reference) {
      Block* block = nullptr;
      uint64_t index = 0;
      ASSERT_EQ(searchSorted(&list, &block, &index, v(x), compareInts), S_OK) << x;
      EXPECT_EQ(block->pointers()[index], v(x));
    }
    for (uint64_t count : blockCounts()) EXPECT_GT(count, 0u) << "no empty block in an index";
  }
}

TEST_F(PagedListTest, SetAtMakesASparseArray) {
  ASSERT_EQ(initPointerList(&childLayout, alloc, &list), S_OK);
  ASSERT_EQ(setAt(&childLayout, alloc, &list, 3, v(33)), S_OK);
  EXPECT_EQ(listCount(&list), 4u);
  for (uint64_t i = 0; i < 3; ++i) {
    void* out = v(1);
    EXPECT_EQ(getAt(&list, i, &out), S_OK);
    EXPECT_EQ(out, nullptr);
  }
  void* out = nullptr;
  EXPECT_EQ(getAt(&list, 3, &out), S_OK);
  EXPECT_EQ(out, v(33));
  EXPECT_EQ(getAt(&list, 4, &out), S_FALSE);
  EXPECT_EQ(getAt(&list, 0, nullptr), E_INVALIDARG);

  PagedList sparse{};
  ASSERT_EQ(setAt(&childLayout, alloc, &sparse, 12, v(12)), S_OK);
  std::swap(list, sparse);
  EXPECT_EQ(blockCounts(), (std::vector<uint64_t>{5, 5, 3}));
  EXPECT_EQ(getAt(&list, 12, &out), S_OK);
  EXPECT_EQ(out, v(12));
  // Overwriting inside the count touches only that item.
  ASSERT_EQ(setAt(&childLayout, alloc, &list, 7, v(7)), S_OK);
  EXPECT_EQ(getAt(&list, 7, &out), S_OK);
  EXPECT_EQ(out, v(7));
  EXPECT_EQ(listCount(&list), 13u);
}

TEST_F(PagedListTest, RecordsStayInPlaceAndAreFound) {
  std::vector<void*> addresses;
  for (int i = 0; i < 10; ++i) {
    auto* r = static_cast<uint32_t*>(appendRecord(&segmentLayout, alloc, &list));
    ASSERT_NE(r, nullptr);
    EXPECT_EQ(r[0] | r[1] | r[2] | r[3], 0u) << "new records are zero";
    r[1] = uint32_t(i * 11);
    addresses.push_back(r);
  }
  EXPECT_EQ(blockCounts(), (std::vector<uint64_t>{6, 4}));
  Cursor c;
  cursorInit(&c, &segmentLayout, &list);
  void* out[10];
  uint32_t fetched = 0;
  EXPECT_EQ(cursorNextRecords(&c, 10, out, &fetched), S_OK);
  ASSERT_EQ(fetched, 10u);
  for (int i = 0; i < 10; ++i) EXPECT_EQ(out[i], addresses[size_t(i)]);

  uint32_t wanted = 77;
  auto matches = [](void* ctx, int32_t, void* record) {
    return int(static_cast<uint32_t*>(record)[1] == *static_cast<uint32_t*>(ctx));
  };
  EXPECT_EQ(findRecord(&segmentLayout, &list, matches, &wanted), 7);
  wanted = 5;
  EXPECT_EQ(findRecord(&segmentLayout, &list, matches, &wanted), -1);
  PagedList empty{};
  EXPECT_EQ(findRecord(&segmentLayout, &empty, matches, &wanted), -1);
}

TEST(Allocators, KindsAndFailures) {
  Allocator* a = reinterpret_cast<Allocator*>(1);
  EXPECT_EQ(createAllocator(5, &a), E_INVALIDARG);
  EXPECT_EQ(a, nullptr);
  EXPECT_EQ(createAllocator(kTrackingAllocator, nullptr), E_INVALIDARG);
  for (int kind : {kHeapAllocator, kRegionAllocator, kTrackingAllocator}) {
    ASSERT_EQ(createAllocator(kind, &a), S_OK) << kind;
    auto* p = static_cast<unsigned char*>(a->alloc(a, 100));
    ASSERT_NE(p, nullptr);
    std::fill(p, p + 100, 0xAB);
    if (kind == kHeapAllocator) a->free(a, p);
    a->destroy(a);
  }
  ASSERT_EQ(createAllocator(kRegionAllocator, &a), S_OK);
  EXPECT_NE(a->alloc(a, 0x400000), nullptr);
  EXPECT_EQ(a->alloc(a, 0x500000), nullptr) << "beyond the reserved region";
  a->destroy(a);
}

}  // namespace
}  // namespace q9
