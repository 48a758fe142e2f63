// DBC and LDF files through the filter host, as a C client uses it: import,
// decode frames built from the files' layouts to physical values (of the
// right type) and texts, export and import again, encode physical values
// back, and refused files with the host's report. What a file holds but the
// database can't, options, detection, schedule tables and several imports
// into one database are tested from Lua (dbc_filter_test.lua,
// ldf_filter_test.lua).
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <type_traits>
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

template <typename Float>
uint64_t bitsOf(Float value) {
  std::conditional_t<sizeof(Float) == 4, uint32_t, uint64_t> bits;
  std::memcpy(&bits, &value, sizeof bits);
  return bits;
}

// Script reports are UTF-8; the host's one report after a failure is wide,
// with both numbers 0.
struct Reports {
  std::vector<std::string> script, host;
  bool hostTurn = false;  // set when only the host's report can follow

  static int32_t collect(void* context, const FilterReportRecord* record) {
    auto* self = static_cast<Reports*>(context);
    if (self->hostTurn && record->first == 0 && record->second == 0)
      self->host.push_back(narrow(static_cast<const char16_t*>(record->text)));
    else
      self->script.push_back(static_cast<const char*>(record->text));
    return 0;
  }
};

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

// A field as a DBC lays it out: little-endian from its lowest bit up;
// big-endian from its top bit down a byte and on at bit 7 of the next. LIN
// fields are little-endian.
void place(std::vector<uint8_t>& payload, unsigned start, unsigned length, bool bigendian, uint64_t value) {
  for (unsigned i = 0; i < length; ++i) {
    const unsigned bit = bigendian ? (((start ^ 7u) + length - 1 - i) ^ 7u) : start + i;
    const uint8_t mask = static_cast<uint8_t>(1u << (bit % 8));
    if ((value >> i) & 1u) payload[bit / 8] |= mask;
    else payload[bit / 8] &= static_cast<uint8_t>(~mask);
  }
}

struct Field {
  const char* name;  // null for bytes that are no signal
  unsigned start, length;
  bool bigendian;
  uint64_t raw;
  Decoded expected;
};

struct Frame {
  const char* prefix;
  uint32_t id, flags;
  size_t length;
  std::vector<Field> fields;
};

const uint32_t EXT = Q9_FLAG_CANEXTENDED, FD = Q9_FLAG_CANFD_FRAME, LIN = Q9_FLAG_LIN_ENH_CHECKSUM;

