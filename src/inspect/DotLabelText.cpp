// Escaping puts a backslash before each character a record label reads as
// structure; the cut then steps over escapes and surrogate pairs as units,
// which holds because every backslash left in the text starts an escape.
#include "inspect/DotLabelText.h"

namespace q9::dot {
namespace {

bool needsEscape(char16_t c) {
  switch (c) {
    case u'<': case u'>': case u'|': case u'{': case u'}': case u'"': case u'\\':
      return true;
    default:
      return false;
  }
}

bool isHighSurrogate(char16_t c) { return c >= 0xD800 && c <= 0xDBFF; }
bool isLowSurrogate(char16_t c) { return c >= 0xDC00 && c <= 0xDFFF; }

}  // namespace

void appendEscaped(std::u16string& out, std::u16string_view text) {
  for (char16_t c : text) {
    if (needsEscape(c)) out += u'\\';
    out += c;
  }
}

void appendAscii(std::u16string& out, std::string_view ascii) {
  for (char c : ascii) out += char16_t(static_cast<unsigned char>(c));
}

void cutToLimit(std::u16string& text, std::size_t limit) {
  std::size_t kept = 0;
  while (kept < text.size()) {
    // A backslash always starts a two-unit escape here: every backslash that
    // stands for itself was escaped on the way in.
    std::size_t unit = 1;
    if (kept + 1 < text.size() &&
        (text[kept] == u'\\' || (isHighSurrogate(text[kept]) && isLowSurrogate(text[kept + 1]))))
      unit = 2;
    if (kept + unit > limit) break;
    kept += unit;
  }
  text.resize(kept);
}

}  // namespace q9::dot
