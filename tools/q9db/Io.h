// Buffered reading of lines and writing of text on file descriptors, so
// that a long capture costs a system call per 64 KiB, not per frame.
#ifndef Q9DB_TOOL_IO_H
#define Q9DB_TOOL_IO_H

#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "InputStream.h"

namespace q9tool {

class Output {
 public:
  explicit Output(int fd) : fd_(fd), buffer_(new char[kCapacity]) {}
  ~Output() { flush(); }
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;

  void write(std::string_view text) {
    if (text.empty()) return;  // an empty view may have no data to copy from
    if (text.size() > kCapacity - used_) {
      flush();
      if (text.size() > kCapacity) {
        writeThrough(text);
        return;
      }
    }
    std::memcpy(buffer_.get() + used_, text.data(), text.size());
    used_ += text.size();
  }
  void write(char c) {
    if (used_ == kCapacity) flush();
    buffer_[used_++] = c;
  }
  // False once a write has failed (a closed pipe, a full disk).
  bool flush();
  bool good() const { return good_; }
  // The errno of the failed write; EPIPE when the reader went away.
  int error() const { return error_; }

 private:
  static constexpr size_t kCapacity = 1 << 16;
  void writeThrough(std::string_view text);
  int fd_;
  bool good_ = true;
  int error_ = 0;
  std::unique_ptr<char[]> buffer_;
  size_t used_ = 0;
};

class LineReader {
 public:
  // Before each read that may block, the output is flushed: a live capture
  // piped in shows its frames as they come.
  LineReader(InputStream& input, Output* flushBeforeWaiting)
      : input_(input), output_(flushBeforeWaiting), buffer_(1 << 16) {}

  // The next line without its end, valid until the next call; false at the
  // end of the input or on a read error (see failed).
  bool next(std::string_view& line);
  bool failed() const { return failed_; }
  const std::string& error() const { return input_.error(); }
  unsigned long long lineNumber() const { return lineNumber_; }
  // Bytes taken from the file (compressed ones for a compressed file).
  unsigned long long bytesRead() const { return input_.consumed(); }

 private:
  bool fill();
  InputStream& input_;
  Output* output_;
  std::vector<char> buffer_;
  size_t begin_ = 0;
  size_t end_ = 0;
  bool atEnd_ = false;
  bool failed_ = false;
  unsigned long long lineNumber_ = 0;
};

// A capture named on the command line: a file, or standard input for an
// empty name or "-".
class CaptureFile {
 public:
  CaptureFile() = default;
  ~CaptureFile();
  CaptureFile(const CaptureFile&) = delete;
  CaptureFile& operator=(const CaptureFile&) = delete;
  // False, with the reason said on standard error, when it can't be opened.
  bool open(const std::string& path);
  int fd() const { return fd_; }
  const std::string& name() const { return name_; }  // "<stdin>" for standard input

 private:
  int fd_ = -1;
  bool owned_ = false;
  std::string name_;
};

// Writes the buffer of stdio's standard output and tells whether everything
// written there arrived; if not, says so on standard error. A reader that
// went away (head, a closed pipe) is no error.
bool standardOutputWritten();

// Copies the file at path to fd; false with error set when a read or a
// write fails.
bool copyFile(const std::string& path, int fd, std::string& error);

}  // namespace q9tool

#endif
