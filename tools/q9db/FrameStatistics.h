// Statistics of a capture, fed frame by frame: for each identifier on each
// interface its count, its periods and how its frames compare with the
// description; for each interface its frames and their bits on the wire,
// from which the bus load follows.
#ifndef Q9DB_TOOL_FRAMESTATISTICS_H
#define Q9DB_TOOL_FRAMESTATISTICS_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "BusLoad.h"
#include "DescribedFrames.h"
#include "FrameLine.h"

namespace q9tool {

// The periods of one identifier in microseconds: mean and variance kept by
// Welford's method, which stays accurate over millions of periods.
class Periods {
 public:
  void add(double period);
  uint64_t count() const { return count_; }
  double mean() const { return mean_; }
  double min() const { return min_; }
  double max() const { return max_; }
  double standardDeviation() const;  // of the periods themselves, not of an estimate from a sample
  // The largest |period - cycle|.
  double largestDeviationFrom(double cycle) const;

 private:
  uint64_t count_ = 0;
  double mean_ = 0;
  double squares_ = 0;  // sum of squared differences from the mean
  double min_ = 0;
  double max_ = 0;
};

// A length and form of frame seen for an identifier, and how often.
struct LengthSeen {
  uint8_t length;
  bool fd;
  uint64_t frames;
};

struct IdentifierStatistics {
  std::string interface;
  uint32_t identifier;
  bool extended;
  const DescribedFrame* described;  // null: no frame of the database has the identifier
  uint64_t frames = 0;
  uint64_t mismatched = 0;  // frames whose length or CAN FD form differs from the description
  std::vector<LengthSeen> seen;
  Periods periods;
  std::optional<uint64_t> lastMicroseconds;  // of the last timed frame
};

struct InterfaceStatistics {
  std::string name;
  uint64_t frames = 0;
  uint64_t timedFrames = 0;
  uint64_t firstMicroseconds = 0;  // earliest and latest timestamp
  uint64_t lastMicroseconds = 0;
  uint64_t nominalBits = 0;  // of the timed frames
  uint64_t dataBits = 0;

  double durationSeconds() const { return (lastMicroseconds - firstMicroseconds) / 1e6; }
  // The share of the time between the first and the last timestamp that
  // the timed frames took on the wire; none without such a time.
  std::optional<double> loadPercent(const BitRates& rates) const;
};

class FrameStatistics {
 public:
  // The description of a frame identifier on an interface, or null when
  // there is none.
  using Describe = std::function<const DescribedFrame*(std::string_view interface, uint32_t identifier, bool extended)>;
  explicit FrameStatistics(Describe describe) : describe_(std::move(describe)) {}

  // A frame without a timestamp counts, but gives no period and no bits for
  // the bus load, as nothing tells over what time it was sent.
  void add(const CanFrame& frame, std::optional<uint64_t> microseconds);

  // Sorted by interface (can2 before can10), then identifier, standard
  // before extended.
  std::vector<const IdentifierStatistics*> identifiers() const;
  std::vector<const InterfaceStatistics*> interfaces() const;

  uint64_t frames() const { return frames_; }
  uint64_t untimedFrames() const { return untimedFrames_; }
  // Timed frames earlier than the frame before them of their identifier:
  // no period is taken across the step.
  uint64_t backwardSteps() const { return backwardSteps_; }

 private:
  InterfaceStatistics& interfaceOf(std::string_view name, size_t& index);
  Describe describe_;
  std::vector<InterfaceStatistics> interfaces_;
  size_t lastInterface_ = 0;
  std::vector<IdentifierStatistics> identifiers_;
  std::unordered_map<uint64_t, size_t> byKey_;  // interface, extended, identifier
  uint64_t frames_ = 0;
  uint64_t untimedFrames_ = 0;
  uint64_t backwardSteps_ = 0;
};

// Names compared with runs of digits taken as numbers: can2 < can10.
bool naturalLess(std::string_view a, std::string_view b);

}  // namespace q9tool

#endif
