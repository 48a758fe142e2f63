// A frame written in the log form of the Linux CAN tools, the form that
// canplayer replays and q9db decode reads:
//   (1436509052.249713) can0 123#DEADBEEF      standard identifier
//   (1436509052.249713) can0 1CFF0010#0102     extended identifier
//   (1436509052.249713) can0 123##1DEADBEEF    CAN FD, flags nibble first
#ifndef Q9DB_TOOL_LOGLINE_H
#define Q9DB_TOOL_LOGLINE_H

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "Io.h"

namespace q9tool {

struct LogFrame {
  uint64_t microseconds;  // the timestamp
  std::string_view interface;
  uint32_t identifier;
  uint32_t flags;  // Q9_FLAG_CAN... bits
  const uint8_t* data;
  size_t length;  // a CAN FD length that no DLC gives is padded with zeros to the next one
};

void writeLogLine(Output& out, const LogFrame& frame);

// Seconds as digits with at most six decimals ("1436509052.249713"), the
// timestamps of the log form, in microseconds. False for anything else or
// a value that doesn't fit.
bool parseTimestamp(std::string_view text, uint64_t& microseconds);

// The smallest length a CAN FD frame can have that holds length bytes;
// 0 above 64.
size_t canFdLength(size_t length);

}  // namespace q9tool

#endif
