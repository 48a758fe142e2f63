// The tolerant DBC reader: the deviations it accepts, with the one warning
// each gives and where (those shown by a file of tests/import/data/tolerant
// are DbcToleranceTest's); a file with every statement kind; files it can't
// use; and the repository's DBC files, which must read without complaint.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <sstream>

#include "import/DbcModel.h"
#include "import/SourceText.h"

namespace q9 {
namespace {

struct Reading {
  DbcModel model;
  ImportReport report{"t.dbc"};
  bool ok = false;
};

std::unique_ptr<Reading> readText(const std::string& text) {
  auto reading = std::make_unique<Reading>();
  reading->ok = readDbcModel(text, reading->model, reading->report);
  return reading;
}

std::string warnings(const ImportReport& report) {
  std::string text;
  for (const ReportRecord& record : report.records()) text += record.text + "\n";
  return text;
}

const char* kindName(DbcObjectKind kind) {
  static const char* const kNames[] = {"net", "node", "msg", "sig", "env"};
  return kNames[int(kind)];
}

std::string at(TextPosition p) { return std::to_string(p.line) + ":" + std::to_string(p.column); }

// The whole model as compact lines, positions included.
std::string dump(const DbcModel& m) {
  std::ostringstream out;
  out << "version " << m.version << "\n";
  for (const auto& [p, name] : m.nodes) out << "node " << name << " " << at(p) << "\n";
  for (const DbcMessage& msg : m.messages) {
    out << "BO " << msg.rawId << " " << msg.name << " " << msg.length << " " << msg.sender << " "
        << at(msg.at) << "\n";
    for (const DbcSignal& s : msg.signals) {
      out << " SG " << s.name << (s.mux.isSwitch ? " M" : "") << (s.mux.isMultiplexed ? " m" : "")
          << (s.mux.isMultiplexed ? std::to_string(s.mux.switchValue) : "") << " " << s.startBit << "|"
          << s.bitLength << (s.bigEndian ? "@0" : "@1") << (s.isSigned ? "-" : "+") << " (" << s.scale << ","
          << s.offset << ") [" << s.minimum << "|" << s.maximum << "] '" << s.unit << "'";
      for (const std::string& r : s.receivers) out << " " << r;
      out << " " << at(s.at) << "\n";
    }
  }
  for (const DbcComment& c : m.comments)
    out << "CM " << kindName(c.object) << " " << c.messageId << " " << c.name << " '" << c.text << "' "
        << at(c.at) << "\n";
  for (const DbcAttributeDefinition& d : m.attributeDefinitions) {
    out << "BA_DEF " << kindName(d.object) << " " << d.name << " " << int(d.type);
    for (const std::string& v : d.enumValues) out << " " << v;
    out << "\n";
  }
  for (const DbcAttributeDefault& d : m.attributeDefaults)
    out << "BA_DEF_DEF " << d.name << " " << d.value << (d.quoted ? " q" : "") << "\n";
  for (const DbcAttributeValue& v : m.attributeValues)
    out << "BA " << v.name << " " << kindName(v.object) << " " << v.messageId << " " << v.objectName << " "
        << v.value << (v.quoted ? " q" : "") << "\n";
  for (const DbcValueDescriptions& v : m.valueDescriptions) {
    out << "VAL " << (v.environmentVariable ? "env " : "") << v.messageId << " " << v.name;
    for (const DbcValueText& t : v.values)
      out << " " << (t.negative ? "-" : "") << t.magnitude << "='" << t.text << "'";
    out << "\n";
  }
  for (const DbcSignalValueType& t : m.signalValueTypes)
    out << "VALTYPE " << t.messageId << " " << t.signal << " " << t.valueType << "\n";
  for (const DbcMultiplexRanges& r : m.multiplexRanges) {
    out << "MUL " << r.messageId << " " << r.signal << " " << r.switchName;
    for (const auto& [low, high] : r.ranges) out << " " << low << "-" << high;
    out << "\n";
  }
  for (const std::string& e : m.environmentVariables) out << "EV " << e << "\n";
  return out.str();
}

TEST(TolerantDbcReader, ReadsEveryStatementKind) {
  const auto r = readText(
      "VERSION \"1.2\"\n\nNS_ :\n\tNS_DESC_\n\tCM_\n\tBA_DEF_REL_\n\tSG_MUL_VAL_\n\nBS_:\n\nBU_: Ecu Gw\n"
      "VAL_TABLE_ T 0 \"a\"\n 1 \"b\" ;\n\n"
      "BO_ 2147483748 Msg: 8 Ecu\n"
      " SG_ Sel M : 0|4@1+ (1,0) [0|15] \"\" Gw\n"
      " SG_ Sub m2M : 7|8@0- (0.5,-40) [-1E+038|1e3] \"\xC2\xB0\x43\" Gw, Ecu\n"
      " SG_ Deep m15 : 16|16@1+ (1,0) [0|0] \"\" Vector__XXX\n"
      "BO_TX_BU_ 100 : Ecu,Gw;\n"
      "EV_ Env: 0 [0|1] \"\" 0 1 DUMMY_NODE_VECTOR0 Vector__XXX;\n"
      "CM_ \"net\r\nwork\";\nCM_ BU_ Ecu \"node\";\nCM_ BO_ 100 \"msg\";\n"
      "CM_ SG_ 100 Sel \"sig\";\nCM_ EV_ Env \"env\";\n"
      "BA_DEF_ \"Db\" STRING ;\nBA_DEF_ BO_ \"Cycle\" INT 0 10000;\nBA_DEF_ SG_ \"Start\" FLOAT -1e9 1e9;\n"
      "BA_DEF_ BU_ \"Mask\" HEX 0 0xFF;\nBA_DEF_ EV_ \"Kind\" ENUM \"a\",\"b\" \"c\";\n"
      "BA_DEF_DEF_ \"Db\" \"\";\nBA_DEF_DEF_ \"Cycle\" 0;\n"
      "BA_ \"Db\" \"Demo\";\nBA_ \"Cycle\" BO_ 100 10;\nBA_ \"Start\" SG_ 100 Sel 1.5;\n"
      "BA_ \"Mask\" BU_ Gw 0x10;\nBA_ \"Kind\" EV_ Env -3;\n"
      "VAL_ 100 Sel 0 \"Off\" 1 \"On\" ;\nVAL_ Env 1 \"on\" ;\nVAL_ 100 Sub ;\n"
      "SIG_VALTYPE_ 100 Deep : 1;\nSG_MUL_VAL_ 100 Deep Sub 0-0, 3 - 5, 7-18446744073709551615;\n");
  ASSERT_TRUE(r->ok);
  EXPECT_EQ(warnings(r->report), "");
  EXPECT_EQ(dump(r->model),
            "version 1.2\nnode Ecu 11:6\nnode Gw 11:10\n"
            "BO 2147483748 Msg 8 Ecu 15:1\n"
            " SG Sel M 0|4@1+ (1,0) [0|15] '' Gw 16:2\n"
            " SG Sub M m2 7|8@0- (0.5,-40) [-1e+38|1000] '\xC2\xB0\x43' Gw Ecu 17:2\n"
            " SG Deep m15 16|16@1+ (1,0) [0|0] '' Vector__XXX 18:2\n"
            "CM net 0  'net\nwork' 21:1\nCM node 0 Ecu 'node' 23:1\nCM msg 100  'msg' 24:1\n"
            "CM sig 100 Sel 'sig' 25:1\nCM env 0 Env 'env' 26:1\n"
            "BA_DEF net Db 3\nBA_DEF msg Cycle 0\nBA_DEF sig Start 2\nBA_DEF node Mask 1\nBA_DEF env Kind 4 a b c\n"
            "BA_DEF_DEF Db  q\nBA_DEF_DEF Cycle 0\n"
            "BA Db net 0  Demo q\nBA Cycle msg 100  10\nBA Start sig 100 Sel 1.5\n"
            "BA Mask node 0 Gw 0x10\nBA Kind env 0 Env -3\n"
            "VAL 100 Sel 0='Off' 1='On'\nVAL env 0 Env 1='on'\nVAL 100 Sub\n"
            "VALTYPE 100 Deep 1\nMUL 100 Deep Sub 0-0 3-5 7-18446744073709551615\nEV Env\n");
}

// One deviation per row: what the model holds afterwards (a fragment of its
// dump) and the one warning, with its place. Comments without a signal name
// or BO_, scales without a leading digit, names starting with digits, a
// missing final ';', escapes and a bad message id have a file each in
// DbcToleranceTest, which checks the same warnings and what the import makes.
struct Deviation {
  const char* text;
  const char* fact;
  const char* warning;  // null: read without a warning
};

const Deviation kDeviations[] = {
    {"BA_ \"A\" -.5;", "BA A net 0  -0.5\n", "1:9: number '-.5' has no leading digit; read as -0.5"},
    {"BA_DEF_DEF_ \"A\" +.5;", "BA_DEF_DEF A 0.5\n", "1:17: number '+.5' has no leading digit; read as 0.5"},
    {"BO_ 1 M: 8 E\n SG_ Q : 0|8@1+ (5.,0) [0|1E+3] \"\" E", "(5,0) [0|1000]", nullptr},
    {"VAL_ 256 Sig -1 \"Invalid\" 0 \"Off\" -18446744073709551615 \"Min\";",
     "VAL 256 Sig -1='Invalid' 0='Off' -18446744073709551615='Min'", nullptr},
    {"BO_ 010 A: 8 E\nBO_ 0x7FF B: 8 E", "BO 10 A 8 E 1:1\nBO 2047 B", nullptr},
    {"BU_ A\nBU_:: B\n", "node A 1:5\nnode B 2:7", nullptr},
    {"NS_\n CM_\nBU_: A", "node A 3:6", nullptr},
    {"CM_ \"a\"\n  BA_ \"X\" 1;", "CM net 0  'a' 1:1\nBA X net 0  1",
     "1:8: statement 'CM_ \"a\"' has no closing ';' before the next statement; it was supplied"},
    {"VERSION \"1.0\nBU_: A", "version 1.0\nnode A 2:6",
     "1:9: string has no closing quote; it was taken to end with its line"},
    {"BO_ 4294967297 M: 8 E", "BO 1 M",
     "1:5: message id '4294967297' does not fit 32 bits; its low 32 bits were kept (1)"},
    {"BU_: A\nFOO_ 1 2 3\nBAR\nBO_ 1 M: 8 E", "node A 1:6\nBO 1 M 8 E 4:1",
     "2:1: statement 'FOO_ 1 2 3' is not known; it was skipped"},
    {"BO_ 1 M: 8\n SG_ S : 0|1@1+ (1,0) [0|1] \"\" E\nBO_ 2 N: 8 E", "BO 2 N 8 E 3:1\n$",
     "1:11: sender node expected but found the end of the line; the message 'BO_ 1 M: 8' was skipped with "
     "its signals"},
    {"BO_ 1 M: 8 E\n SG_ A : 0|8@1+ (1,0) [0|0] \"\" E\n"
     " SG_ Bad : 8|8@1+ (1,0 [0|0] \"\" E\n SG_ C : 16|8@1+ (1,0) [0|0] \"\" E",
     " SG A 0|8@1+ (1,0) [0|0] '' E 2:2\n SG C",
     "3:24: ')' expected but found '['; the signal 'SG_ Bad : 8|8@1+ (1,0 [0|0] \"\" E' was skipped"},
    {"BO_ 1 M: 8 E\n SG_ S : 0|8@1+ (1,0) [0|0] \"\" E;", " SG S 0|8@1+ (1,0) [0|0] '' E 2:2",
     "2:33: ';' behind the receivers of signal S is not DBC; it was ignored"},
    {"BO_ 1 M: 8 E\n SG_ A x3 : 0|8@1+ (1,0) [0|0] \"\" E", "BO 1 M 8 E 1:1\n$",
     "2:8: multiplexer mark 'M', 'm<n>' or 'm<n>M' expected but found 'x3'; "
     "the signal 'SG_ A x3 : 0|8@1+ (1,0) [0|0] \"\" E' was skipped"},
    {"CM_ \"x\";\n SG_ A : 0|8@1+ (1,0) [0|0] \"\" E", "CM net 0  'x'",
     "2:2: signal 'SG_ A : 0|8@1+ (1,0) [0|0] \"\" E' stands outside a message; it was skipped"},
    {"BA_REL_ \"A\" BU_SG_REL_ E SG_ 1 S 1;\nBA_REL_ \"A\" BU_SG_REL_ E SG_ 1 T 2;", "version \n",
     "1:1: 2 BA_REL_ statements (relation attribute values) were not imported"},
    {"BA_ \"Send\" BO_ 1 Cyclic;", "BA Send msg 1  Cyclic q",
     "1:18: value 'Cyclic' is not quoted; read as the string \"Cyclic\""},
    {"BA_DEF_ BO_ \"A\" INT;", "BA_DEF msg A 0",
     "1:20: attribute definition 'A' gives no bounds; read without them"},
    {"BS_: 500 : 12,34\nBU_: A", "node A 2:6", "1:6: bus timing '500 : 12,34' of BS_ is not imported"},
};

TEST(TolerantDbcReader, ReadsEachDeviationAsMeantWithOneWarning) {
  for (const Deviation& d : kDeviations) {
    const auto r = readText(d.text);
    EXPECT_TRUE(r->ok) << d.text;
    const std::string model = dump(r->model), fact = d.fact;
    // A fact ending in '$' ends the dump: nothing was read behind it.
    if (fact.back() == '$')
      EXPECT_EQ(model.substr(model.size() - std::min(model.size(), fact.size() - 1)),
                fact.substr(0, fact.size() - 1))
          << d.text << "\n"
          << model;
    else
      EXPECT_NE(model.find(fact), std::string::npos) << d.text << "\n" << model;
    EXPECT_EQ(warnings(r->report), d.warning ? std::string("t.dbc:") + d.warning + "\n" : "") << d.text;
  }
}

TEST(TolerantDbcReader, FailsOnlyWhenNothingCanBeUsed) {
  EXPECT_TRUE(readText("")->ok);
  EXPECT_TRUE(readText(" \r\n\t\n")->ok);
  const auto binary =
      readText(std::string("\x7F"
                           "ELF\x02\x01\0\0\n\x01\xFF",
                           11));
  EXPECT_FALSE(binary->ok);
  EXPECT_EQ(binary->report.error(), "t.dbc:1:1: DBC statement expected but found '?ELF\?\?\?\?'");
  const auto broken = readText("\n  BO_ 1 ;");
  EXPECT_FALSE(broken->ok);
  EXPECT_EQ(broken->report.error(), "t.dbc:2:9: message name expected but found ';'");
  const auto loose = readText(" SG_ A : 0|1@1+ (1,0) [0|1] \"\" E");
  EXPECT_EQ(loose->report.error(),
            "t.dbc:1:2: message (BO_) expected but found 'SG_ A : 0|1@1+ (1,0) [0|1] \"\" E'");
  EXPECT_TRUE(readText("<xml>\nBU_: A")->ok);
}

// The repository's files follow the grammar; broken.dbc breaks one signal
// on purpose, and comfort_body.dbc has a signal group.
TEST(TolerantDbcReader, ReadsTheRepositoryFiles) {
  const char* root = std::getenv("Q9DB_SOURCE_DIR");
  if (!root) GTEST_SKIP() << "Q9DB_SOURCE_DIR is not set";
  const struct {
    const char* path;
    std::size_t messages;
    const char* warnings;
  } kFiles[] = {
      {"tests/filters/data/broken.dbc", 1,
       "broken.dbc:5:24: ')' expected but found '['; the signal 'SG_ Bad : 8|8@1+ (1,0 [0|0] \"\" Node' was "
       "skipped\n"},
      {"tests/filters/data/fd_chassis.dbc", 4, ""},
      {"tests/filters/data/oddities.dbc", 6, ""},
      {"tests/filters/data/powertrain.dbc", 6, ""},
      {"tests/import/data/comfort_body.dbc", 4,
       "comfort_body.dbc:91:1: 1 SIG_GROUP_ statement (signal groups) was not imported\n"},
      {"examples/vehicle.dbc", 10, ""},
  };
  for (const auto& file : kFiles) {
    SourceText source;
    std::string reason;
    ASSERT_EQ(readSourceText(std::string(root) + "/" + file.path, source, reason), S_OK) << reason;
    DbcModel model;
    const std::string name = std::string(file.path).substr(std::string(file.path).rfind('/') + 1);
    ImportReport report(name);
    EXPECT_TRUE(readDbcModel(source.text, model, report)) << file.path;
    EXPECT_EQ(model.messages.size(), file.messages) << file.path;
    EXPECT_EQ(warnings(report), file.warnings) << file.path;
  }
}

}  // namespace
}  // namespace q9
