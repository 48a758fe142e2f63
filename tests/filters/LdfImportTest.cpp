// LDF files through the filter host, as a C client uses it: import, decode
// real frames to physical values and texts, walk a schedule table, and a
// refused file with its report. Detection, database id, summary and several
// imports into one database are tested from Lua (ldf_filter_test.lua).
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "Q9Db.h"
#include "filters/FilterTestSupport.h"

namespace {

using q9::test::dataFile;
using q9::test::narrow;
using q9::test::wide;

struct Report {
  int32_t first;
  int32_t second;
  std::string text;
};

// Script reports carry UTF-8; the host's final report of a failure is wide.
struct Reports {
  std::vector<Report> script;
  std::vector<std::string> host;

  static int32_t collect(void* context, const FilterReportRecord* record) {
    auto* self = static_cast<Reports*>(context);
    if (record->first == 0 && record->second == 0 && self->hostTurn) {
      self->host.push_back(narrow(static_cast<const char16_t*>(record->text)));
    } else {
      self->script.push_back({record->first, record->second, static_cast<const char*>(record->text)});
    }
    return 0;
  }
  bool hostTurn = false;  // set when only the host's report can follow
  int count(int32_t first) const {
    int n = 0;
    for (const auto& r : script) n += r.first == first;
    return n;
  }
};

class LdfFilter : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(Q9Db_create(u"ldf", &db_), S_OK); }
  void TearDown() override { Q9Db_destroy(db_); }

  HRESULT import(const std::string& path, Reports& reports, Q9DbNode* node = nullptr) {
    return Q9Db_importFile(db_, node, wide(path).c_str(), nullptr, &reports, &Reports::collect);
  }
  Q9DbNode* find(const std::string& id) {
    Q9DbNode* node = nullptr;
    return Q9Db_findByElementId(db_, wide(id).c_str(), &node) == S_OK ? node : nullptr;
  }

  Q9DbNode* db_ = nullptr;
};

// A decoded signal: physical value as text (%.17g for doubles, decimal for
// integers) and the computation's text or the ASCII bytes.
struct Decoded {
  std::string value;
  std::string text;
  bool operator==(const Decoded& o) const { return value == o.value && text == o.text; }
};

std::ostream& operator<<(std::ostream& out, const Decoded& d) { return out << d.value << " '" << d.text << "'"; }

std::map<std::string, Decoded> decode(Q9DbNode* db, Q9DbNode* channel, uint32_t id, const std::vector<uint8_t>& payload) {
  std::map<std::string, Decoded> seen;
  Q9DbDecodeEnum* walk = nullptr;
  EXPECT_EQ(Q9Db_decodeMessage(channel, id, Q9_FLAG_LIN_ENH_CHECKSUM, payload.size(), payload.data(), &walk), S_OK);
  char text[64];
  while (Q9Db_decodeNextFrametriggering(walk, nullptr) >= 0) {
    Q9DbDecodedSignal s{};
    s.textCapacity = sizeof text;
    s.textBuffer = text;
    for (HRESULT kind; (kind = Q9Db_decodeNextSignal(walk, nullptr, &s)) >= 0;) {
      const char16_t* name = nullptr;
      Q9Db_getShortName(s.signal, &name);
      Decoded d;
      if (kind == Q9_ASCIISIGNAL) {
        d.text.assign(text, s.textLength);
      } else {
        Q9DbPhysicalValue v{};
        EXPECT_EQ(Q9Db_internalToPhysical(s.signal, s.value, &v), S_OK) << narrow(name);
        char buffer[64];
        if (v.valueType == Q9_VALUETYPE_DOUBLE) std::snprintf(buffer, sizeof buffer, "%.17g", v.value.d);
        else if (v.valueType == Q9_VALUETYPE_INT64) std::snprintf(buffer, sizeof buffer, "%lld", static_cast<long long>(v.value.i));
        else std::snprintf(buffer, sizeof buffer, "%llu", static_cast<unsigned long long>(v.value.u));
        d.value = buffer;
        const char16_t* label = nullptr;
        if (v.text && Q9Db_stringLookup(db, v.text, 0, 0, &label) == S_OK) d.text = narrow(label);
      }
      seen[narrow(name)] = d;
    }
  }
  Q9Db_destroyDecodeEnum(walk);
  return seen;
}

std::string g17(double value) {
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, "%.17g", value);
  return buffer;
}

