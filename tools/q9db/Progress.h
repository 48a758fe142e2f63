// A progress line on standard error while a long capture is read, when
// that is a terminal: the share of the file read and the lines so far.
#ifndef Q9DB_TOOL_PROGRESS_H
#define Q9DB_TOOL_PROGRESS_H

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>

#include "Io.h"

namespace q9tool {

// Shown for regular files large enough to wait for.
class Progress {
 public:
  explicit Progress(int fd) {
    struct stat info {};
    if (isatty(STDERR_FILENO) && fstat(fd, &info) == 0 && S_ISREG(info.st_mode) && info.st_size > kWorthShowing)
      total_ = static_cast<unsigned long long>(info.st_size);
  }
  void update(const LineReader& reader) {
    if (!total_ || reader.lineNumber() % kLinesPerUpdate != 0) return;
    std::fprintf(stderr, "\r%3llu%%  %llu lines", reader.bytesRead() * 100 / total_, reader.lineNumber());
    shown_ = true;
  }
  ~Progress() {
    if (shown_) std::fprintf(stderr, "\r%*s\r", 40, "");
  }

 private:
  static constexpr long long kWorthShowing = 8 << 20;
  static constexpr unsigned long long kLinesPerUpdate = 1 << 16;
  unsigned long long total_ = 0;
  bool shown_ = false;
};

}  // namespace q9tool

#endif
