// Conversions take ASCII runs eight bytes at a time, since names and ids are
// mostly ASCII. Malformed or overlong UTF-8 and lone surrogates become
// U+FFFD; bytes the locale can't read keep their value as code units, and
// the single-byte code page maps its five unassigned bytes to C1 controls.
#include "platform/WideText.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <cwchar>

namespace q9::platform {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

char16_t* putUtf16(char16_t* out, char32_t cp) {
  if (cp >= 0x10000 && cp <= 0x10FFFF) {
    cp -= 0x10000;
    *out++ = char16_t(0xD800 + (cp >> 10));
    *out++ = char16_t(0xDC00 + (cp & 0x3FF));
  } else if (cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) {
    *out++ = char16_t(kReplacement);
  } else {
    *out++ = char16_t(cp);
  }
  return out;
}

char* putUtf8(char* out, char32_t cp) {
  if (cp < 0x80) {
    *out++ = char(cp);
  } else if (cp < 0x800) {
    *out++ = char(0xC0 | (cp >> 6));
    *out++ = char(0x80 | (cp & 0x3F));
  } else if (cp < 0x10000) {
    *out++ = char(0xE0 | (cp >> 12));
    *out++ = char(0x80 | ((cp >> 6) & 0x3F));
    *out++ = char(0x80 | (cp & 0x3F));
  } else {
    *out++ = char(0xF0 | (cp >> 18));
    *out++ = char(0x80 | ((cp >> 12) & 0x3F));
    *out++ = char(0x80 | ((cp >> 6) & 0x3F));
    *out++ = char(0x80 | (cp & 0x3F));
  }
  return out;
}

constexpr uint64_t kHighBitsOfBytes = 0x8080808080808080ull;

uint64_t loadWord(const char* p) {
  uint64_t word;
  std::memcpy(&word, p, sizeof word);
  return word;
}

void appendUtf16(std::u16string& out, char32_t cp) {
  char16_t units[2];
  out.append(units, std::size_t(putUtf16(units, cp) - units));
}

}  // namespace

std::size_t utf8ToUtf16Into(std::string_view in, char16_t* start) {
  char16_t* out = start;
  std::size_t i = 0;
  while (i < in.size()) {
    // Names and ids are mostly ASCII: eight bytes at a time while they are.
    if (in.size() - i >= 8) {
      if ((loadWord(in.data() + i) & kHighBitsOfBytes) == 0) {
        for (std::size_t k = 0; k < 8; ++k) out[k] = char16_t(uint8_t(in[i + k]));
        out += 8;
        i += 8;
        continue;
      }
    }
    const auto b = uint8_t(in[i]);
    if (b < 0x80) {
      *out++ = char16_t(b);
      ++i;
      continue;
    }
    const int extra = b >= 0xF0 && b <= 0xF4 ? 3 : b >= 0xE0 && b < 0xF0 ? 2 : b >= 0xC2 && b < 0xE0 ? 1 : 0;
    char32_t cp = extra == 1 ? (b & 0x1F) : extra == 2 ? (b & 0x0F) : (b & 0x07);
    bool ok = extra > 0 && in.size() - i > std::size_t(extra);
    for (int k = 1; ok && k <= extra; ++k) {
      const auto c = uint8_t(in[i + std::size_t(k)]);
      if ((c & 0xC0) != 0x80) ok = false;
      cp = (cp << 6) | (c & 0x3F);
    }
    // Overlong forms and surrogates are not characters.
    if (ok && ((extra == 2 && cp < 0x800) || (extra == 3 && (cp < 0x10000 || cp > 0x10FFFF)) ||
               (cp >= 0xD800 && cp <= 0xDFFF)))
      ok = false;
    if (!ok) {
      *out++ = char16_t(kReplacement);
      ++i;
      continue;
    }
    out = putUtf16(out, cp);
    i += std::size_t(extra) + 1;
  }
  return std::size_t(out - start);
}

void appendUtf8AsUtf16(std::u16string& out, std::string_view in) {
  const std::size_t old = out.size();
  out.resize(old + in.size());
  out.resize(old + utf8ToUtf16Into(in, out.data() + old));
}

