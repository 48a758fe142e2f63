// The format is told from the first six bytes, read before anything is
// handed out, so a pipe works as well as a file. Both decompressors go on
// across concatenated streams, and data that ends inside a stream is
// reported as a truncated file rather than taken for the end.
#include "InputStream.h"

#include <lzma.h>
#include <unistd.h>
#include <zlib.h>

#include <cerrno>
#include <cstring>

namespace q9tool {

// One compressed format: consumes from [in, in + available) and produces
// into out; answers the bytes produced or -1 with error set.
class InputStream::Decompressor {
 public:
  virtual ~Decompressor() = default;
  // used: input bytes taken; finished: the stream (all its members) ended.
  virtual long run(const unsigned char* in, size_t available, size_t& used, char* out, size_t capacity,
                   bool inputAtEnd, bool& finished, std::string& error) = 0;
};

class InputStream::GzipDecompressor : public Decompressor {
 public:
  GzipDecompressor() {
    std::memset(&z_, 0, sizeof z_);
    ok_ = inflateInit2(&z_, 15 + 16) == Z_OK;  // gzip framing only
  }
  ~GzipDecompressor() override {
    if (ok_) inflateEnd(&z_);
  }
  long run(const unsigned char* in, size_t available, size_t& used, char* out, size_t capacity, bool inputAtEnd,
           bool& finished, std::string& error) override {
    if (!ok_) {
      error = "gzip: no memory for the decompressor";
      return -1;
    }
    if (betweenMembers_) {
      if (available == 0) {
        finished = inputAtEnd;
        used = 0;
        return 0;
      }
      betweenMembers_ = false;
    }
    z_.next_in = const_cast<unsigned char*>(in);
    z_.avail_in = static_cast<uInt>(available);
    z_.next_out = reinterpret_cast<unsigned char*>(out);
    z_.avail_out = static_cast<uInt>(capacity);
    int status = inflate(&z_, Z_NO_FLUSH);
    used = available - z_.avail_in;
    long produced = static_cast<long>(capacity - z_.avail_out);
    if (status == Z_STREAM_END) {
      // gzip allows members one after another (cat a.gz b.gz): go on.
      inflateReset(&z_);
      betweenMembers_ = true;
      if (used == available && inputAtEnd) finished = true;
      return produced;
    }
    if (status == Z_OK || (status == Z_BUF_ERROR && !inputAtEnd)) return produced;
    if (status == Z_BUF_ERROR) {
      error = "gzip: the data ends before the stream does (a truncated file?)";
      return -1;
    }
    error = std::string("gzip: ") + (z_.msg ? z_.msg : "corrupt data");
    return -1;
  }

 private:
  z_stream z_;
  bool ok_ = false;
  bool betweenMembers_ = false;
};

class InputStream::XzDecompressor : public Decompressor {
 public:
  XzDecompressor() { ok_ = lzma_stream_decoder(&x_, UINT64_MAX, LZMA_CONCATENATED) == LZMA_OK; }
  ~XzDecompressor() override { lzma_end(&x_); }
  long run(const unsigned char* in, size_t available, size_t& used, char* out, size_t capacity, bool inputAtEnd,
           bool& finished, std::string& error) override {
    if (!ok_) {
      error = "xz: no memory for the decompressor";
      return -1;
    }
    x_.next_in = in;
    x_.avail_in = available;
    x_.next_out = reinterpret_cast<uint8_t*>(out);
    x_.avail_out = capacity;
    lzma_ret status = lzma_code(&x_, inputAtEnd ? LZMA_FINISH : LZMA_RUN);
    used = available - x_.avail_in;
    long produced = static_cast<long>(capacity - x_.avail_out);
    if (status == LZMA_STREAM_END) {
      finished = true;
      return produced;
    }
    if (status == LZMA_OK || (status == LZMA_BUF_ERROR && !inputAtEnd)) return produced;
    switch (status) {
      case LZMA_MEM_ERROR: error = "xz: out of memory"; break;
      case LZMA_FORMAT_ERROR: error = "xz: not in the xz format"; break;
      case LZMA_OPTIONS_ERROR: error = "xz: unsupported compression options"; break;
      case LZMA_DATA_ERROR: error = "xz: corrupt data"; break;
      case LZMA_BUF_ERROR: error = "xz: the data ends before the stream does (a truncated file?)"; break;
      default: error = "xz: decompression failed"; break;
    }
    return -1;
  }

