// Tokens of a LIN description file held whole in memory, for the tolerant
// reader. The token rules are those of the strict scanner (the same codes,
// keywords, number rule and string escapes), but texts are views into the
// text, so a token costs no copy; columns count characters, not bytes.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "import/ImportReport.h"
#include "import/LdfTokens.h"
#include "import/TokenCodes.h"

namespace q9 {

struct LdfToken {
  int code = kTokenEnd;   // TokenCodes.h, LdfTokens.h, or the character itself
  std::string_view text;  // word, string content, number as written, the character
  TextPosition at;        // of the first character
  TextPosition endAt;     // just behind the last character
  const char* begin = nullptr;  // the token's place in the text, for quoting spans
  const char* end = nullptr;
  bool unclosed = false;  // a string the end of the text ended, no closing quote
  uint32_t integer = 0;  // integers: unsigned, or the signed value's bits
  double real = 0;       // floating-point constants

  bool isWord() const { return code >= ldf::kIdentifier; }
  bool isNumber() const { return isNumberToken(code); }
  // The value of an integer as the format reads it: 32 bits, signed.
  int64_t signedValue() const { return int32_t(integer); }
  // Any number: unsigned integers stay unsigned.
  double numberValue() const {
    if (code == kTokenInteger) return double(integer);
    if (code == kTokenNegativeInteger) return double(int32_t(integer));
    return real;
  }
};

class LdfTextScanner {
 public:
  explicit LdfTextScanner(std::string_view text);

  // Reads the next token; comments are passed over. A string's text stays
  // valid until the token after the next one is read.
  void next(LdfToken& token);

  const char* textEnd() const { return end_; }
  // Where a block comment began that the end of the text ended, once: the
  // reader says so (line 0: none).
  TextPosition takeUnclosedComment() {
    TextPosition at = unclosedComment_;
    unclosedComment_ = {};
    return at;
  }

 private:
  void skipBlanksAndComments();
  void lineEnd();  // at '\n' or '\r': passes the line end, counting it
  TextPosition positionOf(const char* p);
  void scanNumber(LdfToken& token);
  void scanString(LdfToken& token);

  const char* p_;
  const char* end_;
  uint32_t line_ = 1;
  const char* lineStart_;
  // The last column computed in the current line, to count on from there.
  const char* columnAt_;
  uint32_t column_ = 1;
  std::string numberText_;  // a number's text, zero-terminated for the C library
  std::string strings_[2];  // strings with escapes or line ends, in turns
  unsigned turn_ = 0;
  TextPosition unclosedComment_{};
};

}  // namespace q9
