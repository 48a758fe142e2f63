// Word-at-a-time comparison must order exactly as the unit-by-unit one,
// also for units with the high bit set and texts that end inside a word.
#include <gtest/gtest.h>

#include <random>
#include <string>

#include "store/StringStore.h"
#include "store/WordText.h"

namespace q9 {
namespace {

int sign(int32_t x) { return (x > 0) - (x < 0); }

TEST(WordText, OrdersAsUnitByUnit) {
  // Few distinct units and shared stems, so that texts often agree long.
  const char16_t units[] = {u'a', u'b', char16_t(0x7FFF), char16_t(0x8000), char16_t(0xFFFF), char16_t(1)};
  std::mt19937 rng(9);
  auto randomText = [&] {
    std::u16string t = (rng() % 2) ? u"Stem/with/a/long/prefix/" : u"";
    for (unsigned n = rng() % 11; n > 0; --n) t += units[rng() % 6];
    return t;
  };
  for (int i = 0; i < 20000; ++i) {
    const std::u16string a = randomText(), b = rng() % 4 ? randomText() : a;
    const WordReadableCopy x(a.c_str()), y(b.c_str());
    ASSERT_EQ(sign(compareWordReadable(x.text(), y.text())), sign(compareText(a.c_str(), b.c_str())))
        << i;
  }
  const WordReadableCopy empty(u""), one(u"a");
  EXPECT_EQ(compareWordReadable(nullptr, empty.text()), 0);
  EXPECT_LT(compareWordReadable(nullptr, one.text()), 0);
}

TEST(WordText, CopiesArePaddedWithZerosOnStackAndHeap) {
  for (size_t length : {0u, 3u, 4u, 63u, 64u, 500u}) {
    const std::u16string text(length, u'x');
    const WordReadableCopy copy(text.c_str());
    ASSERT_NE(copy.text(), nullptr);
    EXPECT_EQ(copy.units() % kUnitsPerWord, 0u);
    EXPECT_GT(copy.units(), length);
    EXPECT_EQ(std::u16string(copy.text()), text);
    for (size_t i = length; i < copy.units(); ++i) EXPECT_EQ(copy.text()[i], 0) << length;
  }
  EXPECT_EQ(WordReadableCopy(nullptr).text(), nullptr);
}

}  // namespace
}  // namespace q9
