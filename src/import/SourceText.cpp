// The encoding is decided by one pass over the whole file: a byte that
// doesn't start a well-formed, shortest-form sequence makes it the
// single-byte code page, converted to UTF-8 once. A byte order mark is
// dropped before the test and noted in the encoding.
#include "import/SourceText.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "platform/WideText.h"

namespace q9 {
namespace {

// Length of the UTF-8 sequence at p (well-formed, shortest form, no
// surrogates), or 0.
std::size_t utf8SequenceLength(const unsigned char* p, const unsigned char* end) {
  const unsigned c = p[0];
  std::size_t n;
  unsigned min;
  if (c >= 0xC2 && c <= 0xDF) n = 2, min = 0x80;
  else if (c >= 0xE0 && c <= 0xEF) n = 3, min = 0x800;
  else if (c >= 0xF0 && c <= 0xF4) n = 4, min = 0x10000;
  else return 0;
  if (std::size_t(end - p) < n) return 0;
  unsigned code = c & (0x7F >> n);
  for (std::size_t i = 1; i < n; ++i) {
    if ((p[i] & 0xC0) != 0x80) return 0;
    code = code << 6 | (p[i] & 0x3F);
  }
  if (code < min || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) return 0;
  return n;
}

// Ascii when every byte is below 0x80, Utf8 when the rest are well-formed
// sequences, else Windows1252.
SourceEncoding classify(std::string_view bytes) {
  auto* p = reinterpret_cast<const unsigned char*>(bytes.data());
  auto* end = p + bytes.size();
  bool multiByte = false;
  while (p < end) {
    if (*p < 0x80) {
      ++p;
      continue;
    }
    const std::size_t n = utf8SequenceLength(p, end);
    if (!n) return SourceEncoding::Windows1252;
    multiByte = true;
    p += n;
  }
  return multiByte ? SourceEncoding::Utf8 : SourceEncoding::Ascii;
}

}  // namespace

HRESULT readSourceText(const std::string& pathUtf8, SourceText& out, std::string& reason) {
  std::FILE* file = std::fopen(pathUtf8.c_str(), "rb");
  if (!file) {
    reason = std::strerror(errno);
    return E_FAIL;
  }
  std::string bytes;
  char buffer[65536];
  std::size_t got;
  while ((got = std::fread(buffer, 1, sizeof buffer, file)) > 0) bytes.append(buffer, got);
  const bool failed = std::ferror(file) != 0;
  std::fclose(file);
  if (failed) {
    reason = "the file can't be read";
    return E_FAIL;
  }
  if (bytes.compare(0, 3, "\xEF\xBB\xBF") == 0) {
    bytes.erase(0, 3);
    out.encoding = classify(bytes) == SourceEncoding::Windows1252 ? SourceEncoding::Windows1252
                                                                   : SourceEncoding::Utf8WithMark;
  } else {
    out.encoding = classify(bytes);
  }
  if (out.encoding == SourceEncoding::Windows1252)
    out.text = platform::cp1252ToUtf8(bytes);
  else
    out.text = std::move(bytes);
  return S_OK;
}

const char* sourceEncodingName(SourceEncoding encoding) {
  switch (encoding) {
    case SourceEncoding::Ascii: return "ASCII";
    case SourceEncoding::Utf8: return "UTF-8";
    case SourceEncoding::Utf8WithMark: return "UTF-8 with a byte order mark";
    case SourceEncoding::Windows1252: return "Windows-1252";
  }
  return "?";
}

}  // namespace q9
