// Integers by hand (they are most numbers of a file and need overflow
// detection); reals through std::from_chars, which ignores the locale and
// needs no terminating zero.
#include "import/DbcTextNumbers.h"

#include <charconv>

namespace q9 {
namespace {

int digitValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return 99;
}

bool readDigits(const char* p, const char* end, unsigned base, DbcInteger& out) {
  if (p == end) return false;
  uint64_t value = 0;
  for (; p < end; ++p) {
    const unsigned digit = unsigned(digitValue(*p));
    if (digit >= base) return false;
    if (value > (UINT64_MAX - digit) / base) out.overflow = true;
    value = value * base + digit;  // wraps when too long, keeping the low bits
  }
  out.magnitude = value;
  return true;
}

}  // namespace

bool readDbcInteger(const DbcTextToken& token, bool allowSign, DbcInteger& out) {
  out = DbcInteger{};
  const char* p = token.begin;
  if (token.kind == DbcTokenKind::Number) {
    if (!allowSign || (*p != '-' && *p != '+')) return false;
    out.negative = *p == '-';
    return readDigits(p + 1, token.end, 10, out);
  }
  if (token.kind != DbcTokenKind::Word) return false;
  if (token.size() > 2 && p[0] == '0' && (p[1] == 'x' || p[1] == 'X'))
    return readDigits(p + 2, token.end, 16, out);
  return readDigits(p, token.end, 10, out);
}

bool readDbcReal(const DbcTextToken& token, double& out, bool& missingLeadingDigit) {
  missingLeadingDigit = false;
  DbcInteger integer;
  if (readDbcInteger(token, true, integer) && !integer.overflow) {
    out = integer.negative ? -double(integer.magnitude) : double(integer.magnitude);
    return true;
  }
  if (token.kind != DbcTokenKind::Word && token.kind != DbcTokenKind::Number) return false;
  const char* p = token.begin;
  const bool negative = *p == '-';
  if (*p == '-' || *p == '+') ++p;
  if (p == token.end || (*p != '.' && (*p < '0' || *p > '9'))) return false;
  missingLeadingDigit = *p == '.';
  double value = 0;
  const auto result = std::from_chars(p, token.end, value, std::chars_format::general);
  if (result.ec != std::errc() || result.ptr != token.end) return false;
  out = negative ? -value : value;
  return true;
}

std::string dbcNumberText(const DbcTextToken& token, bool missingLeadingDigit) {
  if (!missingLeadingDigit) return std::string(token.begin, token.end);
  const char* p = token.begin;
  std::string text = *p == '-' ? "-0" : "0";
  if (*p == '-' || *p == '+') ++p;
  return text.append(p, token.end);
}

}  // namespace q9
