// The in-memory LDF scanner against the strict reader's scanner: on the same
// text both give the same tokens (code, text, value, line and column), so a
// file reads alike whichever reader reads it. Only the end of the file may
// stand a column further in the strict one, which reads it twice.
#include <gtest/gtest.h>

#include <string>

#include "import/ImportTestSupport.h"
#include "import/LdfScanner.h"
#include "import/LdfTextScanner.h"

namespace {

using q9::test::ScratchFile;

std::string strictTokens(const std::string& text) {
  ScratchFile file(text, ".ldf");
  q9::platform::LexerInput* input = nullptr;
  EXPECT_EQ(q9::platform::openLexerInput(file.widePath().c_str(), &input), S_OK);
  q9::LdfScanner* scanner = nullptr;
  EXPECT_EQ(q9::createLdfScanner(input, &scanner), S_OK);
  std::string out;
  for (int code = q9::nextLdfToken(*scanner);; code = q9::nextLdfToken(*scanner)) {
    const q9::ScannerCore& core = scanner->core;
    out += std::to_string(code) + " '" + q9::ldfTokenText(*scanner) + "' " + std::to_string(core.tokenLine);
    if (code != q9::kTokenEnd) out += ":" + std::to_string(core.tokenColumn);
    if (q9::isNumberToken(code)) out += " =" + std::to_string(q9::ldfNumberValue(*scanner));
    if (code == q9::kTokenEnd) break;
    out += "\n";
  }
  q9::destroyLdfScanner(scanner);
  return out;
}

std::string textTokens(const std::string& text) {
  q9::LdfTextScanner scanner(text);
  q9::LdfToken token;
  std::string out;
  do {
    scanner.next(token);
    out += std::to_string(token.code) + " '" + std::string(token.text) + "' " + std::to_string(token.at.line);
    if (token.code != q9::kTokenEnd) out += ":" + std::to_string(token.at.column);
    if (token.isNumber()) out += " =" + std::to_string(token.numberValue());
    out += token.code == q9::kTokenEnd ? "" : "\n";
  } while (token.code != q9::kTokenEnd);
  return out;
}

TEST(LdfTextScanner, GivesTheStrictScannersTokens) {
  const char* const kTexts[] = {
      // numbers: octal, hexadecimal, signs, exponents, malformed, saturation
      "012 08 0x1F 0x -0x1 +5 - 5 -7 5e3 1. .5 -.5 1.2.3 1e2e3 19.2kbps 4294967296 -2147483649 0xFFFFFFFF",
      // strings with escapes and line ends, unterminated at the end
      "\"a\\qb\" \"q\\\"uote\\\\\" \"two\r\nlines\" \"tab\\t\" \"open",
      // comments of both kinds, a lone slash, **/ and an unterminated block
      "a/b // line\r c /* x\n y **/ d /* open",
      // line ends: CR, LF, CR LF and LF CR each one
      "a\rb\nc\r\nd\n\re\n\nf",
      // words, keywords, a zero byte, other characters
      "Signals ms delay _x1 x$y {};:=",
  };
  for (const char* text : kTexts) EXPECT_EQ(textTokens(text), strictTokens(text)) << text;
  const std::string withZero("a\0b", 3);
  EXPECT_EQ(textTokens(withZero), strictTokens(withZero));
}

}  // namespace
