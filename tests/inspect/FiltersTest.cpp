// Filters: id lists and their inversion, combinations of filters (ors and
// nors, nested, never holding themselves), and bad arguments.
#include <gtest/gtest.h>

#include "../store/StoreFixture.h"

namespace q9::test {
namespace {

class FiltersTest : public StoreTest {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    for (const char16_t* id : {u"A", u"B", u"C"}) frames.push_back(create(Q9Db_createFrame, id, 8));
  }
  void TearDown() override {
    for (Q9DbFilter* f : made) EXPECT_EQ(Q9Db_destroyFilter(f), S_OK);
    StoreTest::TearDown();
  }
  Q9DbFilter* ids(const char16_t* multi, int32_t mode = 0) {
    Q9DbFilter* f = nullptr;
    EXPECT_EQ(Q9Db_createIdListFilterW(handle, mode, multi, &f), S_OK);
    made.push_back(f);
    return f;
  }
  Q9DbFilter* any(std::vector<Q9DbFilter*> members, int32_t mode = 0) {
    Q9DbFilter* f = nullptr;
    EXPECT_EQ(Q9Db_createCombinationFilter(mode, &f), S_OK);
    if (!members.empty()) {
      EXPECT_EQ(Q9Db_appendFilter(f, members.size(), members.data()), S_OK);
    }
    made.push_back(f);
    return f;
  }
  // Which of A, B, C pass, as a string.
  std::string passing(Q9DbFilter* f) {
    std::string out;
    for (size_t i = 0; i < frames.size(); ++i)
      if (Q9Db_filterNode(f, frames[i]) == S_OK) out += char('A' + i);
    return out;
  }
  std::vector<Q9DbNode*> frames;
  std::vector<Q9DbFilter*> made;
};

TEST_F(FiltersTest, IdListsAndInversion) {
  EXPECT_EQ(passing(ids(u"A\0C\0")), "AC");
  EXPECT_EQ(passing(ids(u"A\0C\0", 1)), "B");
  EXPECT_EQ(passing(ids(u"\0")), "");
  EXPECT_EQ(passing(ids(u"\0", 1)), "ABC");
  EXPECT_EQ(passing(ids(u"B\0nope\0B\0")), "B");
  Q9DbFilter* narrow = nullptr;
  ASSERT_EQ(Q9Db_createIdListFilterA(handle, 0, "C\0A\0", &narrow), S_OK);
  made.push_back(narrow);
  EXPECT_EQ(passing(narrow), "AC");
  Q9DbFilter* empty = nullptr;
  ASSERT_EQ(Q9Db_createIdListFilterW(nullptr, 0, u"A\0", &empty), S_OK);
  made.push_back(empty);
  EXPECT_EQ(passing(empty), "");
}

TEST_F(FiltersTest, CombinationsAreOrsAndNors) {
  Q9DbFilter* a = ids(u"A\0");
  Q9DbFilter* b = ids(u"B\0");
  EXPECT_EQ(passing(any({a, b})), "AB");
  EXPECT_EQ(passing(any({a, b}, 1)), "C");
  EXPECT_EQ(passing(any({})), "");
  EXPECT_EQ(passing(any({}, 1)), "ABC");
  EXPECT_EQ(passing(any({ids(u"\0", 1)})), "ABC");
  // AND: invert the members and the combination.
  Q9DbFilter* notAB = ids(u"A\0B\0", 1);
  Q9DbFilter* notBC = ids(u"B\0C\0", 1);
  EXPECT_EQ(passing(any({notAB, notBC}, 1)), "B");
  // Nested combinations.
  EXPECT_EQ(passing(any({any({a}), ids(u"C\0")})), "AC");
}

TEST_F(FiltersTest, AppendingAndBadArguments) {
  Q9DbFilter* a = ids(u"A\0");
  Q9DbFilter* c = any({});
  EXPECT_EQ(Q9Db_appendFilter(c, 0, &a), E_INVALIDARG);
  EXPECT_EQ(Q9Db_appendFilter(a, 1, &c), E_INVALIDARG) << "an id list takes no members";
  Q9DbFilter* mixed[] = {nullptr, reinterpret_cast<Q9DbFilter*>(frames[0]), a, a};
  EXPECT_EQ(Q9Db_appendFilter(c, 4, mixed), S_OK);
  EXPECT_EQ(passing(c), "A");
  // A combination never comes to hold itself.
  Q9DbFilter* self[] = {c};
  EXPECT_EQ(Q9Db_appendFilter(c, 1, self), S_OK);
  Q9DbFilter* outer = any({c});
  Q9DbFilter* loop[] = {outer};
  EXPECT_EQ(Q9Db_appendFilter(c, 1, loop), S_OK);
  EXPECT_EQ(passing(outer), "A");
  EXPECT_EQ(Q9Db_filterNode(a, nullptr), E_INVALIDARG);
  EXPECT_EQ(Q9Db_filterNode(ids(u"\0", 1), nullptr), E_INVALIDARG) << "mode does not touch errors";
  EXPECT_EQ(Q9Db_filterNode(nullptr, frames[0]), E_INVALIDARG);
  EXPECT_EQ(Q9Db_createCombinationFilter(0, nullptr), E_INVALIDARG);
  EXPECT_EQ(Q9Db_destroyFilter(nullptr), E_INVALIDARG);
  // Destroying a combination leaves its members.
  Q9DbFilter* own = nullptr;
  ASSERT_EQ(Q9Db_createCombinationFilter(0, &own), S_OK);
  ASSERT_EQ(Q9Db_appendFilter(own, 1, &a), S_OK);
  EXPECT_EQ(Q9Db_destroyFilter(own), S_OK);
  EXPECT_EQ(passing(a), "A");
}

TEST_F(FiltersTest, ManyIdsSplitTheList) {
  std::u16string multi;
  std::vector<Q9DbNode*> all;
  for (int i = 0; i < 400; ++i) {
    const std::u16string id = u"S" + std::u16string(1, char16_t(0x100 + i));
    all.push_back(create(Q9Db_createSignal, id.c_str(), 0, 0, 0, 1, nullptr));
    if (i % 2 == 0) multi += id + u'\0';
  }
  multi += u'\0';
  Q9DbFilter* even = ids(multi.c_str());
  for (size_t i = 0; i < all.size(); ++i)
    EXPECT_EQ(Q9Db_filterNode(even, all[i]), i % 2 == 0 ? S_OK : S_FALSE) << i;
}

}  // namespace
}  // namespace q9::test
