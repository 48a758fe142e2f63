// Text conversions that take ASCII eight bytes at a time, against the
// conversion of each piece alone: random mixtures of ASCII runs of every
// length and non-ASCII characters, so that every offset of a multi-byte
// character relative to the eight-byte steps occurs.
#include <gtest/gtest.h>

#include <random>
#include <string>

#include "platform/WideText.h"

namespace {

struct Piece {
  std::string utf8;      // the piece in UTF-8 (or not, for the malformed one)
  std::u16string utf16;  // what it reads as
  std::string cp1252;    // the same character in Windows-1252, when it has one
};

const Piece kPieces[] = {
    {"\xC3\xA9", u"\u00E9", "\xE9"},   // é
    {"\xE2\x82\xAC", u"\u20AC", "\x80"},  // euro sign
    {"\xF0\x9D\x84\x9E", u"\U0001D11E", ""},
    {"\xFF", u"\uFFFD", ""},  // no UTF-8 at all
};

TEST(WideText, AsciiRunsAndOtherCharactersConvertAsTheirPieces) {
  std::mt19937 random(7);
  for (int round = 0; round < 2000; ++round) {
    std::string utf8, cp1252, cp1252AsUtf8;
    std::u16string utf16;
    for (int part = int(random() % 6); part >= 0; --part) {
      const std::string ascii(random() % 19, char('a' + random() % 26));
      utf8 += ascii, utf16 += std::u16string(ascii.begin(), ascii.end());
      cp1252 += ascii, cp1252AsUtf8 += ascii;
      const Piece& p = kPieces[random() % 4];
      utf8 += p.utf8, utf16 += p.utf16;
      if (!p.cp1252.empty()) cp1252 += p.cp1252, cp1252AsUtf8 += p.utf8;
    }
    ASSERT_EQ(q9::platform::utf8ToUtf16(utf8), utf16) << utf8;
    ASSERT_EQ(q9::platform::cp1252ToUtf8(cp1252), cp1252AsUtf8) << cp1252;
    ASSERT_EQ(q9::platform::cp1252Utf8Size(cp1252), cp1252AsUtf8.size());
  }
}

}  // namespace
