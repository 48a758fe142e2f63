// Lines are cut from one buffer that grows only for a line longer than it,
// up to a limit past which the file is no capture. A byte range is entered
// at the byte before it, whose line belongs to the range before; compressed
// files are read whole. The first malformed lines are kept to be shown.
#include "CaptureReader.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <system_error>

#include "FrameLine.h"

namespace q9py {
namespace {

constexpr size_t kBufferSize = size_t(1) << 20;
constexpr size_t kLongestLine = size_t(64) << 20;  // beyond this a "line" is no capture
constexpr size_t kMalformedKept = 20;
constexpr size_t kShownLine = 80;
constexpr size_t kPayloadStride = 64;

// "1436509052.249713" in seconds; NaN when absent. The parser has checked
// that it is digits with at most one '.'.
double seconds(std::string_view text) {
  if (text.empty()) return std::numeric_limits<double>::quiet_NaN();
  uint64_t whole = 0, fraction = 0;
  double scale = 1;
  size_t i = 0;
  for (; i < text.size() && text[i] != '.'; ++i) whole = whole * 10 + uint64_t(text[i] - '0');
  for (++i; i < text.size() && scale < 1e18; ++i) {
    fraction = fraction * 10 + uint64_t(text[i] - '0');
    scale *= 10;
  }
  return double(whole) + double(fraction) / scale;
}

bool compressed(int fd) {
  unsigned char head[6] = {};
  const ssize_t n = ::pread(fd, head, sizeof head, 0);
  if (n >= 2 && head[0] == 0x1F && head[1] == 0x8B) return true;
  return n == 6 && std::memcmp(head, "\xFD" "7zXZ\0", 6) == 0;
}

}  // namespace

CaptureReader::CaptureReader(const std::string& path, uint64_t begin, uint64_t end)
    : path_(path), buffer_(kBufferSize), rangeEnd_(end) {
  fd_ = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd_ < 0) throw std::system_error(errno, std::generic_category(), path);
  if (begin > 0) {
    if (compressed(fd_)) {
      ::close(fd_);
      throw std::invalid_argument(path + ": a compressed capture is read whole, not from a byte range");
    }
    // From the byte before the range: the line it ends (or is in) belongs
    // to the range before.
    if (::lseek(fd_, off_t(begin - 1), SEEK_SET) < 0) {
      const int error = errno;
      ::close(fd_);
      throw std::system_error(error, std::generic_category(), path);
    }
    offset_ = begin - 1;
  }
  input_ = std::make_unique<q9tool::InputStream>(fd_);
  std::string_view skipped;
  try {
    if (begin > 0) nextLine(skipped);
  } catch (...) {
    input_.reset();
    ::close(fd_);
    throw;
  }
}

CaptureReader::~CaptureReader() {
  input_.reset();
  if (fd_ >= 0) ::close(fd_);
}

bool CaptureReader::nextLine(std::string_view& line) {
  for (;;) {
    if (offset_ >= rangeEnd_) return false;  // a line starting here is the next range's
    const char* start = buffer_.data() + begin_;
    const size_t available = end_ - begin_;
    if (const void* newline = std::memchr(start, '\n', available)) {
      const size_t length = size_t(static_cast<const char*>(newline) - start);
      line = std::string_view(start, length);
      lineOffset_ = offset_;
      begin_ += length + 1;
      offset_ += length + 1;
      return true;
    }
    if (atEnd_) {
      if (available == 0) return false;
      line = std::string_view(start, available);  // the last line has no end
      lineOffset_ = offset_;
      begin_ = end_;
      offset_ += available;
      return true;
    }
    if (begin_ > 0) {
      std::memmove(buffer_.data(), start, available);
      begin_ = 0;
      end_ = available;
    }
    if (end_ == buffer_.size()) {
      if (buffer_.size() >= kLongestLine)
        throw std::runtime_error(path_ + ": a line of more than 64 MiB at byte " + std::to_string(offset_) +
                                 ": no capture in text form");
      buffer_.resize(buffer_.size() * 2);
    }
    const long n = input_->read(buffer_.data() + end_, buffer_.size() - end_);
    if (n < 0) throw std::runtime_error(path_ + ": " + input_->error());
    if (n == 0) atEnd_ = true;
    end_ += size_t(n);
  }
}

int32_t CaptureReader::busOf(std::string_view name) {
  if (lastBus_ >= 0 && buses_[size_t(lastBus_)] == name) return lastBus_;
  for (size_t i = 0; i < buses_.size(); ++i)
    if (buses_[i] == name) return lastBus_ = int32_t(i);
  buses_.emplace_back(name);
  return lastBus_ = int32_t(buses_.size() - 1);
}

void CaptureReader::next(size_t most, CaptureBatch& batch, bool stopAtMalformed) {
  batch.timestamps.resize(most);
  batch.buses.resize(most);
  batch.identifiers.resize(most);
  batch.flags.resize(most);
  batch.lengths.resize(most);
  batch.payloads.resize(most * kPayloadStride);
  size_t count = 0;
  q9tool::CanFrame frame;
  std::string_view line;
  while (count < most && nextLine(line)) {
    ++lines_;
    const q9tool::LineResult result = q9tool::parseFrameLine(line, frame);
    if (result.kind == q9tool::LineKind::Frame) {
      batch.timestamps[count] = seconds(frame.timestamp);
      batch.buses[count] = busOf(frame.interface);
      batch.identifiers[count] = frame.identifier;
      batch.flags[count] = frame.flags;
      batch.lengths[count] = frame.length;
      uint8_t* row = batch.payloads.data() + count * kPayloadStride;
      std::memcpy(row, frame.data, frame.length);
      std::memset(row + frame.length, 0, kPayloadStride - frame.length);
      ++count;
    } else if (result.kind == q9tool::LineKind::NoData) {
      ++noData_;
    } else if (result.kind == q9tool::LineKind::Malformed) {
      ++malformedCount_;
      if (malformed_.size() < kMalformedKept) {
        std::string shown(line.substr(0, kShownLine));
        if (line.size() > kShownLine) shown += "...";
        malformed_.push_back({lines_, lineOffset_, std::string(result.problem), std::move(shown)});
      }
      if (stopAtMalformed) break;
    }
  }
  batch.count = count;
  batch.timestamps.resize(count);
  batch.buses.resize(count);
  batch.identifiers.resize(count);
  batch.flags.resize(count);
  batch.lengths.resize(count);
  batch.payloads.resize(count * kPayloadStride);
}

}  // namespace q9py
