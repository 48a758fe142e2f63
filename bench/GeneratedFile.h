// A generated text in a file of its own under /tmp for the length of a run,
// for the readers that take a path.
#pragma once

#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <string>

namespace q9bench {

class GeneratedFile {
 public:
  GeneratedFile(const std::string& suffix, const std::string& content)
      : path_("/tmp/q9db_bench_" + std::to_string(::getpid()) + suffix), size_(content.size()) {
    std::ofstream(path_, std::ios::binary) << content;
  }
  ~GeneratedFile() { std::remove(path_.c_str()); }
  GeneratedFile(const GeneratedFile&) = delete;
  GeneratedFile& operator=(const GeneratedFile&) = delete;

  const std::string& path() const { return path_; }
  // The path as the readers take it; paths here are plain ASCII, so
  // widening byte by byte is exact.
  std::u16string widePath() const { return std::u16string(path_.begin(), path_.end()); }
  std::size_t size() const { return size_; }

 private:
  std::string path_;
  std::size_t size_;
};

}  // namespace q9bench
