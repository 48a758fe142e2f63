#include "import/ImportReport.h"

namespace q9 {

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
