// DBC files through the filter host, as a C client uses it: import, decode
// frames built from the file's layout to physical values and texts, encode
// physical values back, export and import again, and the refused files with
// their reports. Multiplexing by random frames, options, several imports
// into one database and what can't be mapped are tested from Lua
// (dbc_filter_test.lua).
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "Q9Db.h"
#include "filters/FilterTestSupport.h"

namespace {

using q9::test::dataFile;
using q9::test::narrow;
using q9::test::wide;

std::string g17(double value) {
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, "%.17g", value);
  return buffer;
}

// Script reports are UTF-8 with a kind in `first`; the host's one report
// after a failure is wide, with both numbers 0.
struct Reports {
  std::vector<std::string> warnings;
  std::vector<std::string> info;
  std::vector<std::string> host;
  bool hostTurn = false;

  static int32_t collect(void* context, const FilterReportRecord* record) {
    auto* self = static_cast<Reports*>(context);
    if (self->hostTurn && record->first == 0 && record->second == 0) {
      self->host.push_back(narrow(static_cast<const char16_t*>(record->text)));
    } else if (record->first == 1) {
      self->warnings.push_back(static_cast<const char*>(record->text));
    } else {
      self->info.push_back(static_cast<const char*>(record->text));
    }
    return 0;
  }
};

// A field as a DBC lays it out: little-endian from its lowest bit up;
// big-endian from its top bit down a byte and on at bit 7 of the next.
void place(std::vector<uint8_t>& payload, unsigned start, unsigned length, bool bigendian, uint64_t value) {
  for (unsigned i = 0; i < length; ++i) {
    const unsigned bit = bigendian ? (((start ^ 7u) + length - 1 - i) ^ 7u) : start + i;
    const uint8_t mask = static_cast<uint8_t>(1u << (bit % 8));
    if ((value >> i) & 1u) payload[bit / 8] |= mask;
    else payload[bit / 8] &= static_cast<uint8_t>(~mask);
  }
}

uint64_t bitsOf(float value) {
  uint32_t bits;
  std::memcpy(&bits, &value, sizeof bits);
  return bits;
}

uint64_t bitsOf(double value) {
  uint64_t bits;
  std::memcpy(&bits, &value, sizeof bits);
  return bits;
}

struct Decoded {
  std::string value;
  std::string text;
  bool operator==(const Decoded& o) const { return value == o.value && text == o.text; }
};

std::ostream& operator<<(std::ostream& out, const Decoded& d) { return out << d.value << " '" << d.text << "'"; }

using Signals = std::map<std::string, Decoded>;

Signals decode(Q9DbNode* db, Q9DbNode* channel, uint32_t id, uint32_t flags, const std::vector<uint8_t>& payload) {
  Signals seen;
  Q9DbDecodeEnum* walk = nullptr;
  EXPECT_EQ(Q9Db_decodeMessage(channel, id, flags, payload.size(), payload.data(), &walk), S_OK);
  while (Q9Db_decodeNextFrametriggering(walk, nullptr) >= 0) {
    Q9DbDecodedSignal s{};
    for (HRESULT kind; (kind = Q9Db_decodeNextSignal(walk, nullptr, &s)) >= 0;) {
      const char16_t* name = nullptr;
      Q9Db_getShortName(s.signal, &name);
      Q9DbPhysicalValue v{};
      EXPECT_EQ(Q9Db_internalToPhysical(s.signal, s.value, &v), S_OK) << narrow(name);
      char buffer[64];
      if (v.valueType == Q9_VALUETYPE_DOUBLE) std::snprintf(buffer, sizeof buffer, "%.17g", v.value.d);
      else if (v.valueType == Q9_VALUETYPE_INT64) std::snprintf(buffer, sizeof buffer, "%lld", static_cast<long long>(v.value.i));
      else std::snprintf(buffer, sizeof buffer, "%llu", static_cast<unsigned long long>(v.value.u));
      Decoded d{buffer, ""};
      const char16_t* label = nullptr;
      if (v.text && Q9Db_stringLookup(db, v.text, 0, 0, &label) == S_OK) d.text = narrow(label);
      EXPECT_EQ(seen.count(narrow(name)), 0u) << narrow(name) << " twice";
      seen[narrow(name)] = d;
    }
  }
  Q9Db_destroyDecodeEnum(walk);
  return seen;
}

struct Field {
  const char* name;
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

const uint32_t EXT = Q9_FLAG_CANEXTENDED, FD = Q9_FLAG_CANFD_FRAME;

// Each field's raw value goes to its place as the file defines it; the
// expected value is the file's factor and offset applied by hand.
const std::vector<Frame>& frames() {
  static const std::vector<Frame> all = {
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
  };
  return all;
}

class DbcFilter : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(Q9Db_create(u"dbc", &db_), S_OK); }
  void TearDown() override { Q9Db_destroy(db_); }

  static HRESULT import(Q9DbNode* db, const std::string& path, Reports& reports) {
    return Q9Db_importFile(db, nullptr, wide(path).c_str(), nullptr, &reports, &Reports::collect);
  }
  static Q9DbNode* find(Q9DbNode* db, const std::string& id) {
    Q9DbNode* node = nullptr;
    return Q9Db_findByElementId(db, wide(id).c_str(), &node) == S_OK ? node : nullptr;
  }
  void importBoth(Q9DbNode* db) {
    Reports reports;
    ASSERT_EQ(import(db, dataFile("powertrain.dbc"), reports), S_OK);
    ASSERT_EQ(import(db, dataFile("fd_chassis.dbc"), reports), S_OK);
    EXPECT_EQ(reports.warnings.size(), 1u);  // the node attribute that has no place
  }
  static void checkFrames(Q9DbNode* db) {
    for (const auto& frame : frames()) {
      std::vector<uint8_t> payload(frame.length, 0);
      Signals expected;
      for (const auto& f : frame.fields) {
        place(payload, f.start, f.length, f.bigendian, f.raw);
        expected[f.name] = f.expected;
      }
      Q9DbNode* channel = find(db, std::string(frame.prefix) + "/channel");
      ASSERT_NE(channel, nullptr) << frame.prefix;
      EXPECT_EQ(decode(db, channel, frame.id, frame.flags, payload), expected) << "frame 0x" << std::hex << frame.id;
    }
  }

  Q9DbNode* db_ = nullptr;
};

