// Each kind has its texts for one and for many, in a table checked against
// the kinds at compile time. Past the limit a kind says once that the rest
// are only counted, and the summary gives the count of every kind seen more
// than once or not said in full.
#include "ProblemReports.h"

#include <cstdio>

namespace q9tool {
namespace {

struct KindText {
  const char* one;   // "1 <one>"
  const char* many;  // "<n> <many>"
};
// By Problem.
const KindText kKinds[] = {
    {"malformed line", "malformed lines"},
    {"frame of a known identifier but another length", "frames of a known identifier but another length"},
    {"frame of a known identifier in the other CAN form (FD or classic)",
     "frames of a known identifier in the other CAN form (FD or classic)"},
    {"frame of a known identifier with the other identifier type",
     "frames of a known identifier with the other identifier type"},
    {"frame on a bus that no description is bound to", "frames on buses that no description is bound to"},
};
static_assert(sizeof kKinds / sizeof kKinds[0] == static_cast<size_t>(Problem::Count), "a text per kind");

}  // namespace

std::string malformedLineText(std::string_view problem, std::string_view line) {
  constexpr size_t kShown = 80;
  std::string text(problem);
  text += ": ";
  text += line.substr(0, kShown);
  if (line.size() > kShown) text += "...";
  return text;
}

void ProblemReports::report(Problem kind, unsigned long long line, std::string_view text, bool say) {
  unsigned long long& count = counts_[static_cast<size_t>(kind)];
  ++count;
  if (!say || quiet_ || (maxShown_ && count > maxShown_)) return;
  if (line) std::fprintf(stderr, "q9db: %s:%llu: %.*s\n", source_.c_str(), line, int(text.size()), text.data());
  else std::fprintf(stderr, "q9db: %s: %.*s\n", source_.c_str(), int(text.size()), text.data());
  if (maxShown_ && count == maxShown_)
    std::fprintf(stderr, "q9db: %s: further %s are counted, not shown (--max-reports)\n", source_.c_str(),
                 kKinds[static_cast<size_t>(kind)].many);
}

void ProblemReports::summarise(unsigned long long unknownFrames, unsigned long long passedOver) const {
  for (size_t kind = 0; kind < counts_.size(); ++kind)
    if (counts_[kind] && (quiet_ || (maxShown_ && counts_[kind] > maxShown_) || counts_[kind] > 1))
      std::fprintf(stderr, "q9db: %s: %llu %s\n", source_.c_str(), counts_[kind],
                   counts_[kind] == 1 ? kKinds[kind].one : kKinds[kind].many);
  if (unknownFrames)
    std::fprintf(stderr, "q9db: %s: %llu %s no description knows passed over (--show-unknown shows them)\n",
                 source_.c_str(), unknownFrames, unknownFrames == 1 ? "frame of an identifier" : "frames of identifiers");
  if (passedOver)
    std::fprintf(stderr, "q9db: %s: %llu remote or error %s passed over\n", source_.c_str(), passedOver,
                 passedOver == 1 ? "frame" : "frames");
}

}  // namespace q9tool
