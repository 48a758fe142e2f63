// Numbers as the LDF import's texts and params have always shown them: the
// Lua interpreter's float format, integer range and reading of texts.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <optional>

#include "import/ScriptNumbers.h"

namespace {

TEST(ScriptNumbers, PrintAsTheInterpreterDid) {
  const std::pair<double, const char*> kNumbers[] = {
      {5.0, "5"},
      {-0.0, "0"},
      {0.1, "0.1"},
      {1.0 / 3, "0.33333333333333"},
      {2.0000000000000004, "2.0"},  // rounds to a whole text, stays a float
      {1e20, "1e+20"},
      {9223372036854775808.0, "9.2233720368548e+18"},
      {-9223372036854775808.0, "-9223372036854775808"},
      {std::numeric_limits<double>::infinity(), "inf"},
  };
  for (const auto& [value, text] : kNumbers) EXPECT_EQ(q9::numberText(value), text) << text;
  EXPECT_EQ(q9::hexText(0x3C), "0x3C");
  EXPECT_EQ(q9::hexText(5), "0x05");
  EXPECT_EQ(q9::hexText(0x12, 4), "0x0012");
  EXPECT_EQ(q9::hexText(-1), "0xFFFFFFFFFFFFFFFF");
}

TEST(ScriptNumbers, ReadTextsAsTonumberDid) {
  const std::pair<const char*, std::optional<int64_t>> kTexts[] = {
      {"0x1F", 31},   {"010", 10},  {"08", 8},     {" 12 ", 12},  {"+5", 5},
      {"-1", -1},     {"1e1", 10},  {"2.0", 2},    {"1.5", {}},   {"0x", {}},
      {"nan", {}},    {"5x", {}},   {"", {}},      {"0x10000000000000001", 1},
      {"99999999999999999999", {}},  // a float beyond the integers
      {"-9223372036854775808", INT64_MIN},
  };
  for (const auto& [text, value] : kTexts) EXPECT_EQ(q9::integerOfText(text), value) << text;
}

TEST(ScriptNumbers, DelaysRoundToMicrosecondsAndParamsTakeOnlyIntegers) {
  EXPECT_EQ(q9::paramOf(q9::thousandths(5.5)), 5500u);
  EXPECT_EQ(q9::paramOf(q9::thousandths(0.0004)), 0u);
  EXPECT_EQ(q9::paramOf(q9::thousandths(0.0005)), 1u);
  EXPECT_EQ(q9::paramOf(q9::thousandths(-5)), uint64_t(-5000));
  const q9::ScriptNumber huge = q9::thousandths(1e300);
  EXPECT_FALSE(huge.isInteger);
  EXPECT_EQ(q9::paramOf(huge), 0u);
  EXPECT_EQ(q9::paramOf(q9::thousandths(10) + huge), 0u);  // a sum with a float is a float
  EXPECT_EQ(q9::paramOf(q9::thousandths(10) + q9::thousandths(2.5)), 12500u);
}

}  // namespace
