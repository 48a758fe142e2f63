// The graph dump: the exact file of an empty database, the labels, fills
// and edges of a network's nodes, long and escaped texts that Graphviz
// renders, deep nesting, and what the dump refuses.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <regex>
#include <string>
#include <vector>

#include "../import/ImportTestSupport.h"
#include "../store/StoreFixture.h"

namespace q9::test {
namespace {

std::string nameOf(const void* node) {
  char text[32];
  std::snprintf(text, sizeof text, "_%p", node);
  return text;
}

struct Edge {
  std::string from, to, colour;
  std::size_t line;
};

// A dump read back: node lines by name, edges in file order.
struct Dump {
  std::vector<std::string> lines;
  std::map<std::string, std::string> labels;
  std::map<std::string, std::string> fills;
  std::map<std::string, std::size_t> nodeLine;
  std::map<std::string, int> timesPrinted;
  std::vector<Edge> edges;
  std::vector<std::string> unparsed;

  explicit Dump(const std::string& text) {
    static const std::regex node(R"re(^(_\w+) \[label="(.*)"(, style=filled, color=(\w+))?\];$)re");
    static const std::regex edge(R"(^(_\w+) -> (_\w+) \[color=(\w+)\];$)");
    std::size_t start = 0;
    for (std::size_t end; (end = text.find('\n', start)) != std::string::npos; start = end + 1)
      lines.push_back(text.substr(start, end - start));
    for (std::size_t i = 1; i + 1 < lines.size(); ++i) {
      std::smatch m;
      if (std::regex_match(lines[i], m, node)) {
        labels[m[1]] = m[2];
        fills[m[1]] = m[4];
        nodeLine[m[1]] = i;
        ++timesPrinted[m[1]];
      } else if (std::regex_match(lines[i], m, edge)) {
        edges.push_back({m[1], m[2], m[3], i});
      } else {
        unparsed.push_back(lines[i]);
      }
    }
  }
  std::string label(const void* node) const {
    auto it = labels.find(nameOf(node));
    return it == labels.end() ? "(not printed)" : it->second;
  }
  int edgesBetween(const void* from, const void* to, const std::string& colour) const {
    int n = 0;
    for (const Edge& e : edges) n += e.from == nameOf(from) && e.to == nameOf(to) && e.colour == colour;
    return n;
  }
};

class GraphDumpTest : public StoreTest {
 protected:
  static void ok(HRESULT hr) { EXPECT_EQ(hr, S_OK); }

  // A CAN network with plain and multiplexed frames, a scheduled frame,
  // a coding with a computation, a unit, a timing, a view, and ids that
  // need escaping.
  void buildNetwork() {
    ok(Q9Db_createCluster(handle, u"PowertrainCAN", Q9_CLUSTERTYPE_CAN, &cluster));
    ok(Q9Db_createChannel(handle, u"PT-CAN", cluster, &channel));
    ok(Q9Db_createECU(handle, u"EngineControl", &engine));
    ok(Q9Db_createUnitSpec(handle, u"degC", 9, u"\u00b0C <raw>", &celsius));

    ok(Q9Db_createFrame(handle, u"EngineData", 8, &frame));
    ok(Q9Db_createIdentifierBasedTriggering(handle, nullptr, 0x100, Q9_FLAG_CANSTANDARD, frame, engine,
                                            channel, &triggering));
    ok(Q9Db_createMaskedIdentifierTriggering(handle, u"diag range", 0x700, 0x600, 1, frame, nullptr,
                                             channel, &masked));
    ok(Q9Db_createPDUInstance(handle, nullptr, 0, 0, -1, nullptr, frame, &placement));
    ok(Q9Db_createSignalPDU(handle, u"EngineDataPdu", 64, placement, &pdu));

    ok(Q9Db_createCoding(handle, u"coding temp", 8, Q9_ENCODING_DIRECT, celsius, &coding));
    ok(Q9Db_createLinearComputation(handle, nullptr, 1, -40, &computation));
    ok(Q9Db_addRange(computation, -40, 215, Q9_FLAG_SIGNALDEFAULT));
    ok(Q9Db_addInternalToPhysicalComputations(coding, 1, &computation));
    ok(Q9Db_createSignal(handle, u"a<b|c", 0, 0, -40, 215, coding, &temp));
    // One signal placed twice in the same PDU.
    ok(Q9Db_createSignalInstance(handle, nullptr, 1, 23, -1, temp, pdu, &firstInstance));
    ok(Q9Db_createSignalInstance(handle, u"copy", 0, 40, 63, temp, pdu, &secondInstance));

    Q9DbNode* muxPlacement = create(Q9Db_createPDUInstance, nullptr, 0, 0, -1, nullptr, frame);
    ok(Q9Db_createMultiplexedPDU(handle, u"DiagMux", 64, 1, 7, 8, 0, muxPlacement, &mux));
    ok(Q9Db_createMultiplexedPart(handle, nullptr, 0, mux, &staticPart));
    ok(Q9Db_setStaticPart(mux, staticPart));
    Q9DbNode* part = create(Q9Db_createMultiplexedPart, nullptr, 1, mux);
    ok(Q9Db_addDynamicParts(mux, 1, &part));
    ok(Q9Db_addSegment(part, 0, 16, 48));
    create(Q9Db_createSignalPDU, u"Diag{1}", 48, part);

    ok(Q9Db_createCyclicTiming(handle, 100, create(Q9Db_createPDUTriggering, nullptr, pdu, channel), &timing));

    ok(Q9Db_createFrame(handle, u"Slot\"7\"\\", 16, &schedule));
    create(Q9Db_createAbsolutelyScheduledTriggering, nullptr, 7, 0, 4, 0, schedule, engine, channel);

    ok(Q9Db_createElementGroup(handle, u"ECUView", node(collections()->views), engine, &view));

    ok(Q9Db_setShortName(temp, u"T|emp"));
    ok(Q9Db_setParam(temp, 3));
    ok(Q9Db_setParam(frame, 11));
    ok(Q9Db_setParam(engine, 10));
  }

