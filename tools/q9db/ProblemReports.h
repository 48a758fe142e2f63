// What decode could not do, counted by kind: each of the first few of a
// kind is said on standard error with its place, the rest only counted,
// and the counts close the run. Nothing is passed over without a word.
#ifndef Q9DB_TOOL_PROBLEMREPORTS_H
#define Q9DB_TOOL_PROBLEMREPORTS_H

#include <array>
#include <string>
#include <string_view>

namespace q9tool {

enum class Problem {
  MalformedLine,     // a line that is no frame
  LengthMismatch,    // known identifier, other length
  FormMismatch,      // known identifier, CAN FD logged as classic or the other way
  IdentifierType,    // known identifier, standard logged as extended or the other way
  UnboundBus,        // a bus no description is bound to
  Count
};

// What a malformed line gets said with: the problem and enough of the line
// to find it.
std::string malformedLineText(std::string_view problem, std::string_view line);

class ProblemReports {
 public:
  // maxShown: reports shown of each kind (0: all); quiet: none, counts only.
  ProblemReports(std::string source, unsigned maxShown, bool quiet)
      : source_(std::move(source)), maxShown_(maxShown), quiet_(quiet) {}

  // Counts one; says it on standard error while the kind's limit allows
  // and say holds (false: counted only, e.g. said once already). line 0: no
  // line to name.
  void report(Problem kind, unsigned long long line, std::string_view text, bool say = true);
  unsigned long long count(Problem kind) const { return counts_[static_cast<size_t>(kind)]; }
  // The closing counts on standard error (also when quiet).
  void summarise(unsigned long long unknownFrames, unsigned long long passedOver) const;

 private:
  std::string source_;
  unsigned maxShown_;
  bool quiet_;
  std::array<unsigned long long, static_cast<size_t>(Problem::Count)> counts_{};
};

}  // namespace q9tool

#endif
