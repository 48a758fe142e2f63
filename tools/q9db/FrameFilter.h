// Which frames and signals decode shows: identifiers in candump's
// id:mask and id~mask forms, frame and signal names as shell patterns
// (EngineStatus, Wheel*). Each kind passes what any of its filters passes;
// a kind without filters passes everything.
#ifndef Q9DB_TOOL_FRAMEFILTER_H
#define Q9DB_TOOL_FRAMEFILTER_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace q9tool {

struct FilterOptions {
  std::vector<std::string> identifiers;  // id:mask, id~mask, or a bare id
  std::vector<std::string> frames;       // frame names or patterns
  std::vector<std::string> signals;      // signal names or patterns
};

struct IdentifierFilter {
  uint32_t code;
  uint32_t mask;
  bool inverted;  // id~mask: passes what id:mask doesn't
  bool passes(uint32_t identifier) const { return ((identifier & mask) == (code & mask)) != inverted; }
};

// "123:7FF", "1CFF0010~FF00", "0C8" (hex, as candump writes them). False
// with problem set for anything else.
bool parseIdentifierFilter(std::string_view text, IdentifierFilter& filter, std::string& problem);

class FrameFilter {
 public:
  // False with problem naming the filter that is no filter.
  bool set(const FilterOptions& options, std::string& problem);

  bool passesIdentifier(uint32_t identifier) const {
    if (identifiers_.empty()) return true;
    for (const IdentifierFilter& f : identifiers_)
      if (f.passes(identifier)) return true;
    return false;
  }
  bool passesFrame(const std::string& name) const { return passesName(frames_, name); }
  bool passesSignal(const std::string& name) const { return passesName(signals_, name); }
  bool selectsSignals() const { return !signals_.empty(); }
  bool selectsFrames() const { return !frames_.empty(); }

 private:
  static bool passesName(const std::vector<std::string>& patterns, const std::string& name);
  std::vector<IdentifierFilter> identifiers_;
  std::vector<std::string> frames_;
  std::vector<std::string> signals_;
};

}  // namespace q9tool

#endif
