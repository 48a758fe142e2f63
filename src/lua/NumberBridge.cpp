// Unsigned numbers read through their text form, as the C library's strtoul
// reads them: so "0x10", "010" and 16 all mean what a C programmer expects.
#include <cctype>
#include <cerrno>
#include <cstdlib>

#include "lua/Binding.h"

namespace q9::lua {
namespace {

// strtoull with base 0 and its rules for a sign and for overflow.
uint64_t parseUnsigned(const char* text, bool* negative, bool* overflow) {
  while (std::isspace(static_cast<unsigned char>(*text))) ++text;
  *negative = *text == '-';
  if (*text == '-' || *text == '+') ++text;
  // A second sign or a space after the sign is no number.
  if (*text == '-' || *text == '+' || std::isspace(static_cast<unsigned char>(*text))) return 0;
  errno = 0;
  const uint64_t magnitude = std::strtoull(text, nullptr, 0);
  *overflow = errno == ERANGE;
  return magnitude;
}

}  // namespace

uint32_t toUnsigned32(lua_State* L, int index) {
  if (!lua_isstring(L, index)) return 0;
  bool negative = false, overflow = false;
  const uint64_t magnitude = parseUnsigned(lua_tolstring(L, index, nullptr), &negative, &overflow);
  if (overflow || magnitude > 0xFFFFFFFFu) return 0xFFFFFFFFu;
  return negative ? uint32_t(0u - uint32_t(magnitude)) : uint32_t(magnitude);
}

uint64_t toUnsigned64(lua_State* L, int index) {
  if (!lua_isstring(L, index)) return 0;
  bool negative = false, overflow = false;
  const uint64_t magnitude = parseUnsigned(lua_tolstring(L, index, nullptr), &negative, &overflow);
  if (overflow) return UINT64_MAX;
  return negative ? 0 - magnitude : magnitude;
}

}  // namespace q9::lua
