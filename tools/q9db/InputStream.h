// The bytes of a capture from a file descriptor, decompressed on the way
// when they are gzip or xz data (told by their first bytes, so a pipe works
// as well as a named file): logs are kept compressed, often ten to one.
#ifndef Q9DB_TOOL_INPUTSTREAM_H
#define Q9DB_TOOL_INPUTSTREAM_H

#include <cstddef>
#include <csignal>
#include <memory>
#include <string>
#include <vector>

namespace q9tool {

class InputStream {
 public:
  enum class Compression { None, Gzip, Xz };

  explicit InputStream(int fd);
  ~InputStream();
  InputStream(const InputStream&) = delete;
  InputStream& operator=(const InputStream&) = delete;

  // Up to capacity bytes into buffer; 0 at the end, -1 on an error (see
  // error()). Blocks only when nothing is at hand.
  long read(char* buffer, size_t capacity);

  // A flag (set by a signal handler) that ends the input as if the file
  // ended: a read it interrupts, or the next read, answers the end.
  void stopWhen(const volatile std::sig_atomic_t* flag) { stop_ = flag; }
  bool stopped() const { return stop_ && *stop_; }

  Compression compression() const { return compression_; }
  // Bytes taken from the descriptor so far (compressed ones when compressed).
  unsigned long long consumed() const { return consumed_; }
  const std::string& error() const { return error_; }

 private:
  class Decompressor;
  class GzipDecompressor;
  class XzDecompressor;
  bool refill();  // more raw bytes into raw_; false at the end or on an error
  long fail(std::string text);

  int fd_;
  const volatile std::sig_atomic_t* stop_ = nullptr;
  Compression compression_ = Compression::None;
  std::unique_ptr<Decompressor> decompressor_;
  std::vector<unsigned char> raw_;
  size_t rawBegin_ = 0;
  size_t rawEnd_ = 0;
  bool rawAtEnd_ = false;
  bool started_ = false;
  bool finished_ = false;
  unsigned long long consumed_ = 0;
  std::string error_;
};

}  // namespace q9tool

#endif