std::u16string utf8ToUtf16(std::string_view in) {
  std::u16string out(in.size(), u'\0');
  out.resize(utf8ToUtf16Into(in, out.data()));
  return out;
}

std::size_t utf16ToUtf8Into(std::u16string_view in, char* start) {
  char* out = start;
  for (std::size_t i = 0; i < in.size(); ++i) {
    char32_t cp = in[i];
    if (cp >= 0xD800 && cp <= 0xDBFF && i + 1 < in.size() && in[i + 1] >= 0xDC00 &&
        in[i + 1] <= 0xDFFF) {
      cp = 0x10000 + ((cp - 0xD800) << 10) + (char32_t(in[i + 1]) - 0xDC00);
      ++i;
    } else if (cp >= 0xD800 && cp <= 0xDFFF) {
      cp = kReplacement;
    }
    out = putUtf8(out, cp);
  }
  return std::size_t(out - start);
}

std::string utf16ToUtf8(std::u16string_view in) {
  std::string out(in.size() * 3, '\0');
  out.resize(utf16ToUtf8Into(in, out.data()));
  return out;
}

std::string utf16ToUtf8(const char16_t* text) {
  return text ? utf16ToUtf8(std::u16string_view(text)) : std::string();
}

std::u16string narrowToWide(const char* text) {
  std::u16string out;
  std::mbstate_t state{};
  const char* p = text;
  const char* end = text + std::char_traits<char>::length(text);
  while (p < end) {
    wchar_t wc = 0;
    const std::size_t n = std::mbrtowc(&wc, p, std::size_t(end - p), &state);
    if (n == std::size_t(-1) || n == std::size_t(-2) || n == 0) {
      out.push_back(char16_t(uint8_t(*p)));
      ++p;
      state = std::mbstate_t{};
      continue;
    }
    appendUtf16(out, char32_t(wc));
    p += n;
  }
  return out;
}

namespace {

// 0x80..0x9F differ from Latin-1; five of them are unassigned and map to the
// C1 controls, as the usual converters do.
constexpr char16_t kCp1252High[32] = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};

std::size_t utf8Length(char32_t cp) { return cp < 0x80 ? 1 : cp < 0x800 ? 2 : 3; }

char32_t cp1252CodePoint(uint8_t b) {
  return b >= 0x80 && b < 0xA0 ? char32_t(kCp1252High[b - 0x80]) : char32_t(b);
}

}  // namespace

std::size_t cp1252Utf8Size(std::string_view bytes) {
  std::size_t size = 0, i = 0;
  for (; i + 8 <= bytes.size(); i += 8) {
    if ((loadWord(bytes.data() + i) & kHighBitsOfBytes) == 0) {
      size += 8;
      continue;
    }
    for (std::size_t k = i; k < i + 8; ++k) size += utf8Length(cp1252CodePoint(uint8_t(bytes[k])));
  }
  for (; i < bytes.size(); ++i) size += utf8Length(cp1252CodePoint(uint8_t(bytes[i])));
  return size;
}

void cp1252ToUtf8Into(std::string_view bytes, char* out) {
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    // ASCII runs go across eight bytes at a time.
    if (i + 8 <= bytes.size() && (loadWord(bytes.data() + i) & kHighBitsOfBytes) == 0) {
      std::memcpy(out, bytes.data() + i, 8);
      out += 8;
      i += 7;
      continue;
    }
    const char32_t cp = cp1252CodePoint(uint8_t(bytes[i]));
    if (cp < 0x80) {
      *out++ = char(cp);
    } else if (cp < 0x800) {
      *out++ = char(0xC0 | (cp >> 6));
      *out++ = char(0x80 | (cp & 0x3F));
    } else {
      *out++ = char(0xE0 | (cp >> 12));
      *out++ = char(0x80 | ((cp >> 6) & 0x3F));
      *out++ = char(0x80 | (cp & 0x3F));
    }
  }
}

std::string cp1252ToUtf8(std::string_view bytes) {
  std::string out(cp1252Utf8Size(bytes), '\0');
  cp1252ToUtf8Into(bytes, out.data());
  return out;
}

}  // namespace q9::platform
