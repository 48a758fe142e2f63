// Messages and their signal lines are written as they are drawn, while the
// comments, attributes, value texts and value types they call for gather in
// a trailer that follows them, as the sections stand in a file. Identifiers
// never repeat; once the standard ones run out, every further one is extended.
#include "GeneratedDbc.h"

#include <cmath>
#include <cstdio>
#include <set>

#include "SignalPlan.h"

namespace q9bench {
namespace {

const char* const kNodes[] = {"Gateway", "Engine", "Brakes", "Steering", "Body", "Climate", "Infotainment", "Cluster"};
constexpr unsigned kNodeCount = sizeof kNodes / sizeof kNodes[0];
const char* const kUnits[] = {"", "km/h", "rpm", "\xB0\x43", "%", "V", "A", "Nm", "bar", "m/s\xB2"};  // \xB0\x43: degrees C
const char* const kWords[] = {"Status", "Request", "Torque", "Speed", "Temperature", "Pressure", "Position",
                              "Counter", "Checksum", "Mode", "Level", "Current", "Voltage", "Angle"};

std::string number(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.10g", value);
  return text;
}

struct Scaling {
  double factor, offset;
};

Scaling scalingOf(const PlannedSignal& s, Random& random) {
  const double factors[] = {0.1, 0.25, 0.5, 0.01, 2.0, 0.05};
  const double offsets[] = {0, 0, -40, -100, 0, -1000};
  switch (s.kind) {
    case SignalKind::Scaled: return {factors[random.between(0, 5)], offsets[random.between(0, 5)]};
    case SignalKind::Signed: return {0.1, 0};
    case SignalKind::Offset: return {1, -40};
    default: return {1, 0};
  }
}

// One SG_ line; mode is "", " M" or " m<code>".
void signalLine(std::string& out, const std::string& name, const std::string& mode, const PlannedSignal& s,
                Random& random) {
  const Scaling sc = scalingOf(s, random);
  const bool isSigned = s.kind == SignalKind::Signed || s.kind == SignalKind::Float;
  const double rawLow = isSigned ? -std::ldexp(1.0, int(s.length) - 1) : 0;
  const double rawHigh = isSigned ? std::ldexp(1.0, int(s.length) - 1) - 1 : std::ldexp(1.0, int(s.length)) - 1;
  const double low = s.kind == SignalKind::Float ? -3.4e38 : rawLow * sc.factor + sc.offset;
  const double high = s.kind == SignalKind::Float ? 3.4e38 : rawHigh * sc.factor + sc.offset;
  out += " SG_ " + name + mode + " : " + std::to_string(s.position) + "|" + std::to_string(s.length) + "@" +
         (s.bigEndian ? "0" : "1") + (isSigned ? "-" : "+") + " (" + number(sc.factor) + "," + number(sc.offset) +
         ") [" + number(low) + "|" + number(high) + "] \"" + kUnits[random.between(0, 9)] + "\" " +
         kNodes[random.between(0, kNodeCount - 1)] + "," + kNodes[random.between(0, kNodeCount - 1)] + "\n";
}

struct Trailer {
  std::string comments, attributes, values, valueTypes;
};

void describeSignal(Trailer& t, const std::string& id, const std::string& name, const PlannedSignal& s,
                    Random& random) {
  if (random.chance(25))
    t.comments += "CM_ SG_ " + id + " " + name + " \"" + kWords[random.between(0, 13)] + " of the " +
                  kNodes[random.between(0, kNodeCount - 1)] + ", filtered over " +
                  std::to_string(random.between(2, 50)) + " samples.\";\n";
  if (s.kind == SignalKind::Texts) {
    t.values += "VAL_ " + id + " " + name;
    const char* texts[] = {"off", "on", "error", "not available", "init", "active", "passive", "reserved"};
    for (uint32_t v = 0; v < (1u << s.length) && v < 6; ++v) t.values += " " + std::to_string(v) + " \"" + texts[v] + "\"";
    t.values += " ;\n";
  }
  if (s.kind == SignalKind::Float) t.valueTypes += "SIG_VALTYPE_ " + id + " " + name + " : 1;\n";
  if (random.chance(10)) t.attributes += "BA_ \"GenSigStartValue\" SG_ " + id + " " + name + " 0;\n";
}

}  // namespace

std::string generateDbc(uint64_t seed, const DbcShape& shape) {
  Random random(seed);
  std::string text =
      "VERSION \"generated\"\n\nNS_ :\n\tCM_\n\tBA_DEF_\n\tBA_\n\tVAL_\n\tBA_DEF_DEF_\n\tVAL_TABLE_\n\tSIG_VALTYPE_\n\n"
      "BS_:\n\nBU_:";
  for (const char* node : kNodes) text += std::string(" ") + node;
  text += "\n\nVAL_TABLE_ OnOff 0 \"off\" 1 \"on\" ;\nVAL_TABLE_ Gear 0 \"P\" 1 \"R\" 2 \"N\" 3 \"D\" ;\n\n";

  Trailer t;
  std::set<uint32_t> used;
  unsigned standardIds = 0;
  for (unsigned m = 0; m < shape.messages; ++m) {
    // Past 2,047 messages every further one needs an extended identifier.
    const bool extended = random.chance(20) || standardIds == 0x7FF;
    standardIds += extended ? 0 : 1;
    uint32_t identifier;
    do identifier = extended ? random.between(0x800, 0x1FFFFFFF) : random.between(1, 0x7FF);
    while (!used.insert(identifier).second);
    const std::string id = std::to_string(extended ? identifier | 0x80000000u : identifier);
    const std::string name = std::string(kWords[m % 14]) + "_" + std::to_string(m);
    const bool multiplexed = random.chance(shape.multiplexedPercent);
    const uint32_t dlc = !multiplexed && random.chance(shape.flexibleDataPercent) ? 64 : 8;
    const bool bigEndian = random.chance(shape.bigEndianPercent);
    text += "BO_ " + id + " " + name + ": " + std::to_string(dlc) + " " + kNodes[random.between(0, kNodeCount - 1)] + "\n";

    auto emit = [&](const std::string& signalName, const std::string& mode, const PlannedSignal& s) {
      signalLine(text, signalName, mode, s, random);
      describeSignal(t, id, signalName, s, random);
    };
    if (!multiplexed) {
      unsigned n = 0;
      for (const PlannedSignal& s : planSignals(random, 0, 8 * dlc, bigEndian, shape.signalsPerMessage))
        emit(name + "_S" + std::to_string(n++), "", s);
    } else {
      // A 4-bit selector, then the other signals spread over switch codes.
      emit(name + "_Sel", " M", {SignalKind::Offset, 0, 4, false});
      const unsigned codes = 4;
      unsigned n = 0;
      for (unsigned code = 0; code < codes; ++code) {
        const unsigned count = (shape.signalsPerMessage - 1) / codes + (code < (shape.signalsPerMessage - 1) % codes);
        for (const PlannedSignal& s : planSignals(random, 8, 8 * dlc, bigEndian, count))
          emit(name + "_S" + std::to_string(n++), " m" + std::to_string(code), s);
      }
    }
    text += "\n";
    t.comments += "CM_ BO_ " + id + " \"" + kWords[random.between(0, 13)] + " message of the " +
                  kNodes[random.between(0, kNodeCount - 1)] + "; generated for the benchmarks.\";\n";
    t.attributes += "BA_ \"GenMsgCycleTime\" BO_ " + id + " " + std::to_string(10 * random.between(1, 100)) + ";\n";
  }
  text += "CM_ \"A generated network for the benchmarks.\";\n" + t.comments;
  text += "BA_DEF_ BO_ \"GenMsgCycleTime\" INT 0 10000;\nBA_DEF_ SG_ \"GenSigStartValue\" FLOAT -3.4E+038 3.4E+038;\n"
          "BA_DEF_DEF_ \"GenMsgCycleTime\" 100;\nBA_DEF_DEF_ \"GenSigStartValue\" 0;\n";
  text += t.attributes + t.values + t.valueTypes;
  return text;
}

}  // namespace q9bench
