// Numbers read from DBC tokens where the grammar expects one. Integers are
// decimal (leading zeros included) or 0x hexadecimal, up to 64 bits; reals
// are read without regard to the process's locale.
#pragma once

#include <cstdint>
#include <string>

#include "import/DbcTextScanner.h"

namespace q9 {

struct DbcInteger {
  bool negative = false;
  uint64_t magnitude = 0;
  bool overflow = false;  // more than 64 bits: magnitude holds the low 64
};

// A Word of digits (or 0x and hex digits); with allowSign also a Number that
// is a sign before decimal digits. False for anything else.
bool readDbcInteger(const DbcTextToken& token, bool allowSign, DbcInteger& out);

// Any integer as above, or a decimal real with or without point and
// exponent. missingLeadingDigit tells ".25" and "-.5" apart.
bool readDbcReal(const DbcTextToken& token, double& out, bool& missingLeadingDigit);

// The number's text as written, with a missing leading digit supplied:
// ".25" gives "0.25", "-.5" "-0.5", "+.5" "0.5".
std::string dbcNumberText(const DbcTextToken& token, bool missingLeadingDigit);

}  // namespace q9
