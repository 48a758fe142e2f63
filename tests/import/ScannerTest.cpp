// The two scanners, driven directly: the number rule they share, and the
// points where they differ (line mode, strings, comments, keywords).
#include <functional>

#include "import/DbcScanner.h"
#include "import/DbcTokens.h"
#include "import/ImportTestSupport.h"
#include "import/LdfScanner.h"
#include "import/LdfTokens.h"
#include "import/TokenCodes.h"

namespace q9 {
namespace {

using test::ScratchFile;

platform::LexerInput* openInput(const ScratchFile& file) {
  platform::LexerInput* input = nullptr;
  EXPECT_EQ(platform::openLexerInput(file.widePath().c_str(), &input), S_OK);
  return input;
}

// One token as "code:text=value"; single characters as 'c', positions on
// request as @line:column.
std::string renderToken(int code, const ScannerCore& core, const char* text, bool positions) {
  std::string out;
  if (code > 0 && code < 256 && code != kTokenZeroByte) {
    out = std::string("'") + text + "'";
  } else {
    out = std::to_string(code) + ":" + text;
    if (code == kTokenInteger) out += "=" + std::to_string(core.integer);
    if (code == kTokenNegativeInteger) out += "=" + std::to_string(int32_t(core.integer));
    if (code == kTokenFloat) {
      char value[32];
      std::snprintf(value, sizeof value, "=%g", core.real);
      out += value;
    }
  }
  if (positions) out += "@" + std::to_string(core.tokenLine) + ":" + std::to_string(core.tokenColumn);
  return out;
}

std::string scanDbc(const std::string& text, bool positions = false,
                    const std::function<void(DbcScanner&, int)>& onToken = {}) {
  ScratchFile file(text);
  DbcScanner* scanner = nullptr;
  EXPECT_EQ(createDbcScanner(openInput(file), &scanner), S_OK);
  std::string out;
  for (int code = nextDbcToken(*scanner); code != kTokenEnd; code = nextDbcToken(*scanner)) {
    out += (out.empty() ? "" : " ") + renderToken(code, scanner->core, dbcTokenText(*scanner), positions);
    if (onToken) onToken(*scanner, code);
  }
  destroyDbcScanner(scanner);
  return out;
}

std::string scanLdf(const std::string& text, bool positions = false) {
  ScratchFile file(text);
  LdfScanner* scanner = nullptr;
  EXPECT_EQ(createLdfScanner(openInput(file), &scanner), S_OK);
  std::string out;
  for (int code = nextLdfToken(*scanner); code != kTokenEnd; code = nextLdfToken(*scanner)) {
    std::string token = renderToken(code, scanner->core, ldfTokenText(*scanner), positions);
    if (code > ldf::kIdentifier) token = std::string("kw:") + ldfTokenText(*scanner);
    out += (out.empty() ? "" : " ") + token;
  }
  destroyLdfScanner(scanner);
  return out;
}

struct NumberCase {
  const char* text;
  const char* tokens;  // with identifiers as 414 (the DBC code)
};

const NumberCase kNumberCases[] = {
    {"42", "302:42=42"},
    {"+7", "302:+7=7"},
    {"-12", "301:-12=-12"},
    {"0x1F 0X1f", "302:0x1F=31 302:0X1f=31"},
    {"012 -012", "302:012=10 301:-012=-10"},
    {"09", "302:09=0"},
    {"0", "302:0=0"},
    {"0.5 01.5", "303:0.5=0.5 303:01.5=1.5"},
    {"-0x1", "350:-0x '1' "},
    {"19.2kbps", "303:19.2=19.2 414:kbps"},
    {"5e3 1. 1e+5 1E-2", "303:5e3=5000 303:1.=1 303:1e+5=100000 303:1E-2=0.01"},
    {"-.5 +.5", "303:-.5=-0.5 303:+.5=0.5"},
    {".5", "'.' 302:5=5"},
    {"1.2.3", "350:1.2 '.' 302:3=3"},
    {"1e5e2", "350:1e5 414:e2"},
    {"1.5e3.0", "350:1.5e3 '.' 302:0=0"},
    {"@1+", "'@' 302:1=1 '+'"},
    {"1-", "302:1=1 '-'"},
    {"+-5", "'+' 301:-5=-5"},
    {"- x", "'-' 414:x"},
    {"4294967295 4294967296 99999999999999999999999",
     "302:4294967295=4294967295 302:4294967296=4294967295 "
     "302:99999999999999999999999=4294967295"},
    {"0xFFFFFFFFF", "302:0xFFFFFFFFF=4294967295"},
    {"2147483648 -2147483648 -2147483649",
     "302:2147483648=2147483648 301:-2147483648=-2147483648 301:-2147483649=-2147483648"},
};

TEST(ScannerNumbers, FollowOneRuleInBothFormats) {
  for (const NumberCase& c : kNumberCases) {
    std::string expected = c.tokens;
    // '1' stands for the integer token the scanner gives after "-0x".
    const auto lone = expected.find("'1' ");
    if (lone != std::string::npos) expected.replace(lone, 4, "302:1=1");
    EXPECT_EQ(scanDbc(c.text), expected) << c.text;
    std::string ldfExpected = expected;
    for (std::size_t at; (at = ldfExpected.find("414:kbps")) != std::string::npos;)
      ldfExpected.replace(at, 8, "kw:kbps");
    for (std::size_t at; (at = ldfExpected.find("414:")) != std::string::npos;)
      ldfExpected.replace(at, 4, "32768:");
    EXPECT_EQ(scanLdf(c.text), ldfExpected) << c.text;
  }
}

TEST(ScannerLines, FoldEveryKindOfLineEndAndCountColumnsInBytes) {
  const std::string text = "a\r\nb\n\rc\rd\n\n\te  f";
  const std::string expected = "414:a@1:1 414:b@2:1 414:c@3:1 414:d@4:1 414:e@6:2 414:f@6:5";
  EXPECT_EQ(scanDbc(text, true), expected);
  std::string ldfExpected = expected;
  for (std::size_t at; (at = ldfExpected.find("414:")) != std::string::npos;)
    ldfExpected.replace(at, 4, "32768:");
  EXPECT_EQ(scanLdf(text, true), ldfExpected);
}

TEST(DbcScanner, HasExactlyItsKeywords) {
  EXPECT_EQ(scanDbc("VERSION NS_ BO_ SG_ CM_ VAL_ BA_ BA_DEF_DEF_ BA_DEF_ CAT_DEF_ CAT_ BU_ "
                    "VAL_TABLE_ SIG_VALTYPE_ BS_ EV_ INT HEX FLOAT STRING ENUM"),
            "400:VERSION 401:NS_ 402:BO_ 403:SG_ 404:CM_ 405:VAL_ 406:BA_ 407:BA_DEF_DEF_ "
            "408:BA_DEF_ 409:CAT_DEF_ 410:CAT_ 411:BU_ 412:VAL_TABLE_ 413:SIG_VALTYPE_ 415:BS_ "
            "416:EV_ 417:INT 418:HEX 419:FLOAT 420:STRING 421:ENUM");
  EXPECT_EQ(scanDbc("bo_ BO BO__ Bo_ SIG_VALTYPE__ EV INTX Vector__XXX _x x1"),
            "414:bo_ 414:BO 414:BO__ 414:Bo_ 414:SIG_VALTYPE__ 414:EV 414:INTX "
            "414:Vector__XXX 414:_x 414:x1");
}

TEST(DbcScanner, StringsHaveNoEscapesAndKeepLineEnds) {
  EXPECT_EQ(scanDbc("\"a\\\"b\"", true), "300:a\\@1:1 414:b@1:5 300:@1:6");
  EXPECT_EQ(scanDbc("\"one\r\ntwo\" x", true), "300:one\ntwo@1:1 414:x@2:6");
  EXPECT_EQ(scanDbc("\"open to the end"), "300:open to the end");
}

TEST(DbcScanner, LineModeMakesLineEndsTokens) {
  std::string seen;
  scanDbc("a b\n  c\nd", false, [&](DbcScanner& scanner, int code) {
    if (code == kDbcIdentifier && std::string(dbcTokenText(scanner)) == "a")
      setDbcLineMode(scanner, true);
    if (code == kDbcEndOfLine) {
      seen += "EOL@" + std::to_string(scanner.core.tokenLine);
      setDbcLineMode(scanner, false);
    }
  });
  EXPECT_EQ(seen, "EOL@2");
}

TEST(DbcScanner, SkipsTheRestOfALine) {
  std::string after;
  scanDbc("x rest \"of\nnext", false, [&](DbcScanner& scanner, int code) {
    if (code == kDbcIdentifier && after.empty()) {
      skipDbcLine(scanner);
      after = std::to_string(nextDbcToken(scanner)) + ":" + dbcTokenText(scanner);
    }
  });
  EXPECT_EQ(after, "414:next");
}

TEST(DbcScanner, GivesOddBytesAsTokensAndTextAsUtf8) {
  EXPECT_EQ(scanDbc(std::string("a\0b", 3)), "414:a 1: 414:b");
  EXPECT_EQ(scanDbc("\"25\xB0""C \x80\" \xE4 /"), "300:25°C € 'ä' '/'");
}

TEST(LdfScanner, DropsCommentsAnywhere) {
  EXPECT_EQ(scanLdf("a // one\nb /* two\n */ c /**/ d /* ** **/ e /*/ still */ f", true),
            "32768:a@1:1 32768:b@2:1 32768:c@3:5 32768:d@3:12 32768:e@3:24 32768:f@3:39");
  // A lone slash is its own token, with empty text.
  EXPECT_EQ(scanLdf("a/b"), "32768:a '' 32768:b");
  EXPECT_EQ(scanLdf("x // last line without an end"), "32768:x");
  EXPECT_EQ(scanLdf("x /* never closed\n"), "32768:x");
}

TEST(LdfScanner, StringsHaveEscapes) {
  EXPECT_EQ(scanLdf("\"a\\qb\" \"\\\"\\\\\\n\\r\\t\" \"two\r\nlines"),
            "300:aqb 300:\"\\\n\r\t 300:two\nlines");
}

TEST(LdfScanner, HasItsOwnKeywordsAndBytes) {
  EXPECT_EQ(scanLdf("ms delay Nodes nodes Signal_encoding_types bcd_value BO_ $ \xE4"),
            "kw:ms kw:delay kw:Nodes 32768:nodes kw:Signal_encoding_types kw:bcd_value "
            "32768:BO_ '$' '\xE4'");
}

}  // namespace
}  // namespace q9
