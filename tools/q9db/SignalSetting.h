// A signal value given on the command line as FRAME.SIGNAL=VALUE, and the
// raw value that makes the signal read VALUE.
#ifndef Q9DB_TOOL_SIGNALSETTING_H
#define Q9DB_TOOL_SIGNALSETTING_H

#include <cstdint>
#include <string>
#include <string_view>

#include "Q9Db.h"

namespace q9tool {

struct SignalSetting {
  std::string frame;
  std::string signal;
  std::string value;
};

// Splits text at its first '=' and at the first '.' before that. False,
// with problem saying what is missing, when a part is empty or absent.
bool parseSignalSetting(std::string_view text, SignalSetting& out, std::string& problem);

// The raw value for value, which is either a physical number, converted by
// the first of the signal's encoding computations that takes it, or one of
// the signal's value texts. False, with problem naming the reason (not a
// number nor a text, outside the signal's limits or what its bits carry).
bool rawValueFor(Q9DbNode* db, Q9DbNode* signal, const std::string& value, uint64_t& raw, std::string& problem);

// The raw value of a physical number through the first of the signal's
// encoding computations that takes it; with checkRange, a value outside the
// signal's limits is refused first. False with problem naming the reason.
bool rawValueOfNumber(Q9DbNode* signal, double value, bool checkRange, uint64_t& raw, std::string& problem);

// The physical values the signal's encoding computations take, as
// "low .. high" over all their ranges; empty when there are none.
std::string encodableRange(Q9DbNode* signal);

}  // namespace q9tool

#endif
