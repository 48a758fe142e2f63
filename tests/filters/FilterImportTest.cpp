// Description files through the filter host, as a C client uses it: LIN
// frames decoded to physical values of the right type and texts, physical
// values encoded back through a DBC's computations, and refused files (DBC
// and LDF) with the host's report. DBC frames are decoded at random against
// the test's own reading of the files, exported and imported again, from Lua
// (dbc_filter_test.lua), as are the scripts' reports, options and detection
// (ldf_filter_test.lua too).
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "Q9Db.h"

namespace {

std::u16string wide(const std::string& text) {
  return std::u16string(text.begin(), text.end());  // paths and ids here are ASCII
}

std::string narrow(const char16_t* text) {
  std::string out;
  for (; text && *text; ++text) out += *text < 0x80 ? static_cast<char>(*text) : '?';
  return out;
}

std::string dataFile(const char* name) {
  const char* source = std::getenv("Q9DB_SOURCE_DIR");
  return std::string(source ? source : ".") + "/tests/filters/data/" + name;
}

std::string g17(double value) {
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, "%.17g", value);
  return buffer;
}

uint64_t bitsOf(float value) {
  uint32_t bits;
  std::memcpy(&bits, &value, sizeof bits);
  return bits;
}

// The host's one report after a failure: wide text, with both numbers 0.
int32_t collectHostReport(void* context, const FilterReportRecord* record) {
  if (record->first == 0 && record->second == 0)
    static_cast<std::vector<std::string>*>(context)->push_back(narrow(static_cast<const char16_t*>(record->text)));
  return 0;
}

// A decoded signal: its physical value (%.17g for doubles, decimal for
// integers) and the computation's text or the ASCII bytes.
struct Decoded {
  std::string value, text;
  bool operator==(const Decoded& o) const { return value == o.value && text == o.text; }
};
std::ostream& operator<<(std::ostream& out, const Decoded& d) { return out << d.value << " '" << d.text << "'"; }
using Signals = std::map<std::string, Decoded>;

Signals decode(Q9DbNode* db, Q9DbNode* channel, uint32_t id, uint32_t flags, const std::vector<uint8_t>& payload) {
  Signals seen;
  Q9DbDecodeEnum* walk = nullptr;
  EXPECT_EQ(Q9Db_decodeMessage(channel, id, flags, payload.size(), payload.data(), &walk), S_OK);
  char ascii[64];
  while (Q9Db_decodeNextFrametriggering(walk, nullptr) >= 0) {
    Q9DbDecodedSignal s{};
    s.textCapacity = sizeof ascii;
    s.textBuffer = ascii;
    for (HRESULT kind; (kind = Q9Db_decodeNextSignal(walk, nullptr, &s)) >= 0;) {
      const char16_t* name = nullptr;
      Q9Db_getShortName(s.signal, &name);
      Decoded d;
      if (kind == Q9_ASCIISIGNAL) {
        d.text.assign(ascii, s.textLength);
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
      EXPECT_EQ(seen.count(narrow(name)), 0u) << narrow(name) << " twice";
      seen[narrow(name)] = d;
    }
  }
  Q9Db_destroyDecodeEnum(walk);
  return seen;
}

struct Field {
  const char* name;  // null for bytes that are no signal
  unsigned start, length;
  uint64_t raw;
  Decoded expected;
};

struct Frame {
  uint32_t id;
  size_t length;
  std::vector<Field> fields;
};

// Each field's raw value goes to its place, little-endian as the LIN bus
// sends it; the expected value is the file's encoding applied by hand.
const std::vector<Frame> kLinFrames = {
    {0x10, 2, {{"Mode", 0, 2, 2, {"2", "manual"}}, {"BlowerSpeed", 2, 4, 5, {g17(5 * 100.0), ""}}, {"Flap", 8, 8, 5, {g17(5 * 10.0), ""}}}},
    // Flap 20 lies in the second range, whose scale 1 keeps the integer.
    {0x10, 2, {{"Mode", 0, 2, 0, {"0", "off"}}, {"BlowerSpeed", 2, 4, 15, {"15", "fault"}}, {"Flap", 8, 8, 20, {"120", ""}}}},
    {0x20, 4, {{"Temp", 8, 10, 653, {g17(653 * 0.1 + -40), ""}}, {"Humidity", 18, 7, 45, {"45", ""}}, {"SensorError", 25, 1, 1, {"1", ""}}}},
    {0x20, 4,
     {{"Temp", 8, 10, 1023, {"1023", "sensor fault"}}, {"Humidity", 18, 7, 127, {"127", "not available"}},
      {"SensorError", 25, 1, 0, {"0", ""}}}},
    {0x21, 4, {{"BlowerError", 8, 1, 1, {"1", ""}}, {"Code", 16, 16, 0x1234, {"1234", ""}}}},  // packed BCD
    {0x30, 8, {{"Serial", 0, 32, 0x04030201, {"67305985", ""}}, {"Label", 32, 24, 0x434241, {"", "ABC"}}, {"PanelError", 56, 1, 1, {"1", ""}}}},
    // A frame longer than its 1 byte keeps the signals that fit.
    {0x11, 1, {{"Mode", 0, 2, 1, {"1", "auto"}}}},
    // The event-triggered frame answered by SensorData and BlowerStatus
    // (protected ids 0x20 and 0x61), and with an unknown first byte.
    {0x3A, 4,
     {{nullptr, 0, 8, 0x20, {}}, {"Temp", 8, 10, 100, {g17(100 * 0.1 + -40), ""}}, {"Humidity", 18, 7, 3, {"3", ""}},
      {"SensorError", 25, 1, 0, {"0", ""}}}},
    {0x3A, 4, {{nullptr, 0, 8, 0x61, {}}, {"BlowerError", 8, 1, 0, {"0", ""}}, {"Code", 16, 16, 0x0099, {"99", ""}}}},
    {0x3A, 4, {{nullptr, 0, 8, 0x01, {}}}},
    {0x3C, 8, {{"MasterReqB0", 0, 8, 0x7F, {"127", ""}}, {"MasterReqB1", 8, 8, 6, {"6", ""}}}},
};

class FilterImport : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(Q9Db_create(u"filters", &db_), S_OK); }
  void TearDown() override { Q9Db_destroy(db_); }

  Q9DbNode* find(const std::string& id) {
    Q9DbNode* node = nullptr;
    return Q9Db_findByElementId(db_, wide(id).c_str(), &node) == S_OK ? node : nullptr;
  }
  void importFile(const char* name) {
    ASSERT_EQ(Q9Db_importFile(db_, nullptr, wide(dataFile(name)).c_str(), nullptr, nullptr, nullptr), S_OK) << name;
  }

  Q9DbNode* db_ = nullptr;
};

