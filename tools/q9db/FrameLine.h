// One line of the two text forms the Linux CAN tools write, read into a frame.
//   log form:  (1436509052.249713) can0 123#DEADBEEF
//   live form: (1436509052.249713)  can0  123   [4]  DE AD BE EF
// (the timestamp of the live form is optional, as candump prints it only
// when asked). Parsing allocates nothing: texts are views into the line.
#ifndef Q9DB_TOOL_FRAMELINE_H
#define Q9DB_TOOL_FRAMELINE_H

#include <cstdint>
#include <string_view>

namespace q9tool {

struct CanFrame {
  std::string_view timestamp;  // digits between the parentheses; empty when absent
  std::string_view interface;
  uint32_t identifier = 0;
  uint32_t flags = 0;  // Q9_FLAG_CAN... bits, as the decoder takes them
  uint8_t length = 0;
  uint8_t data[64] = {};
};

enum class LineKind {
  Frame,      // frame holds a data frame
  Blank,      // nothing but blanks
  NoData,     // a remote or an error frame
  Malformed,  // problem names what is wrong
};

struct LineResult {
  LineKind kind;
  std::string_view problem;  // a fixed text; empty unless Malformed
};

LineResult parseFrameLine(std::string_view line, CanFrame& frame);

}  // namespace q9tool

#endif
