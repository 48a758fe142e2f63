// Length-prefixed texts, and qualified ids made from nodes and split again.
#include <gtest/gtest.h>

#include <string>

#include "StoreFixture.h"

namespace q9::test {
namespace {

std::u16string text(BSTR b) { return b ? std::u16string(b, SysStringLen(b)) : u"(null)"; }

struct Bstr {
  BSTR value = nullptr;
  ~Bstr() { SysFreeString(value); }
};

TEST(Bstrs, LengthPrefixedAndFreed) {
  Bstr a{SysAllocString(u"hello")};
  EXPECT_EQ(SysStringLen(a.value), 5u);
  EXPECT_EQ(a.value[5], 0);
  Bstr b{SysAllocStringLen(u"hello world", 5)};
  EXPECT_EQ(text(b.value), u"hello");
  Bstr c{SysAllocStringLen(nullptr, 3)};
  EXPECT_EQ(SysStringLen(c.value), 3u);
  Bstr d{SysAllocStringByteLen("abcd", 4)};
  EXPECT_EQ(SysStringLen(d.value), 2u);
  Bstr empty{SysAllocString(u"")};
  ASSERT_NE(empty.value, nullptr);
  EXPECT_EQ(SysStringLen(empty.value), 0u);
  EXPECT_EQ(SysAllocString(nullptr), nullptr);
  EXPECT_EQ(SysStringLen(nullptr), 0u);
  SysFreeString(nullptr);
}

TEST_F(StoreTest, QualifiedIdsRoundTrip) {
  Q9DbNode* frame = create(Q9Db_createFrame, u"EngineData", 8);
  Q9DbNode* channel = create(Q9Db_createChannel, nullptr, nullptr);
  const struct {
    Q9DbNode* n;
    const char16_t *qualified, *element;  // an empty element part is an empty text, not null
  } rows[] = {{frame, u"db::EngineData", u"EngineData"}, {handle, u"db::db", u"db"}, {channel, u"db::", u""}};
  for (const auto& r : rows) {
    Bstr q, d, e;
    ASSERT_EQ(Q9Db_getQualifiedId(r.n, &q.value), S_OK);
    EXPECT_EQ(text(q.value), r.qualified);
    ASSERT_EQ(Q9Db_splitQualifiedId(q.value, &d.value, &e.value), S_OK);
    EXPECT_EQ(text(d.value), u"db");
    EXPECT_EQ(text(e.value), r.element);
  }
  Bstr none;
  EXPECT_EQ(Q9Db_getQualifiedId(create(Q9Db_createCyclicTiming, 10, nullptr), &none.value), E_INVALIDARG);
  EXPECT_EQ(Q9Db_getQualifiedId(frame, nullptr), E_INVALIDARG);
}

TEST(QualifiedIds, DatabaseWithoutIdAndOddTexts) {
  Q9DbNode* h = nullptr;
  ASSERT_EQ(Q9Db_create(nullptr, &h), S_OK);
  Q9DbNode* frame = nullptr;
  ASSERT_EQ(Q9Db_createFrame(h, u"F", 8, &frame), S_OK);
  Bstr q;
  ASSERT_EQ(Q9Db_getQualifiedId(frame, &q.value), S_OK);
  EXPECT_EQ(text(q.value), u"F");
  Q9Db_destroy(h);

  struct Row {
    const char16_t* input;
    const char16_t* database;  // null: none stored
    const char16_t* element;
  } const rows[] = {
      {u"a::b::c", u"a", u"b::c"}, {u"::x", nullptr, u"x"}, {u"plain", nullptr, u"plain"},
      {u"a::", u"a", u""},         {u"", nullptr, u""},
  };
  for (const Row& r : rows) {
    Bstr d, e;
    ASSERT_EQ(Q9Db_splitQualifiedId(r.input, &d.value, &e.value), S_OK);
    EXPECT_EQ(text(d.value), r.database ? r.database : u"(null)");
    EXPECT_EQ(text(e.value), r.element);
  }
  Bstr d;
  EXPECT_EQ(Q9Db_splitQualifiedId(u"plain", &d.value, nullptr), E_INVALIDARG);
  EXPECT_EQ(d.value, nullptr);
  EXPECT_EQ(Q9Db_splitQualifiedId(u"a::b", &d.value, nullptr), S_OK);
  EXPECT_EQ(text(d.value), u"a");
  EXPECT_EQ(Q9Db_splitQualifiedId(nullptr, &d.value, nullptr), E_INVALIDARG);
}

}  // namespace
}  // namespace q9::test
