// A frame's payload from signal values: physical numbers, value texts or
// raw numbers by signal name, the signals left out at their start values.
// Multiplexed frames are walked as the decoder walks them, so the switch
// value given (or its start value) decides which part's signals are
// written, and a value for a signal of another part is an error.
#ifndef Q9DB_PYTHON_FRAMEENCODER_H
#define Q9DB_PYTHON_FRAMEENCODER_H

#include <cstdint>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <vector>

#include "Catalog.h"
#include "Q9Db.h"

namespace q9py {

struct SignalInput {
  enum Kind { Number, Integer, Text } kind = Number;
  double number = 0;
  int64_t integer = 0;  // Integer: exact, for raw values
  std::string text;
};

struct EncodeOptions {
  bool checkRange = true;  // values outside the signal's minimum and maximum are refused
  bool raw = false;        // numbers are raw values, not physical ones
};

// What was wrong with a value, naming the signal.
class EncodeError : public std::invalid_argument {
 public:
  using std::invalid_argument::invalid_argument;
};

std::vector<uint8_t> encodeFrame(Q9DbNode* db, const FrameEntry& frame,
                                 const std::unordered_map<std::string, SignalInput>& values,
                                 const EncodeOptions& options);

}  // namespace q9py

#endif