TEST_F(FilterImport, LinFramesDecodeToTheValuesOfTheFilesNumbers) {
  importFile("climate_panel.ldf");
  Q9DbNode* channel = find("ClimateLin/channel");
  ASSERT_NE(channel, nullptr);
  for (const Frame& frame : kLinFrames) {
    std::vector<uint8_t> payload(frame.length, 0);
    Signals expected;
    for (const Field& f : frame.fields) {
      for (unsigned bit = 0; bit < f.length; ++bit)
        payload[(f.start + bit) / 8] |= uint8_t(((f.raw >> bit) & 1u) << ((f.start + bit) % 8));
      if (f.name) expected[f.name] = f.expected;
    }
    EXPECT_EQ(decode(db_, channel, frame.id, Q9_FLAG_LIN_ENH_CHECKSUM, payload), expected)
        << "frame 0x" << std::hex << frame.id;
  }
}

TEST_F(FilterImport, PhysicalValuesEncodeToTheNearestRawValue) {
  importFile("powertrain.dbc");
  struct Case {
    const char* signal;
    double physical;
    uint64_t raw;  // in the coding's bits
    unsigned bits;
  } cases[] = {
      {"Powertrain/signal/EngineData/ThrottlePos", 25.3, 253, 10},
      {"Powertrain/signal/BrakeAux/Pressure", 29 * 0.01, 29, 16},  // 0.29 * 100 is just below 29
      {"Powertrain/signal/EngineData/Torque", -228.0, 0x1F00, 13},
      {"Powertrain/signal/EngineData/Torque", -100.26, 0x1FFF, 13},  // -0.52 steps round to -1
      {"Powertrain/signal/GearboxStatus/Gear", -1.0, 0xF, 4},
      {"Powertrain/signal/EngineData/CoolantTemp", 85.0, 125, 8},
      {"Powertrain/signal/BrakeAux/HalfStep", 7.5, 7, 8},
      {"Powertrain/signal/BrakeAux/Wear", -5.0, 3, 5},
      {"Powertrain/signal/GearboxStatus/GearRatio", 3.25, bitsOf(3.25f), 32},
  };
  for (const auto& c : cases) {
    Q9DbNode* signal = find(c.signal);
    ASSERT_NE(signal, nullptr) << c.signal;
    Q9DbPhysicalValue value{};
    value.valueType = Q9_VALUETYPE_DOUBLE;
    value.value.d = c.physical;
    Q9DbEncodeEnum* walk = nullptr;
    ASSERT_EQ(Q9Db_encodeSignal(signal, &value, &walk), S_OK);
    Q9DbNode* computation = nullptr;
    ASSERT_EQ(Q9Db_encodeNextComputation(walk, &computation), S_OK) << c.signal << " " << c.physical;
    uint64_t raw = 0;
    ASSERT_EQ(Q9Db_physicalToInternal(signal, computation, &value, &raw), S_OK);
    EXPECT_EQ(raw & ((1ull << c.bits) - 1), c.raw) << c.signal << " " << c.physical;
    Q9Db_destroyEncodeEnum(walk);
  }
}

TEST_F(FilterImport, UnreadableFilesFailWithTheReasonAndKeepTheDatabase) {
  Q9DbNode* mine = nullptr;
  ASSERT_EQ(Q9Db_createCluster(db_, u"mine", Q9_CLUSTERTYPE_CAN, &mine), S_OK);
  const std::pair<const char*, const char*> cases[] = {
      {"absent.dbc", "absent.dbc"},
      {"unusable.dbc", "unusable.dbc:1:18: message size expected but found 'eight'"},
      {"../../import/data/tolerant/nothing_usable.ldf", "nothing_usable.ldf:3:1: 'Nodes' expected, found 'Calibration'"},
  };
  for (const auto& [file, reason] : cases) {
    std::vector<std::string> reports;
    EXPECT_EQ(Q9Db_importFile(db_, nullptr, wide(dataFile(file)).c_str(), nullptr, &reports, collectHostReport), E_FAIL);
    ASSERT_EQ(reports.size(), 1u) << file;
    EXPECT_NE(reports[0].find(reason), std::string::npos) << reports[0];
  }
  EXPECT_EQ(find("mine"), mine);
  Q9DbEnumerator* clusters = nullptr;
  ASSERT_EQ(Q9Db_enumClusters(db_, &clusters), S_OK);
  uint64_t count = 0;
  EXPECT_EQ(Q9Db_enumeratorGetCount(clusters, &count), S_OK);
  EXPECT_EQ(count, 1u);
  Q9Db_enumeratorDestroy(clusters);
}

}  // namespace
