// The number rules of the Lua 5.3 interpreter the LDF import used to run in:
// its float format, its integer range and its conversion of texts.
#include "import/ScriptNumbers.h"

#include <cmath>
#include <cstdio>
#include <cstring>

#include "platform/CNumbers.h"

namespace q9 {
namespace {

constexpr double kTwoTo63 = 9223372036854775808.0;

bool isSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// Lua's integer reading: decimal or 0x hexadecimal, a sign, blanks around;
// hexadecimal wraps around, a decimal that overflows is no integer.
std::optional<int64_t> readInteger(const char* s) {
  while (isSpace(*s)) ++s;
  bool negative = false;
  if (*s == '-') {
    negative = true;
    ++s;
  } else if (*s == '+') {
    ++s;
  }
  uint64_t a = 0;
  bool empty = true;
  if (s[0] == '0' && (s[1] == 'x' || s[1] == 'X')) {
    for (s += 2; hexValue(*s) >= 0; ++s) {
      a = a * 16 + uint64_t(hexValue(*s));
      empty = false;
    }
  } else {
    constexpr uint64_t kMaxBy10 = uint64_t(INT64_MAX) / 10;
    constexpr int kMaxLastDigit = int(uint64_t(INT64_MAX) % 10);
    for (; *s >= '0' && *s <= '9'; ++s) {
      const int d = *s - '0';
      if (a >= kMaxBy10 && (a > kMaxBy10 || d > kMaxLastDigit + int(negative))) return std::nullopt;
      a = a * 10 + uint64_t(d);
      empty = false;
    }
  }
  while (isSpace(*s)) ++s;
  if (empty || *s != '\0') return std::nullopt;
  return int64_t(negative ? 0 - a : a);
}

// Where strtod would end the number that s starts with (s itself for none):
// blanks, a sign, then decimal digits with a point and an exponent, or 0x and
// hexadecimal digits with a point and a binary exponent. inf and nan are
// left out, as Lua refuses them anyway.
const char* numberEnd(const char* s) {
  const char* p = s;
  while (isSpace(*p)) ++p;
  if (*p == '+' || *p == '-') ++p;
  const bool hex = p[0] == '0' && (p[1] == 'x' || p[1] == 'X');
  const char* digits = hex ? p + 2 : p;
  auto isDigit = [hex](char c) { return hex ? hexValue(c) >= 0 : c >= '0' && c <= '9'; };
  const char* q = digits;
  bool any = false;
  for (; isDigit(*q); ++q) any = true;
  if (*q == '.')
    for (++q; isDigit(*q); ++q) any = true;
  if (!any) return hex ? p + 1 : s;  // "0x" alone reads as the 0
  const char mark = hex ? 'p' : 'e';
  if (*q == mark || *q == mark - 32) {
    const char* e = q + 1;
    if (*e == '+' || *e == '-') ++e;
    if (*e >= '0' && *e <= '9') {
      while (*e >= '0' && *e <= '9') ++e;
      q = e;
    }
  }
  return q;
}

// Lua's float reading: the C library's, without "inf" and "nan", and with
// nothing but blanks behind the number.
std::optional<double> readFloat(const char* s) {
  const char* mode = std::strpbrk(s, ".xXnN");
  if (mode && (*mode == 'n' || *mode == 'N')) return std::nullopt;
  const char* end = numberEnd(s);
  if (end == s) return std::nullopt;
  while (isSpace(*end)) ++end;
  if (*end != '\0') return std::nullopt;
  return platform::parseDoubleC(s);
}

}  // namespace

std::optional<int64_t> exactInteger(double value) {
  if (!(value >= -kTwoTo63 && value < kTwoTo63) || std::floor(value) != value) return std::nullopt;
  return int64_t(value);
}

std::string numberText(double value) {
  if (const auto whole = exactInteger(value)) return std::to_string(*whole);
  char text[64];
  std::snprintf(text, sizeof text, "%.14g", value);
  // A text that looks whole gets ".0", so that it still reads as a float.
  if (text[std::strspn(text, "-0123456789")] == '\0') std::strcat(text, ".0");
  return text;
}

std::string hexText(int64_t value, int width) {
  char text[32];
  std::snprintf(text, sizeof text, "0x%0*llX", width, static_cast<unsigned long long>(value));
  return text;
}

ScriptNumber thousandths(double value) {
  const double rounded = std::floor(value * 1000 + 0.5);
  if (const auto whole = exactInteger(rounded)) return ScriptNumber{true, *whole, 0};
  return ScriptNumber{false, 0, rounded};
}

ScriptNumber operator+(ScriptNumber a, ScriptNumber b) {
  if (a.isInteger && b.isInteger) return ScriptNumber{true, int64_t(uint64_t(a.integer) + uint64_t(b.integer)), 0};
  const double x = a.isInteger ? double(a.integer) : a.real;
  const double y = b.isInteger ? double(b.integer) : b.real;
  return ScriptNumber{false, 0, x + y};
}

uint64_t paramOf(ScriptNumber n) {
  if (n.isInteger) return uint64_t(n.integer);
  const auto whole = exactInteger(n.real);
  return whole ? uint64_t(*whole) : 0;
}

std::optional<int64_t> integerOfText(std::string_view text) {
  // Lua texts with a zero byte inside are no numbers.
  if (text.find('\0') != std::string_view::npos) return std::nullopt;
  const std::string zeroEnded(text);
  if (const auto integer = readInteger(zeroEnded.c_str())) return integer;
  if (const auto real = readFloat(zeroEnded.c_str())) return exactInteger(*real);
  return std::nullopt;
}

std::optional<double> numberOfText(std::string_view text) {
  if (text.find('\0') != std::string_view::npos) return std::nullopt;
  const std::string zeroEnded(text);
  if (const auto integer = readInteger(zeroEnded.c_str())) return double(*integer);
  return readFloat(zeroEnded.c_str());
}

}  // namespace q9
