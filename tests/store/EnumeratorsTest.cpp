// Enumerators over member lists: opening on the right owners, caller-owned
// storage, counts, resets and the sorted search; the cursor beneath them
// has its own cases in PagedListTest.
#include <gtest/gtest.h>

#include <vector>

#include "StoreFixture.h"

namespace q9::test {
namespace {

class EnumeratorsTest : public StoreTest {
 protected:
  // A group with n children in arrival order (blocks of five).
  Q9DbNode* groupOf(int n) {
    Q9DbNode* g = create(Q9Db_createElementGroup, nullptr, nullptr, nullptr);
    for (int i = 0; i < n; ++i) children.push_back(create(Q9Db_createElementGroup, nullptr, g, nullptr));
    return g;
  }
  std::vector<Q9DbNode*> children;
};

// Seven children in blocks of five, so that fetches cross a block's end.
TEST_F(EnumeratorsTest, FetchSkipAndResetAcrossBlocks) {
  Q9DbNode* g = groupOf(7);
  Q9DbEnumerator* e = nullptr;
  ASSERT_EQ(Q9Db_enumChildren(g, &e), S_OK);
  uint64_t count = 0;
  EXPECT_EQ(Q9Db_enumeratorGetCount(e, &count), S_OK);
  EXPECT_EQ(count, 7u);
  Q9DbNode* out[10] = {};
  uint32_t fetched = 0;
  EXPECT_EQ(Q9Db_enumeratorSkip(e, 1), S_OK);
  EXPECT_EQ(Q9Db_enumeratorNext(e, 10, out, &fetched), S_OK) << "a short fetch that found some";
  EXPECT_EQ(Nodes(out, out + fetched), Nodes(children.begin() + 1, children.end()));
  EXPECT_EQ(Q9Db_enumeratorNext(e, 1, out, &fetched), S_FALSE) << "at the end";
  EXPECT_EQ(Q9Db_enumeratorReset(e), S_OK);
  EXPECT_EQ(Q9Db_enumeratorNext(e, 7, out, &fetched), S_OK);
  EXPECT_EQ(Nodes(out, out + fetched), Nodes(children.begin(), children.end()));
  EXPECT_EQ(Q9Db_enumeratorDestroy(e), S_OK);
}

TEST_F(EnumeratorsTest, EmptyListsOpenFine) {
  Q9DbNode* g = groupOf(0);
  Q9DbEnumerator* e = nullptr;
  ASSERT_EQ(Q9Db_enumChildren(g, &e), S_OK);
  uint64_t count = 5;
  EXPECT_EQ(Q9Db_enumeratorGetCount(e, &count), S_OK);
  EXPECT_EQ(count, 0u);
  Q9DbNode* out = nullptr;
  EXPECT_EQ(Q9Db_enumeratorNext(e, 1, &out, nullptr), S_FALSE);
  // A first block added after opening is found after a reset.
  Q9DbNode* child = create(Q9Db_createElementGroup, nullptr, g, nullptr);
  EXPECT_EQ(Q9Db_enumeratorReset(e), S_OK);
  EXPECT_EQ(Q9Db_enumeratorNext(e, 1, &out, nullptr), S_OK);
  EXPECT_EQ(out, child);
  Q9Db_enumeratorDestroy(e);
}

TEST_F(EnumeratorsTest, CallerOwnedAndReAimed) {
  Q9DbNode* g = groupOf(3);
  Q9DbEnumerator local{};
  local.tag = Q9_ENUMERATOR_TAG_RECORDS;  // any of the two; opening sets the right one
  Q9DbEnumerator* e = &local;
  ASSERT_EQ(Q9Db_enumChildren(g, &e), S_OK);
  EXPECT_EQ(e, &local);
  EXPECT_EQ(local.tag, Q9_ENUMERATOR_TAG_POINTERS);
  Q9DbNode* out = nullptr;
  EXPECT_EQ(Q9Db_enumeratorNext(e, 1, &out, nullptr), S_OK);
  EXPECT_EQ(out, children[0]);

  Q9DbNode* part = create(Q9Db_createMultiplexedPart, u"p", 1, nullptr);
  ASSERT_EQ(Q9Db_addSegment(part, 0, 16, 8), S_OK);
  ASSERT_EQ(Q9Db_enumSegments(part, &e), S_OK);
  EXPECT_EQ(local.tag, Q9_ENUMERATOR_TAG_RECORDS);
  EXPECT_EQ(Q9Db_enumeratorFindNext(e, 0, [](const void*, const void*) { return 0; }),
            E_INVALIDARG);
  EXPECT_EQ(Q9Db_enumeratorNext(e, 1, &out, nullptr), S_OK);
  EXPECT_EQ(Q9Db_getNodeType(out), Q9_NODETYPE_Segment);

  // Something that is no enumerator is refused and left alone.
  unsigned char junk[sizeof(Q9DbEnumerator)] = {1, 2, 3, 4};
  Q9DbEnumerator* bad = reinterpret_cast<Q9DbEnumerator*>(junk);
  EXPECT_EQ(Q9Db_enumChildren(g, &bad), E_INVALIDARG);
  EXPECT_EQ(junk[0], 1);
  EXPECT_EQ(Q9Db_enumeratorNext(bad, 1, &out, nullptr), E_INVALIDARG);
  EXPECT_EQ(Q9Db_enumeratorDestroy(nullptr), E_INVALIDARG);
  EXPECT_EQ(Q9Db_enumChildren(g, nullptr), E_INVALIDARG);
  Q9DbEnumerator* fresh = nullptr;
  EXPECT_EQ(Q9Db_enumChildren(part, &fresh), E_INVALIDARG);
  EXPECT_EQ(fresh, nullptr);
}

int32_t compareWithId(const void* key, const void* item) {
  return compareText(static_cast<const char16_t*>(key), as<ElementId>(item)->eid);
}

TEST_F(EnumeratorsTest, FindNextOnASortedCollection) {
  const char16_t* ids[] = {u"b", u"d", u"f", u"h", u"j", u"l", u"n", u"p"};
  for (const char16_t* id : ids) create(Q9Db_createFrame, id, 8);
  Q9DbEnumerator* e = nullptr;
  ASSERT_EQ(Q9Db_enumFrames(handle, &e), S_OK);
  auto key = [](const char16_t* t) { return uint64_t(reinterpret_cast<uintptr_t>(t)); };
  Q9DbNode* out = nullptr;
  struct Row {
    const char16_t* key;
    HRESULT status;
    const char16_t* next;  // null: nothing follows
  } const rows[] = {{u"a", S_FALSE, u"b"}, {u"h", S_OK, u"h"}, {u"i", S_FALSE, u"j"},
                    {u"p", S_OK, u"p"},    {u"z", S_FALSE, nullptr}};
  for (const Row& r : rows) {
    SCOPED_TRACE(std::string(r.key, r.key + 1));
    ASSERT_EQ(Q9Db_enumeratorReset(e), S_OK);
    EXPECT_EQ(Q9Db_enumeratorFindNext(e, key(r.key), compareWithId), r.status);
    if (r.next) {
      ASSERT_EQ(Q9Db_enumeratorNext(e, 1, &out, nullptr), S_OK);
      EXPECT_EQ(std::u16string(as<Frame>(out)->eid), r.next);
    } else {
      EXPECT_EQ(Q9Db_enumeratorNext(e, 1, &out, nullptr), S_FALSE);
    }
  }
  EXPECT_EQ(Q9Db_enumeratorFindNext(e, key(u"b"), nullptr), E_INVALIDARG);
  Q9Db_enumeratorDestroy(e);
}

TEST_F(EnumeratorsTest, OpeningsTestTheirOwners) {
  Q9DbEnumerator* e = nullptr;
  EXPECT_EQ(Q9Db_enumFrames(nullptr, &e), E_POINTER);
  Q9DbNode* f = create(Q9Db_createFrame, u"f", 8);
  EXPECT_EQ(Q9Db_enumFrames(f, &e), E_INVALIDARG);
  EXPECT_EQ(Q9Db_enumFrameTriggerings(nullptr, &e), E_INVALIDARG);
  EXPECT_EQ(Q9Db_enumSegments(f, &e), E_INVALIDARG);
  EXPECT_EQ(Q9Db_enumRanges(f, &e), E_INVALIDARG);
  EXPECT_EQ(e, nullptr);
  ASSERT_EQ(Q9Db_enumIdentElements(node(db()->reference), &e), S_OK);
  uint64_t count = 0;
  Q9Db_enumeratorGetCount(e, &count);
  EXPECT_EQ(count, 9u) << "seven groups, the database and the frame";
  Q9Db_enumeratorDestroy(e);
}

}  // namespace
}  // namespace q9::test