 private:
  lzma_stream x_ = LZMA_STREAM_INIT;
  bool ok_ = false;
};

namespace {
constexpr size_t kRawCapacity = 1 << 16;
const unsigned char kGzipMagic[] = {0x1F, 0x8B};
const unsigned char kXzMagic[] = {0xFD, '7', 'z', 'X', 'Z', 0x00};
}  // namespace

InputStream::InputStream(int fd) : fd_(fd), raw_(kRawCapacity) {}
InputStream::~InputStream() = default;

long InputStream::fail(std::string text) {
  error_ = std::move(text);
  return -1;
}

bool InputStream::refill() {
  if (rawBegin_ > 0) {
    std::memmove(raw_.data(), raw_.data() + rawBegin_, rawEnd_ - rawBegin_);
    rawEnd_ -= rawBegin_;
    rawBegin_ = 0;
  }
  for (;;) {
    if (stopped()) return false;  // read() answers the end
    ssize_t n = ::read(fd_, raw_.data() + rawEnd_, raw_.size() - rawEnd_);
    if (n < 0 && errno == EINTR) continue;  // stopped() decides
    if (n < 0) {
      error_ = std::strerror(errno);
      return false;
    }
    if (n == 0) {
      rawAtEnd_ = true;
      return false;
    }
    rawEnd_ += static_cast<size_t>(n);
    consumed_ += static_cast<unsigned long long>(n);
    return true;
  }
}

long InputStream::read(char* buffer, size_t capacity) {
  if (!error_.empty()) return -1;
  if (stopped()) return 0;
  if (!started_) {
    started_ = true;
    // Enough bytes to tell the format; a short pipe read is no end.
    while (rawEnd_ < sizeof kXzMagic && !rawAtEnd_ && !stopped())
      if (!refill() && !error_.empty()) return -1;
    auto startsWith = [&](const unsigned char* magic, size_t size) {
      return rawEnd_ >= size && std::memcmp(raw_.data(), magic, size) == 0;
    };
    if (startsWith(kGzipMagic, sizeof kGzipMagic)) {
      compression_ = Compression::Gzip;
      decompressor_ = std::make_unique<GzipDecompressor>();
    } else if (startsWith(kXzMagic, sizeof kXzMagic)) {
      compression_ = Compression::Xz;
      decompressor_ = std::make_unique<XzDecompressor>();
    }
  }
  if (!decompressor_) {
    if (rawBegin_ == rawEnd_ && !rawAtEnd_ && !refill() && !error_.empty()) return -1;
    size_t n = std::min(capacity, rawEnd_ - rawBegin_);
    std::memcpy(buffer, raw_.data() + rawBegin_, n);
    rawBegin_ += n;
    return static_cast<long>(n);
  }
  for (;;) {
    if (finished_ || stopped()) return 0;
    if (rawBegin_ == rawEnd_ && !rawAtEnd_ && !refill() && !error_.empty()) return -1;
    size_t used = 0;
    long produced = decompressor_->run(raw_.data() + rawBegin_, rawEnd_ - rawBegin_, used, buffer, capacity,
                                       rawAtEnd_, finished_, error_);
    rawBegin_ += used;
    if (produced < 0) return -1;
    if (produced > 0 || finished_) return produced;
    if (used == 0 && !rawAtEnd_ && !refill() && !error_.empty()) return -1;
    if (used == 0 && rawAtEnd_ && rawBegin_ == rawEnd_) return fail(compression_ == Compression::Gzip
                                                ? "gzip: the data ends before the stream does (a truncated file?)"
                                                : "xz: the data ends before the stream does (a truncated file?)");
  }
}

}  // namespace q9tool
