// Frames written in the log form, which the tool's own reader, canplayer
// and the decode command take back.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "CapturedOutput.h"
#include "FrameLine.h"
#include "LogLine.h"
#include "Q9Db.h"

namespace {

using namespace q9tool;

struct Written {
  uint64_t microseconds;
  uint32_t identifier;
  uint32_t flags;
  std::vector<uint8_t> data;
  const char* line;
  uint32_t flagsReadBack;  // what the line says of the frame type
  size_t lengthReadBack;   // CAN FD lengths between the DLC steps are padded
};
void PrintTo(const Written& c, std::ostream* os) { *os << c.line; }

class LogLines : public ::testing::TestWithParam<Written> {};

TEST_P(LogLines, AreWrittenAndReadBack) {
  const Written& c = GetParam();
  LogFrame frame{c.microseconds, "can0", c.identifier, c.flags, c.data.data(), c.data.size()};
  const std::string line = captured([&](Output& out) { writeLogLine(out, frame); });
  EXPECT_EQ(line, std::string(c.line) + "\n");

  CanFrame back;
  auto result = parseFrameLine(line, back);
  ASSERT_EQ(result.kind, LineKind::Frame) << result.problem;
  EXPECT_EQ(back.interface, "can0");
  EXPECT_EQ(back.identifier, c.identifier);
  EXPECT_EQ(back.flags, c.flagsReadBack);
  ASSERT_EQ(back.length, c.lengthReadBack);
  for (size_t i = 0; i < back.length; ++i) EXPECT_EQ(back.data[i], i < c.data.size() ? c.data[i] : 0) << i;
}

constexpr uint32_t kExt = Q9_FLAG_CANEXTENDED;
constexpr uint32_t kFd = Q9_FLAG_CANFD_FRAME;
constexpr uint32_t kBrs = Q9_FLAG_CANFD_FASTDATA;
constexpr uint32_t kEsi = Q9_FLAG_CANFD_ERRORSTATEIND;

INSTANTIATE_TEST_SUITE_P(
    LogLine, LogLines,
    ::testing::Values(
        Written{1436509052249713, 0x123, 0, {0xDE, 0xAD, 0xBE, 0xEF}, "(1436509052.249713) can0 123#DEADBEEF", 0, 4},
        Written{0, 0x7, 0, {}, "(0.000000) can0 007#", 0, 0},
        Written{5000001, 0x1CFF0010, kExt, {0x01, 0x0A}, "(5.000001) can0 1CFF0010#010A", kExt, 2},
        // Standard or extended: the identifier decides.
        Written{1, 0x7FF, Q9_FLAG_CANSTD_OR_EXT, {0}, "(0.000001) can0 7FF#00", 0, 1},
        Written{1, 0x800, Q9_FLAG_CANSTD_OR_EXT, {0}, "(0.000001) can0 00000800#00", kExt, 1},
        Written{2, 0x500, kFd | kBrs, {0xAB}, "(0.000002) can0 500##1AB", kFd | kBrs, 1},
        Written{2, 0x18DAF110, kExt | kFd | kEsi, {1, 2}, "(0.000002) can0 18DAF110##20102", kExt | kFd | kEsi, 2},
        // 10 bytes go out as 12, the next length a CAN FD frame has.
        Written{3, 0x10, kFd, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10}, "(0.000003) can0 010##00102030405060708090A0000", kFd, 12}));

TEST(LogLine, FdLengthsAreTheDlcSteps) {
  const std::pair<size_t, size_t> steps[] = {{0, 0}, {8, 8}, {9, 12}, {12, 12}, {13, 16}, {33, 48}, {64, 64}, {65, 0}};
  for (auto [length, padded] : steps) EXPECT_EQ(canFdLength(length), padded) << length;
}

TEST(LogLine, TimestampsAreSecondsWithAtMostSixDecimals) {
  const std::pair<const char*, uint64_t> good[] = {{"0", 0}, {"12.5", 12500000}, {"1700000000.000001", 1700000000000001}};
  for (auto [text, microseconds] : good) {
    uint64_t got = 99;
    ASSERT_TRUE(parseTimestamp(text, got)) << text;
    EXPECT_EQ(got, microseconds) << text;
  }
  for (const char* bad : {"", ".5", "7.", "1.0000001", "-1", "1e3", "12a", "99999999999999", "1.2.3"}) {
    uint64_t got = 0;
    EXPECT_FALSE(parseTimestamp(bad, got)) << bad;
  }
}

}  // namespace