// Each field's raw value goes to its place as the file defines it; the
// expected value is the file's factor and offset applied by hand.
const std::vector<Frame> kFrames = {
    {"Powertrain", 0x100, 0, 8,
     {{"EngineSpeed", 0, 16, false, 8000, {g17(8000 * 0.25), ""}},
      {"CoolantTemp", 16, 8, false, 125, {"85", ""}},
      {"Torque", 27, 13, false, 0x1F00, {g17(-256 * 0.5 + -100), ""}},
      {"ThrottlePos", 47, 10, true, 653, {g17(653 * 0.1), ""}},
      {"CheckEngine", 60, 1, false, 1, {"1", ""}},
      {"EngineState", 61, 3, false, 2, {"2", "Running"}}}},
    {"Powertrain", 0x0CF004FE, EXT, 8,
     {{"Gear", 3, 4, true, 0xF, {"-1", "Reverse"}},
      {"OilTemp", 12, 12, true, 2500, {g17(2500 * 0.1 + -50), ""}},
      {"ShiftRequest", 31, 2, true, 2, {"2", ""}},
      {"GearRatio", 32, 32, false, bitsOf(3.25f), {g17(3.25), ""}}}},
    {"Powertrain", 0x200, 0, 8, {{"WheelTorque", 7, 64, true, bitsOf(-1234.5678), {g17(-1234.5678), ""}}}},
    {"Powertrain", 0x201, 0, 6,
     {{"Pressure", 7, 16, true, 12345, {g17(12345 * 0.01), ""}},
      {"HalfStep", 16, 8, false, 7, {g17(7.5), ""}},
      {"DeltaP", 24, 16, false, 0xFFFE, {g17(-2 * 0.5), ""}},
      {"Mode", 40, 2, false, 1, {"1", "Sport"}},
      {"Wear", 47, 5, true, 3, {g17(3 * -2.0 + 1), ""}}}},
    {"Powertrain", 0x600, 0, 8, {{"TotalDistance", 0, 64, false, 0xFEDCBA9876543210u, {"18364758544493064720", ""}}}},
    {"fd_chassis", 0x500, FD, 64,
     {{"ObjectCount", 0, 8, false, 3, {"3", ""}},
      {"Distance", 8, 12, false, 4000, {g17(4000 * 0.05), ""}},
      {"Azimuth", 20, 12, false, 0x800, {g17(-2048 * 0.01), ""}},
      {"Quality", 488, 4, false, 15, {"15", ""}},
      {"Crc", 503, 16, true, 0xBEEF, {"48879", ""}}}},
    {"fd_chassis", 0x19000000, EXT | FD, 12,
     {{"LaneMux", 7, 8, true, 1, {"1", "Right"}},
      {"FrameCounter", 8, 4, false, 9, {"9", ""}},
      {"RightOffset", 23, 16, true, 0x8001, {g17(-32767 * 0.001), ""}},
      {"RightType", 36, 3, false, 2, {"2", "Dashed"}},
      {"Checksum", 95, 8, true, 0xA5, {"165", ""}}}},
    {"fd_chassis", 0x19000000, EXT | FD, 12,
     {{"LaneMux", 7, 8, true, 2, {"2", "Road"}},
      {"FrameCounter", 8, 4, false, 3, {"3", ""}},
      {"RoadWidth", 12, 20, false, 350, {g17(350 * 0.01 + 0.5), ""}},
      {"Checksum", 95, 8, true, 0, {"0", ""}}}},
    {"ClimateLin", 0x10, LIN, 2,
     {{"Mode", 0, 2, false, 2, {"2", "manual"}},
      {"BlowerSpeed", 2, 4, false, 5, {g17(5 * 100.0), ""}},
      {"Flap", 8, 8, false, 5, {g17(5 * 10.0), ""}}}},
    // Flap 20 lies in the second range, whose scale 1 keeps the integer.
    {"ClimateLin", 0x10, LIN, 2,
     {{"Mode", 0, 2, false, 0, {"0", "off"}},
      {"BlowerSpeed", 2, 4, false, 15, {"15", "fault"}},
      {"Flap", 8, 8, false, 20, {"120", ""}}}},
    {"ClimateLin", 0x20, LIN, 4,
     {{"Temp", 8, 10, false, 653, {g17(653 * 0.1 + -40), ""}},
      {"Humidity", 18, 7, false, 45, {"45", ""}},
      {"SensorError", 25, 1, false, 1, {"1", ""}}}},
    {"ClimateLin", 0x30, LIN, 8,
     {{"Serial", 0, 32, false, 0x04030201, {"67305985", ""}},
      {"Label", 32, 24, false, 0x434241, {"", "ABC"}},
      {"PanelError", 56, 1, false, 1, {"1", ""}}}},
    {"ClimateLin", 0x20, LIN, 4,
     {{"Temp", 8, 10, false, 1023, {"1023", "sensor fault"}},
      {"Humidity", 18, 7, false, 127, {"127", "not available"}},
      {"SensorError", 25, 1, false, 0, {"0", ""}}}},
    {"ClimateLin", 0x21, LIN, 4, {{"BlowerError", 8, 1, false, 1, {"1", ""}}, {"Code", 16, 16, false, 0x1234, {"1234", ""}}}},
    // A frame longer than its 1 byte keeps the signals that fit.
    {"ClimateLin", 0x11, LIN, 1, {{"Mode", 0, 2, false, 1, {"1", "auto"}}}},
    // The event-triggered frame answered by SensorData and BlowerStatus
    // (protected ids 0x20 and 0x61), and with an unknown first byte.
    {"ClimateLin", 0x3A, LIN, 4,
     {{nullptr, 0, 8, false, 0x20, {}},
      {"Temp", 8, 10, false, 100, {g17(100 * 0.1 + -40), ""}},
      {"Humidity", 18, 7, false, 3, {"3", ""}},
      {"SensorError", 25, 1, false, 0, {"0", ""}}}},
    {"ClimateLin", 0x3A, LIN, 4,
     {{nullptr, 0, 8, false, 0x61, {}},
      {"BlowerError", 8, 1, false, 0, {"0", ""}},
      {"Code", 16, 16, false, 0x0099, {"99", ""}}}},
    {"ClimateLin", 0x3A, LIN, 4, {{nullptr, 0, 8, false, 0x01, {}}}},
    {"ClimateLin", 0x3C, LIN, 8,
     {{"MasterReqB0", 0, 8, false, 0x7F, {"127", ""}}, {"MasterReqB1", 8, 8, false, 6, {"6", ""}}}},
};

