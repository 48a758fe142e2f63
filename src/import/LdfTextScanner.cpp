// The LDF token rules over text in memory: a pointer walks the text, and a
// token's place and text are noted without copying it.
#include "import/LdfTextScanner.h"

#include <cerrno>
#include <cstdlib>

#include "import/ScannerCore.h"
#include "platform/CNumbers.h"

namespace q9 {
namespace {

bool isBlank(char c) { return (c >= 8 && c <= 13) || c == ' '; }

char unescape(char c) {
  switch (c) {
    case 'n': return '\n';
    case 'r': return '\r';
    case 't': return '\t';
    default: return c;  // \" and \\ included: the character itself
  }
}

// Bytes of the UTF-8 sequence that starts with c (1 for anything else).
std::size_t sequenceLength(unsigned char c) {
  if (c >= 0xF0) return 4;
  if (c >= 0xE0) return 3;
  if (c >= 0xC0) return 2;
  return 1;
}

}  // namespace

LdfTextScanner::LdfTextScanner(std::string_view text)
    : p_(text.data()), end_(text.data() + text.size()), lineStart_(p_), columnAt_(p_) {}

void LdfTextScanner::lineEnd() {
  // CR, LF, CR LF and LF CR are each one line end.
  const char first = *p_++;
  if (p_ < end_ && (*p_ == '\r' || *p_ == '\n') && *p_ != first) ++p_;
  ++line_;
  lineStart_ = columnAt_ = p_;
  column_ = 1;
}

TextPosition LdfTextScanner::positionOf(const char* p) {
  if (columnAt_ < lineStart_ || columnAt_ > p) {
    columnAt_ = lineStart_;
    column_ = 1;
  }
  for (; columnAt_ < p; ++columnAt_)
    if ((static_cast<unsigned char>(*columnAt_) & 0xC0) != 0x80) ++column_;
  return TextPosition{line_, column_};
}

void LdfTextScanner::skipBlanksAndComments() {
  while (p_ < end_) {
    const char c = *p_;
    if (c == '\n' || c == '\r') {
      lineEnd();
    } else if (isBlank(c)) {
      ++p_;
    } else if (c == '/' && p_ + 1 < end_ && p_[1] == '/') {
      while (p_ < end_ && *p_ != '\n' && *p_ != '\r') ++p_;
    } else if (c == '/' && p_ + 1 < end_ && p_[1] == '*') {
      // Up to and including the first "*/"; the end of the text ends it too.
      const TextPosition start = positionOf(p_);
      p_ += 2;
      while (p_ < end_ && !(*p_ == '*' && p_ + 1 < end_ && p_[1] == '/')) {
        if (*p_ == '\n' || *p_ == '\r')
          lineEnd();
        else
          ++p_;
      }
      if (p_ < end_) p_ += 2;
      else unclosedComment_ = start;
    } else {
      return;
    }
  }
}

void LdfTextScanner::next(LdfToken& token) {
  skipBlanksAndComments();
  token.begin = p_;
  token.at = positionOf(p_);
  token.integer = 0;
  token.real = 0;
  token.unclosed = false;
  if (p_ >= end_) {
    token.code = kTokenEnd;
    token.text = {};
  } else {
    const auto c = static_cast<unsigned char>(*p_);
    if (c == 0) {
      token.code = kTokenZeroByte;
      token.text = {};
      ++p_;
    } else if (c == '"') {
      scanString(token);
    } else if (c == '/') {
      token.code = ldf::kLoneSlash;
      token.text = {};
      ++p_;
    } else if (hasCharClass(c, kCharNumberStart)) {
      scanNumber(token);
    } else if (hasCharClass(c, kCharWordStart)) {
      const char* start = p_;
      while (p_ < end_ && hasCharClass(static_cast<unsigned char>(*p_), kCharWord)) ++p_;
      token.text = std::string_view(start, std::size_t(p_ - start));
      token.code = ldf::lookupKeyword(start, token.text.size());
    } else {
      // One character; a character of several bytes stays whole for messages.
      const std::size_t length = std::min<std::size_t>(sequenceLength(c), std::size_t(end_ - p_));
      token.code = c;
      token.text = std::string_view(p_, length);
      p_ += length;
    }
  }
  token.end = p_;
  token.endAt = positionOf(p_);
}

void LdfTextScanner::scanString(LdfToken& token) {
  token.code = kTokenString;
  const char* start = ++p_;
  // Most strings hold neither escapes nor line ends: their text is a view.
  const char* q = start;
  while (q < end_ && *q != '"' && *q != '\\' && *q != '\n' && *q != '\r') ++q;
  if (q >= end_ || *q == '"') {
    token.text = std::string_view(start, std::size_t(q - start));
    token.unclosed = q >= end_;
    p_ = q < end_ ? q + 1 : end_;
    return;
  }
  std::string& out = strings_[turn_];
  turn_ ^= 1;
  out.assign(start, q);
  p_ = q;
  while (p_ < end_ && *p_ != '"') {
    const char c = *p_;
    if (c == '\n' || c == '\r') {
      lineEnd();
      out += '\n';
    } else if (c == '\\') {
      if (++p_ >= end_) break;
      if (*p_ == '\n' || *p_ == '\r') {
        lineEnd();
        out += '\n';
      } else {
        out += unescape(*p_++);
      }
    } else {
      out += c;
      ++p_;
    }
  }
  if (p_ < end_) ++p_;  // the closing quote
  else token.unclosed = true;
  token.text = out;
}

// The number rule of the strict scanner: leading-zero octal, 0x hexadecimal,
// a sign that may stand alone, and a second point or exponent that ends the
// token as malformed.
void LdfTextScanner::scanNumber(LdfToken& token) {
  enum State { kStart, kSigned, kFraction, kExponent };
  const char* start = p_;
  int state = kStart;
  int base = 10;
  int code = 0;
  auto peek = [&]() -> int { return p_ < end_ ? static_cast<unsigned char>(*p_) : -1; };
  auto finish = [&](int result) {
    token.code = result;
    token.text = std::string_view(start, std::size_t(p_ - start));
  };
  int c = peek();
  if (c == '+' || c == '-') {
    code = c;
    state = kSigned;
    ++p_;
    c = peek();
  }
  if (hasCharClass(c, kCharDigit)) {
    code = *start == '-' ? kTokenNegativeInteger : kTokenInteger;
    if (c == '0') {
      ++p_;
      c = peek();
      if (c == 'x' || c == 'X') {
        ++p_;
        if (state == kSigned) return finish(kTokenMalformedNumber);
        base = 16;
        c = peek();
        while (hasCharClass(c, kCharHexDigit)) {
          ++p_;
          c = peek();
        }
      } else if (hasCharClass(c, kCharDigit)) {
        base = 8;
      }
    }
  }
  while (base != 16 && (c == '.' || c == 'E' || c == 'e' || hasCharClass(c, kCharDigit))) {
    if (c == '.') {
      if (state >= kFraction) return finish(kTokenMalformedNumber);
      code = kTokenFloat;
      state = kFraction;
    } else if (c == 'E' || c == 'e') {
      if (state == kExponent) return finish(kTokenMalformedNumber);
      code = kTokenFloat;
      state = kExponent;
      ++p_;
      c = peek();
      if (c == '+' || c == '-') {
        ++p_;
        c = peek();
      }
      continue;
    }
    ++p_;
    c = peek();
  }
  finish(code);
  if (code != kTokenFloat && code != kTokenInteger && code != kTokenNegativeInteger) return;
  numberText_.assign(token.text);
  switch (code) {
    case kTokenFloat: token.real = platform::parseDoubleC(numberText_.c_str()); break;
    case kTokenNegativeInteger: token.integer = uint32_t(toSigned32(numberText_.c_str(), base)); break;
    default: token.integer = toUnsigned32(numberText_.c_str(), base); break;
  }
}

}  // namespace q9
