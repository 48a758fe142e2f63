// The DBC reader through its export: which statements become which tables,
// what is passed over, and the error messages with their positions.
#include "import/ImportTestSupport.h"

namespace q9 {
namespace {

using test::importText;

std::unique_ptr<test::ImportRun> importDbc(const std::string& text) {
  return importText(Q9Db_importRawDBC, text);
}

struct TreeCase {
  const char* name;
  const char* dbc;
  const char* tree;
};

const TreeCase kStatementCases[] = {
    {"empty file", "", R"({tag="db"})"},
    {"node lists add up", "BU_: A B\nBU_:C\n",
     R"({tag="db", {tag="ecu", id="A"}, {tag="ecu", id="B"}, {tag="ecu", id="C"}})"},
    {"frame with all signal forms",
     "BO_ 100 Engine: 8 ECU1\n"
     " SG_ Speed : 0|16@1+ (0.1,0) [0|6553.5] \"km/h\" ECU2,ECU3\n"
     " SG_ Mux M : 16|8@0- (1,-5) [-5|250] \"\" ECU2 ECU3\n"
     " SG_ Sub m3M : 24|8@2+ (-.5,+3) [1e-3|5E2] \"\"\n",
     R"({tag="db", {tag="frame", dlc=8.0, frameid=100.0, id="Engine", sender="ECU1", )"
     R"({tag="signal", bitlen=16.0, id="Speed", max=6553.5, min=0.0, offset=0.0, )"
     R"(receivers={"ECU2", "ECU3"}, scale=0.1, startbit=0.0, unit="km/h"}, )"
     R"({tag="signal", bigendian=true, bitlen=8.0, id="Mux", max=250.0, min=-5.0, mode="M", )"
     R"(offset=-5.0, receivers={"ECU2", "ECU3"}, scale=1.0, signed=true, startbit=16.0, unit=""}, )"
     R"({tag="signal", bitlen=8.0, id="Sub", max=500.0, min=0.001, mode="m", modevalue=3.0, )"
     R"(offset=3.0, receivers={}, scale=-0.5, startbit=24.0, unit=""}}})"},
    {"frame without signals, octal and extended identifiers",
     "BO_ 0123 Foo: 8 Bar\nBO_ 2147483748 Ext: 64 Bar\nBO_ 99999999999 Big: 8 Bar\n",
     R"({tag="db", {tag="frame", dlc=8.0, frameid=83.0, id="Foo", sender="Bar"}, )"
     R"({tag="frame", dlc=64.0, frameid=2147483748.0, id="Ext", sender="Bar"}, )"
     R"({tag="frame", dlc=8.0, frameid=4294967295.0, id="Big", sender="Bar"}})"},
    {"only an unbroken run of signal lines belongs to the frame",
     "BO_ 1 F: 1 E\n SG_ A : 0|1@1+ (1,0) [0|1] \"\" E\n\n SG_ B : 1|1@1+ (1,0) [0|1] \"\" E\n"
     "CM_ \"x\";\n SG_ C : 2|1@1+ (1,0) [0|1] \"\" E\n",
     R"({tag="db", {tag="frame", dlc=1.0, frameid=1.0, id="F", sender="E", )"
     R"({tag="signal", bitlen=1.0, id="A", max=1.0, min=0.0, offset=0.0, receivers={"E"}, scale=1.0, startbit=0.0, unit=""}, )"
     R"({tag="signal", bitlen=1.0, id="B", max=1.0, min=0.0, offset=0.0, receivers={"E"}, scale=1.0, startbit=1.0, unit=""}}, )"
     R"({tag="comment", text="x"}})"},
    {"receivers in every spelling; a keyword ends the list",
     "BO_ 1 F: 1 E\n SG_ A : 0|1@1+ (1,0) [0|1] \"\" X, Y\n SG_ B : 0|1@1+ (1,0) [0|1] \"\" X ,Y\n"
     " SG_ C : 0|1@1+ (1,0) [0|1] \"\" X HEX Y\n",
     R"({tag="db", {tag="frame", dlc=1.0, frameid=1.0, id="F", sender="E", )"
     R"({tag="signal", bitlen=1.0, id="A", max=1.0, min=0.0, offset=0.0, receivers={"X", "Y"}, scale=1.0, startbit=0.0, unit=""}, )"
     R"({tag="signal", bitlen=1.0, id="B", max=1.0, min=0.0, offset=0.0, receivers={"X", "Y"}, scale=1.0, startbit=0.0, unit=""}, )"
     R"({tag="signal", bitlen=1.0, id="C", max=1.0, min=0.0, offset=0.0, receivers={"X"}, scale=1.0, startbit=0.0, unit=""}}})"},
    {"comments on every kind of object",
     "CM_ \"whole\r\nnetwork\";\nCM_ BO_ 100 \"frame\";\nCM_ SG_ 100 Speed \"signal\";\n"
     "CM_ BU_ ECU1 \"node\"; BO_ 1 Lost: 1 X\nCM_ EV_ Env \"env\";\nCM_ \"open",
     R"({tag="db", {tag="comment", text="whole\nnetwork"}, )"
     R"({tag="comment", frame=100.0, ntyp="BO_", text="frame"}, )"
     R"({tag="comment", frame=100.0, ntyp="SG_", signal="Speed", text="signal"}, )"
     R"({tag="comment", ntyp="BU_", refid="ECU1", text="node"}, )"
     R"({tag="comment", ntyp="EV_", refid="Env", text="env"}, {tag="comment", text="open"}})"},
    {"value descriptions",
     "VAL_ 100 Gear 0 \"P\" 1 \"R\" 2 \"N;D\" ; BO_ 1 Lost: 1 X\nVAL_ Env 1 \"on\" ;\nVAL_ 100 None ;\n",
     R"({tag="db", {tag="value", frame=100.0, signal="Gear", values={[0]="P", [1]="R", [2]="N;D"}}, )"
     R"({tag="value", envvar="Env", values={"on"}}, {tag="value", frame=100.0, signal="None"}})"},
    {"attributes keep their values as text",
     "BA_ \"Net\" 5;\nBA_ \"Fr\" BO_ 100 \"text\"; BA_ \"Sig\" SG_ 100 Speed 1.5;\n"
     "BA_ \"Node\" BU_ ECU1 -3;\nBA_ \"Env\" EV_ Env 0x10;\nBA_DEF_DEF_ \"Net\" 5;",
     R"({tag="db", {tag="attr", id="Net", value="5"}, )"
     R"({tag="attr", frame=100.0, id="Fr", ntyp="BO_", value="text"}, )"
     R"({tag="attr", frame=100.0, id="Sig", ntyp="SG_", signal="Speed", value="1.5"}, )"
     R"({tag="attr", id="Node", ntyp="BU_", refid="ECU1", value="-3"}, )"
     R"({tag="attr", id="Env", ntyp="EV_", refid="Env", value="0x10"}, )"
     R"({tag="attrdefault", id="Net", value="5"}})"},
    {"attribute definitions keep only negative integer and float bounds",
     "BA_DEF_ \"A\" INT 0 100;\nBA_DEF_ BO_ \"B\" INT -5 100;\nBA_DEF_ SG_ \"C\" HEX -5 -1;\n"
     "BA_DEF_ BU_ \"D\" FLOAT 0 1;\nBA_DEF_ EV_ \"E\" FLOAT 0.5 1.5;\nBA_DEF_ \"F\" STRING ;\n"
     "BA_DEF_ \"G\" ENUM \"x\",\"y\" \"z\";\nBA_DEF_ \"H\" ENUM;\n",
     R"({tag="db", {tag="attrdef", id="A", typ="INT"}, {tag="attrdef", id="B", min=-5.0, ntyp="BO_", typ="INT"}, )"
     R"({tag="attrdef", id="C", max=-1.0, min=-5.0, ntyp="SG_", typ="HEX"}, )"
     R"({tag="attrdef", id="D", ntyp="BU_", typ="FLOAT"}, )"
     R"({tag="attrdef", id="E", max="1.5", min="0.5", ntyp="EV_", typ="FLOAT"}, )"
     R"({tag="attrdef", id="F", typ="STRING"}, {tag="attrdef", id="G", typ="ENUM", values={"x", "y"}}, )"
     R"({tag="attrdef", id="H", typ="ENUM", values={}}})"},
    {"signal value types", "SIG_VALTYPE_ 100 Speed : 1; SIG_VALTYPE_ 100 Other : 2;",
     R"({tag="db", {tag="sigvaltype", frame=100.0, signal="Speed", sigvaltype=1.0}, )"
     R"({tag="sigvaltype", frame=100.0, signal="Other", sigvaltype=2.0}})"},
    {"statements that keep nothing",
     "VERSION \"1.0\"\nNS_ :\n  CM_\n  BA_DEF_\n  SIG_VALTYPE_\n\nBS_:\n"
     "VAL_TABLE_ Gears 0 \"P;\" 1\n \"R\" ;\nEV_ Env: 0 [0|1] \"\" 0 1 DUMMY_NODE_VECTOR0\n Vector__XXX;\n"
     "CAT_DEF_ 1 \"x\" 1;\nCAT_ BO_ 1 1;\n// BO_ 1 Hidden: 1 X\nSG_ Lone : 0|1@1+ (1,0) [0|1] \"\" E\n"
     "unknown line 1 2 3\n\"string\" ;\n;\nBU_: Last\n",
     R"({tag="db", {tag="ecu", id="Last"}})"},
    {"without BS_ the NS_ list swallows the next line's start",
     "NS_ :\n CM_\nBU_: Lost\nBU_: Kept\n", R"({tag="db", {tag="ecu", id="Kept"}})"},
    {"an unfinished bound list reads on into the next statement",
     "BA_DEF_ \"A\" INT;\nX ;\nBU_: Kept\n",
     R"({tag="db", {tag="attrdef", id="A", typ="INT"}, {tag="ecu", id="Kept"}})"},
    {"bytes above 127 arrive as UTF-8",
     "BO_ 1 F: 1 E\n SG_ T : 0|8@1+ (1,0) [0|1] \"\xB0""C\" E\nCM_ SG_ 1 T \"\x80 \xE4\xF6\xFC \xA7\";\n",
     R"({tag="db", {tag="frame", dlc=1.0, frameid=1.0, id="F", sender="E", )"
     R"({tag="signal", bitlen=8.0, id="T", max=1.0, min=0.0, offset=0.0, receivers={"E"}, scale=1.0, startbit=0.0, unit="°C"}}, )"
     R"({tag="comment", frame=1.0, ntyp="SG_", signal="T", text="€ äöü §"}})"},
};

TEST(DbcImport, BuildsTheTreeStatementByStatement) {
  for (const TreeCase& c : kStatementCases) {
    const auto run = importDbc(c.dbc);
    EXPECT_EQ(run->tree(), c.tree) << c.name;
  }
}

struct ErrorCase {
  const char* dbc;
  const char* message;
};

#define DBC_ERROR(line, column, expected, found) \
  "DBC-Import: (" #line ", " #column "): '" expected "' expected but found '" found "'"

const char* const kSignalStart = "BO_ 1 F: 8 E\n SG_ ";

const ErrorCase kErrorCases[] = {
    {"BO_ X", DBC_ERROR(1, 5, "constant", "X")},
    {"BO_ -1 F: 8 E", DBC_ERROR(1, 5, "constant", "-1")},
    {"BO_ 1.2.3 F: 8 E", DBC_ERROR(1, 5, "constant", "1.2")},
    {"BO_ 100 HEX: 8 E", DBC_ERROR(1, 9, "identifier", "HEX")},
    {"BO_ 100 F 8 E", DBC_ERROR(1, 11, ":", "8")},
    {"BO_ 100 F: E", DBC_ERROR(1, 12, "constant", "E")},
    {"BO_ 100 F: 8 9", DBC_ERROR(1, 14, "identifier", "9")},
    {"BO_ 100 F: 8 \xE4", DBC_ERROR(1, 14, "identifier", "ä")},
    // At the end of the file the column has counted the read ahead and the
    // read of the end itself.
    {"BO_ 100 F: 8", DBC_ERROR(1, 14, "identifier", "")},
    {"CM_ BO_ X \"t\";", DBC_ERROR(1, 9, "message id", "X")},
    {"CM_ SG_ 1 5 \"t\";", DBC_ERROR(1, 11, "identifier", "5")},
    {"CM_ BU_ \"t\";", DBC_ERROR(1, 9, "identifier", "t")},
    {"CM_ BO_ 1 x;", DBC_ERROR(1, 11, "string constant", "x")},
    {"VAL_ \"x\" ;", DBC_ERROR(1, 6, "message id or environment variable identifier", "x")},
    {"VAL_ 1 S -1 \"negative\" ;", DBC_ERROR(1, 10, ";", "-1")},
    {"VAL_ 1 S 1 2 ;", DBC_ERROR(1, 12, "string constant", "2")},
    {"BA_ X 1;", DBC_ERROR(1, 5, "attribute name", "X")},
    {"BA_ \"A\" BO_ 1 ;", DBC_ERROR(1, 15, "constant value", ";")},
    {"BA_ \"A\" -0x1;", DBC_ERROR(1, 9, "constant value", "-0x")},
    {"BA_ \"A\" 5", DBC_ERROR(1, 11, ";", "")},
    {"BA_DEF_DEF_ A 1;", DBC_ERROR(1, 13, "identifier", "A")},
    {"BA_DEF_DEF_ \"A\" X;", DBC_ERROR(1, 17, "constant value", "X")},
    {"BA_DEF_ BO_ X INT;", DBC_ERROR(1, 13, "attribute name", "X")},
    {"BA_DEF_ \"A\" BOOL;", DBC_ERROR(1, 13, "INT, HEX, FLOAT, STRING or ENUM", "BOOL")},
    {"BA_DEF_ \"A\" STRING x;", DBC_ERROR(1, 20, ";", "x")},
    {"BA_DEF_ \"A\" INT;\nBA_ \"x\" 1;", DBC_ERROR(2, 5, ";", "x")},
    {"SIG_VALTYPE_ X", DBC_ERROR(1, 14, "message id", "X")},
    {"SIG_VALTYPE_ 1 2", DBC_ERROR(1, 16, "identifier", "2")},
    {"SIG_VALTYPE_ 1 S 1", DBC_ERROR(1, 18, ":", "1")},
    {"SIG_VALTYPE_ 1 S : x;", DBC_ERROR(1, 20, "signal value type (number)", "x")},
    {"SIG_VALTYPE_ 1 S : 1 x", DBC_ERROR(1, 22, ";", "x")},
    {"BU_ A", DBC_ERROR(1, 5, ":", "A")},
    {"NS_ x", DBC_ERROR(1, 5, ":", "x")},
    // Positions stay right after multi-line strings and with any line ends.
    {"CM_ \"a\nb\r\nc\";\nBO_ 1 F: x", DBC_ERROR(4, 10, "constant", "x")},
    {"CM_ \"a\n\rb\rc\";\n\r\tBO_ 1 F: x", DBC_ERROR(4, 11, "constant", "x")},
};

const ErrorCase kSignalErrorCases[] = {
    {"5", DBC_ERROR(2, 6, "identifier", "5")},
    {"INT : 0|1@1+ (1,0) [0|1] \"\" E", DBC_ERROR(2, 6, "identifier", "INT")},
    {"S x3 : 0|1@1+ (1,0) [0|1] \"\" E", DBC_ERROR(2, 8, "m or M (mode flag)", "x3")},
    {"S 0|1@1+ (1,0) [0|1] \"\" E", DBC_ERROR(2, 8, ":", "0")},
    {"S : x|1@1+ (1,0) [0|1] \"\" E", DBC_ERROR(2, 10, "constant", "x")},
    {"S : 0 1@1+ (1,0) [0|1] \"\" E", DBC_ERROR(2, 12, "|", "1")},
    {"S : 0|1 1+ (1,0) [0|1] \"\" E", DBC_ERROR(2, 14, "@", "1")},
    {"S : 0|1@x+ (1,0) [0|1] \"\" E", DBC_ERROR(2, 14, "constant", "x")},
    {"S : 0|1@1* (1,0) [0|1] \"\" E", DBC_ERROR(2, 15, "+ or -", "*")},
    {"S : 0|1@1+ 1,0) [0|1] \"\" E", DBC_ERROR(2, 17, "(", "1")},
    {"S : 0|1@1+ (a,0) [0|1] \"\" E", DBC_ERROR(2, 18, "number", "a")},
    {"S : 0|1@1+ (1 0) [0|1] \"\" E", DBC_ERROR(2, 20, ",", "0")},
    {"S : 0|1@1+ (1,0] [0|1] \"\" E", DBC_ERROR(2, 21, ")", "]")},
    {"S : 0|1@1+ (1,0) 0|1] \"\" E", DBC_ERROR(2, 23, "[", "0")},
    {"S : 0|1@1+ (1,0) [0,1] \"\" E", DBC_ERROR(2, 25, "|", ",")},
    {"S : 0|1@1+ (1,0) [0|1) \"\" E", DBC_ERROR(2, 27, "]", ")")},
    {"S : 0|1@1+ (1,0) [0|1] E", DBC_ERROR(2, 29, "string constant", "E")},
};

TEST(DbcImport, ReportsTheFirstMismatchWithItsPosition) {
  for (const ErrorCase& c : kErrorCases) {
    const auto run = importDbc(c.dbc);
    EXPECT_EQ(run->message(), c.message) << c.dbc;
  }
  for (const ErrorCase& c : kSignalErrorCases) {
    const auto run = importDbc(std::string(kSignalStart) + c.dbc);
    EXPECT_EQ(run->message(), c.message) << c.dbc;
  }
}

}  // namespace
}  // namespace q9
