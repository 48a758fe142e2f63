// Decoded frames in the three output forms, and the numbers in them.
#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "CapturedOutput.h"
#include "FrameWriter.h"
#include "Text.h"

namespace {

using namespace q9tool;

CanFrame sampleFrame(const char* line) {
  static std::string keep;  // the frame's texts are views into its line
  keep = line;
  CanFrame frame;
  EXPECT_EQ(parseFrameLine(keep, frame).kind, LineKind::Frame);
  return frame;
}

void twoSignals(FrameWriter& w, const CanFrame& frame) {
  w.begin();
  w.beginFrame(frame, "Engine\"Data");
  w.signal({"Speed", "128.25", true, "rpm", {}});
  w.signal({"State", "1", true, {}, "On, \"idle\""});
  w.signal({"Vin", "AB\x01", false, {}, {}});
  w.endFrame();
}

void unknown(FrameWriter& w, const CanFrame& frame) { w.unknownFrame(frame); }

struct Case {
  Format format;
  const char* line;
  void (*write)(FrameWriter&, const CanFrame&);
  const char* expected;
  bool bytes = false;  // the frame's bytes beside the values
};
// Test names show the format, the kind of frame and its line.
void PrintTo(const Case& c, std::ostream* os) {
  const char* formats[] = {"text", "line", "csv", "json"};
  *os << formats[static_cast<int>(c.format)] << (c.bytes ? " bytes" : "") << (c.write == unknown ? " unknown " : " ")
      << c.line;
}

class Output_ : public ::testing::TestWithParam<Case> {};

TEST_P(Output_, ReadsAsItShould) {
  const Case& c = GetParam();
  const CanFrame frame = sampleFrame(c.line);
  EXPECT_EQ(captured([&](Output& out) {
              FrameWriter writer(out, c.format, c.bytes);
              c.write(writer, frame);
            }),
            c.expected);
}

INSTANTIATE_TEST_SUITE_P(
    FrameWriter, Output_,
    ::testing::Values(
        Case{Format::Text, "(12.5) can0 100#01", twoSignals,
             "12.5 can0 100 Engine\"Data\n  Speed = 128.25 rpm\n  State = 1 (On, \"idle\")\n  Vin = \"AB\x01\"\n"},
        Case{Format::Csv, "(12.5) can0 0000ABCD#01", twoSignals,
             "timestamp,interface,identifier,frame,signal,value,unit,text\n"
             "12.5,can0,0000ABCD,\"Engine\"\"Data\",Speed,128.25,rpm,\n"
             "12.5,can0,0000ABCD,\"Engine\"\"Data\",State,1,,\"On, \"\"idle\"\"\"\n"
             "12.5,can0,0000ABCD,\"Engine\"\"Data\",Vin,AB\x01,,\n"},
        Case{Format::Json, "  can0  7FF   [1]  01", twoSignals,
             "{\"timestamp\":null,\"interface\":\"can0\",\"identifier\":\"7FF\",\"extended\":false,\"fd\":false,"
             "\"frame\":\"Engine\\\"Data\",\"signals\":[{\"name\":\"Speed\",\"value\":128.25,\"unit\":\"rpm\"},"
             "{\"name\":\"State\",\"value\":1,\"text\":\"On, \\\"idle\\\"\"},{\"name\":\"Vin\",\"value\":\"AB\\u0001\"}]}\n"},
        Case{Format::Line, "(12.5) can0 100#01", twoSignals,
             "12.5 can0 100 Engine\"Data: Speed=128.25 rpm; State=1 (On, \"idle\"); Vin=\"AB\x01\"\n"},
        Case{Format::Line, "(12.5) can0 100#01A2", twoSignals,
             "12.5 can0 100 [2] 01A2 Engine\"Data: Speed=128.25 rpm; State=1 (On, \"idle\"); Vin=\"AB\x01\"\n", true},
        Case{Format::Text, "(12.5) can0 100#01A2", twoSignals,
             "12.5 can0 100 [2] 01 A2 Engine\"Data\n  Speed = 128.25 rpm\n  State = 1 (On, \"idle\")\n  Vin = \"AB\x01\"\n",
             true},
        Case{Format::Csv, "(1) can0 100#01", twoSignals,
             "timestamp,interface,identifier,frame,data,signal,value,unit,text\n"
             "1,can0,100,\"Engine\"\"Data\",01,Speed,128.25,rpm,\n"
             "1,can0,100,\"Engine\"\"Data\",01,State,1,,\"On, \"\"idle\"\"\"\n"
             "1,can0,100,\"Engine\"\"Data\",01,Vin,AB\x01,,\n",
             true},
        Case{Format::Text, "(3.25) can1 00000001##1A0B0", unknown, "3.25 can1 00000001 (unknown) [2] A0 B0\n"},
        Case{Format::Csv, "(3.25) can1 001#A0B0", unknown, "3.25,can1,001,,A0B0,,,,\n", true},
        Case{Format::Csv, "(3.25) can1 001#A0B0", unknown, "3.25,can1,001,,,A0B0,,\n"},
        Case{Format::Json, "(3.25) can1 001##0A0B0", unknown,
             "{\"timestamp\":3.25,\"interface\":\"can1\",\"identifier\":\"001\",\"extended\":false,\"fd\":true,"
             "\"frame\":null,\"data\":\"A0B0\"}\n"}));

struct Number {
  uint32_t type;
  double d;
  uint64_t u;
  int64_t i;
  const char* text;
  bool finite;
  bool single = false;
};
void PrintTo(const Number& c, std::ostream* os) { *os << c.text << (c.single ? " single" : ""); }

class Numbers : public ::testing::TestWithParam<Number> {};

TEST_P(Numbers, AreDecimal) {
  Q9DbPhysicalValue value{};
  value.valueType = GetParam().type;
  if (value.valueType == Q9_VALUETYPE_DOUBLE) value.value.d = GetParam().d;
  else if (value.valueType == Q9_VALUETYPE_UINT64) value.value.u = GetParam().u;
  else value.value.i = GetParam().i;
  char buffer[40];
  bool finite = false;
  EXPECT_EQ(formatPhysical(value, buffer, finite, GetParam().single), GetParam().text);
  EXPECT_EQ(finite, GetParam().finite);
}

INSTANTIATE_TEST_SUITE_P(
    FrameWriter, Numbers,
    ::testing::Values(Number{Q9_VALUETYPE_UINT64, 0, 18446744073709551615ull, 0, "18446744073709551615", true},
                      Number{Q9_VALUETYPE_INT64, 0, 0, INT64_MIN, "-9223372036854775808", true},
                      Number{Q9_VALUETYPE_DOUBLE, 25.299999999999997, 0, 0, "25.3", true},
                      Number{Q9_VALUETYPE_DOUBLE, -0.0, 0, 0, "0", true},
                      Number{Q9_VALUETYPE_DOUBLE, 1e300, 0, 0, "1e+300", true},
                      Number{Q9_VALUETYPE_DOUBLE, -1.7976931348623157e308, 0, 0, "-1.79769313486232e+308", true},
                      Number{Q9_VALUETYPE_DOUBLE, NAN, 0, 0, "nan", false},
                      Number{Q9_VALUETYPE_DOUBLE, -INFINITY, 0, 0, "-inf", false},
                      Number{7, 0, 0, 0, "?", false},
                      // An IEEE single widened: its own shortest form; a
                      // value a single can't hold was scaled after it.
                      Number{Q9_VALUETYPE_DOUBLE, double(12.6f), 0, 0, "12.6", true, true},
                      Number{Q9_VALUETYPE_DOUBLE, double(12.6f), 0, 0, "12.6000003814697", true, false},
                      Number{Q9_VALUETYPE_DOUBLE, -0.0, 0, 0, "0", true, true},
                      Number{Q9_VALUETYPE_DOUBLE, 0.1, 0, 0, "0.1", true, true},
                      Number{Q9_VALUETYPE_DOUBLE, double(3.4e38f), 0, 0, "3.4e+38", true, true}));

TEST(Text, RoundTripsBetweenUtf8AndUtf16) {
  const std::string samples[] = {"", "plain", "°C Größe", "\xE2\x82\xAC", "\xF0\x9F\x9A\x97 car"};
  for (const std::string& s : samples) EXPECT_EQ(utf8(utf16(s).c_str()), s);
  EXPECT_EQ(utf16("\xF0\x9F\x9A\x97"), std::u16string(u"\U0001F697"));
}

TEST(Text, BrokenSequencesBecomeReplacementCharacters) {
  EXPECT_EQ(utf16("a\xFF" "b"), u"a\uFFFDb");
  EXPECT_EQ(utf16("\xC3"), u"\uFFFD");             // cut short at the end
  EXPECT_EQ(utf16("\xC0\x80"), u"\uFFFD\uFFFD");   // overlong
  EXPECT_EQ(utf16("\xED\xA0\x80").size(), 3u);     // an encoded surrogate: each byte replaced
  const char16_t lone[] = {u'x', 0xD800, u'y', 0};
  EXPECT_EQ(utf8(lone), "x\xEF\xBF\xBDy");
}

}  // namespace