  std::string dumpText() {
    ScratchFile file("", ".dot");
    EXPECT_EQ(Q9Db_dumpDot(handle, file.widePath().c_str(), 9, 65535), S_OK);
    return readFile(file.path());
  }

  Q9DbNode *cluster = nullptr, *channel = nullptr, *engine = nullptr, *celsius = nullptr;
  Q9DbNode *frame = nullptr, *triggering = nullptr, *masked = nullptr, *placement = nullptr;
  Q9DbNode *pdu = nullptr, *coding = nullptr, *computation = nullptr, *temp = nullptr;
  Q9DbNode *firstInstance = nullptr, *secondInstance = nullptr, *mux = nullptr;
  Q9DbNode *staticPart = nullptr, *timing = nullptr, *view = nullptr, *schedule = nullptr;
};

// The empty database: the exact file, with addresses named.
TEST_F(GraphDumpTest, EmptyDatabaseIsTheCollectionsNodeAndItsGroups) {
  std::string text = dumpText();
  Q9DbNode* collections = nullptr;
  ASSERT_EQ(Q9Db_getDatabaseCollections(handle, &collections), S_OK);
  std::string expected = "digraph sample { node[shape=record];\n";
  for (const char16_t* id : {u"@clusters", u"@ECUs", u"@PDUs", u"@frames", u"@signals", u"@codings", u"@views"}) {
    Q9DbNode* group = nullptr;
    ASSERT_EQ(Q9Db_findByElementId(handle, id, &group), S_OK);
    const std::string name = nameOf(group), narrowId = platform::utf16ToUtf8(id);
    expected += name + " -> " + nameOf(collections) + " [color=gray];\n";
    expected += name + " [label=\"ElementGroup []: " + narrowId + "\"];\n";
    expected += nameOf(collections) + " -> " + name + " [color=cyan];\n";
  }
  const char16_t* rootId = nullptr;
  Q9Db_getElementId(collections, &rootId);
  expected += nameOf(collections) + " [label=\"DatabaseCollections []: " +
              (rootId ? platform::utf16ToUtf8(rootId) : nameOf(collections).substr(1)) + "\"];\n}\n";
  EXPECT_EQ(text, expected);
}

TEST_F(GraphDumpTest, LabelsShowClassShortNameIdDetailsAndParam) {
  buildNetwork();
  const Dump dump(dumpText());
  EXPECT_TRUE(dump.unparsed.empty()) << dump.unparsed.front();
  const struct {
    Q9DbNode* node;
    std::string label;
  } cases[] = {
      {cluster, "Cluster []: PowertrainCAN, type:1"},
      {triggering, "IdentifierBasedTriggering []: " + nameOf(triggering).substr(1) +
                       "\\nidentifier: 256\\nflags: 0x0"},
      {masked, "MaskedIdentifierTriggering []: diag range\\nmask: 1792\\ncode: 1536\\nflags: 0x1"},
      {firstInstance, "SignalInstance []: " + nameOf(firstInstance).substr(1) +
                          "\\nbyteorder: m\\nbitpos: 23\\nupdatebitpos: -1"},
      {secondInstance, "SignalInstance []: copy\\nbyteorder: i\\nbitpos: 40\\nupdatebitpos: 63"},
      {placement, "PDUInstance []: " + nameOf(placement).substr(1) +
                      "\\nbyteorder: i\\nbitpos: 0\\nupdatebitpos: -1"},
      {coding, "Coding []: coding temp\\nbitlen: 8\\nencoding: 1"},
      {frame, "Frame []: EngineData (11)\\nlength: 8"},
      {celsius, "UnitSpec []: degC\\ndisplayname: \u00b0C \\<raw\\>"},
      {pdu, "SignalPDU []: EngineDataPdu\\nbitlen: 64"},
      {mux, "MultiplexedPDU []: DiagMux\\npos: 7:8 m\\nbitlen: 64"},
      {temp, "Signal [T\\|emp]: a\\<b\\|c (3)"},
      {engine, "ElementGroup []: EngineControl (10)"},
      {timing, "CyclicTiming []: " + nameOf(timing).substr(1)},
      {schedule, "Frame []: Slot\\\"7\\\"\\\\\\nlength: 16"},
  };
  for (const auto& c : cases) EXPECT_EQ(dump.label(c.node), c.label);

  // Params 1 to 10 fill the node; 11 and up only show in the label.
  EXPECT_EQ(dump.fills.at(nameOf(temp)), "blue");
  EXPECT_EQ(dump.fills.at(nameOf(engine)), "blueviolet");
  EXPECT_EQ(dump.fills.at(nameOf(frame)), "");
  EXPECT_EQ(dump.fills.at(nameOf(pdu)), "");
}

TEST_F(GraphDumpTest, EveryNodeOnceAndLinksInBothDirections) {
  buildNetwork();
  const Dump dump(dumpText());
  for (const auto& [name, times] : dump.timesPrinted) EXPECT_EQ(times, 1) << name;
  for (Q9DbNode* node : {cluster, channel, engine, celsius, frame, triggering, masked, placement, pdu,
                         coding, computation, temp, firstInstance, secondInstance, mux, staticPart,
                         timing, view})
    EXPECT_EQ(dump.timesPrinted.count(nameOf(node)), 1u) << dump.label(node);
  // Every edge joins printed nodes.
  for (const Edge& e : dump.edges) {
    EXPECT_EQ(dump.timesPrinted.count(e.from), 1u) << e.from;
    EXPECT_EQ(dump.timesPrinted.count(e.to), 1u) << e.to;
  }

  for (Q9DbNode* instance : {firstInstance, secondInstance}) {
    EXPECT_EQ(dump.edgesBetween(instance, temp, "blue"), 1);    // its reference
    EXPECT_EQ(dump.edgesBetween(temp, instance, "black"), 1);   // the signal's list
    EXPECT_EQ(dump.edgesBetween(pdu, instance, "black"), 1);    // the PDU's list
    EXPECT_EQ(dump.edgesBetween(instance, pdu, "green"), 1);    // its parent
  }
  EXPECT_EQ(dump.edgesBetween(triggering, engine, "black"), 1);
  EXPECT_EQ(dump.edgesBetween(frame, triggering, "orange"), 1);
  EXPECT_EQ(dump.edgesBetween(frame, placement, "brown"), 1);
  EXPECT_EQ(dump.edgesBetween(placement, pdu, "blue"), 1);
  EXPECT_EQ(dump.edgesBetween(pdu, placement, "red"), 1);
  EXPECT_EQ(dump.edgesBetween(coding, computation, "yellow"), 1);
  EXPECT_EQ(dump.edgesBetween(temp, coding, "blue"), 1);
  EXPECT_EQ(dump.edgesBetween(mux, staticPart, "black"), 1);
  EXPECT_EQ(dump.edgesBetween(view, engine, "blue"), 1);

  // Shared links come before a node's own line, those of its class after it.
  auto lineOf = [&](const void* from, const void* to, const std::string& colour) {
    for (const Edge& e : dump.edges)
      if (e.from == nameOf(from) && e.to == nameOf(to) && e.colour == colour) return e.line;
    return std::size_t(0);
  };
  const std::size_t signalLine = dump.nodeLine.at(nameOf(temp));
  EXPECT_LT(lineOf(temp, coding, "blue"), signalLine);
  EXPECT_GT(lineOf(temp, firstInstance, "black"), signalLine);
  EXPECT_LT(lineOf(temp, firstInstance, "black"), lineOf(temp, secondInstance, "black"));
}

// Also with long texts cut in the middle of their escapes.
TEST_F(GraphDumpTest, GraphvizRendersTheDump) {
  if (std::system("command -v dot > /dev/null 2>&1") != 0) GTEST_SKIP() << "Graphviz dot is not installed";
  buildNetwork();
  Q9DbNode *longFrame = nullptr, *longUnit = nullptr, *itsCoding = nullptr;
  ASSERT_EQ(Q9Db_createFrame(handle, std::u16string(700, u'|').c_str(), 8, &longFrame), S_OK);
  ASSERT_EQ(Q9Db_createUnitSpec(handle, u"u", 9, std::u16string(200, u'"').c_str(), &longUnit), S_OK);
  ASSERT_EQ(Q9Db_createCoding(handle, u"c", 8, Q9_ENCODING_DIRECT, longUnit, &itsCoding), S_OK);
  ScratchFile dot("", ".dot"), png("", ".png"), errors("", ".txt");
  ASSERT_EQ(Q9Db_dumpDot(handle, dot.widePath().c_str(), 9, 65535), S_OK);
  const Dump dump(readFile(dot.path()));
  // Ids stop at 1022 units, details at 100, both before an escape that
  // would not fit whole.
  std::string bars, quotes;
  for (int i = 0; i < 511; ++i) bars += "\\|";
  for (int i = 0; i < 42; ++i) quotes += "\\\"";
  EXPECT_EQ(dump.label(longFrame), "Frame []: " + bars + "\\nlength: 8");
  EXPECT_EQ(dump.label(longUnit), "UnitSpec []: u\\ndisplayname: " + quotes);

  const std::string command =
      "dot -Tpng '" + dot.path() + "' -o '" + png.path() + "' 2> '" + errors.path() + "'";
  EXPECT_EQ(std::system(command.c_str()), 0);
  EXPECT_EQ(readFile(errors.path()), "");
  EXPECT_EQ(readFile(png.path()).substr(1, 3), "PNG");
}

// Nested groups deeper than any thread stack would allow a recursive walk.
TEST_F(GraphDumpTest, DeeplyNestedGroupsDump) {
  Q9DbNode* views = nullptr;
  ASSERT_EQ(Q9Db_findByElementId(handle, u"@views", &views), S_OK);
  Q9DbNode* parent = views;
  constexpr int kDepth = 30000;
  for (int i = 0; i < kDepth; ++i) {
    const std::u16string id = u"g" + platform::utf8ToUtf16(std::to_string(i));
    ASSERT_EQ(Q9Db_createElementGroup(handle, id.c_str(), parent, nullptr, &parent), S_OK);
  }
  const Dump dump(dumpText());
  EXPECT_EQ(dump.timesPrinted.size(), 8u + kDepth);
  EXPECT_EQ(dump.lines.back(), "}");
}

TEST_F(GraphDumpTest, RefusesWhatIsNoDatabaseAndFilesThatCantBeWritten) {
  Q9DbNode* f = nullptr;
  ASSERT_EQ(Q9Db_createFrame(handle, u"F", 8, &f), S_OK);
  EXPECT_EQ(Q9Db_dumpDot(nullptr, u"x.dot", 0, 0), E_INVALIDARG);
  EXPECT_EQ(Q9Db_dumpDot(f, u"x.dot", 0, 0), E_INVALIDARG);
  EXPECT_EQ(Q9Db_dumpDot(handle, nullptr, 0, 0), E_INVALIDARG);
  const std::u16string missingFolder = platform::utf8ToUtf16(::testing::TempDir()) + u"no such folder/x.dot";
  EXPECT_EQ(Q9Db_dumpDot(handle, missingFolder.c_str(), 0, 0), E_UNEXPECTED);
}

}  // namespace
}  // namespace q9::test