TEST_F(DbcFilter, FramesDecodeToTheValuesOfTheFilesNumbers) {
  importBoth(db_);
  checkFrames(db_);
}

TEST_F(DbcFilter, PhysicalValuesEncodeToTheNearestRawValue) {
  importBoth(db_);
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
    const uint64_t mask = c.bits == 64 ? ~0ull : (1ull << c.bits) - 1;
    EXPECT_EQ(raw & mask, c.raw) << c.signal << " " << c.physical;
    Q9Db_destroyEncodeEnum(walk);
  }
}

TEST_F(DbcFilter, ExportedFilesImportToTheSameDecoding) {
  importBoth(db_);
  Q9DbNode* copy = nullptr;
  ASSERT_EQ(Q9Db_create(u"copy", &copy), S_OK);
  for (const char* prefix : {"Powertrain", "fd_chassis"}) {
    const std::string path = ::testing::TempDir() + prefix + "_export.dbc";
    Q9DbNode* cluster = find(db_, std::string(prefix) + "/cluster");
    ASSERT_EQ(Q9Db_exportFile(db_, cluster, wide(path).c_str(), nullptr, nullptr, nullptr), S_OK);
    Reports reports;
    EXPECT_EQ(import(copy, path, reports), S_OK);
    EXPECT_TRUE(reports.warnings.empty()) << reports.warnings.front();
    std::remove(path.c_str());
  }
  checkFrames(copy);
  Q9Db_destroy(copy);
}

TEST_F(DbcFilter, UnreadableFilesFailWithTheReasonAndKeepTheDatabase) {
  Q9DbNode* mine = nullptr;
  ASSERT_EQ(Q9Db_createCluster(db_, u"mine", Q9_CLUSTERTYPE_CAN, &mine), S_OK);
  struct Case {
    const char* file;
    const char* reason;
  } cases[] = {
      {"absent.dbc", "absent.dbc"},
      {"broken.dbc", "DBC-Import: (5, 24): ')' expected but found '['"},
  };
  for (const auto& c : cases) {
    Reports reports;
    reports.hostTurn = true;
    EXPECT_EQ(import(db_, dataFile(c.file), reports), E_FAIL) << c.file;
    ASSERT_EQ(reports.host.size(), 1u) << c.file;
    EXPECT_NE(reports.host[0].find(c.reason), std::string::npos) << reports.host[0];
  }
  EXPECT_EQ(find(db_, "mine"), mine);
  Q9DbEnumerator* clusters = nullptr;
  ASSERT_EQ(Q9Db_enumClusters(db_, &clusters), S_OK);
  uint64_t count = 0;
  EXPECT_EQ(Q9Db_enumeratorGetCount(clusters, &count), S_OK);
  EXPECT_EQ(count, 1u);
  Q9Db_enumeratorDestroy(clusters);
}

TEST_F(DbcFilter, DetectionIdAndInfoReadTheContent) {
  EXPECT_EQ(Q9Db_importDetect(wide(dataFile("powertrain.dbc")).c_str()), S_OK);
  EXPECT_EQ(Q9Db_importDetect(wide(dataFile("absent.dbc")).c_str()), S_FALSE);

  BSTR id = nullptr;
  ASSERT_EQ(Q9Db_importGetDbId(wide(dataFile("powertrain.dbc")).c_str(), &id), S_OK);
  EXPECT_EQ(narrow(id), "Powertrain");
  SysFreeString(id);
  id = nullptr;
  ASSERT_EQ(Q9Db_importGetDbId(wide(dataFile("fd_chassis.dbc")).c_str(), &id), S_OK);
  EXPECT_EQ(narrow(id), "fd_chassis");
  SysFreeString(id);

  BSTR filters = nullptr;
  ASSERT_EQ(Q9Db_importGetAvailableFilters(&filters), S_OK);
  EXPECT_NE(narrow(filters).find("DBC files (*.dbc)|*.dbc"), std::string::npos) << narrow(filters);
  SysFreeString(filters);
  filters = nullptr;
  ASSERT_EQ(Q9Db_exportGetAvailableFilters(&filters), S_OK);
  EXPECT_NE(narrow(filters).find("DBC files (*.dbc)|*.dbc"), std::string::npos) << narrow(filters);
  SysFreeString(filters);

  Reports reports;
  ASSERT_EQ(Q9Db_importGetInfo(db_, wide(dataFile("powertrain.dbc")).c_str(), &reports, &Reports::collect), S_OK);
  ASSERT_FALSE(reports.info.empty());
  EXPECT_EQ(reports.info.back(), "Powertrain: 4 ECUs, 6 frames, 17 signals");
  EXPECT_EQ(find(db_, "Powertrain/cluster"), nullptr);
}

}  // namespace
