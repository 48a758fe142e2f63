// Conversions between the library's UTF-16 texts and the UTF-8 of the
// terminal, files and command lines.
#ifndef Q9DB_TOOL_TEXT_H
#define Q9DB_TOOL_TEXT_H

#include <string>
#include <string_view>

namespace q9tool {

// Unpaired surrogates become U+FFFD. A null text is empty.
void appendUtf8(std::string& out, const char16_t* text);
std::string utf8(const char16_t* text);
// Invalid bytes become U+FFFD.
std::u16string utf16(std::string_view text);

}  // namespace q9tool

#endif
