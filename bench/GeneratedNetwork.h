// A realistic CAN network built through the exported factories, the same for
// every run of a given seed: some hundred messages of 8 to 16 signals, in
// both byte orders, unsigned, signed and IEEE float, with linear and text
// computations, a tenth of them multiplexed, and received frames to decode.
#pragma once

#include <cstdint>
#include <vector>

#include "Q9Db.h"

namespace q9bench {

// A small deterministic generator, so that figures compare across machines
// and standard libraries.
class Random {
 public:
  explicit Random(uint64_t seed) : state_(seed) {}
  uint64_t next() {
    uint64_t z = (state_ += 0x9E3779B97F4A7C15ull);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
  }
  // Uniform in [low, high].
  uint32_t between(uint32_t low, uint32_t high) { return low + uint32_t(next() % (uint64_t(high) - low + 1)); }
  bool chance(unsigned percent) { return next() % 100 < percent; }

 private:
  uint64_t state_;
};

struct NetworkShape {
  unsigned messages = 400;
  unsigned multiplexedPercent = 10;
  unsigned bigEndianPercent = 30;
  unsigned extendedPercent = 20;
  unsigned flexibleDataPercent = 10;
};

struct GeneratedMessage {
  uint32_t identifier;  // the code of a masked triggering
  uint32_t mask;        // 0: the identifier alone
  uint32_t flags;       // Q9_FLAG_CANEXTENDED, Q9_FLAG_CANFD_FRAME
  uint32_t length;
  bool multiplexed;
  Q9DbNode* frame;
  std::vector<Q9DbNode*> signals;
};

// One received frame: what a bus driver hands to the decoder.
struct ReceivedFrame {
  uint32_t identifier;
  uint32_t flags;
  uint32_t length;
  uint8_t payload[64];
};

class GeneratedNetwork {
 public:
  GeneratedNetwork(uint64_t seed, const NetworkShape& shape = NetworkShape());
  ~GeneratedNetwork();
  GeneratedNetwork(const GeneratedNetwork&) = delete;
  GeneratedNetwork& operator=(const GeneratedNetwork&) = delete;

  Q9DbNode* database() const { return db_; }
  Q9DbNode* channel() const { return channel_; }
  const std::vector<GeneratedMessage>& messages() const { return messages_; }
  uint64_t signalCount() const;

  // Frames of random messages with random payloads; multiplexed frames carry
  // one of their switch codes, now and then one that selects no part.
  std::vector<ReceivedFrame> receivedFrames(std::size_t count, uint64_t seed) const;

 private:
  Q9DbNode* db_ = nullptr;
  Q9DbNode* channel_ = nullptr;
  std::vector<GeneratedMessage> messages_;
};

}  // namespace q9bench
