// Identifiers are read as hexadecimal of at most 29 bits, a missing mask
// meaning every bit; names go to the C library's shell pattern matcher, so
// patterns behave as they do in a shell.
#include "FrameFilter.h"

#include <fnmatch.h>

namespace q9tool {
namespace {

constexpr uint32_t kExtendedMask = 0x1FFFFFFF;

bool parseHex(std::string_view text, uint32_t& value) {
  if (text.empty() || text.size() > 8) return false;
  value = 0;
  for (char c : text) {
    unsigned digit = c >= '0' && c <= '9'   ? unsigned(c - '0')
                     : c >= 'a' && c <= 'f' ? unsigned(c - 'a' + 10)
                     : c >= 'A' && c <= 'F' ? unsigned(c - 'A' + 10)
                                            : 16u;
    if (digit > 15) return false;
    value = value << 4 | digit;
  }
  return value <= kExtendedMask;
}

}  // namespace

bool parseIdentifierFilter(std::string_view text, IdentifierFilter& filter, std::string& problem) {
  size_t split = text.find_first_of(":~");
  filter.inverted = split != std::string_view::npos && text[split] == '~';
  filter.mask = kExtendedMask;
  bool ok = parseHex(text.substr(0, split), filter.code) &&
            (split == std::string_view::npos || parseHex(text.substr(split + 1), filter.mask));
  if (!ok) problem = "'" + std::string(text) + "' is no identifier filter: ID, ID:MASK or ID~MASK in hexadecimal, at most 1FFFFFFF";
  return ok;
}

bool FrameFilter::set(const FilterOptions& options, std::string& problem) {
  identifiers_.clear();
  for (const std::string& text : options.identifiers) {
    IdentifierFilter filter{};
    if (!parseIdentifierFilter(text, filter, problem)) return false;
    identifiers_.push_back(filter);
  }
  frames_ = options.frames;
  signals_ = options.signals;
  return true;
}

bool FrameFilter::passesName(const std::vector<std::string>& patterns, const std::string& name) {
  if (patterns.empty()) return true;
  for (const std::string& pattern : patterns)
    if (fnmatch(pattern.c_str(), name.c_str(), 0) == 0) return true;
  return false;
}

}  // namespace q9tool
