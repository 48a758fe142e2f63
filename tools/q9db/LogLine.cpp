// Lines are built digit by digit in small buffers, without printf, as a
// capture may hold millions. An FD frame's data is padded with zero bytes to
// the next length a DLC gives, and a timestamp is read as whole microseconds,
// refused when its seconds could overflow them.
#include "LogLine.h"

#include "FrameType.h"
#include "Q9Db.h"

namespace q9tool {
namespace {

const char kHexDigits[] = "0123456789ABCDEF";

// Flags nibble of a CAN FD frame in the log form.
constexpr unsigned kFdBitRateSwitch = 0x1;
constexpr unsigned kFdErrorStateIndicator = 0x2;

// Writes value as count digits, leading zeros included, ending at end.
char* writeDigits(char* end, uint64_t value, int count, unsigned base) {
  for (int i = 0; i < count; ++i, value /= base) *--end = kHexDigits[value % base];
  return end;
}

bool isExtended(const LogFrame& frame) { return sentExtended(frame.identifier, frame.flags); }

}  // namespace

bool parseTimestamp(std::string_view text, uint64_t& microseconds) {
  constexpr uint64_t kLargestSeconds = 1000000000000ull;  // keeps microseconds far from overflowing
  size_t dot = text.find('.');
  std::string_view whole = text.substr(0, dot);
  std::string_view fraction = dot == std::string_view::npos ? std::string_view() : text.substr(dot + 1);
  if (whole.empty() || whole.size() > 13 || fraction.size() > 6 || (dot != std::string_view::npos && fraction.empty()))
    return false;
  uint64_t seconds = 0, micro = 0;
  for (char c : whole) {
    if (c < '0' || c > '9') return false;
    seconds = seconds * 10 + static_cast<uint64_t>(c - '0');
  }
  for (size_t i = 0; i < 6; ++i) {
    char c = i < fraction.size() ? fraction[i] : '0';
    if (c < '0' || c > '9') return false;
    micro = micro * 10 + static_cast<uint64_t>(c - '0');
  }
  if (seconds > kLargestSeconds) return false;
  microseconds = seconds * 1000000 + micro;
  return true;
}

size_t canFdLength(size_t length) {
  static const size_t lengths[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 12, 16, 20, 24, 32, 48, 64};
  for (size_t candidate : lengths)
    if (candidate >= length) return candidate;
  return 0;
}

void writeLogLine(Output& out, const LogFrame& frame) {
  // "(" seconds "." six digits ") " : 20 digits at most for the seconds.
  char stamp[32];
  char* end = stamp + sizeof stamp;
  *--end = ' ';
  *--end = ')';
  char* p = writeDigits(end, frame.microseconds % 1000000, 6, 10);
  *--p = '.';
  uint64_t seconds = frame.microseconds / 1000000;
  do {
    *--p = static_cast<char>('0' + seconds % 10);
    seconds /= 10;
  } while (seconds);
  *--p = '(';
  out.write(std::string_view(p, static_cast<size_t>(stamp + sizeof stamp - p)));
  out.write(frame.interface);
  out.write(' ');

  char id[8];
  int digits = isExtended(frame) ? 8 : 3;
  writeDigits(id + digits, frame.identifier, digits, 16);
  out.write(std::string_view(id, static_cast<size_t>(digits)));
  out.write('#');
  size_t length = frame.length;
  if (frame.flags & Q9_FLAG_CANFD_FRAME) {
    unsigned fdFlags = ((frame.flags & Q9_FLAG_CANFD_FASTDATA) ? kFdBitRateSwitch : 0) |
                       ((frame.flags & Q9_FLAG_CANFD_ERRORSTATEIND) ? kFdErrorStateIndicator : 0);
    out.write('#');
    out.write(kHexDigits[fdFlags]);
    length = canFdLength(length);
  }
  for (size_t i = 0; i < length; ++i) {
    uint8_t byte = i < frame.length ? frame.data[i] : 0;
    out.write(kHexDigits[byte >> 4]);
    out.write(kHexDigits[byte & 0xF]);
  }
  out.write('\n');
}

}  // namespace q9tool
