// Text inside a quoted record label of a Graphviz file. Database texts may
// hold characters that a record label reads as structure, or that would end
// the quoted string; they are escaped, and a label is cut only between whole
// escapes and whole characters, so a cut never leaves a dangling backslash.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace q9::dot {

// Appends text with a backslash before each of < > | { } " and \.
void appendEscaped(std::u16string& out, std::u16string_view text);

// Appends plain ASCII (numbers, the fixed words of a label).
void appendAscii(std::u16string& out, std::string_view ascii);

// Shortens a label text to at most limit code units, dropping whole
// escapes and surrogate pairs only.
void cutToLimit(std::u16string& text, std::size_t limit);

}  // namespace q9::dot
