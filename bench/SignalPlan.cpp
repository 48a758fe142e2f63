// Signals are laid end to end from the first bit, each length drawn so that
// those still to come keep a bit each. A float that can't have its 32 bits
// becomes a scaled signal, and a big-endian signal's start bit has the bit
// within its byte mirrored, as description files number it.
#include "SignalPlan.h"

#include <algorithm>

namespace q9bench {
namespace {

SignalKind pickKind(Random& random) {
  const uint32_t roll = random.between(0, 99);
  if (roll < 55) return SignalKind::Scaled;
  if (roll < 70) return SignalKind::Signed;
  if (roll < 80) return SignalKind::Offset;
  if (roll < 88) return SignalKind::Float;
  return SignalKind::Texts;
}

}  // namespace

std::vector<PlannedSignal> planSignals(Random& random, uint32_t first, uint32_t end, bool bigEndian, unsigned count) {
  std::vector<PlannedSignal> plan;
  uint32_t next = first;
  for (unsigned i = 0; i < count && next < end; ++i) {
    const uint32_t left = end - next;
    const uint32_t still = count - i - 1;
    const uint32_t room = left > still ? left - still : 1;
    SignalKind kind = pickKind(random);
    uint32_t length;
    if (kind == SignalKind::Float && room >= 32) {
      length = 32;
    } else {
      if (kind == SignalKind::Float) kind = SignalKind::Scaled;
      const uint32_t fair = std::max<uint32_t>(1, 2 * left / (count - i));
      length = std::min(room, random.between(1, std::min<uint32_t>(16, fair)));
      if (kind == SignalKind::Texts) length = std::min<uint32_t>(length, 3);
      if (kind == SignalKind::Signed && length < 2) kind = SignalKind::Scaled;
    }
    plan.push_back({kind, bigEndian ? next ^ 7 : next, length, bigEndian});
    next += length;
  }
  return plan;
}

}  // namespace q9bench
