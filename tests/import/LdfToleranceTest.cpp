// LDF files as they come from the field (tests/import/data/tolerant, one
// small file per deviation): each imports with the warnings that say what was
// assumed, at their line and column, and builds what the file means; a file
// of which nothing can be used fails with the place and what was expected.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "import/DatabaseDump.h"
#include "import/ImportTestSupport.h"
#include "import/NativeImport.h"

namespace {

// The dump's line of the node with this id.
std::string dumpLine(const std::string& dump, const std::string& id) {
  const std::size_t at = dump.find("\n" + id + " ");
  if (at == std::string::npos) return "(no node " + id + ")";
  return dump.substr(at + 1, dump.find('\n', at + 1) - at - 1);
}

struct Case {
  const char* file;
  std::vector<const char*> warnings;  // every warning, each by a fragment with its line:col
  const char* node;                   // the id of a node the file must give, below its prefix
  const char* field;                  // a fragment of that node's dump line
};

const Case kCases[] = {
    {"sections_out_of_order.ldf",
     {":8:1: section Signals stands behind Frames", ":11:1: section Schedule_tables stands behind Signal_groups"},
     "slot/Run/1",
     "ref=sections_out_of_order/frame/F"},
    {"node_attributes_short.ldf",
     {":10:3: node attributes of S give no response_error", ":10:3: node attributes of S give no configurable_frames"},
     "ECU/S",
     "param=33"},
    {"master_extra_items.ldf",
     {":7:28: the items '48 bits, 40 %' behind the master's jitter are ignored"},
     "ECU/M",
     "desc=[0]\"LIN master; time base 5 ms, jitter 0.1 ms\""},
    {"unknown_section.ldf", {":7:1: the section 'Sensor_calibration { Gain = 3;"}, "triggering/F", "identifier=34"},
    {"unknown_items.ldf",
     {":13:5: the node attribute of S 'wakeup_time = 50 ms;' is not known",
      ":18:5: the schedule command of Run 'UnassignFrameId { S, F } delay 10 ms;' is not known"},
     "slot/Run/1",
     "ref=unknown_items/frame/F"},
    {"missing_semicolon.ldf",
     {":3:29: ';' missing behind LIN_protocol_version; it is supplied",
      ":8:20: ';' missing behind signal Temp; it is supplied"},
     "coding/Temp",
     "bits=10"},
    {"comments.ldf", {}, "triggering/Cmd", "identifier=17"},
    {"identifier_beyond_32_bits.ldf",
     {":8:9: an integer of at most 32 bits (the frame's identifier) expected, found '99999999999'"},
     "triggering/Cmd",
     "identifier=17"},
    {"cut_at_the_end.ldf",
     {":8:1: comment has no closing '*/'; it was taken to end with the file",
      ":10:1: the file has no Node_attributes section", ":10:1: the file has no Schedule_tables section"},
     "triggering/Cmd",
     "identifier=17"},
    {"string_cut_at_the_end.ldf",
     {":10:51: string has no closing quote; it was taken to end with the file",
      ":11:1: ';' missing behind the value description", ":11:1: a signal encoding is not closed by '}'",
      ":11:1: Signal_encoding_types is not closed by '}'"},
     "triggering/Cmd",
     "identifier=17"},
    {"broken_statement.ldf",
     {":9:8: an integer (the signal's size) expected, found 'wide'; signal Bad is left out"},
     "coding/Next",
     "bits=3"},
};

TEST(LdfTolerance, EachDeviationIsReadAsMeantWithOneWarning) {
  for (const Case& c : kCases) {
    SCOPED_TRACE(c.file);
    Q9DbNode* db = nullptr;
    ASSERT_EQ(Q9Db_create(u"test", &db), S_OK);
    q9::ImportReport report(q9::test::tolerantFile(c.file));
    ASSERT_TRUE(q9::importLdfFile(db, nullptr, report.path(), {}, report)) << report.error();
    std::vector<std::string> warnings;
    for (const q9::ReportRecord& r : report.records())
      if (r.kind == q9::kReportWarning) warnings.push_back(r.text);
    ASSERT_EQ(warnings.size(), c.warnings.size()) << (warnings.empty() ? "" : warnings.back());
    for (std::size_t i = 0; i < warnings.size(); ++i)
      EXPECT_NE(warnings[i].find(c.warnings[i]), std::string::npos) << warnings[i];
    const std::string prefix = std::string(c.file).substr(0, std::string(c.file).find('.'));
    EXPECT_NE(dumpLine(q9::testing::dumpDatabase(db), prefix + "/" + c.node).find(c.field), std::string::npos)
        << dumpLine(q9::testing::dumpDatabase(db), prefix + "/" + c.node);
    Q9Db_destroy(db);
  }
}

TEST(LdfTolerance, AFileOfWhichNothingCanBeUsedFailsAndAddsNothing) {
  struct Failure {
    const char* file;
    bool intoFrame;  // the node imported into is a frame
    const char* error;
  };
  const Failure kFailures[] = {
      {"not_a_description.ldf", false, ":2:1: 'LIN_description_file' expected, found 'VERSION'"},
      {"nothing_usable.ldf", false, ":3:1: 'Nodes' expected, found 'Calibration'"},
      {"no_such_file.ldf", false, "the file can't be read"},
      {"comments.ldf", true, "must be a Cluster or a Channel, not Frame"},
  };
  for (const auto& [file, intoFrame, error] : kFailures) {
    SCOPED_TRACE(file);
    Q9DbNode* db = nullptr;
    ASSERT_EQ(Q9Db_create(u"test", &db), S_OK);
    Q9DbNode* frame = nullptr;
    if (intoFrame) {
      ASSERT_EQ(Q9Db_createFrame(db, u"other/frame", 2, &frame), S_OK);
    }
    const std::string before = q9::testing::dumpDatabase(db);
    q9::ImportReport report(q9::test::tolerantFile(file));
    EXPECT_FALSE(q9::importLdfFile(db, frame, report.path(), {}, report));
    EXPECT_NE(report.error().find(error), std::string::npos) << report.error();
    EXPECT_EQ(q9::testing::dumpDatabase(db), before);
    Q9Db_destroy(db);
  }
}

}  // namespace
