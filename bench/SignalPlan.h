// Where the signals of a generated message lie and what they mean: shared by
// the generated network and the generated DBC text, so that both describe the
// same kind of bus.
#pragma once

#include <cstdint>
#include <vector>

#include "GeneratedNetwork.h"

namespace q9bench {

// How a signal's bits are encoded and what turns them into a physical value.
enum class SignalKind { Scaled, Signed, Offset, Float, Texts };

struct PlannedSignal {
  SignalKind kind;
  uint32_t position;  // least significant bit, or most significant for big-endian
  uint32_t length;
  bool bigEndian;
};

// Up to count signals laid one after the other over the bits [first, end)
// of their byte order's walk: bit numbers upward for little-endian, the
// sawtooth (bit XOR 7) for big-endian, so that they never overlap. Floats
// take 32 bits where they fit, texts at most 3.
std::vector<PlannedSignal> planSignals(Random& random, uint32_t first, uint32_t end, bool bigEndian, unsigned count);

}  // namespace q9bench
