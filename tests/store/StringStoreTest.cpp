// The string store: interned texts in code-unit order, slots of texts by
// language with their fallbacks, and running out of memory while making them.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "StoreFixture.h"

namespace q9::test {
namespace {

using Texts = std::vector<std::u16string>;

class StringStoreTest : public StoreTest {
 protected:
  Texts indexedTexts() {
    Texts out;
    Cursor c;
    cursorInit(&c, &store()->textLayout, &store()->textIndex);
    void* item;
    while (cursorNextPointers(&c, 1, &item, nullptr) == S_OK)
      out.emplace_back(static_cast<const char16_t*>(item));
    return out;
  }
  Q9DbStringSlot* slot(uint16_t language, const char16_t* text) {
    Q9DbStringSlot* s = nullptr;
    EXPECT_EQ(Q9Db_stringCreateSlot(handle, language, text, &s), S_OK);
    return s;
  }
  std::u16string lookup(Q9DbStringSlot* s, uint16_t language, uint16_t fallback,
                        HRESULT expected = S_OK) {
    const char16_t* out = nullptr;
    EXPECT_EQ(Q9Db_stringLookup(handle, s, language, fallback, &out), expected);
    return out ? out : u"(null)";
  }
  uint64_t languageCount() { return listCount(&store()->textLanguages); }
};

TEST_F(StringStoreTest, InterningSharesOneCopyPerDatabase) {
  const char16_t* a = internText(store(), u"wheel speed");
  EXPECT_EQ(internText(store(), u"wheel speed"), a);
  EXPECT_EQ(internTextA(store(), "wheel speed"), a);
  Q9DbNode* other = nullptr;
  ASSERT_EQ(Q9Db_create(nullptr, &other), S_OK);
  const char16_t* b = internText(asDatabase(other)->stringStore, u"wheel speed");
  EXPECT_NE(a, b);
  EXPECT_EQ(std::u16string(a), std::u16string(b));
  Q9Db_destroy(other);
}

TEST_F(StringStoreTest, TextsSortByCodeUnit) {
  for (const char16_t* t : {u"b", u"a", u"ab", u"", u"B", u"\u00e9", u"\uffff", u"\U0001F600",
                            u"\uffee", u"A"})
    internText(store(), t);
  const Texts texts = indexedTexts();
  // The store already holds the collection ids and "db"; check the order of
  // everything, which must be ascending by unsigned 16-bit unit.
  for (size_t i = 1; i < texts.size(); ++i)
    EXPECT_LT(texts[i - 1], texts[i]) << "at " << i;
  EXPECT_EQ(texts.front(), u"");
  // A surrogate pair (0xD83D...) sorts below 0xFFEE and 0xFFFF.
  EXPECT_EQ(texts.back(), u"\uffff");
  EXPECT_EQ(texts[texts.size() - 2], u"\uffee");
  EXPECT_EQ(texts[texts.size() - 3], u"\U0001F600");
  EXPECT_LT(compareText(u"a", u"ab"), 0);
  EXPECT_GT(compareText(u"a", u"B"), 0);
  EXPECT_EQ(compareText(nullptr, u""), 0);
}

TEST_F(StringStoreTest, LookupFallsBackFromLanguageToFallbackToFirstText) {
  Q9DbStringSlot* s = slot(7, u"sieben");
  ASSERT_EQ(Q9Db_stringAddAlternative(handle, s, 9, u"nine"), S_OK);
  ASSERT_EQ(Q9Db_stringAddAlternativeA(handle, s, 12, "douze"), S_OK);
  struct Row {
    uint16_t language, fallback;
    const char16_t* expected;
  } const rows[] = {
      {9, 65535, u"nine"}, {12, 9, u"douze"},  {3, 9, u"nine"},     {3, 12, u"douze"},
      {3, 4, u"sieben"},   {3, 65535, u"sieben"}, {7, 9, u"sieben"},
  };
  for (const Row& r : rows)
    EXPECT_EQ(lookup(s, r.language, r.fallback), r.expected)
        << r.language << "/" << r.fallback;
  // Lookups never add languages.
  EXPECT_EQ(languageCount(), 3u);
}

TEST_F(StringStoreTest, SparseTextsFallToTheFirstText) {
  Q9DbStringSlot* first = slot(1, u"A text");
  ASSERT_EQ(Q9Db_stringAddAlternative(handle, first, 2, u"B text"), S_OK);
  Q9DbStringSlot* onlyB = slot(2, u"only B");
  // Position 0 (language 1) is null in this slot: the first text answers.
  EXPECT_EQ(lookup(onlyB, 1, 65535), u"only B");
  void* item = nullptr;
  auto* raw = reinterpret_cast<StringSlot*>(onlyB);
  EXPECT_EQ(getAt(&raw->texts, 0, &item), S_OK);
  EXPECT_EQ(item, nullptr);
  EXPECT_EQ(raw->firstLanguage, 1);
}

TEST_F(StringStoreTest, ManyLanguagesGrowTheSlotList) {
  Q9DbStringSlot* s = slot(100, u"zero");
  for (uint16_t l = 101; l <= 105; ++l) {
    const std::u16string text = u"lang" + std::u16string(1, char16_t(u'0' + (l - 100)));
    ASSERT_EQ(Q9Db_stringAddAlternative(handle, s, l, text.c_str()), S_OK);
  }
  EXPECT_EQ(lookup(s, 105, 65535), u"lang5");
  EXPECT_NE(reinterpret_cast<StringSlot*>(s)->texts.head->next,
            reinterpret_cast<StringSlot*>(s)->texts.head);
}

TEST_F(StringStoreTest, FallbackCacheStartsAsNoFallback) {
  Q9DbStringSlot* s = slot(1, u"first");
  ASSERT_EQ(Q9Db_stringAddAlternative(handle, s, 65535, u"stored under 65535"), S_OK);
  // The cache entry starts as "65535 is unknown", so the text is not found...
  EXPECT_EQ(lookup(s, 2, 65535), u"first");
  // ...nor after an unknown fallback, which leaves the entry as it was...
  EXPECT_EQ(lookup(s, 2, 3), u"first");
  EXPECT_EQ(lookup(s, 2, 65535), u"first");
  // ...but once a known fallback has taken the entry, 65535 is searched.
  EXPECT_EQ(lookup(s, 2, 1), u"first");
  EXPECT_EQ(lookup(s, 2, 65535), u"stored under 65535");
}

TEST_F(StringStoreTest, ReplacedTextsStayValid) {
  Q9DbStringSlot* s = slot(1, u"old");
  const char16_t* oldPointer = nullptr;
  Q9Db_stringLookup(handle, s, 1, 65535, &oldPointer);
  ASSERT_EQ(Q9Db_stringAddAlternative(handle, s, 1, u"new"), S_OK);
  EXPECT_EQ(lookup(s, 1, 65535), u"new");
  EXPECT_EQ(std::u16string(oldPointer), u"old");
  EXPECT_EQ(reinterpret_cast<StringSlot*>(s)->firstLanguage, 0);
}

TEST_F(StringStoreTest, BadArguments) {
  Q9DbStringSlot* s = slot(1, u"x");
  const char16_t* out = u"untouched";
  EXPECT_EQ(Q9Db_stringLookup(handle, nullptr, 1, 2, &out), S_FALSE);
  EXPECT_EQ(out, nullptr);
  // A node where a slot belongs.
  EXPECT_EQ(Q9Db_stringLookup(handle, reinterpret_cast<Q9DbStringSlot*>(db()->reference), 1, 2,
                              &out),
            E_UNEXPECTED);
  EXPECT_EQ(Q9Db_stringLookup(handle, s, 1, 2, nullptr), E_INVALIDARG);
  EXPECT_EQ(Q9Db_stringLookup(nullptr, s, 1, 2, &out), E_INVALIDARG);
  EXPECT_EQ(Q9Db_stringLookup(node(db()->reference), s, 1, 2, &out), E_INVALIDARG);
  EXPECT_EQ(Q9Db_stringCreateSlot(nullptr, 1, u"x", nullptr), E_INVALIDARG);
  EXPECT_EQ(Q9Db_stringAddAlternative(handle, nullptr, 1, u"x"), E_INVALIDARG);
  EXPECT_EQ(Q9Db_stringAddAlternative(handle, reinterpret_cast<Q9DbStringSlot*>(db()), 1,
                                      u"kept anyway"),
            E_INVALIDARG);
  // The text was interned before the slot was found bad.
  Texts texts = indexedTexts();
  EXPECT_NE(std::find(texts.begin(), texts.end(), u"kept anyway"), texts.end());
}

TEST_F(StringStoreTest, SetSlotTextCreatesOrExtends) {
  StringSlot* field = nullptr;
  EXPECT_EQ(setSlotText(store(), &field, 1, u""), S_OK);
  EXPECT_EQ(field, nullptr);
  EXPECT_EQ(setSlotText(store(), &field, 1, nullptr), S_OK);
  EXPECT_EQ(field, nullptr);
  EXPECT_EQ(setSlotText(store(), nullptr, 1, u"x"), E_INVALIDARG);
  ASSERT_EQ(setSlotText(store(), &field, 1, u"one"), S_OK);
  ASSERT_NE(field, nullptr);
  StringSlot* const made = field;
  ASSERT_EQ(setSlotText(store(), &field, 2, u"two"), S_OK);
  EXPECT_EQ(field, made);
  EXPECT_EQ(lookup(reinterpret_cast<Q9DbStringSlot*>(field), 2, 65535), u"two");
}

TEST_F(StringStoreTest, OutOfMemoryWhileMakingASlot) {
  for (int64_t n = 0; n < 8; ++n) {
    StringSlot* field = nullptr;
    const std::u16string text = u"fresh text " + std::u16string(1, char16_t(u'a' + n));
    HRESULT hr;
    {
      platform::HeapFailureScope failing(n);
      hr = setSlotText(store(), &field, uint16_t(40 + n), text.c_str());
    }
    if (hr == S_OK) {
      ASSERT_NE(field, nullptr);
      EXPECT_EQ(lookup(reinterpret_cast<Q9DbStringSlot*>(field), 0, 65535), text);
      break;
    }
    EXPECT_EQ(hr, E_OUTOFMEMORY);
    EXPECT_EQ(field, nullptr) << "the field stays null on failure";
  }
  platform::HeapFailureScope failing(0);
  EXPECT_EQ(internText(store(), u"never stored"), nullptr);
}

}  // namespace
}  // namespace q9::test
