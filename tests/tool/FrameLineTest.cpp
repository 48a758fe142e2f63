// The two text forms of the Linux CAN tools, read line by line.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "FrameLine.h"
#include "Q9Db.h"

namespace {

using q9tool::CanFrame;
using q9tool::LineKind;
using q9tool::parseFrameLine;

struct GoodLine {
  const char* line;
  const char* timestamp;
  const char* interface;
  uint32_t identifier;
  uint32_t flags;
  std::vector<uint8_t> data;
};
// Test names show the line.
void PrintTo(const GoodLine& c, std::ostream* os) { *os << c.line; }

class GoodLines : public ::testing::TestWithParam<GoodLine> {};

TEST_P(GoodLines, GiveTheFrame) {
  const GoodLine& c = GetParam();
  CanFrame frame;
  auto result = parseFrameLine(c.line, frame);
  ASSERT_EQ(result.kind, LineKind::Frame) << c.line << ": " << result.problem;
  EXPECT_EQ(frame.timestamp, c.timestamp);
  EXPECT_EQ(frame.interface, c.interface);
  EXPECT_EQ(frame.identifier, c.identifier);
  EXPECT_EQ(frame.flags, c.flags);
  EXPECT_EQ(std::vector<uint8_t>(frame.data, frame.data + frame.length), c.data);
}

constexpr uint32_t kStd = Q9_FLAG_CANSTANDARD;
constexpr uint32_t kExt = Q9_FLAG_CANEXTENDED;
constexpr uint32_t kFd = Q9_FLAG_CANFD_FRAME;

INSTANTIATE_TEST_SUITE_P(
    FrameLine, GoodLines,
    ::testing::Values(
        GoodLine{"(1436509052.249713) can0 123#DEADBEEF", "1436509052.249713", "can0", 0x123, kStd, {0xDE, 0xAD, 0xBE, 0xEF}},
        GoodLine{"(1.5) vcan1 7FF#", "1.5", "vcan1", 0x7FF, kStd, {}},
        GoodLine{"(0.000001) can0 12345678#0102030405060708", "0.000001", "can0", 0x12345678, kExt, {1, 2, 3, 4, 5, 6, 7, 8}},
        GoodLine{"(1.0) can0 00000123#11", "1.0", "can0", 0x123, kExt, {0x11}},
        GoodLine{"(1.0) can0 123#de.ad.be.ef", "1.0", "can0", 0x123, kStd, {0xDE, 0xAD, 0xBE, 0xEF}},
        GoodLine{"(1.0) can0 123##0AABB", "1.0", "can0", 0x123, kStd | kFd, {0xAA, 0xBB}},
        GoodLine{"(1.0) can0 123##1AABB", "1.0", "can0", 0x123, kStd | kFd | Q9_FLAG_CANFD_FASTDATA, {0xAA, 0xBB}},
        GoodLine{"(1.0) can0 1ABCDEF0##3", "1.0", "can0", 0x1ABCDEF0, kExt | kFd | Q9_FLAG_CANFD_FASTDATA | Q9_FLAG_CANFD_ERRORSTATEIND, {}},
        GoodLine{"(1.0) can0 123##1000102030405060708090A0B", "1.0", "can0", 0x123, kStd | kFd | Q9_FLAG_CANFD_FASTDATA,
                 {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11}},
        GoodLine{"(1.0) can0 123#0102030405060708_C", "1.0", "can0", 0x123, kStd, {1, 2, 3, 4, 5, 6, 7, 8}},
        GoodLine{"(1.0) can0 123#AA T\r\n", "1.0", "can0", 0x123, kStd, {0xAA}},
        GoodLine{"  can0  123   [4]  DE AD BE EF", "", "can0", 0x123, kStd, {0xDE, 0xAD, 0xBE, 0xEF}},
        GoodLine{"  can0  12345678   [0]  ", "", "can0", 0x12345678, kExt, {}},
        GoodLine{" (1436509052.249713)  can0  123   [2]  01 02", "1436509052.249713", "can0", 0x123, kStd, {1, 2}},
        GoodLine{"  can1  0AB  [12]  00 01 02 03 04 05 06 07 08 09 0A 0B", "", "can1", 0xAB, kStd | kFd,
                 {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11}},
        GoodLine{"\tcan0\t123\t[1]\tff", "", "can0", 0x123, kStd, {0xFF}}));

struct SkippedLine {
  const char* line;
  LineKind kind;
};
void PrintTo(const SkippedLine& c, std::ostream* os) { *os << c.line; }

class SkippedLines : public ::testing::TestWithParam<SkippedLine> {};

TEST_P(SkippedLines, CarryNoFrame) {
  CanFrame frame;
  auto result = parseFrameLine(GetParam().line, frame);
  EXPECT_EQ(result.kind, GetParam().kind) << GetParam().line << ": " << result.problem;
}

INSTANTIATE_TEST_SUITE_P(FrameLine, SkippedLines,
                         ::testing::Values(SkippedLine{"", LineKind::Blank}, SkippedLine{"   \r", LineKind::Blank},
                                           SkippedLine{"(1.0) can0 123#R", LineKind::NoData},
                                           SkippedLine{"(1.0) can0 12345678#R4", LineKind::NoData},
                                           SkippedLine{"(1.0) can0 20000080#0000000000000000", LineKind::NoData},
                                           SkippedLine{"  can0  123   [4]  remote request", LineKind::NoData}));

struct BadLine {
  const char* line;
  const char* problem;  // a part of the message
};
void PrintTo(const BadLine& c, std::ostream* os) { *os << c.line; }

class MalformedLines : public ::testing::TestWithParam<BadLine> {};

TEST_P(MalformedLines, NameWhatIsWrong) {
  CanFrame frame;
  auto result = parseFrameLine(GetParam().line, frame);
  ASSERT_EQ(result.kind, LineKind::Malformed) << GetParam().line;
  EXPECT_NE(std::string(result.problem).find(GetParam().problem), std::string::npos)
      << GetParam().line << " gave: " << result.problem;
}

INSTANTIATE_TEST_SUITE_P(
    FrameLine, MalformedLines,
    ::testing::Values(BadLine{"(1.0 can0 123#11", "closing ')'"},
                      BadLine{"(2.0)(can0 123#11", "interface name holds"},
                      BadLine{"() can0 123#11", "timestamp is empty"},
                      BadLine{"(1.0x) can0 123#11", "timestamp is not seconds"},
                      BadLine{"(1..0) can0 123#11", "timestamp is not seconds"},
                      BadLine{"(.5) can0 123#11", "timestamp is not seconds"},
                      BadLine{"(1.0)", "interface name is missing"},
                      BadLine{"(1.0) can0", "frame is missing"},
                      BadLine{"(1.0) can0 1234#11", "3 or 8 hex digits"},
                      BadLine{"(1.0) can0 #11", "3 or 8 hex digits"},
                      BadLine{"(1.0) can0 12G#11", "identifier holds"},
                      BadLine{"(1.0) can0 800#11", "above 7FF"},
                      BadLine{"(1.0) can0 4FFFFFFF#11", "above 1FFFFFFF"},
                      BadLine{"(1.0) can0 123#ABC", "odd number"},
                      BadLine{"(1.0) can0 123#A.BC", "odd number"},
                      BadLine{"(1.0) can0 123#XY", "no hex digit"},
                      BadLine{"(1.0) can0 123#010203040506070809", "longer than 8 bytes"},
                      BadLine{"(1.0) can0 123##", "flags nibble is missing"},
                      BadLine{"(1.0) can0 123##G00", "flags nibble is no hex digit"},
                      BadLine{"(1.0) can0 123##1000102030405060708", "none of 0-8"},
                      BadLine{"(1.0) can0 123###00", "CAN XL"},
                      BadLine{"(1.0) can0 123#0102030405060708_Z", "DLC"},
                      BadLine{"(1.0) can0 123#11 22", "unexpected text"},
                      BadLine{"  can0  123  4  DE AD BE EF", "length in brackets"},
                      BadLine{"  can0  123  [x]  DE", "no decimal number"},
                      BadLine{"  can0  123  [123]  DE", "more than two digits"},
                      BadLine{"  can0  123  [9]  00 00 00 00 00 00 00 00 00", "longer than 8 bytes"},
                      BadLine{"  can0  123  [4]  DE AD BE", "fewer data bytes"},
                      BadLine{"  can0  123  [2]  DE AD BE", "more data bytes"},
                      BadLine{"  can0  123  [2]  DEA D", "two hex digits"},
                      BadLine{"  can0  123  [1]  ZZ", "no hex digit"},
                      BadLine{"  can0  123", "length in brackets"}));

TEST(FrameLine, AFrameReusedForALineAfterAnotherHoldsOnlyTheNewValues) {
  CanFrame frame;
  ASSERT_EQ(parseFrameLine("(1.0) can0 12345678##1AABBCC", frame).kind, LineKind::Frame);
  ASSERT_EQ(parseFrameLine("  can0  123   [1]  01", frame).kind, LineKind::Frame);
  EXPECT_EQ(frame.flags, kStd);
  EXPECT_TRUE(frame.timestamp.empty());
  EXPECT_EQ(frame.length, 1);
}

}  // namespace