TEST_F(LdfFilter, FramesDecodeToTheValuesOfTheFilesNumbers) {
  Reports reports;
  ASSERT_EQ(import(dataFile("climate_panel.ldf"), reports), S_OK);
  EXPECT_EQ(reports.count(1), 6);  // what the file holds that can't be mapped
  Q9DbNode* channel = find("ClimateLin/channel");
  ASSERT_NE(channel, nullptr);

  struct Case {
    uint32_t id;
    std::vector<uint8_t> payload;
    std::map<std::string, Decoded> expected;
  };
  const std::vector<Case> cases = {
      // Mode 2 at bit 0, BlowerSpeed 5 at bit 2, Flap 5 at bit 8.
      {0x10, {0x16, 0x05}, {{"Mode", {"2", "manual"}}, {"BlowerSpeed", {g17(5 * 100.0), ""}}, {"Flap", {g17(5 * 10.0), ""}}}},
      // Flap 20 lies in the second range: scale 1 keeps the integer.
      {0x10, {0x3C, 0x14}, {{"Mode", {"0", "off"}}, {"BlowerSpeed", {"15", "fault"}}, {"Flap", {"120", ""}}}},
      // Temp 653 at bit 8, Humidity 45 at bit 18, SensorError at bit 25.
      {0x20, {0x00, 0x8D, 0xB6, 0x02}, {{"Temp", {g17(653 * 0.1 + -40), ""}}, {"Humidity", {"45", ""}}, {"SensorError", {"1", ""}}}},
      {0x30, {0x01, 0x02, 0x03, 0x04, 'A', 'B', 'C', 0x01},
       {{"Serial", {"67305985", ""}}, {"Label", {"", "ABC"}}, {"PanelError", {"1", ""}}}},
      // The event-triggered frame answered by BlowerStatus (protected id 0x61).
      {0x3A, {0x61, 0x00, 0x34, 0x12}, {{"BlowerError", {"0", ""}}, {"Code", {"1234", ""}}}},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(decode(db_, channel, c.id, c.payload), c.expected) << "frame 0x" << std::hex << c.id;
  }
}

TEST_F(LdfFilter, ScheduleTableSlotsWalkInOrderWithDelays) {
  Reports reports;
  ASSERT_EQ(import(dataFile("climate_panel.ldf"), reports), S_OK);
  Q9DbNode* table = find("ClimateLin/schedule/Normal");
  ASSERT_NE(table, nullptr);
  Q9DbEnumerator* slots = nullptr;
  ASSERT_EQ(Q9Db_enumChildren(table, &slots), S_OK);
  std::ostringstream walked;
  Q9DbNode* slot = nullptr;
  uint32_t fetched = 0;
  while (Q9Db_enumeratorNext(slots, 1, &slot, &fetched) == S_OK && fetched == 1) {
    uint64_t delay = 0;
    Q9DbNode* target = nullptr;
    Q9DbNode* triggering = nullptr;
    const char16_t* name = nullptr;
    Q9Db_getParam(slot, &delay);
    Q9Db_getShortName(slot, &name);
    walked << narrow(name) << ' ' << delay;
    // A frame slot refers to the frame; its triggering has the identifier.
    Q9DbEnumerator* triggerings = nullptr;
    if (Q9Db_getReference(slot, &target) == S_OK && target &&
        Q9Db_getNodeType(target) == Q9_NODETYPE_Frame &&
        Q9Db_enumFrameTriggerings(target, &triggerings) == S_OK) {
      uint32_t identifier = 0, n = 0;
      if (Q9Db_enumeratorNext(triggerings, 1, &triggering, &n) == S_OK && n == 1) {
        Q9Db_getIdentifier(triggering, &identifier);
        walked << " 0x" << std::hex << identifier << std::dec;
      }
      Q9Db_enumeratorDestroy(triggerings);
    }
    walked << '\n';
  }
  Q9Db_enumeratorDestroy(slots);
  EXPECT_EQ(walked.str(),
            "PanelCmd 10000 0x10\nSensorData 10000 0x20\nBlowerStatus 10000 0x21\nPanelInfo 15000 0x30\n"
            "Faults 10000 0x3a\nPanelUpdate 5000\n");
}

TEST_F(LdfFilter, WrongSectionOrderFailsWithTheReadersMessageAndKeepsTheDatabase) {
  std::ifstream in(dataFile("climate_panel.ldf"), std::ios::binary);
  std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  const auto groups = text.find("Signal_groups");
  const auto encodings = text.find("Signal_encoding_types");
  const auto schedules = text.find("Schedule_tables");
  ASSERT_TRUE(groups != std::string::npos && encodings != std::string::npos && schedules != std::string::npos);
  const std::string block = text.substr(groups, encodings - groups);
  text.erase(groups, encodings - groups);
  text.insert(schedules, block);
  const std::string path = ::testing::TempDir() + "ldf_wrong_order.ldf";
  std::ofstream(path, std::ios::binary) << text;

  Q9DbNode* mine = nullptr;
  ASSERT_EQ(Q9Db_createCluster(db_, u"mine", Q9_CLUSTERTYPE_CAN, &mine), S_OK);
  Reports reports;
  reports.hostTurn = true;
  EXPECT_EQ(import(path, reports), E_FAIL);
  std::remove(path.c_str());
  ASSERT_EQ(reports.host.size(), 1u);
  EXPECT_NE(reports.host[0].find("'Schedule_tables' expected but found 'Signal_groups'"), std::string::npos)
      << reports.host[0];
  EXPECT_EQ(find("mine"), mine);
  EXPECT_EQ(find("ClimateLin/cluster"), nullptr);
}

}  // namespace
