// DBC files as they come from the field (tests/import/data/tolerant, one
// small file per deviation): each imports with the warnings that say what
// was assumed, and its frames decode to the values worked out by hand.
// Extended multiplexing is decoded and sent through the frame encoder.
#include <gtest/gtest.h>

#include <cctype>
#include <cstdio>
#include <string>
#include <vector>

#include "import/ImportTestSupport.h"
#include "import/NativeImport.h"

namespace {

using Bytes = std::vector<uint8_t>;

std::string utf8(const char16_t* text) { return text ? q9::platform::utf16ToUtf8(text) : std::string(); }

Q9DbNode* find(Q9DbNode* db, const std::string& id) {
  Q9DbNode* node = nullptr;
  Q9Db_findByElementId(db, q9::platform::utf8ToUtf16(id).c_str(), &node);
  return node;
}

// "Name=value" per decoded signal, with a value text as "=value(text)".
std::string decode(Q9DbNode* db, Q9DbNode* channel, uint32_t id, uint32_t flags, const Bytes& payload) {
  std::string out;
  Q9DbDecodeEnum* walk = nullptr;
  if (Q9Db_decodeMessage(channel, id, flags, payload.size(), payload.data(), &walk) != S_OK) return "(refused)";
  while (Q9Db_decodeNextFrametriggering(walk, nullptr) == S_OK) {
    Q9DbDecodedSignal decoded{};
    while (Q9Db_decodeNextSignal(walk, nullptr, &decoded) == Q9_NUMERICSIGNAL) {
      Q9DbPhysicalValue value{};
      Q9Db_internalToPhysical(decoded.signal, decoded.value, &value);
      char printed[40];
      if (value.valueType == Q9_VALUETYPE_DOUBLE)
        std::snprintf(printed, sizeof printed, "%.15g", value.value.d);
      else if (value.valueType == Q9_VALUETYPE_INT64)
        std::snprintf(printed, sizeof printed, "%lld", static_cast<long long>(value.value.i));
      else
        std::snprintf(printed, sizeof printed, "%llu", static_cast<unsigned long long>(value.value.u));
      const char16_t* name = nullptr;
      Q9Db_getShortName(decoded.signal, &name);
      out += (out.empty() ? "" : " ") + utf8(name) + "=" + printed;
      const char16_t* text = nullptr;
      if (value.text && Q9Db_stringLookup(db, value.text, 0, 0, &text) == S_OK) out += "(" + utf8(text) + ")";
    }
  }
  Q9Db_destroyDecodeEnum(walk);
  return out;
}

Bytes operator+(Bytes a, const Bytes& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

struct Frame {
  uint32_t id, flags;
  Bytes payload;
  const char* decoded;
};

struct Case {
  const char* file;
  std::vector<const char*> warnings;  // each found in one warning, as many as there are
  std::vector<Frame> frames;
  const char* checkId = nullptr;  // a node and what its short name or description must be
  const char* checkText = nullptr;
};

const Case kCases[] = {
    {"signal_comment_without_name.dbc",
     {":9:13: signal comment on message 304 names no signal; it was taken as the comment of message 304"},
     {{304, 0, {0x01, 0x5A}, "Open=1 Angle=45"}},
     "signal_comment_without_name/frame/Door",
     "Door state, sent on change."},
    {"negative_value_keys.dbc",
     {":9:15: value description key -1 of signal Temp in message Status is negative; it is taken as the raw value -1",
      ":10:16: value description key -2 of signal Level in message Status is negative; it is taken as the raw value 254"},
     {{256, 0, {0xFF, 0xFE}, "Temp=-1(Invalid) Level=254(Fault)"}, {256, 0, {0x00, 0x01}, "Temp=0(Zero) Level=1(One)"}}},
    {"numbers_without_leading_digit.dbc",
     {":6:24: number '.25' has no leading digit", ":6:28: number '-.5'", ":6:34: number '-.5'"},
     {{300, 0, {0x0A, 0}, "Quarter=2"}}},
    {"names_starting_with_digits.dbc", {}, {{1275, 0, {0x07}, "0_COUNTER=7"}}, "names_starting_with_digits/ECU/1st_Ecu",
     "1st_Ecu"},
    {"comment_without_keyword.dbc",
     {":8:5: comment names object 145 without BO_; it was taken as the comment of message 145"},
     {{145, 0, {0x02}, "Speed=2"}},
     "comment_without_keyword/frame/Wiper",
     "Wiper speed request."},
    {"missing_final_semicolon.dbc",
     {":8:38: statement 'VAL_ 400 Mode 0 \"Off\" 1 \"On\" 2 \"Auto\"' has no closing ';' at the end of the file"},
     {{400, 0, {0x02}, "Mode=2(Auto)"}}},
    {"escaped_strings.dbc",
     {":8:13: strings use backslash escapes; they were unescaped"},
     {{500, 0, {0x01}, "Flag=1"}},
     "escaped_strings/frame/Text",
     "Shows \"ready\" on the panel; path C:\\cars"},
    {"identifiers_out_of_range.dbc",
     {":5:1: message NoMark has identifier 0x800 without the extended mark; it is imported as an extended frame",
      ":8:1: message HighBits has identifier 0x60000123, which no CAN frame can carry; the bits above the 29 of an "
      "extended identifier are dropped and it is imported as the extended frame 0x123"},
     {{0x800, Q9_FLAG_CANEXTENDED, {0x11}, "A=17"}, {0x123, Q9_FLAG_CANEXTENDED, {0x22}, "B=34"},
      {0x123, 0, {0x22}, ""}}},
    {"unknown_statements.dbc",
     {":8:1: statement 'FOO_ 1 2 \"three\";' is not known; it was skipped",
      ":9:5: message id expected but found 'Broken'; the message 'BO_ Broken here' was skipped with its signals"},
     {{600, 0, {0x05}, "Value=5"}, {601, 0, {0x05}, "Other=10"}}},
    {"fd_frame_format_as_integer.dbc",
     {},
     {{700, Q9_FLAG_CANFD_FRAME, Bytes(11, 0) + Bytes{0x63}, "Last=99"},
      {701, Q9_FLAG_CANEXTENDED | Q9_FLAG_CANFD_FRAME, Bytes(63, 0) + Bytes{0x42}, "Tail=66"},
      {700, 0, Bytes(12, 0), ""}}},
    {"long_names.dbc",
     {},
     {{800, 0, {0x03}, "Signal_With_A_Name_Longer_Than_32_Chars=3"}},
     "long_names/ECU/Ecu",
     "Electronic_Control_Unit_Of_The_Door"},
    // Declared as texts, long names that read as numbers are names still.
    {"numeric_long_names.dbc", {}, {{801, 0, {0x03}, "7=3"}}, "numeric_long_names/ECU/Ecu", "5"},
    {"attribute_of_unlisted_node.dbc",
     {":11:1: attribute SystemNodeLongSymbol refers to node Gateway, which the file doesn't list"},
     {{145, 0, {0x01}, "Speed=1"}},
     "attribute_of_unlisted_node/ECU/Ecu",
     "WiperControlUnit"},
    {"utf8_with_mark.dbc", {}, {{900, 0, {0x50}, "Temp=40"}}, "utf8_with_mark/frame/Climate", "Gr\u00f6\u00dfe \u2013 Temperatur"},
    {"multiplexing_value_lists.dbc",
     {},
     {{1000, 0, {0x03, 0x11, 0x22, 0, 0, 0, 0, 0x7F}, "Sel=3 Fixed=127 A=17"},
      {1000, 0, {0x01, 0x11, 0x22, 0, 0, 0, 0, 0x7F}, "Sel=1 Fixed=127 A=17"},
      {1000, 0, {0x02, 0x11, 0x22, 0, 0, 0, 0, 0x7F}, "Sel=2 Fixed=127 B=34"},
      {1000, 0, {0x04, 0x11, 0x22, 0, 0, 0, 0, 0x7F}, "Sel=4 Fixed=127"}}},
    {"multiplexing_ranges.dbc",
     {},
     {{1001, 0, {0x02, 0x21, 0x10, 0x27, 0, 0, 0, 0}, "Page=2 Low=33"},
      {1001, 0, {0x09, 0x21, 0x10, 0x27, 0, 0, 0, 0}, "Page=9 High=1000"}}},
    {"multiplexing_two_levels.dbc",
     {},
     {{1002, 0, {0x01, 0x03, 0x44, 0x55, 0, 0, 0, 0}, "Top=1 Sub=3 Deep=68"},
      {1002, 0, {0x01, 0x05, 0x44, 0x55, 0, 0, 0, 0}, "Top=1 Sub=5"},
      {1002, 0, {0x00, 0x03, 0x44, 0x55, 0, 0, 0, 0}, "Top=0 Other=85"},
      {1002, 0, {0x02, 0x03, 0x44, 0x55, 0, 0, 0, 0}, "Top=2"}}},
};

void PrintTo(const Case& c, std::ostream* os) { *os << c.file; }

class DbcTolerance : public ::testing::TestWithParam<Case> {};

TEST_P(DbcTolerance, ImportsWithItsWarningsAndDecodes) {
  const Case& c = GetParam();
  Q9DbNode* db = nullptr;
  ASSERT_EQ(Q9Db_create(u"test", &db), S_OK);
  q9::ImportReport report(q9::test::tolerantFile(c.file));
  ASSERT_TRUE(q9::importDbcFile(db, nullptr, q9::test::tolerantFile(c.file), {}, report)) << report.error();
  std::vector<std::string> warnings;
  for (const q9::ReportRecord& r : report.records())
    if (r.kind == q9::kReportWarning) warnings.push_back(r.text);
  EXPECT_EQ(warnings.size(), c.warnings.size()) << ::testing::PrintToString(warnings);
  for (const char* expected : c.warnings) {
    bool found = false;
    for (const std::string& w : warnings) found = found || w.find(expected) != std::string::npos;
    EXPECT_TRUE(found) << expected << "\nin " << ::testing::PrintToString(warnings);
  }
  const std::string base = std::string(c.file).substr(0, std::string(c.file).rfind('.'));
  Q9DbNode* channel = find(db, base + "/channel");
  ASSERT_NE(channel, nullptr);
  for (const Frame& f : c.frames)
    EXPECT_EQ(decode(db, channel, f.id, f.flags, f.payload), f.decoded) << std::hex << f.id;
  if (c.checkId) {
    Q9DbNode* node = find(db, c.checkId);
    ASSERT_NE(node, nullptr) << c.checkId;
    const char16_t* name = nullptr;
    const char16_t* description = nullptr;
    Q9Db_getShortName(node, &name);
    Q9Db_getDescription(node, 0, 0, &description);
    EXPECT_TRUE(utf8(name) == c.checkText || utf8(description) == c.checkText) << c.checkId;
  }
  Q9Db_destroy(db);
}

INSTANTIATE_TEST_SUITE_P(Files, DbcTolerance, ::testing::ValuesIn(kCases), [](const auto& info) {
  // signal_comment_without_name.dbc -> SignalCommentWithoutName
  std::string name;
  bool upper = true;
  for (const char* p = info.param.file; *p && *p != '.'; ++p) {
    if (*p == '_') {
      upper = true;
      continue;
    }
    name += upper ? char(std::toupper(static_cast<unsigned char>(*p))) : *p;
    upper = false;
  }
  return name;
});

}  // namespace

namespace {

// A signal changed through the frame encoder goes out with the switch values
// that select it, at every level, so the frame decodes to it again.
TEST(DbcTolerance, NestedMultiplexedSignalsAreSentWithTheirSwitchValues) {
  Q9DbNode* db = nullptr;
  ASSERT_EQ(Q9Db_create(u"test", &db), S_OK);
  const std::string path = q9::test::tolerantFile("multiplexing_two_levels.dbc");
  q9::ImportReport report(path);
  ASSERT_TRUE(q9::importDbcFile(db, nullptr, path, {}, report)) << report.error();
  Q9DbNode* channel = find(db, "multiplexing_two_levels/channel");
  Q9DbEncoder* encoder = nullptr;
  ASSERT_EQ(Q9Db_CreateEncoder(db, channel, &encoder), S_OK);
  uint32_t app = 0;
  ASSERT_EQ(Q9Db_EncoderRegister(encoder, &app), S_OK);
  ASSERT_EQ(Q9Db_EncoderSetSendMode(encoder, app, Q9_ENC_MODE_PERIODIC), S_OK);
  ASSERT_EQ(Q9Db_EncoderInsert(encoder, app, find(db, "multiplexing_two_levels/frame/TwoLevels")), S_OK);
  const struct {
    const char* signal;
    uint64_t raw;
    const char* decoded;
  } changes[] = {
      {"Other", 0x55, "Top=0 Other=85"},
      {"Deep", 0x44, "Top=1 Sub=2 Deep=68"},  // the lowest value that selects it
      {"Other", 0x56, "Top=0 Other=86"},
  };
  uint64_t time = 0;
  for (const auto& c : changes) {
    ASSERT_EQ(Q9Db_EncoderChangeSignal(encoder, app, find(db, std::string("multiplexing_two_levels/signal/TwoLevels/") + c.signal),
                                       c.raw),
              S_OK);
    ASSERT_EQ(Q9Db_EncoderTrigger(encoder, time += 10), S_OK);
    Q9DbChangedFrame frame{};
    ASSERT_EQ(Q9Db_EncoderGetChangedFrame(encoder, &frame), S_OK) << c.signal;
    EXPECT_EQ(decode(db, channel, 1002, 0, Bytes(frame.data, frame.data + frame.size)), c.decoded) << c.signal;
  }
  Q9Db_DestroyEncoder(encoder);
  Q9Db_destroy(db);
}

}  // namespace
