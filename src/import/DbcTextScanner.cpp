// Cuts the text with a pointer and a byte class table: a file of several
// megabytes is scanned in a few milliseconds. Lines end at LF, CR LF or a
// lone CR; columns count bytes from 1.
#include "import/DbcTextScanner.h"

#include <array>
#include <cstring>

namespace q9 {
namespace {

enum ByteClass : uint8_t { kOther = 0, kBlank = 1, kLineEnd = 2, kWordByte = 4, kDigit = 8 };

constexpr std::array<uint8_t, 256> buildClasses() {
  std::array<uint8_t, 256> table{};
  for (int c = '0'; c <= '9'; ++c) table[c] = kWordByte | kDigit;
  for (int c = 'a'; c <= 'z'; ++c) table[c] = kWordByte;
  for (int c = 'A'; c <= 'Z'; ++c) table[c] = kWordByte;
  table['_'] = kWordByte;
  table[' '] = table['\t'] = table['\v'] = table['\f'] = kBlank;
  table['\n'] = table['\r'] = kLineEnd;
  return table;
}

constexpr std::array<uint8_t, 256> kClasses = buildClasses();

inline bool has(char c, uint8_t bits) { return (kClasses[static_cast<unsigned char>(c)] & bits) != 0; }

bool allDigits(const char* begin, const char* end) {
  for (; begin < end; ++begin)
    if (!has(*begin, kDigit)) return false;
  return true;
}

// Length of the UTF-8 sequence at p if it is well formed, else 0.
std::size_t utf8Length(const char* p, const char* end) {
  const auto lead = static_cast<unsigned char>(*p);
  const std::size_t length = lead < 0x80                    ? 1
                             : lead >= 0xC2 && lead <= 0xDF ? 2
                             : lead >= 0xE0 && lead <= 0xEF ? 3
                             : lead >= 0xF0 && lead <= 0xF4 ? 4
                                                            : 0;
  if (length == 0 || std::size_t(end - p) < length) return 0;
  for (std::size_t i = 1; i < length; ++i)
    if ((static_cast<unsigned char>(p[i]) & 0xC0) != 0x80) return 0;
  return length;
}

}  // namespace

bool DbcTextToken::isWord(const char* word, std::size_t length) const {
  return kind == DbcTokenKind::Word && size() == length && std::memcmp(begin, word, length) == 0;
}

DbcTextScanner::DbcTextScanner(const std::string& text)
    : p_(text.data()), end_(text.data() + text.size()), lineStart_(text.data()) {}

void DbcTextScanner::skipBlanks() {
  while (p_ < end_) {
    const char c = *p_;
    if (has(c, kBlank)) {
      ++p_;
    } else if (c == '\n' || c == '\r') {
      ++p_;
      if (c == '\r' && p_ < end_ && *p_ == '\n') ++p_;
      ++line_;
      lineStart_ = p_;
      atLineStart_ = true;
    } else {
      return;
    }
  }
}

// Digits, then a point and digits, then an exponent, each part optional.
const char* DbcTextScanner::scanNumberTail(const char* p) const {
  while (p < end_ && has(*p, kDigit)) ++p;
  if (p < end_ && *p == '.') {
    ++p;
    while (p < end_ && has(*p, kDigit)) ++p;
  }
  if (p < end_ && (*p == 'e' || *p == 'E')) {
    const char* q = p + 1;
    if (q < end_ && (*q == '+' || *q == '-')) ++q;
    if (q < end_ && has(*q, kDigit)) {
      while (q < end_ && has(*q, kDigit)) ++q;
      p = q;
    }
  }
  return p;
}

// A backslash before a quote or a backslash escapes it. A string that never
// closes is taken to end with its first line, so that the rest of the file
// still reads.
void DbcTextScanner::scanString(DbcTextToken& token) {
  const uint32_t openLine = line_;
  const char* openLineStart = lineStart_;
  const char* firstLineEnd = nullptr;
  bool escapedOnFirstLine = false;
  const char* q = p_ + 1;
  token.begin = q;
  while (q < end_ && *q != '"') {
    const char c = *q;
    if (c == '\\' && q + 1 < end_ && (q[1] == '"' || q[1] == '\\')) {
      token.escaped = true;
      if (!firstLineEnd) escapedOnFirstLine = true;
      q += 2;
      continue;
    }
    if (c == '\r') token.carriageReturn = true;
    if (c == '\n' || (c == '\r' && (q + 1 == end_ || q[1] != '\n'))) {
      if (!firstLineEnd) firstLineEnd = c == '\n' && q > token.begin && q[-1] == '\r' ? q - 1 : q;
      ++line_;
      lineStart_ = q + 1;
    }
    ++q;
  }
  if (q < end_) {
    token.end = q;
    p_ = q + 1;
    return;
  }
  token.unclosed = true;
  token.escaped = escapedOnFirstLine;
  token.end = firstLineEnd ? firstLineEnd : end_;
  p_ = token.end;
  line_ = openLine;
  lineStart_ = openLineStart;
}

void DbcTextScanner::next(DbcTextToken& token) {
  skipBlanks();
  token.startsLine = atLineStart_;
  atLineStart_ = false;
  token.at = {line_, uint32_t(p_ - lineStart_ + 1)};
  token.escaped = token.unclosed = token.carriageReturn = false;
  token.begin = p_;
  if (p_ == end_) {
    token.kind = DbcTokenKind::End;
    token.end = p_;
    token.endAt = token.at;
    return;
  }
  const char c = *p_;
  const char* q = p_ + 1;
  if (has(c, kWordByte)) {
    while (q < end_ && has(*q, kWordByte)) ++q;
    token.kind = DbcTokenKind::Word;
    if (has(c, kDigit) && q < end_) {
      if (*q == '.' && allDigits(p_, q)) {
        q = scanNumberTail(p_);
        token.kind = DbcTokenKind::Number;
      } else if ((*q == '+' || *q == '-') && (q[-1] == 'e' || q[-1] == 'E') && allDigits(p_, q - 1) &&
                 q + 1 < end_ && has(q[1], kDigit)) {
        q = scanNumberTail(p_);
        token.kind = DbcTokenKind::Number;
      }
    }
  } else if (c == '"') {
    token.kind = DbcTokenKind::String;
    scanString(token);
    token.endAt = {line_, uint32_t(p_ - lineStart_ + 1)};
    return;
  } else if ((c == '+' || c == '-' || c == '.') && q < end_ &&
             (has(*q, kDigit) || (c != '.' && *q == '.' && q + 1 < end_ && has(q[1], kDigit)))) {
    q = scanNumberTail(c == '.' ? p_ : q);
    token.kind = DbcTokenKind::Number;
  } else {
    // A character beyond ASCII is one symbol, so that messages can show it.
    token.kind = DbcTokenKind::Symbol;
    if (static_cast<unsigned char>(c) >= 0xC0)
      while (q < end_ && (static_cast<unsigned char>(*q) & 0xC0) == 0x80) ++q;
  }
  token.end = q;
  p_ = q;
  token.endAt = {line_, uint32_t(p_ - lineStart_ + 1)};
}

DbcTextToken DbcTextScanner::peek() const {
  DbcTextScanner copy = *this;
  DbcTextToken token;
  copy.next(token);
  return token;
}

bool DbcTextScanner::skipLine(const char*& word, std::size_t& length) {
  while (p_ < end_ && *p_ != '\n' && *p_ != '\r') ++p_;
  skipBlanks();
  if (p_ == end_) return false;
  const char* q = p_;
  while (q < end_ && has(*q, kWordByte)) ++q;
  word = p_;
  length = std::size_t(q - p_);
  return true;
}

std::string unescapeDbcString(const DbcTextToken& token) {
  if (!token.escaped && !token.carriageReturn) return std::string(token.begin, token.end);
  std::string text;
  text.reserve(token.size());
  for (const char* p = token.begin; p < token.end; ++p) {
    if (*p == '\r') {
      if (p + 1 < token.end && p[1] == '\n') ++p;
      text += '\n';
      continue;
    }
    if (token.escaped && *p == '\\' && p + 1 < token.end && (p[1] == '"' || p[1] == '\\')) ++p;
    text += *p;
  }
  return text;
}

std::string dbcExcerpt(const char* from, const char* textEnd) {
  constexpr std::size_t kLongest = 60;
  std::string text;
  const char* p = from;
  while (p < textEnd && *p != '\n' && *p != '\r' && text.size() < kLongest) {
    const std::size_t length = utf8Length(p, textEnd);
    const auto byte = static_cast<unsigned char>(*p);
    if (byte == '\t') {
      text += ' ';
      ++p;
    } else if (length == 0 || byte < 0x20 || byte == 0x7F) {
      text += '?';
      ++p;
    } else {
      text.append(p, length);
      p += length;
    }
  }
  const bool cut = p < textEnd && *p != '\n' && *p != '\r';
  while (!text.empty() && text.back() == ' ') text.pop_back();
  if (cut) text += "...";
  return text;
}

}  // namespace q9
