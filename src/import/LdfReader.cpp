// The tolerant reader's token steps: values with their warnings, statement
// ends, and passing over what can't be read.
#include "import/LdfReader.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <string>

namespace q9 {

LdfReader::LdfReader(std::string_view text, LdfFile& file, ImportReport& report)
    : file(file), report(report), scanner_(text) {
  scan(token_);
}

// What the end of the text cut short is read as if closed there, and said.
void LdfReader::scan(LdfToken& token) {
  scanner_.next(token);
  const TextPosition comment = scanner_.takeUnclosedComment();
  if (comment.line) report.warn(comment, "comment has no closing '*/'; it was taken to end with the file");
  if (token.unclosed) report.warn(token.at, "string has no closing quote; it was taken to end with the file");
}

const LdfToken& LdfReader::peek() {
  if (!hasAhead_) {
    scan(ahead_);
    hasAhead_ = true;
  }
  return ahead_;
}

void LdfReader::advance() {
  if (token_.code == '{') ++depth_;
  if (token_.code == '}') --depth_;
  previousEnd_ = token_.endAt;
  previousEndText_ = token_.end;
  if (hasAhead_) {
    token_ = ahead_;
    hasAhead_ = false;
  } else {
    scan(token_);
  }
}

bool LdfReader::accept(int code) {
  if (token_.code != code) return false;
  advance();
  return true;
}

void LdfReader::expect(int code) {
  if (accept(code)) return;
  const char* keyword = ldf::keywordText(code);
  slip("'" + (keyword ? std::string(keyword) : std::string(1, char(code))) + "'");
}

void LdfReader::slip(const std::string& expected) const {
  throw Slip{token_.at, expected, quote(token_)};
}

std::string LdfReader::name(const char* what) {
  if (!atWord()) slip(std::string("the name of ") + what);
  std::string out(token_.text);
  advance();
  return out;
}

std::string LdfReader::entryName(const char* what) {
  if (token_.code > ldf::kIdentifier)
    warn(token_.at, "the keyword '" + std::string(token_.text) + "' is taken as the name of " + what);
  return name(what);
}

namespace {

// Whether an integer as written (decimal, 0x hexadecimal, leading-zero
// octal, signed) fits the 32 bits the format reads it into; the scanner
// keeps only 32, so a larger one would come out as another number.
bool fits32Bits(std::string_view written) {
  const std::string text(written);
  errno = 0;
  if (!text.empty() && text[0] == '-') {
    const long long value = std::strtoll(text.c_str(), nullptr, 0);
    return errno != ERANGE && value >= INT32_MIN;
  }
  const unsigned long long value = std::strtoull(text.c_str(), nullptr, 0);
  return errno != ERANGE && value <= UINT32_MAX;
}

}  // namespace

int64_t LdfReader::integer(const char* what) {
  if (at(kTokenInteger) || at(kTokenNegativeInteger)) {
    const int64_t value = token_.signedValue();
    advance();
    return value;
  }
  if (at(kTokenFloat) && token_.real == std::floor(token_.real) && std::fabs(token_.real) < 2147483648.0) {
    warn(token_.at, std::string(what) + " " + std::string(token_.text) +
                        " is written with a point; it is taken as an integer");
    const auto value = int64_t(token_.real);
    advance();
    return value;
  }
  slip(std::string("an integer (") + what + ")");
}

int64_t LdfReader::identifier(const char* what) {
  if ((at(kTokenInteger) || at(kTokenNegativeInteger)) && !fits32Bits(token_.text))
    slip(std::string("an integer of at most 32 bits (") + what + ")");
  return integer(what);
}

double LdfReader::number(const char* what) {
  if (!token_.isNumber()) slip(std::string("a number (") + what + ")");
  const double value = token_.numberValue();
  advance();
  return value;
}

std::string LdfReader::text(const char* what) {
  if (at(kTokenString)) {
    std::string out(token_.text);
    advance();
    return out;
  }
  if (token_.isNumber()) {
    warn(token_.at, std::string(what) + " " + std::string(token_.text) +
                        " is written without quotes; it is taken as the text \"" +
                        std::string(token_.text) + "\"");
    std::string out(token_.text);
    advance();
    return out;
  }
  slip(std::string("a string constant (") + what + ")");
}

void LdfReader::unit(int keyword, const char* what) {
  if (accept(keyword)) return;
  warn(previousEnd_, std::string("'") + ldf::keywordText(keyword) + "' missing behind " + what +
                         "; it is assumed");
}

void LdfReader::endStatement(const char* what) {
  if (accept(';')) return;
  if (at('}') || at(kTokenEnd) || token_.at.line > previousEnd_.line) {
    warn(previousEnd_, std::string("';' missing behind ") + what + "; it is supplied");
    return;
  }
  slip("';'");
}

void LdfReader::close(const char* section) {
  if (accept('}')) return;
  warn(token_.at, std::string(section) + " is not closed by '}' before the end of the file");
}

void LdfReader::skipStatement(int depth) {
  while (!at(kTokenEnd)) {
    if (at('}')) {
      if (depth_ <= depth) return;  // it closes the block around the statement
      advance();
      if (depth_ == depth && ends_ == Ends::SemicolonOrBlock) return;  // the end of a block entry
      continue;
    }
    // Braces inside an entry that ends with ';' hold no ';': one that stands
    // there ends the entry, and a brace the entry left open counts as closed.
    if (at(';') && (depth_ == depth || ends_ == Ends::Semicolon)) {
      depth_ = depth;
      advance();
      return;
    }
    advance();
  }
}

void LdfReader::passOver(const Slip& slip, int depth, const char* section) {
  const std::string what = label_.empty() ? std::string("an entry of ") + section : label_;
  warn(slip.at, slip.expected + " expected, found " + slip.found + "; " + what + " is left out");
  skipStatement(depth);
}

void LdfReader::skipUnknown(const std::string& what, TextPosition at, const char* start) {
  skipStatement(depth_);
  warn(at, what + " '" + excerpt(start, previousEndText_) + "' is not known; it is skipped");
}

std::string LdfReader::quote(const LdfToken& token) {
  switch (token.code) {
    case kTokenEnd: return "the end of the file";
    case kTokenZeroByte: return "a zero byte";
    case kTokenString: return "\"" + std::string(token.text) + "\"";
    case ldf::kLoneSlash: return "'/'";
    default: return "'" + std::string(token.text) + "'";
  }
}

std::string LdfReader::excerpt(const char* start, const char* end) {
  constexpr std::size_t kLongest = 60;
  std::string out;
  bool blank = false;
  for (const char* p = start; p < end; ++p) {
    const auto c = static_cast<unsigned char>(*p);
    if (c <= ' ') {
      blank = !out.empty();
      continue;
    }
    if (out.size() >= kLongest && (c & 0xC0) != 0x80) return out + "...";
    if (blank) out += ' ';
    blank = false;
    out += char(c);
  }
  return out;
}

}  // namespace q9
