// Writes go on after short writes and interrupts and keep the first error
// instead of ending the program. The line reader flushes its output before
// it waits for input, so a pipe sees results as they come; a broken pipe on
// standard output counts as written.
#include "Io.h"

#include <unistd.h>

#include <fcntl.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace q9tool {

void Output::writeThrough(std::string_view text) {
  size_t done = 0;
  while (good_ && done < text.size()) {
    ssize_t n = ::write(fd_, text.data() + done, text.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      good_ = false;
      error_ = n < 0 ? errno : ENOSPC;
    } else {
      done += static_cast<size_t>(n);
    }
  }
}

bool Output::flush() {
  writeThrough(std::string_view(buffer_.get(), used_));
  used_ = 0;
  return good_;
}

bool LineReader::fill() {
  if (begin_ > 0) {
    std::memmove(buffer_.data(), buffer_.data() + begin_, end_ - begin_);
    end_ -= begin_;
    begin_ = 0;
  }
  if (end_ == buffer_.size()) buffer_.resize(buffer_.size() * 2);  // a line longer than the buffer
  if (output_) output_->flush();
  long n = input_.read(buffer_.data() + end_, buffer_.size() - end_);
  if (n < 0) failed_ = true;
  if (n <= 0) return false;
  end_ += static_cast<size_t>(n);
  return true;
}

bool LineReader::next(std::string_view& line) {
  size_t scannedPast = 0;  // bytes of the pending line known to hold no newline
  for (;;) {
    const char* from = buffer_.data() + begin_ + scannedPast;
    const void* newline = std::memchr(from, '\n', end_ - begin_ - scannedPast);
    if (newline) {
      size_t stop = static_cast<size_t>(static_cast<const char*>(newline) - buffer_.data());
      line = std::string_view(buffer_.data() + begin_, stop - begin_);
      begin_ = stop + 1;
      ++lineNumber_;
      return true;
    }
    scannedPast = end_ - begin_;
    if (atEnd_ || !fill()) {
      atEnd_ = true;
      if (begin_ == end_) return false;
      line = std::string_view(buffer_.data() + begin_, end_ - begin_);  // the last line has no end
      begin_ = end_;
      ++lineNumber_;
      return true;
    }
  }
}

CaptureFile::~CaptureFile() {
  if (owned_) ::close(fd_);
}

bool CaptureFile::open(const std::string& path) {
  bool fromStdin = path.empty() || path == "-";
  name_ = fromStdin ? "<stdin>" : path;
  fd_ = fromStdin ? STDIN_FILENO : ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  owned_ = !fromStdin && fd_ >= 0;
  if (fd_ < 0) std::fprintf(stderr, "q9db: %s: cannot open: %s\n", name_.c_str(), std::strerror(errno));
  return fd_ >= 0;
}

bool standardOutputWritten() {
  bool failed = std::fflush(stdout) != 0 || std::ferror(stdout);
  int error = errno;
  if (!failed || error == EPIPE) return true;
  std::fprintf(stderr, "q9db: standard output: %s\n", std::strerror(error ? error : EIO));
  return false;
}

bool copyFile(const std::string& path, int fd, std::string& error) {
  int from = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (from < 0) {
    error = path + ": " + std::strerror(errno);
    return false;
  }
  Output out(fd);
  char buffer[1 << 16];
  for (;;) {
    ssize_t n = ::read(from, buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) error = path + ": " + std::strerror(errno);
    if (n <= 0) break;
    out.write(std::string_view(buffer, static_cast<size_t>(n)));
  }
  ::close(from);
  if (!out.flush() && error.empty()) error = std::strerror(out.error());
  return error.empty();
}

}  // namespace q9tool
