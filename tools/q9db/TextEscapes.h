// Texts quoted for CSV and JSON, shared by every writer of the tool: a
// frame's or signal's name may hold commas, quotes or control characters.
#ifndef Q9DB_TOOL_TEXTESCAPES_H
#define Q9DB_TOOL_TEXTESCAPES_H

#include <string>
#include <string_view>

#include "Io.h"

namespace q9tool {

// Into any sink with write(std::string_view) and write(char).
template <typename Sink>
void writeJsonString(Sink& out, std::string_view text) {
  static const char kHex[] = "0123456789ABCDEF";
  out.write('"');
  size_t plain = 0;
  for (size_t i = 0; i < text.size(); ++i) {
    auto c = static_cast<unsigned char>(text[i]);
    if (c >= 0x20 && c != '"' && c != '\\') continue;
    out.write(text.substr(plain, i - plain));
    plain = i + 1;
    if (c == '"' || c == '\\') {
      char escaped[2] = {'\\', static_cast<char>(c)};
      out.write(std::string_view(escaped, 2));
    } else {
      char escaped[6] = {'\\', 'u', '0', '0', kHex[c >> 4], kHex[c & 0xF]};
      out.write(std::string_view(escaped, 6));
    }
  }
  out.write(text.substr(plain));
  out.write('"');
}

// A CSV field, quoted only when it must be.
template <typename Sink>
void writeCsvField(Sink& out, std::string_view text) {
  bool plain = true;  // a loop, not find_first_of, which searches the set once per character
  for (char c : text) plain = plain && c != ',' && c != '"' && c != '\r' && c != '\n';
  if (plain) {
    out.write(text);
    return;
  }
  out.write('"');
  for (char c : text) {
    if (c == '"') out.write('"');
    out.write(c);
  }
  out.write('"');
}

// The quoted JSON text as a string.
inline std::string jsonString(std::string_view text) {
  struct Appender {
    std::string& to;
    void write(std::string_view s) { to.append(s.data(), s.size()); }
    void write(char c) { to += c; }
  };
  std::string quoted;
  Appender sink{quoted};
  writeJsonString(sink, text);
  return quoted;
}

}  // namespace q9tool

#endif
