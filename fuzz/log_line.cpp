// The capture reader of q9db: any bytes as a capture file (plain, or gzip
// and xz, which the reader tells by their first bytes), read line by line
// and parsed in both text forms. What the parser accepts must be a frame
// the bus can carry, what it refuses must say why, and an accepted frame
// written back in the log form and in the live form must parse to itself.
#include <sys/mman.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "FrameLine.h"
#include "FuzzSupport.h"
#include "InputStream.h"
#include "Io.h"
#include "LogLine.h"
#include "Q9Db.h"

namespace {

using q9::fuzz::violated;
using namespace q9tool;

bool validFdLength(size_t length) { return length <= 8 || canFdLength(length) == length; }

void checkFrame(const CanFrame& frame, std::string_view line) {
  bool extended = frame.flags & Q9_FLAG_CANEXTENDED;
  bool fd = frame.flags & Q9_FLAG_CANFD_FRAME;
  if (frame.identifier > (extended ? 0x1FFFFFFFu : 0x7FFu)) violated("identifier out of range", std::string(line));
  if (fd ? !validFdLength(frame.length) : frame.length > 8) violated("length no frame has", std::string(line));
  if (frame.interface.empty() || frame.interface.find_first_of(" \t") != std::string_view::npos)
    violated("interface is no word", std::string(line));
  for (char c : frame.timestamp)
    if (c != '.' && (c < '0' || c > '9')) violated("timestamp holds no number", std::string(line));
}

// The frame in the log form (through the writer simulate uses) and in the
// live form; each must parse to the same frame.
void checkRoundTrip(const CanFrame& frame, std::string_view line) {
  uint64_t micro = 0;
  if (frame.timestamp.empty() || !parseTimestamp(frame.timestamp, micro)) return;
  FILE* scratch = std::tmpfile();
  {
    Output out(fileno(scratch));
    writeLogLine(out, {micro, frame.interface, frame.identifier, frame.flags, frame.data, frame.length});
  }
  std::string written;
  std::rewind(scratch);
  for (int c; (c = std::fgetc(scratch)) != EOF;) written += static_cast<char>(c);
  std::fclose(scratch);
  if (!written.empty() && written.back() == '\n') written.pop_back();

  std::string live = "  " + std::string(frame.interface) + "  ";
  const char* hex = "0123456789ABCDEF";
  int digits = (frame.flags & Q9_FLAG_CANEXTENDED) ? 8 : 3;
  for (int i = digits - 1; i >= 0; --i) live += hex[(frame.identifier >> (4 * i)) & 0xF];
  bool fd = frame.flags & Q9_FLAG_CANFD_FRAME;
  live += fd ? "  [" + std::string(frame.length < 10 ? "0" : "") + std::to_string(frame.length) + "]"
             : "  [" + std::to_string(frame.length) + "]";
  for (size_t i = 0; i < frame.length; ++i) live += std::string(" ") + hex[frame.data[i] >> 4] + hex[frame.data[i] & 0xF];

  for (const std::string& again : {written, live}) {
    CanFrame copy;
    LineResult result = parseFrameLine(again, copy);
    if (result.kind != LineKind::Frame) violated("a written frame doesn't parse", again + " <- " + std::string(line));
    uint32_t kept = Q9_FLAGMASK_CAN_FRAMETYPE | Q9_FLAG_CANFD_FRAME;
    if (&again == &written) kept |= Q9_FLAG_CANFD_FASTDATA | Q9_FLAG_CANFD_ERRORSTATEIND;  // the live form has no FD flags
    if (copy.identifier != frame.identifier || (copy.flags & kept) != (frame.flags & kept) ||
        copy.length != frame.length || std::memcmp(copy.data, frame.data, frame.length) != 0 ||
        copy.interface != frame.interface)
      violated("a written frame parses to another", again + " <- " + std::string(line));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  int fd = memfd_create("capture", MFD_CLOEXEC);
  if (fd < 0) violated("memfd_create failed");
  for (size_t done = 0; done < size;) {
    ssize_t n = ::write(fd, data + done, size - done);
    if (n <= 0) violated("memfd write failed");
    done += size_t(n);
  }
  lseek(fd, 0, SEEK_SET);
  InputStream input(fd);
  LineReader reader(input, nullptr);
  std::string_view line;
  CanFrame frame;
  while (reader.next(line)) {
    LineResult result = parseFrameLine(line, frame);
    switch (result.kind) {
      case LineKind::Frame:
        if (!result.problem.empty()) violated("a frame with a problem", std::string(line));
        checkFrame(frame, line);
        checkRoundTrip(frame, line);
        break;
      case LineKind::Malformed:
        if (result.problem.empty()) violated("a malformed line without its problem", std::string(line));
        break;
      case LineKind::Blank:
      case LineKind::NoData:
        break;
    }
  }
  if (reader.failed() && reader.error().empty()) violated("a failed read without its reason");
  ::close(fd);
  return 0;
}
