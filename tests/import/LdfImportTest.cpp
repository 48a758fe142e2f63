// The LDF reader through its export: each section's table, the section order
// and language-version rules, and the error messages with their positions.
#include <map>

#include "import/ImportTestSupport.h"

namespace q9 {
namespace {

using Parts = std::map<std::string, std::string>;

// A complete file, one section a line from line 9 on: Signals, Frames (10),
// Node_attributes (11), Schedule_tables (12); any part can be replaced.
std::string ldfFile(const Parts& replaced = {}) {
  static const std::pair<const char*, const char*> kParts[] = {
      {"head",
       "LIN_description_file;\nLIN_protocol_version = \"2.1\";\n"
       "LIN_language_version = \"2.1\";\nLIN_speed = 19.2 kbps;\n"},
      {"nodes", "Nodes {\n  Master: M, 5 ms, 0.1 ms;\n  Slaves: S1, S2;\n}\n"},
      {"diagaddresses", ""},
      {"composite", ""},
      {"signals", "Signals { }\n"},
      {"diagsignals", ""},
      {"frames", "Frames { }\n"},
      {"sporadic", ""},
      {"event", ""},
      {"diagframes", ""},
      {"nodeattributes", "Node_attributes { }\n"},
      {"schedules", "Schedule_tables { }\n"},
      {"groups", ""},
      {"encodings", ""},
      {"representation", ""},
      {"tail", ""},
  };
  std::string text;
  for (const auto& [name, standard] : kParts) {
    const auto found = replaced.find(name);
    text += found == replaced.end() ? standard : found->second;
  }
  return text;
}

std::string headOfVersion(const char* version, const char* speed = "19.2") {
  return std::string("LIN_description_file;\nLIN_protocol_version = \"2.1\";\n") +
         "LIN_language_version = \"" + version + "\";\nLIN_speed = " + speed + " kbps;\n";
}

std::unique_ptr<test::ImportRun> importLdf(const std::string& text) {
  return test::importText(Q9Db_importRawLDF, text);
}

// The root entry with the given tag.
std::string sectionOf(const test::ImportRun& run, const std::string& tag) {
  for (lua_Integer i = 1; i <= run.entryCount(); ++i) {
    const std::string entry = run.entry(i);
    if (entry.rfind("{tag=\"" + tag + "\"", 0) == 0) return entry;
  }
  return "no section " + tag + " in " + run.tree();
}

struct SectionCase {
  const char* name;
  Parts parts;
  const char* tag;
  const char* expected;
};

const SectionCase kSectionCases[] = {
    {"head with channel name",
     {{"head", headOfVersion("2.1") + "Channel_name = \"Body\";\n"}},
     "global",
     R"({tag="global", Channel_name="Body", LIN_language_version="2.1", LIN_protocol_version="2.1", LIN_speed=19.2})"},
    {"nodes", {{"nodes", "Nodes { Master: M, 5 ms, 0.1 ms; Slaves: S1, S2 delay; }"}}, "nodes",
     R"({tag="nodes", Master={jitter=0.1, name="M", timebase=5.0}, Slaves={"S1", "S2", "delay"}})"},
    {"no slaves", {{"nodes", "Nodes { Master: M, 5 ms, 1e0 ms; Slaves: ; }"}}, "nodes",
     R"({tag="nodes", Master={jitter=1.0, name="M", timebase=5.0}, Slaves={}})"},
    {"diagnostic addresses below 2.0",
     {{"head", headOfVersion("1.3")},
      {"diagaddresses", "Diagnostic_addresses { S1: 0x01; S2: 2 }\n"},
      {"nodeattributes", ""}},
     "diagnosticaddresses", R"({tag="diagnosticaddresses", S1="0x01", S2="2"})"},
    {"composite",
     {{"composite",
       "composite { configuration C1 { CN1 { S1, S2; } CN2 { S3 ; } } configuration C2 { } }\n"}},
     "composite",
     R"({tag="composite", {tag="configuration", name="C1", {tag="compositenode", name="CN1", "S1", "S2"}, )"
     R"({tag="compositenode", name="CN2", "S3"}}, {tag="configuration", name="C2"}})"},
    {"empty composite", {{"composite", "composite { }\n"}}, "composite", R"({tag="composite"})"},
    {"signals",
     {{"signals", "Signals { A: 8, 5, M, S1, S2; B: 16, {0x01, 2}, S1; C: 1, -1, delay; }\n"}},
     "signals",
     R"({tag="signals", {tag="signal", initvalue=5.0, name="A", publishedby="M", size=8.0, subscribedby={"S1", "S2"}}, )"
     R"({tag="signal", initvalue={"0x01", "2"}, name="B", publishedby="S1", size=16.0, subscribedby={}}, )"
     R"({tag="signal", initvalue=-1.0, name="C", publishedby="delay", size=1.0, subscribedby={}}})"},
    {"diagnostic signals", {{"diagsignals", "Diagnostic_signals { MasterReqB0: 8, 0; }\n"}},
     "diagnosticsignals",
     R"({tag="diagnosticsignals", {tag="signal", initvalue=0.0, name="MasterReqB0", size=8.0}})"},
    {"frames with explicit and default sizes",
     {{"frames",
       "Frames { F1: 0x20, M { A, 0; B, 8; } F2: 0x30, S1 { } F3: 0x20, M, 2 { }\n"
       "  F4: 31, M { } F5: 63, M { } F6: 64, M { } F7: 0x80000000, M { } }\n"}},
     "frames",
     R"({tag="frames", {tag="frame", ident=32.0, name="F1", publishedby="M", size=4.0, )"
     R"({tag="signalinst", name="A", offset=0.0}, {tag="signalinst", name="B", offset=8.0}}, )"
     R"({tag="frame", ident=48.0, name="F2", publishedby="S1", size=8.0}, )"
     R"({tag="frame", ident=32.0, name="F3", publishedby="M", size=2.0}, )"
     R"({tag="frame", ident=31.0, name="F4", publishedby="M", size=2.0}, )"
     R"({tag="frame", ident=63.0, name="F5", publishedby="M", size=8.0}, )"
     R"({tag="frame", ident=64.0, name="F6", publishedby="M", size=2.0}, )"
     R"({tag="frame", ident=-2147483648.0, name="F7", publishedby="M", size=2.0}})"},
    {"sporadic frames", {{"sporadic", "Sporadic_frames { SP: F1, F2; One: F3; }\n"}},
     "sporadicframes",
     R"({tag="sporadicframes", {tag="frame", name="SP", "F1", "F2"}, {tag="frame", name="One", "F3"}})"},
    {"event-triggered frames with and without collision table",
     {{"event", "Event_triggered_frames { E1: 5, A, B; E2: T, 0x3A, A B; }\n"}},
     "eventtriggeredframes",
     R"({tag="eventtriggeredframes", {tag="frame", ident=5.0, name="E1", "A", "B"}, )"
     R"({tag="frame", collisionresolvingscheduletable="T", ident=58.0, name="E2", "A", "B"}})"},
    {"diagnostic frames",
     {{"diagframes", "Diagnostic_frames { MasterReq: 0x3c { B0, 0; } SlaveResp: 0x3d { } }\n"}},
     "diagnosticframes",
     R"({tag="diagnosticframes", {tag="frame", ident=60.0, name="MasterReq", {tag="signalinst", name="B0", offset=0.0}}, )"
     R"({tag="frame", ident=61.0, name="SlaveResp"}})"},
    {"node attributes, full and short",
     {{"nodeattributes",
       "Node_attributes {\n  S1 { LIN_protocol = \"2.1\"; configured_NAD = 0x10; initial_NAD = 0x11;\n"
       "    product_id = 0x1E, 0x2, 1; response_error = RespErr; fault_state_signals = F1, F2 F3;\n"
       "    P2_min = 50 ms; ST_min = 0.5 ms; N_As_timeout = 1000 ms; N_Cr_timeout = 5e1 ms;\n"
       "    configurable_frames { A; B = 0x12; } }\n"
       "  S2 { LIN_protocol = 2.0; configured_NAD = 2; }\n"
       "  S3 { LIN_protocol = \"2.1\"; configured_NAD = 3; product_id = 1, 2; response_error = E;\n"
       "    configurable_frames { } }\n}\n"}},
     "nodeattributes",
     R"({tag="nodeattributes", {tag="node", LIN_protocol="2.1", N_CR_timeout=50.0, N_as=1000.0, P2_min=50.0, )"
     R"(ST_min=0.5, configurableframes={{tag="frame", name="A"}, {tag="frame", ident=18.0, name="B"}}, )"
     R"(configured_NAD=16.0, diagaddress=17.0, faultstatesignals={"F1", "F2", "F3"}, name="S1", )"
     R"(productid={functionid=2.0, supplierid=30.0, variant=1.0}, responseerror="RespErr"}, )"
     R"({tag="node", LIN_protocol="2.0", configured_NAD=2.0, name="S2"}, )"
     R"({tag="node", LIN_protocol="2.1", configurableframes={}, configured_NAD=3.0, name="S3", )"
     R"(productid={functionid=2.0, supplierid=1.0}, responseerror="E"}})"},
    {"schedule tables with every command",
     {{"schedules",
       "Schedule_tables {\n  T1 {\n    F1 delay 10 ms;\n    AssignNAD { S1 } delay 5.5 ms;\n"
       "    ConditionalChangeNAD { 0x7F, 1, 3, 1, 0xFF, 0x01 } delay 5e0 ms;\n"
       "    DataDump { S1, 1, 2, 3, 4, 5 } delay 10 ms;\n    SaveConfiguration { S1 } delay 10 ms;\n"
       "    AssignFrameIdRange { S1, 0 } delay 10 ms;\n"
       "    AssignFrameIdRange { S1, 4, 0x80, 0xC1, 0x42, 3 } delay 10 ms;\n"
       "    FreeFormat { 1, 2, 3, 4, 5, 6, 7, 8 } delay 10 ms;\n"
       "    AssignFrameId { S1, F1 } delay 10 ms;\n  }\n  Empty { }\n}\n"}},
     "scheduletables",
     R"({tag="scheduletables", {tag="scheduletable", name="T1", {tag="identifier", frame="F1", time=10.0}, )"
     R"({tag="assignNAD", node="S1", time=5.5}, )"
     R"({tag="conditionalChangeNAD", NAD=127.0, byte=3.0, id=1.0, inv=255.0, mask=1.0, new_NAD=1.0, time=5.0}, )"
     R"({tag="datadump", data={1.0, 2.0, 3.0, 4.0, 5.0}, name="S1", time=10.0}, )"
     R"({tag="saveconfiguration", node="S1", time=10.0}, )"
     R"({tag="assignframeidrange", frameindex=0.0, node="S1", time=10.0}, )"
     R"({tag="assignframeidrange", framePIDs={128.0, 193.0, 66.0, 3.0}, frameindex=4.0, node="S1", time=10.0}, )"
     R"({tag="freeformat", data={1.0, 2.0, 3.0, 4.0, 5.0, 6.0, 7.0, 8.0}, time=10.0}, )"
     R"({tag="assignframeid", frame="F1", node="S1", time=10.0}}, {tag="scheduletable", name="Empty"}})"},
    {"signal groups", {{"groups", "Signal_groups { G: 16 { A, 0; B, 8; } }\n"}}, "signalgroups",
     R"({tag="signalgroups", {tag="signalgroup", name="G", size=16.0, )"
     R"({tag="signal", name="A", offset=0.0}, {tag="signal", name="B", offset=8.0}}})"},
    {"signal encodings",
     {{"encodings",
       "Signal_encoding_types {\n  E { logical_value, 0; logical_value, 1, \"on\";\n"
       "    physical_value, 0, 100, 0.5, -10, \"deg\"; physical_value, 0, 1, 1, 0;\n"
       "    bcd_value 5; ascii_value 1.5; }\n  Empty { }\n}\n"}},
     "signalencodingtypes",
     R"({tag="signalencodingtypes", {tag="signalencoding", name="E", {tag="logicalvalue", intvalue=0.0}, )"
     R"({tag="logicalvalue", intvalue=1.0, textvalue="on"}, )"
     R"({tag="physicalvalue", maxvalue=100.0, minvalue=0.0, offset=-10.0, scale=0.5, textvalue="deg"}, )"
     R"({tag="physicalvalue", maxvalue=1.0, minvalue=0.0, offset=0.0, scale=1.0}, )"
     R"({tag="bcdvalue", value="5"}, {tag="asciivalue", value="1.5"}}, {tag="signalencoding", name="Empty"}})"},
    {"signal representations", {{"representation", "Signal_representation { E: A, B C; None: ; }\n"}},
     "signalrepresentations",
     R"({tag="signalrepresentations", {tag="signalrepresentation", name="E", "A", "B", "C"}, )"
     R"({tag="signalrepresentation", name="None"}})"},
    {"text behind the last section is never looked at",
     {{"representation", "Signal_representation { }\n"}, {"tail", "} ; \"never closed \x01"}},
     "signalrepresentations", R"({tag="signalrepresentations"})"},
};

TEST(LdfImport, BuildsOneTableForEachSection) {
  for (const SectionCase& c : kSectionCases) {
    const auto run = importLdf(ldfFile(c.parts));
    EXPECT_EQ(sectionOf(*run, c.tag), c.expected) << c.name;
  }
}

TEST(LdfImport, PutsTheSectionsInFileOrderBehindTheHead) {
  const auto run = importLdf(ldfFile({{"composite", "composite { }\n"},
                                      {"event", "Event_triggered_frames { }\n"},
                                      {"encodings", "Signal_encoding_types { }\n"}}));
  std::string tags;
  for (lua_Integer i = 1; i <= run->entryCount(); ++i) {
    const std::string entry = run->entry(i);
    tags += entry.substr(5, entry.find_first_of(",}") - 5) + " ";
  }
  EXPECT_EQ(tags,
            "\"global\" \"nodes\" \"composite\" \"signals\" \"frames\" \"eventtriggeredframes\" "
            "\"nodeattributes\" \"scheduletables\" \"signalencodingtypes\" ");
}

TEST(LdfImport, LanguageVersionDecidesOnDiagnosticAddressesAndNodeAttributes) {
  // A version that is no number counts as 0.0.
  for (const char* version : {"1.3", "abc", "1.99"}) {
    const auto run = importLdf(ldfFile({{"head", headOfVersion(version)},
                                        {"diagaddresses", "Diagnostic_addresses { }\n"},
                                        {"nodeattributes", ""}}));
    EXPECT_EQ(sectionOf(*run, "diagnosticaddresses"), R"({tag="diagnosticaddresses"})") << version;
  }
  const auto v20 = importLdf(ldfFile({{"head", headOfVersion("2.0")}}));
  EXPECT_EQ(sectionOf(*v20, "nodeattributes"), R"({tag="nodeattributes"})");
}

struct ErrorCase {
  const char* name;
  Parts parts;
  const char* message;
};

#define LDF_ERROR(line, column, expected, found) \
  "LDF-Import: (" #line ", " #column "): '" expected "' expected but found '" found "'"

const ErrorCase kErrorCases[] = {
    {"empty file",
     {{"head", ""}, {"nodes", ""}, {"signals", ""}, {"frames", ""}, {"nodeattributes", ""},
      {"schedules", ""}}, LDF_ERROR(1, 1, "LIN_description_file", "")},
    {"no LIN_speed",
     {{"head", "LIN_description_file;\nLIN_protocol_version = \"2.1\";\nLIN_language_version = \"2.1\";\n"}},
     LDF_ERROR(4, 1, "LIN_speed", "Nodes")},
    {"integer speed", {{"head", headOfVersion("2.1", "20")}},
     LDF_ERROR(4, 13, "floating point constant", "20")},
    {"unquoted version",
     {{"head", "LIN_description_file;\nLIN_protocol_version = 2.1;\n"}},
     LDF_ERROR(2, 24, "string constant", "2.1")},
    {"lone slash", {{"head", "LIN_description_file / ;"}}, LDF_ERROR(1, 22, ";", "")},
    {"dollar", {{"head", "LIN_description_file $"}}, LDF_ERROR(1, 22, ";", "$")},
    {"node attributes below 2.0", {{"head", headOfVersion("1.3")}},
     LDF_ERROR(11, 1, "Schedule_tables", "Node_attributes")},
    {"no node attributes from 2.0", {{"head", headOfVersion("2.0")}, {"nodeattributes", ""}},
     LDF_ERROR(11, 1, "Node_attributes", "Schedule_tables")},
    {"sections out of order", {{"nodeattributes", "Node_attributes { }\nSignal_groups { }\n"}},
     LDF_ERROR(12, 1, "Schedule_tables", "Signal_groups")},
    {"no frames", {{"frames", ""}}, LDF_ERROR(10, 1, "Frames", "Node_attributes")},
    {"master without ms", {{"nodes", "Nodes {\n  Master: M, 5, 1 ms;"}},
     LDF_ERROR(6, 15, "ms", ",")},
    {"master named by a number", {{"nodes", "Nodes {\n  Master: 5, 5 ms, 1 ms;"}},
     LDF_ERROR(6, 11, "identifier", "5")},
    {"signal named by a keyword", {{"signals", "Signals {\n  delay: 1, 0, M;\n}\n"}},
     LDF_ERROR(10, 3, "}", "delay")},
    {"bad initial value", {{"signals", "Signals {\n  A: 8, x, M;\n}\n"}},
     LDF_ERROR(10, 9, "integer (scalar initvalue) or array ('{') expected ", "x")},
    {"empty initial array", {{"signals", "Signals {\n  A: 8, { }, M;\n}\n"}},
     LDF_ERROR(10, 11, "integer", "}")},
    {"float frame identifier", {{"frames", "Frames {\n  F: 1.5, M { }\n}\n"}},
     LDF_ERROR(11, 6, "integer", "1.5")},
    {"signed hexadecimal identifier", {{"frames", "Frames {\n  F: -0x1, M { }\n}\n"}},
     LDF_ERROR(11, 6, "integer", "-0x")},
    {"frame entry closed by ;", {{"frames", "Frames {\n  F: 1, M { };\n}\n"}},
     LDF_ERROR(11, 14, "}", ";")},
    {"sporadic frame without frames", {{"sporadic", "Sporadic_frames {\n  SP: ;\n}\n"}},
     LDF_ERROR(12, 7, "identifier", ";")},
    {"event frame without identifier", {{"event", "Event_triggered_frames {\n  E: A, B;\n}\n"}},
     LDF_ERROR(12, 9, "integer", "B")},
    {"integer protocol", {{"nodeattributes", "Node_attributes {\n  S { LIN_protocol = 2; }\n}\n"}},
     LDF_ERROR(12, 22, "constant", "2")},
    {"no configured NAD", {{"nodeattributes", "Node_attributes {\n  S { LIN_protocol = \"2.1\"; }\n}\n"}},
     LDF_ERROR(12, 29, "configured_NAD", "}")},
    {"product without response error",
     {{"nodeattributes",
       "Node_attributes {\n  S { LIN_protocol = \"2.1\"; configured_NAD = 1;\n"
       "product_id = 1, 2; configurable_frames { } }\n}\n"}},
     LDF_ERROR(13, 20, "response_error", "configurable_frames")},
    {"product without configurable frames",
     {{"nodeattributes",
       "Node_attributes {\n  S { LIN_protocol = \"2.1\"; configured_NAD = 1;\n"
       "product_id = 1, 2; response_error = E; P2_min = 1 ms; }\n}\n"}},
     LDF_ERROR(13, 55, "configurable_frames", "}")},
    {"timing lines out of order",
     {{"nodeattributes",
       "Node_attributes {\n  S { LIN_protocol = \"2.1\"; configured_NAD = 1;\n"
       "product_id = 1, 2; response_error = E; ST_min = 1 ms; P2_min = 1 ms; }\n}\n"}},
     LDF_ERROR(13, 55, "configurable_frames", "P2_min")},
    {"keyword as schedule frame", {{"schedules", "Schedule_tables {\n  T { Master delay 10 ms; }\n}\n"}},
     LDF_ERROR(13, 7, "frame_name or command type", "Master")},
    {"slot without delay", {{"schedules", "Schedule_tables {\n  T { F 10 ms; }\n}\n"}},
     LDF_ERROR(13, 9, "delay", "10")},
    {"frame id range with three identifiers",
     {{"schedules", "Schedule_tables {\n  T { AssignFrameIdRange { N, 0, 1, 2, 3 } delay 1 ms; }\n}\n"}},
     LDF_ERROR(13, 42, ",", "}")},
    {"frame id range with five identifiers",
     {{"schedules",
       "Schedule_tables {\n  T { AssignFrameIdRange { N, 0, 1, 2, 3, 4, 5 } delay 1 ms; }\n}\n"}},
     LDF_ERROR(13, 44, "}", ",")},
    {"bcd value without number",
     {{"encodings", "Signal_encoding_types {\n  E { bcd_value ; }\n}\n"}},
     LDF_ERROR(14, 17, "number", ";")},
    {"unknown value type", {{"encodings", "Signal_encoding_types {\n  E { range, 0; }\n}\n"}},
     LDF_ERROR(14, 7, "value type", "range")},
    {"position after comments and multi-line strings",
     {{"head",
       "/* a block\n   comment */ LIN_description_file; // line comment\n"
       "LIN_protocol_version = \"two\nlines\"; LIN_language_version = \"2.1\";\n"
       "LIN_speed = 19.2 kbps\n;\n"},
      {"nodes", "Nodes {\r\n  Master: M, 5 ms, 0.1 ms;\r\n\tSlaves: ; ]"}},
     LDF_ERROR(9, 12, "}", "]")},
};

TEST(LdfImport, ReportsTheFirstMismatchWithItsPosition) {
  for (const ErrorCase& c : kErrorCases) {
    const auto run = importLdf(ldfFile(c.parts));
    EXPECT_EQ(run->message(), c.message) << c.name;
  }
}

}  // namespace
}  // namespace q9
