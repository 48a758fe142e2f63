// Statistics of a small hand-written capture: periods and jitter against
// the cycle, frames of the wrong form, frames without or with backward
// timestamps, unknown identifiers, the order of the rows and the bus load.
#include <gtest/gtest.h>

#include <cmath>
#include <optional>

#include "FrameStatistics.h"

namespace {

using q9tool::CanFrame;
using q9tool::DescribedFrame;
using q9tool::FrameStatistics;

CanFrame frame(const char* interface, uint32_t id, uint8_t length, uint32_t flags = Q9_FLAG_CANSTANDARD) {
  CanFrame f;
  f.interface = interface;
  f.identifier = id;
  f.flags = flags;
  f.length = length;
  return f;
}

TEST(FrameStatistics, OfAHandWrittenCapture) {
  const DescribedFrame engine{nullptr, nullptr, "Engine", 0x100, ~0u, Q9_FLAG_CANSTANDARD, 8, 10};
  FrameStatistics statistics([&](std::string_view bus, uint32_t id, bool extended) {
    return bus == "can10" && id == 0x100 && !extended ? &engine : nullptr;
  });

  // Engine every 10 ms, give or take: periods 10, 11, 9.5 and 10 ms, a
  // frame without timestamp that gives none, and a backward step after
  // which the periods go on from the earlier time.
  statistics.add(frame("can10", 0x100, 8), 0);
  statistics.add(frame("can10", 0x100, 8), 10000);
  statistics.add(frame("can10", 0x100, 6), 21000);                                      // too short
  statistics.add(frame("can10", 0x100, 8, Q9_FLAG_CANSTANDARD | Q9_FLAG_CANFD_FRAME), 30500);  // FD form
  statistics.add(frame("can10", 0x100, 8), std::nullopt);
  statistics.add(frame("can10", 0x100, 8), 40500);
  statistics.add(frame("can10", 0x100, 8), 5000);
  statistics.add(frame("can10", 0x100, 8, Q9_FLAG_CANEXTENDED), 0);  // the same number, extended: unknown
  // Two dominant standard frames of 53 bits, 1 ms apart on another bus.
  statistics.add(frame("can2", 0x000, 0), 1000000);
  statistics.add(frame("can2", 0x000, 0), 1001000);

  auto ids = statistics.identifiers();
  ASSERT_EQ(ids.size(), 3u);
  EXPECT_EQ(ids[0]->interface, "can2");  // can2 before can10
  EXPECT_EQ(ids[1]->identifier, 0x100u);
  EXPECT_FALSE(ids[1]->extended);
  EXPECT_TRUE(ids[2]->extended);
  EXPECT_EQ(ids[2]->described, nullptr);

  const auto& engineStats = *ids[1];
  EXPECT_EQ(engineStats.frames, 7u);
  EXPECT_EQ(engineStats.mismatched, 2u);
  EXPECT_EQ(engineStats.seen.size(), 3u);  // 8, 6 and 8 FD
  const auto& p = engineStats.periods;
  ASSERT_EQ(p.count(), 4u);
  EXPECT_DOUBLE_EQ(p.mean(), 10125);
  EXPECT_DOUBLE_EQ(p.min(), 9500);
  EXPECT_DOUBLE_EQ(p.max(), 11000);
  EXPECT_DOUBLE_EQ(p.largestDeviationFrom(10000), 1000);
  EXPECT_NEAR(p.standardDeviation(), std::sqrt((125.0 * 125 + 875.0 * 875 + 625.0 * 625 + 125.0 * 125) / 4), 1e-9);
  EXPECT_EQ(statistics.untimedFrames(), 1u);
  EXPECT_EQ(statistics.backwardSteps(), 1u);

  auto buses = statistics.interfaces();
  ASSERT_EQ(buses.size(), 2u);
  EXPECT_EQ(buses[0]->name, "can2");
  EXPECT_EQ(buses[0]->nominalBits, 2u * 53);
  EXPECT_NEAR(*buses[0]->loadPercent({500000, 2000000}), 2 * 53 / 500000.0 / 0.001 * 100, 1e-9);
  EXPECT_EQ(buses[1]->frames, 8u);
  EXPECT_EQ(buses[1]->timedFrames, 7u);
  EXPECT_DOUBLE_EQ(buses[1]->durationSeconds(), 0.0405);
}

TEST(FrameStatistics, NoLoadWithoutTime) {
  FrameStatistics statistics([](std::string_view, uint32_t, bool) { return nullptr; });
  statistics.add(frame("can0", 0x1, 0), 7);
  statistics.add(frame("vcan0", 0x1, 0), std::nullopt);
  for (const auto* bus : statistics.interfaces()) EXPECT_FALSE(bus->loadPercent({500000, 2000000})) << bus->name;
}

}  // namespace
