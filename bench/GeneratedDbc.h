// A large DBC text for the readers, the same for every run of a seed:
// messages of many signals, a tenth multiplexed, both byte orders, signed
// and float signals, value tables, comments and cycle-time attributes, as a
// production file has them.
#pragma once

#include <cstdint>
#include <string>

namespace q9bench {

struct DbcShape {
  unsigned messages = 2000;
  unsigned signalsPerMessage = 16;
  unsigned multiplexedPercent = 10;
  unsigned bigEndianPercent = 30;
  unsigned flexibleDataPercent = 25;
};

std::string generateDbc(uint64_t seed, const DbcShape& shape = DbcShape());

}  // namespace q9bench
