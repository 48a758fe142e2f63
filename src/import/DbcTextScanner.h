// Tokens of a DBC text held whole in memory, with the line and column where
// each starts. The scanner only cuts the text; what a token means (a name, a
// number, a keyword) is for the reader to decide where it expects one, since
// DBC names may start with a digit and numbers may look like names ("1e5").
#pragma once

#include <cstdint>
#include <string>

#include "import/ImportReport.h"

namespace q9 {

enum class DbcTokenKind : uint8_t {
  End,     // the end of the text
  Word,    // letters, digits and '_' only: names, keywords, plain integers, "0x1F", "1e5"
  Number,  // a number with a sign, a point or a signed exponent: "-40", "0.25", ".5", "1E+038"
  String,  // between double quotes; begin/end hold the contents, escapes still in
  Symbol,  // any other single byte
};

struct DbcTextToken {
  const char* begin = nullptr;
  const char* end = nullptr;
  TextPosition at;     // where it starts
  TextPosition endAt;  // just behind it
  DbcTokenKind kind = DbcTokenKind::End;
  bool startsLine = false;      // nothing but blanks before it on its line
  bool escaped = false;         // String: holds a backslash before a quote or backslash
  bool unclosed = false;        // String: no closing quote; it was ended with its line
  bool carriageReturn = false;  // String: spans lines ended by CR LF or CR

  std::size_t size() const { return std::size_t(end - begin); }
  const char* start() const {
    return kind == DbcTokenKind::String ? begin - 1 : begin;
  }  // with a string's quote
  bool is(char symbol) const { return kind == DbcTokenKind::Symbol && *begin == symbol; }
  bool isWord(const char* word, std::size_t length) const;
};

class DbcTextScanner {
 public:
  explicit DbcTextScanner(const std::string& text);

  void next(DbcTextToken& token);

  // The next token, the scanner left where it was.
  DbcTextToken peek() const;

  // Drops the rest of the current line and any blank lines behind it, then
  // gives the word the next line starts with (empty when it starts with
  // anything else), still unread. False at the end of the text.
  bool skipLine(const char*& word, std::size_t& length);

  const char* textEnd() const { return end_; }

 private:
  void skipBlanks();
  void scanString(DbcTextToken& token);
  const char* scanNumberTail(const char* p) const;

  const char* p_;
  const char* end_;
  const char* lineStart_;
  uint32_t line_ = 1;
  bool atLineStart_ = true;
};

// The contents of a String token with "\"" and "\\" unescaped and its line
// ends written as LF, whatever the file uses.
std::string unescapeDbcString(const DbcTextToken& token);

// Up to about 60 bytes of text from `from` to its line end, for messages:
// cut at a character boundary, control bytes shown as '?'.
std::string dbcExcerpt(const char* from, const char* textEnd);

}  // namespace q9