class FilterImport : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(Q9Db_create(u"filters", &db_), S_OK); }
  void TearDown() override { Q9Db_destroy(db_); }

  static HRESULT import(Q9DbNode* db, const std::string& path, Reports& reports) {
    return Q9Db_importFile(db, nullptr, wide(path).c_str(), nullptr, &reports, &Reports::collect);
  }
  static Q9DbNode* find(Q9DbNode* db, const std::string& id) {
    Q9DbNode* node = nullptr;
    return Q9Db_findByElementId(db, wide(id).c_str(), &node) == S_OK ? node : nullptr;
  }
  static void importAll(Q9DbNode* db, std::vector<std::string> paths) {
    for (const std::string& path : paths) {
      Reports reports;
      ASSERT_EQ(import(db, path, reports), S_OK) << path;
    }
  }
  static void checkFrames(Q9DbNode* db) {
    for (const Frame& frame : kFrames) {
      std::vector<uint8_t> payload(frame.length, 0);
      Signals expected;
      for (const Field& f : frame.fields) {
        place(payload, f.start, f.length, f.bigendian, f.raw);
        if (f.name) expected[f.name] = f.expected;
      }
      Q9DbNode* channel = find(db, std::string(frame.prefix) + "/channel");
      ASSERT_NE(channel, nullptr) << frame.prefix;
      EXPECT_EQ(decode(db, channel, frame.id, frame.flags, payload), expected) << "frame 0x" << std::hex << frame.id;
    }
  }

  Q9DbNode* db_ = nullptr;
};

TEST_F(FilterImport, FramesDecodeToTheValuesOfTheFilesNumbersAndSoDoTheirExports) {
  importAll(db_, {dataFile("powertrain.dbc"), dataFile("fd_chassis.dbc"), dataFile("climate_panel.ldf")});
  checkFrames(db_);

  Q9DbNode* copy = nullptr;
  ASSERT_EQ(Q9Db_create(u"copy", &copy), S_OK);
  std::vector<std::string> exported;
  for (const char* prefix : {"Powertrain", "fd_chassis"}) {
    exported.push_back(::testing::TempDir() + prefix + "_export.dbc");
    Q9DbNode* cluster = find(db_, std::string(prefix) + "/cluster");
    ASSERT_EQ(Q9Db_exportFile(db_, cluster, wide(exported.back()).c_str(), nullptr, nullptr, nullptr), S_OK);
  }
  importAll(copy, {exported[0], exported[1], dataFile("climate_panel.ldf")});
  checkFrames(copy);
  Q9Db_destroy(copy);
  for (const std::string& path : exported) std::remove(path.c_str());
}

TEST_F(FilterImport, PhysicalValuesEncodeToTheNearestRawValue) {
  importAll(db_, {dataFile("powertrain.dbc")});
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
    Q9DbNode* signal = find(db_, c.signal);
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
      {"broken.dbc", "DBC-Import: (5, 24): ')' expected but found '['"},
      {"misordered.ldf", "LDF-Import: (10, 1): 'Schedule_tables' expected but found 'Signal_groups'"},
  };
  for (const auto& [file, reason] : cases) {
    Reports reports;
    reports.hostTurn = true;
    EXPECT_EQ(import(db_, dataFile(file), reports), E_FAIL) << file;
    ASSERT_EQ(reports.host.size(), 1u) << file;
    EXPECT_NE(reports.host[0].find(reason), std::string::npos) << reports.host[0];
  }
  EXPECT_EQ(find(db_, "mine"), mine);
  Q9DbEnumerator* clusters = nullptr;
  ASSERT_EQ(Q9Db_enumClusters(db_, &clusters), S_OK);
  uint64_t count = 0;
  EXPECT_EQ(Q9Db_enumeratorGetCount(clusters, &count), S_OK);
  EXPECT_EQ(count, 1u);
  Q9Db_enumeratorDestroy(clusters);
}

}  // namespace
