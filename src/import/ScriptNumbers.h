// Numbers the way the LDF import has always written, read and rounded them
// in its Lua form, so that texts, params and messages of an import stay the
// same: whole numbers print without a fraction and others with 14
// significant digits, texts read as Lua's tonumber reads them, and a
// rounded value that no 64-bit integer holds stays a float (which a param
// then can't take).
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace q9 {

// The value when it is whole and a 64-bit integer holds it.
std::optional<int64_t> exactInteger(double value);

// "5" for 5.0, "0.1" for 0.1, "2.0" for a value that only rounds to a whole
// text, "1e+20", "inf".
std::string numberText(double value);

// "0x%0<width>X" of the value, a negative one in 64-bit two's complement.
std::string hexText(int64_t value, int width = 2);

// An integer, or a float where the value outgrew the integers.
struct ScriptNumber {
  bool isInteger = true;
  int64_t integer = 0;
  double real = 0;
};

// floor(value * 1000 + 0.5): milliseconds as whole microseconds, kbit/s as bit/s.
ScriptNumber thousandths(double value);
// Integers add with wrap-around, anything else as doubles.
ScriptNumber operator+(ScriptNumber a, ScriptNumber b);
// The value a 64-bit param takes: the integer, a whole float that fits, else 0.
uint64_t paramOf(ScriptNumber n);

// The integer a text stands for, as Lua's tonumber and math.tointeger read
// it ("0x1F", " 12 ", "1e1"; decimal "010" is ten); none for anything else.
std::optional<int64_t> integerOfText(std::string_view text);
// Any number a text stands for, read the same way.
std::optional<double> numberOfText(std::string_view text);

}  // namespace q9
