// What the fuzz targets share: the input as a file (the readers and the
// filter host take paths), an input read field by field, and the end of a
// run that broke a promise of the library's interface.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace q9::fuzz {

// A broken contract is a finding like a crash: abort, so the fuzzer keeps
// the input.
[[noreturn]] inline void violated(const char* what, const std::string& detail = "") {
  std::fprintf(stderr, "contract violated: %s%s%s\n", what, detail.empty() ? "" : ": ", detail.c_str());
  std::abort();
}

// One scratch file per process, rewritten with every input and removed at
// exit. Paths are ASCII, so their wide form is a plain widening.
class InputFile {
 public:
  explicit InputFile(const char* suffix) {
    const char* folder = std::getenv("TMPDIR");
    if (!folder || !*folder) folder = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
    path_ = std::string(folder) + "/q9db_fuzz_" + std::to_string(getpid()) + suffix;
    wide_.assign(path_.begin(), path_.end());
  }
  ~InputFile() { unlink(path_.c_str()); }
  InputFile(const InputFile&) = delete;
  InputFile& operator=(const InputFile&) = delete;

  void write(const uint8_t* data, size_t size) {
    const int fd = open(path_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (fd < 0) violated("scratch file can't be opened", path_);
    while (size > 0) {
      const ssize_t n = ::write(fd, data, size);
      if (n <= 0) violated("scratch file can't be written", path_);
      data += n;
      size -= size_t(n);
    }
    close(fd);
  }
  // No file at the path, so that a call that should write one and doesn't
  // leaves nothing stale behind.
  void clear() const { unlink(path_.c_str()); }
  const std::string& path() const { return path_; }
  const char16_t* widePath() const { return wide_.c_str(); }

 private:
  std::string path_;
  std::u16string wide_;
};

// Takes fields from the front of the input; past its end every field is 0.
class InputReader {
 public:
  InputReader(const uint8_t* data, size_t size) : data_(data), size_(size) {}
  template <typename T>
  T take() {
    T value{};
    const size_t n = sizeof value < size_ ? sizeof value : size_;
    std::memcpy(&value, data_, n);
    data_ += n;
    size_ -= n;
    return value;
  }
  // Up to n bytes as they stand.
  const uint8_t* takeBytes(size_t n, size_t* got) {
    *got = n < size_ ? n : size_;
    const uint8_t* p = data_;
    data_ += *got;
    size_ -= *got;
    return p;
  }
  size_t left() const { return size_; }

 private:
  const uint8_t* data_;
  size_t size_;
};

}  // namespace q9::fuzz
