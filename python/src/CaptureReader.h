// A capture in the text forms of the Linux CAN tools (the log form
// "(1436509052.249713) can0 123#DEADBEEF" and candump's live form), plain
// or gzip or xz compressed, read in C++ into batches of columns: parsing a
// million lines a second is out of reach of a reader in Python. A plain
// file can be read from a byte range, a line belonging to the range its
// first byte lies in, so that several workers share one big log.
#ifndef Q9DB_PYTHON_CAPTUREREADER_H
#define Q9DB_PYTHON_CAPTUREREADER_H

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "InputStream.h"

namespace q9py {

struct CaptureBatch {
  size_t count = 0;
  std::vector<double> timestamps;  // seconds; NaN for a line without one
  std::vector<int32_t> buses;      // index among the reader's buses
  std::vector<uint32_t> identifiers;
  std::vector<uint32_t> flags;     // Q9_FLAG_CAN... bits
  std::vector<uint8_t> lengths;
  std::vector<uint8_t> payloads;   // 64 bytes per frame
};

struct MalformedLine {
  uint64_t line;    // from 1 in the file, or in the byte range
  uint64_t offset;  // of the line's first byte in the (uncompressed) text
  std::string problem;
  std::string text;  // the start of the line
};

class CaptureReader {
 public:
  static constexpr uint64_t kToTheEnd = UINT64_MAX;
  // Throws std::system_error when the file can't be opened, and
  // std::invalid_argument for a byte range of a compressed file.
  CaptureReader(const std::string& path, uint64_t begin = 0, uint64_t end = kToTheEnd);
  ~CaptureReader();
  CaptureReader(const CaptureReader&) = delete;
  CaptureReader& operator=(const CaptureReader&) = delete;

  // Up to most frames into batch; an empty batch at the end. With
  // stopAtMalformed the batch ends at a malformed line (see malformed()).
  // Throws std::runtime_error for a read or decompression error.
  void next(size_t most, CaptureBatch& batch, bool stopAtMalformed = false);

  const std::vector<std::string>& buses() const { return buses_; }
  uint64_t lines() const { return lines_; }
  uint64_t remoteOrErrorFrames() const { return noData_; }
  uint64_t malformedCount() const { return malformedCount_; }
  // The first malformed lines, with their place.
  const std::vector<MalformedLine>& malformed() const { return malformed_; }

 private:
  bool nextLine(std::string_view& line);  // false at the end of the text or the range
  int32_t busOf(std::string_view name);

  std::string path_;
  int fd_ = -1;
  std::unique_ptr<q9tool::InputStream> input_;
  std::vector<char> buffer_;
  size_t begin_ = 0, end_ = 0;  // unread text in buffer_
  bool atEnd_ = false;
  uint64_t offset_ = 0;    // of buffer_[begin_] in the text
  uint64_t rangeEnd_ = kToTheEnd;
  uint64_t lineOffset_ = 0;
  std::vector<std::string> buses_;
  int32_t lastBus_ = -1;
  uint64_t lines_ = 0, noData_ = 0, malformedCount_ = 0;
  std::vector<MalformedLine> malformed_;
};

}  // namespace q9py

#endif
