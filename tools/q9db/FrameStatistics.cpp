// Identifiers are kept under one key of interface, frame type and identifier,
// and periods as a running mean and sum of squares, so memory grows with
// identifiers, not frames. A timestamp that goes back is counted rather than
// taken as a period; interfaces sort naturally (can2 before can10).
#include "FrameStatistics.h"

#include <algorithm>
#include <cmath>

#include "LogLine.h"

namespace q9tool {
namespace {

bool isDigit(char c) { return c >= '0' && c <= '9'; }

// Whether a frame has the length and form its description gives. A CAN FD
// frame carries the described bytes in the smallest length that holds them.
bool matchesDescription(const CanFrame& frame, const DescribedFrame& described) {
  bool fd = frame.flags & Q9_FLAG_CANFD_FRAME;
  if (fd != described.fd()) return false;
  if (described.length < 0) return false;
  size_t expected = fd ? canFdLength(static_cast<size_t>(described.length)) : static_cast<size_t>(described.length);
  return frame.length == expected;
}

}  // namespace

void Periods::add(double period) {
  ++count_;
  double delta = period - mean_;
  mean_ += delta / double(count_);
  squares_ += delta * (period - mean_);
  if (count_ == 1 || period < min_) min_ = period;
  if (count_ == 1 || period > max_) max_ = period;
}

double Periods::standardDeviation() const { return count_ ? std::sqrt(squares_ / double(count_)) : 0.0; }

double Periods::largestDeviationFrom(double cycle) const {
  return count_ ? std::max(std::fabs(min_ - cycle), std::fabs(max_ - cycle)) : 0.0;
}

std::optional<double> InterfaceStatistics::loadPercent(const BitRates& rates) const {
  if (timedFrames == 0 || lastMicroseconds == firstMicroseconds) return std::nullopt;
  return rates.seconds(nominalBits, dataBits) / durationSeconds() * 100.0;
}

InterfaceStatistics& FrameStatistics::interfaceOf(std::string_view name, size_t& index) {
  // A capture has few interfaces, and mostly the same one line after line.
  if (lastInterface_ < interfaces_.size() && interfaces_[lastInterface_].name == name) {
    index = lastInterface_;
    return interfaces_[index];
  }
  for (index = 0; index < interfaces_.size(); ++index)
    if (interfaces_[index].name == name) break;
  if (index == interfaces_.size()) {
    interfaces_.emplace_back();
    interfaces_.back().name = std::string(name);
  }
  lastInterface_ = index;
  return interfaces_[index];
}

void FrameStatistics::add(const CanFrame& frame, std::optional<uint64_t> microseconds) {
  ++frames_;
  size_t interfaceIndex = 0;
  InterfaceStatistics& bus = interfaceOf(frame.interface, interfaceIndex);
  bool extended = (frame.flags & Q9_FLAGMASK_CAN_FRAMETYPE) == Q9_FLAG_CANEXTENDED;
  uint64_t key = uint64_t(interfaceIndex) << 30 | uint64_t(extended) << 29 | frame.identifier;
  auto [found, isNew] = byKey_.try_emplace(key, identifiers_.size());
  if (isNew) {
    identifiers_.emplace_back();
    IdentifierStatistics& fresh = identifiers_.back();
    fresh.interface = bus.name;
    fresh.identifier = frame.identifier;
    fresh.extended = extended;
    fresh.described = describe_(bus.name, frame.identifier, extended);
  }
  IdentifierStatistics& id = identifiers_[found->second];

  ++id.frames;
  ++bus.frames;
  bool fd = frame.flags & Q9_FLAG_CANFD_FRAME;
  auto seen = std::find_if(id.seen.begin(), id.seen.end(),
                           [&](const LengthSeen& s) { return s.length == frame.length && s.fd == fd; });
  if (seen == id.seen.end()) id.seen.push_back({frame.length, fd, 1});
  else ++seen->frames;
  if (id.described && !matchesDescription(frame, *id.described)) ++id.mismatched;

  if (!microseconds) {
    ++untimedFrames_;
    return;
  }
  uint64_t now = *microseconds;
  if (bus.timedFrames == 0 || now < bus.firstMicroseconds) bus.firstMicroseconds = now;
  if (bus.timedFrames == 0 || now > bus.lastMicroseconds) bus.lastMicroseconds = now;
  ++bus.timedFrames;
  WireBits bits = frameBits(frame);
  bus.nominalBits += bits.nominal;
  bus.dataBits += bits.data;
  if (id.lastMicroseconds) {
    if (now < *id.lastMicroseconds) ++backwardSteps_;
    else id.periods.add(double(now - *id.lastMicroseconds));
  }
  id.lastMicroseconds = now;
}

std::vector<const IdentifierStatistics*> FrameStatistics::identifiers() const {
  std::vector<const IdentifierStatistics*> sorted;
  for (const IdentifierStatistics& id : identifiers_) sorted.push_back(&id);
  std::sort(sorted.begin(), sorted.end(), [](const IdentifierStatistics* a, const IdentifierStatistics* b) {
    if (a->interface != b->interface) return naturalLess(a->interface, b->interface);
    if (a->identifier != b->identifier) return a->identifier < b->identifier;
    return !a->extended && b->extended;
  });
  return sorted;
}

std::vector<const InterfaceStatistics*> FrameStatistics::interfaces() const {
  std::vector<const InterfaceStatistics*> sorted;
  for (const InterfaceStatistics& bus : interfaces_) sorted.push_back(&bus);
  std::sort(sorted.begin(), sorted.end(),
            [](const InterfaceStatistics* a, const InterfaceStatistics* b) { return naturalLess(a->name, b->name); });
  return sorted;
}

bool naturalLess(std::string_view a, std::string_view b) {
  size_t i = 0, j = 0;
  while (i < a.size() && j < b.size()) {
    if (isDigit(a[i]) && isDigit(b[j])) {
      size_t endA = i, endB = j;
      while (endA < a.size() && isDigit(a[endA])) ++endA;
      while (endB < b.size() && isDigit(b[endB])) ++endB;
      // Compare the numbers without their leading zeros: longer is larger.
      std::string_view numberA = a.substr(i, endA - i), numberB = b.substr(j, endB - j);
      while (numberA.size() > 1 && numberA.front() == '0') numberA.remove_prefix(1);
      while (numberB.size() > 1 && numberB.front() == '0') numberB.remove_prefix(1);
      if (numberA.size() != numberB.size()) return numberA.size() < numberB.size();
      if (numberA != numberB) return numberA < numberB;
      i = endA;
      j = endB;
    } else {
      if (a[i] != b[j]) return a[i] < b[j];
      ++i;
      ++j;
    }
  }
  if ((a.size() - i) != (b.size() - j)) return a.size() - i < b.size() - j;
  return a < b;  // equal but for leading zeros: a total order all the same
}

}  // namespace q9tool
