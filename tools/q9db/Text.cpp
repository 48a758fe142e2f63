// The tool converts on its own, as it sees only the library's C interface.
// A malformed, overlong or surrogate UTF-8 sequence gives U+FFFD for its
// first byte and reading goes on with the next, so no text is cut short.
#include "Text.h"

namespace q9tool {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

void appendCodePoint(std::string& out, char32_t c) {
  if (c < 0x80) {
    out += static_cast<char>(c);
  } else if (c < 0x800) {
    out += static_cast<char>(0xC0 | c >> 6);
    out += static_cast<char>(0x80 | (c & 0x3F));
  } else if (c < 0x10000) {
    out += static_cast<char>(0xE0 | c >> 12);
    out += static_cast<char>(0x80 | (c >> 6 & 0x3F));
    out += static_cast<char>(0x80 | (c & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | c >> 18);
    out += static_cast<char>(0x80 | (c >> 12 & 0x3F));
    out += static_cast<char>(0x80 | (c >> 6 & 0x3F));
    out += static_cast<char>(0x80 | (c & 0x3F));
  }
}

bool isHighSurrogate(char16_t c) { return c >= 0xD800 && c <= 0xDBFF; }
bool isLowSurrogate(char16_t c) { return c >= 0xDC00 && c <= 0xDFFF; }

}  // namespace

void appendUtf8(std::string& out, const char16_t* text) {
  for (; text && *text; ++text) {
    char16_t c = *text;
    if (isHighSurrogate(c) && isLowSurrogate(text[1])) {
      appendCodePoint(out, 0x10000 + ((static_cast<char32_t>(c) - 0xD800) << 10) + (text[1] - 0xDC00));
      ++text;
    } else if (isHighSurrogate(c) || isLowSurrogate(c)) {
      appendCodePoint(out, kReplacement);
    } else {
      appendCodePoint(out, c);
    }
  }
}

std::string utf8(const char16_t* text) {
  std::string out;
  appendUtf8(out, text);
  return out;
}

std::u16string utf16(std::string_view text) {
  std::u16string out;
  size_t i = 0;
  while (i < text.size()) {
    auto byte = static_cast<unsigned char>(text[i]);
    char32_t c = kReplacement;
    size_t extra = byte < 0x80 ? 0 : (byte >> 5) == 0x6 ? 1 : (byte >> 4) == 0xE ? 2 : (byte >> 3) == 0x1E ? 3 : 4;
    if (extra == 0) {
      c = byte;
    } else if (extra < 4 && i + extra < text.size()) {
      c = byte & (0x3F >> extra);
      bool valid = true;
      for (size_t k = 1; k <= extra; ++k) {
        auto next = static_cast<unsigned char>(text[i + k]);
        if ((next & 0xC0) != 0x80) valid = false;
        c = c << 6 | (next & 0x3F);
      }
      static const char32_t smallest[] = {0, 0x80, 0x800, 0x10000};
      if (!valid || c < smallest[extra] || c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) {
        c = kReplacement;
        extra = 0;
      }
    } else {
      extra = 0;
    }
    i += extra + 1;
    if (c >= 0x10000) {
      out += static_cast<char16_t>(0xD800 + ((c - 0x10000) >> 10));
      out += static_cast<char16_t>(0xDC00 + ((c - 0x10000) & 0x3FF));
    } else {
      out += static_cast<char16_t>(c);
    }
  }
  return out;
}

}  // namespace q9tool
