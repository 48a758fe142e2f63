// What one native import has to say: records for the client's report
// callback (information, warnings) and, when the import fails, the one
// message that says why. Collected in C++ and handed to the script's report
// function only after the import's own work is done, since a Lua error could
// otherwise jump over C++ destructors.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace q9 {

enum ReportKind : int32_t { kReportInfo = 0, kReportWarning = 1, kReportError = 2 };

// What an information record names (the report's second number).
enum ReportSubject : int32_t {
  kSubjectFile = 0,
  kSubjectEcu = 1,
  kSubjectFrame = 2,
  kSubjectSignal = 3,
};

struct ReportRecord {
  int32_t kind;     // ReportKind
  int32_t subject;  // ReportSubject for information, 0 otherwise
  std::string text; // UTF-8
};

// A place in the file being read; line 0 means the file as a whole.
struct TextPosition {
  uint32_t line = 0;
  uint32_t column = 0;
};

// printf into a std::string, for report texts.
std::string formatText(const char* pattern, ...) __attribute__((format(printf, 1, 2)));

class ImportReport {
 public:
  explicit ImportReport(std::string path) : path_(std::move(path)) {}

  const std::string& path() const { return path_; }

  // A warning about something at a place in the file: "path:line:col: text";
  // without a line the text alone.
  void warn(TextPosition at, const std::string& text);
  void warn(const std::string& text) { warn(TextPosition{}, text); }
  void info(ReportSubject subject, const std::string& text);

  // The import can't go on: "path:line:col: text" (or "path: text").
  void fail(TextPosition at, const std::string& text);
  bool failed() const { return !error_.empty(); }
  const std::string& error() const { return error_; }

  const std::vector<ReportRecord>& records() const { return records_; }
  std::size_t warningCount() const { return warnings_; }

  // "path:line:col: " or "path: " for a place.
  std::string where(TextPosition at) const;

 private:
  std::string path_;
  std::vector<ReportRecord> records_;
  std::string error_;
  std::size_t warnings_ = 0;
};

}  // namespace q9
