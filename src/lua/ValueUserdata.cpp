// 64-bit values and text slots as userdata. A raw value does not fit a Lua
// number exactly, so it crosses as an InternalValue: unsigned or signed by
// its metatable, printable in decimal and hexadecimal, convertible to float.
#include <cstring>

#include "lua/Binding.h"

namespace q9::lua {
namespace {

constexpr double kTwoTo63 = 9223372036854775808.0;

void pushValue(lua_State* L, uint64_t bits, Meta meta) {
  auto* stored = static_cast<uint64_t*>(lua_newuserdata(L, sizeof(uint64_t)));
  *stored = bits;
  luaL_setmetatable(L, registryName(meta));
}

uint64_t checkValue(lua_State* L, Meta meta) {
  return *static_cast<uint64_t*>(luaL_checkudata(L, 1, registryName(meta)));
}

// Digits of v in radix 10 or 16 (lower case), no prefix, no leading zeros.
int pushDigits(lua_State* L, uint64_t v, unsigned radix, bool minus) {
  char text[24];
  char* p = text + sizeof text;
  do {
    *--p = "0123456789abcdef"[v % radix];
    v /= radix;
  } while (v);
  if (minus) *--p = '-';
  lua_pushlstring(L, p, std::size_t(text + sizeof text - p));
  return 1;
}

int unsignedToString(lua_State* L) { return pushDigits(L, checkValue(L, Meta::UnsignedValue), 10, false); }
int unsignedToHex(lua_State* L) { return pushDigits(L, checkValue(L, Meta::UnsignedValue), 16, false); }
int unsignedToNumber(lua_State* L) {
  const uint64_t v = checkValue(L, Meta::UnsignedValue);
  // Halve with a sticky low bit, so the rounding stays to nearest.
  lua_pushnumber(L, v < (uint64_t(1) << 63) ? double(v) : 2.0 * double((v >> 1) | (v & 1)));
  return 1;
}

int signedToString(lua_State* L) {
  const uint64_t bits = checkValue(L, Meta::SignedValue);
  const bool minus = int64_t(bits) < 0;
  return pushDigits(L, minus ? 0 - bits : bits, 10, minus);
}
int signedToHex(lua_State* L) { return pushDigits(L, checkValue(L, Meta::SignedValue), 16, false); }
int signedToNumber(lua_State* L) {
  lua_pushnumber(L, double(int64_t(checkValue(L, Meta::SignedValue))));
  return 1;
}

}  // namespace

const luaL_Reg kUnsignedValueMethods[] = {
    {"__tostring", unsignedToString}, {"tohexstring", unsignedToHex}, {"tonumber", unsignedToNumber}, {nullptr, nullptr}};
const luaL_Reg kSignedValueMethods[] = {
    {"__tostring", signedToString}, {"tohexstring", signedToHex}, {"tonumber", signedToNumber}, {nullptr, nullptr}};

void pushUnsignedValue(lua_State* L, uint64_t value) { pushValue(L, value, Meta::UnsignedValue); }
void pushSignedValue(lua_State* L, int64_t value) { pushValue(L, uint64_t(value), Meta::SignedValue); }

uint64_t toInternalValue(lua_State* L, int index) {
  switch (lua_type(L, index)) {
    case LUA_TNUMBER: {
      const double d = lua_tonumberx(L, index, nullptr);
      if (!(d < 18446744073709551616.0) || d != d) return 0;  // no pattern beyond 64 bits
      if (d < kTwoTo63) return d <= -kTwoTo63 ? (uint64_t(1) << 63) : uint64_t(int64_t(d));
      return uint64_t(d - kTwoTo63) + (uint64_t(1) << 63);
    }
    case LUA_TSTRING:
      return toUnsigned64(L, index);
    case LUA_TUSERDATA:
      if (hasMetatable(L, index, Meta::UnsignedValue) || hasMetatable(L, index, Meta::SignedValue)) {
        uint64_t bits;
        std::memcpy(&bits, lua_touserdata(L, index), sizeof bits);
        return bits;
      }
      return 0;
    default:
      return uint64_t(luaL_argerror(
          L, index,
          lua_pushfstring(L, "%s expected, got %s", "number, string or InternalValue", luaL_typename(L, index))));
  }
}

void pushPhysicalValue(lua_State* L, const Q9DbPhysicalValue& value) {
  switch (value.valueType) {
    case Q9_VALUETYPE_DOUBLE: lua_pushnumber(L, value.value.d); break;
    case Q9_VALUETYPE_UINT64: pushUnsignedValue(L, value.value.u); break;
    case Q9_VALUETYPE_INT64: pushSignedValue(L, value.value.i); break;
    default: luaL_error(L, "internal error: unknown valuetype: %d", int(value.valueType));
  }
}

void pushStringSlot(lua_State* L, Q9DbStringSlot* slot) {
  *static_cast<Q9DbStringSlot**>(lua_newuserdata(L, sizeof slot)) = slot;
  luaL_setmetatable(L, registryName(Meta::StringSlot));
}

Q9DbStringSlot* checkStringSlot(lua_State* L, int index) {
  return *static_cast<Q9DbStringSlot**>(luaL_checkudata(L, index, registryName(Meta::StringSlot)));
}

}  // namespace q9::lua
