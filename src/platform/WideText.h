// Wide text as the library passes it: zero-terminated UTF-16 code units.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace q9::platform {

// UTF-8 to UTF-16; malformed bytes become U+FFFD.
std::u16string utf8ToUtf16(std::string_view utf8);
// Appends UTF-8 text to a UTF-16 string, as utf8ToUtf16 converts it.
void appendUtf8AsUtf16(std::u16string& out, std::string_view utf8);
// UTF-16 to UTF-8; unpaired surrogates become U+FFFD.
std::string utf16ToUtf8(std::u16string_view utf16);
std::string utf16ToUtf8(const char16_t* text);

// The same into a caller's buffer, for callers whose memory belongs to
// someone else (a Lua state): out holds at least utf8.size() units, or
// 3 * utf16.size() bytes. Both give the count written, with no terminator.
std::size_t utf8ToUtf16Into(std::string_view utf8, char16_t* out);
std::size_t utf16ToUtf8Into(std::u16string_view utf16, char* out);

// Narrow text in the process's current locale (the C library's multibyte
// conversion) to UTF-16. Bytes the locale cannot convert are taken as
// Latin-1 so that nothing is lost silently.
std::u16string narrowToWide(const char* text);

// Windows-1252 bytes to UTF-8.
std::string cp1252ToUtf8(std::string_view bytes);
// The same into a caller's buffer, for hot paths that must not allocate:
// cp1252Utf8Size tells how many bytes cp1252ToUtf8Into will write (no
// terminator).
std::size_t cp1252Utf8Size(std::string_view bytes);
void cp1252ToUtf8Into(std::string_view bytes, char* out);

}  // namespace q9::platform
