// Texts are formatted through a stack buffer and go to the heap only when
// longer. A warning with a position is prefixed with the file, line and column;
// of failures only the first is kept, as later ones mostly follow from it.
#include "import/ImportReport.h"

#include <cstdarg>
#include <cstdio>

namespace q9 {

std::string formatText(const char* pattern, ...) {
  char buffer[512];
  va_list args;
  va_start(args, pattern);
  const int n = std::vsnprintf(buffer, sizeof buffer, pattern, args);
  va_end(args);
  if (n < 0) return {};
  if (std::size_t(n) < sizeof buffer) return std::string(buffer, std::size_t(n));
  std::string out(std::size_t(n) + 1, '\0');
  va_start(args, pattern);
  std::vsnprintf(out.data(), out.size(), pattern, args);
  va_end(args);
  out.resize(std::size_t(n));
  return out;
}

std::string ImportReport::where(TextPosition at) const {
  if (at.line == 0) return path_ + ": ";
  return path_ + ":" + std::to_string(at.line) + ":" + std::to_string(at.column) + ": ";
}

void ImportReport::warn(TextPosition at, const std::string& text) {
  records_.push_back({kReportWarning, 0, at.line ? where(at) + text : text});
  ++warnings_;
}

void ImportReport::info(ReportSubject subject, const std::string& text) {
  records_.push_back({kReportInfo, subject, text});
}

void ImportReport::fail(TextPosition at, const std::string& text) {
  if (error_.empty()) error_ = where(at) + text;
}

}  // namespace q9
