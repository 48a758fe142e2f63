// Text across the boundary: Lua strings are UTF-8, the library's texts UTF-16.
#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <string>
#include <string_view>

#include "lua/Binding.h"
#include "platform/WideText.h"

namespace q9::lua {

const char16_t* toWideText(lua_State* L, int index) {
  index = lua_absindex(L, index);
  std::size_t length = 0;
  const char* text = lua_tolstring(L, index, &length);  // null for values without text
  if (!text) length = 0;
  auto* wide = static_cast<char16_t*>(lua_newuserdata(L, (length + 1) * sizeof(char16_t)));
  const std::size_t units = text ? platform::utf8ToUtf16Into({text, length}, wide) : 0;
  wide[units] = u'\0';
  return wide;
}

void pushWideText(lua_State* L, const char16_t* text, std::size_t length) {
  if (length == 0) length = std::char_traits<char16_t>::length(text);
  luaL_Buffer buffer;
  char* out = luaL_buffinitsize(L, &buffer, length * 3);
  luaL_pushresultsize(&buffer, platform::utf16ToUtf8Into({text, length}, out));
}

void pushWideTextOrEmpty(lua_State* L, const char16_t* text) {
  constexpr std::size_t kLongest = 0x7FFFFFFF;
  std::size_t length = 0;
  if (text)
    while (length < kLongest && text[length]) ++length;
  if (length == 0 || length == kLongest)
    lua_pushliteral(L, "");
  else
    pushWideText(L, text, length);
}

void pushFormatted(lua_State* L, const char* format, ...) {
  constexpr std::size_t kUnits = 2048;
  char narrow[kUnits * 3];
  va_list args;
  va_start(args, format);
  const int written = std::vsnprintf(narrow, sizeof narrow, format, args);
  va_end(args);
  const std::size_t bytes = written < 0 ? 0 : std::min<std::size_t>(std::size_t(written), sizeof narrow - 1);
  char16_t wide[sizeof narrow];
  std::size_t units = platform::utf8ToUtf16Into({narrow, bytes}, wide);
  if (units > kUnits) {
    units = kUnits;
    if (wide[units - 1] >= 0xD800 && wide[units - 1] <= 0xDBFF) --units;  // no half pair
  }
  if (units == 0)
    lua_pushliteral(L, "");
  else
    pushWideText(L, wide, units);
}

}  // namespace q9::lua
