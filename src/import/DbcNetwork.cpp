// One resolver applies the statements in a fixed order (definitions, comments,
// value texts and types, multiplexing ranges, attributes), then resolves each
// message. References to what the file doesn't define, and signals that can't
// be decoded from their frame, are reported where they stand.
#include "import/DbcNetwork.h"

#include <algorithm>
#include <cinttypes>
#include <cmath>
#include <limits>
#include <cstdarg>
#include <cstdio>
#include <unordered_map>

#include "import/DbcAttributes.h"
#include "import/DbcSwitches.h"

namespace q9 {
namespace {

constexpr uint32_t kExtendedBit = 0x80000000u;
constexpr uint32_t kMaxExtended = 0x1FFFFFFFu;
constexpr uint32_t kMaxStandard = 0x7FFu;

// CAN FD sizes by length code: a DBC gives the byte count, but some writers
// put the code (9..15) there. 12 is both a size and a code, and stays 12.
uint32_t fdSizeOfCode(uint32_t code) {
  static const uint32_t sizes[] = {12, 16, 20, 24, 32, 48, 64};
  if (code == 12 || code < 9 || code > 15) return 0;
  return sizes[code - 9];
}

// Whether a field lies inside a payload of `bytes` bytes. A big-endian field
// runs along the walk order: bit 7 of byte 0 first, then bit 6...
bool fitsFrame(uint32_t start, uint32_t bits, bool bigEndian, uint32_t bytes) {
  const uint64_t limit = uint64_t(bytes) * 8;
  if (bigEndian) return start < limit && uint64_t(start ^ 7u) + bits - 1 < limit;
  return uint64_t(start) + bits <= limit;
}

// The attributes the import maps; any other is reported as not imported.
bool isKnownAttribute(const std::string& name) {
  static const char* const known[] = {"DBName", "GenMsgCycleTime", "VFrameFormat", "CANFD_BRS",
                                      "GenSigStartValue", "SystemSignalLongSymbol",
                                      "SystemMessageLongSymbol", "SystemNodeLongSymbol"};
  for (const char* k : known)
    if (name == k) return true;
  return false;
}

using AttributeList = std::vector<std::pair<const std::string*, AttributeValue>>;

void store(AttributeList& list, const std::string& name, AttributeValue value) {
  for (auto& entry : list)
    if (*entry.first == name) {
      entry.second = std::move(value);
      return;
    }
  list.emplace_back(&name, std::move(value));
}

class Resolver {
 public:
  Resolver(const DbcModel& model, DbcNetwork& network, ImportReport& report)
      : model_(model), network_(network), report_(report), attributes_(model) {}

  void run() {
    readDefinitions();
    applyComments();
    applyValueTexts();
    applyValueTypes();
    applyMultiplexRanges();
    applyAttributes();
    const AttributeValue dbName = attribute(networkAttributes_, "DBName");
    if (!dbName.text.empty()) network_.dbName = dbName.text;
    for (std::size_t i = 0; i < network_.ecus.size(); ++i) {
      const AttributeValue longName = attribute(ecuAttributes_[i], "SystemNodeLongSymbol");
      network_.ecus[i].plainName =
          !longName.text.empty() ? longName.text : *network_.ecus[i].name;
    }
    for (std::size_t i = 0; i < network_.messages.size(); ++i) resolveMessage(i);
  }

 private:
  struct MessageIndex {
    std::unordered_map<std::string, std::size_t> signalByName;
    std::vector<AttributeList> signalAttributes;
    AttributeList attributes;
    std::vector<const DbcMultiplexRanges*> multiplexRanges;
  };

  void readDefinitions() {
    for (const auto& [at, name] : model_.nodes) {
      if (ecuByName_.count(name)) {
        report_.warn(at, formatText("node %s is listed twice; the second entry is ignored", name.c_str()));
        continue;
      }
      ecuByName_.emplace(name, network_.ecus.size());
      network_.ecus.push_back({&name, {}, {}});
    }
    ecuAttributes_.resize(network_.ecus.size());
    network_.messages.reserve(model_.messages.size());
    index_.resize(model_.messages.size());
    for (const DbcMessage& m : model_.messages) {
      const std::size_t i = network_.messages.size();
      DbcNetworkMessage& message = network_.messages.emplace_back();
      message.source = &m;
      const auto [known, fresh] = messageByKey_.emplace(m.rawId, i);
      if (!fresh)
        report_.warn(m.at, formatText("message %s repeats the identifier of message %s; comments and attributes go to the first",
                                  m.name.c_str(), network_.messages[known->second].name().c_str()));
      MessageIndex& index = index_[i];
      message.signals.reserve(m.signals.size());
      for (const DbcSignal& s : m.signals) {
        if (!index.signalByName.emplace(s.name, message.signals.size()).second) {
          report_.warn(s.at, formatText("signal %s of message %s is defined twice; the second definition is ignored",
                                    s.name.c_str(), m.name.c_str()));
          continue;
        }
        message.signals.emplace_back().source = &s;
      }
      index.signalAttributes.resize(message.signals.size());
    }
  }

  // A statement's reference to a message or a signal, reported when the file
  // doesn't define it.
  std::optional<std::size_t> findMessage(TextPosition at, uint32_t id, const std::string& what) {
    const auto found = messageByKey_.find(id);
    if (found != messageByKey_.end()) return found->second;
    report_.warn(at, formatText("%s refers to message %" PRIu32 ", which the file doesn't define", what.c_str(), id));
    return std::nullopt;
  }
  DbcNetworkSignal* findSignal(TextPosition at, uint32_t id, const std::string& name,
                               const std::string& what, AttributeList** attributes = nullptr) {
    const auto m = findMessage(at, id, what);
    if (!m) return nullptr;
    MessageIndex& index = index_[*m];
    const auto found = index.signalByName.find(name);
    if (found == index.signalByName.end()) {
      report_.warn(at, formatText("%s refers to signal %s of message %s, which the file doesn't define",
                              what.c_str(), name.c_str(), network_.messages[*m].name().c_str()));
      return nullptr;
    }
    if (attributes) *attributes = &index.signalAttributes[found->second];
    return &network_.messages[*m].signals[found->second];
  }

  void applyComments() {
    for (const DbcComment& c : model_.comments) {
      switch (c.object) {
        case DbcObjectKind::Network:
          network_.comment = c.text;
          break;
        case DbcObjectKind::Message:
          if (const auto m = findMessage(c.at, c.messageId, "a comment")) network_.messages[*m].comment = c.text;
          break;
        case DbcObjectKind::Signal:
          if (DbcNetworkSignal* s = findSignal(c.at, c.messageId, c.name, "a comment")) s->comment = c.text;
          break;
        case DbcObjectKind::Node: {
          const auto found = ecuByName_.find(c.name);
          if (found != ecuByName_.end())
            network_.ecus[found->second].comment = c.text;
          else
            report_.warn(c.at, formatText("a comment refers to node %s, which the file doesn't list", c.name.c_str()));
          break;
        }
        case DbcObjectKind::EnvironmentVariable:
          report_.warn(c.at, formatText("the comment on environment variable %s is not imported: environment variables have no place in the database",
                                    c.name.c_str()));
          break;
      }
    }
  }

  void applyValueTexts() {
    for (const DbcValueDescriptions& v : model_.valueDescriptions) {
      if (v.environmentVariable) {
        report_.warn(v.at, formatText("the value descriptions of environment variable %s are not imported: environment variables have no place in the database",
                                  v.name.c_str()));
      } else if (DbcNetworkSignal* s = findSignal(v.at, v.messageId, v.name, "a value description")) {
        s->valueTexts = &v;
      }
    }
  }

  void applyValueTypes() {
    for (const DbcSignalValueType& t : model_.signalValueTypes) {
      DbcNetworkSignal* s = findSignal(t.at, t.messageId, t.signal, "a signal value type");
      if (!s) continue;
      if (t.valueType == 1)
        s->valueType = DbcValueType::Float;
      else if (t.valueType == 2)
        s->valueType = DbcValueType::Double;
      else if (t.valueType != 0)
        report_.warn(t.at, formatText("signal %s of message %s has value type %" PRIu32 ", which is unknown; it is read as an integer",
                                  s->name().c_str(), messageOf(t.messageId).c_str(), t.valueType));
    }
  }

  // SG_MUL_VAL_ lines by message; their signals are found once the
  // message's signals are checked.
  void applyMultiplexRanges() {
    for (const DbcMultiplexRanges& r : model_.multiplexRanges)
      if (const auto m = findMessage(r.at, r.messageId, "an extended multiplexing entry"))
        index_[*m].multiplexRanges.push_back(&r);
  }

  const std::string& messageOf(uint32_t id) { return network_.messages[messageByKey_[id]].name(); }

  // Attributes that mean something to the database are kept by object; the
  // others are counted and reported once per name.
  void applyAttributes() {
    std::vector<std::pair<const std::string*, std::size_t>> ignored;
    const auto note = [&](const std::string& name) {
      for (auto& entry : ignored)
        if (*entry.first == name) {
          ++entry.second;
          return;
        }
      ignored.emplace_back(&name, 1);
    };
    for (const DbcAttributeValue& a : model_.attributeValues) {
      if (!isKnownAttribute(a.name)) {
        note(a.name);
        continue;
      }
      switch (a.object) {
        case DbcObjectKind::Network:
          store(networkAttributes_, a.name, attributes_.typed(a.name, a.value));
          break;
        case DbcObjectKind::Message:
          if (const auto m = findMessage(a.at, a.messageId, "attribute " + a.name))
            store(index_[*m].attributes, a.name, attributes_.typed(a.name, a.value));
          break;
        case DbcObjectKind::Signal: {
          AttributeList* list = nullptr;
          if (findSignal(a.at, a.messageId, a.objectName, "attribute " + a.name, &list))
            store(*list, a.name, attributes_.typed(a.name, a.value));
          break;
        }
        case DbcObjectKind::Node: {
          const auto found = ecuByName_.find(a.objectName);
          if (found != ecuByName_.end())
            store(ecuAttributes_[found->second], a.name, attributes_.typed(a.name, a.value));
          else
            report_.warn(a.at, formatText("attribute %s refers to node %s, which the file doesn't list",
                                          a.name.c_str(), a.objectName.c_str()));
          break;
        }
        case DbcObjectKind::EnvironmentVariable:
          note(a.name);
          break;
      }
    }
    for (const auto& [name, count] : ignored)
      report_.warn(formatText("attribute %s is not imported (%zu %s)", name->c_str(), count,
                          count == 1 ? "value" : "values"));
  }

  AttributeValue attribute(const AttributeList& list, const char* name) const {
    for (const auto& entry : list)
      if (*entry.first == name) return entry.second;
    return attributes_.fallback(name);
  }

  void resolveMessage(std::size_t i) {
    DbcNetworkMessage& message = network_.messages[i];
    const DbcMessage& m = *message.source;
    const MessageIndex& index = index_[i];
    const char* name = m.name.c_str();
    uint32_t id = m.rawId & ~kExtendedBit;
    const AttributeValue frameFormat = attribute(index.attributes, "VFrameFormat");
    std::string formatName;
    if (frameFormat.isText()) {
      formatName = frameFormat.text;
    } else if (frameFormat.kind == AttributeValue::Integer) {
      // Declared as a number, the format is the index of the usual
      // enumeration: 1 extended, 14 FD, 15 extended FD.
      static const char* const byIndex[] = {"StandardCAN", "ExtendedCAN"};
      if (frameFormat.integer == 14) formatName = "StandardCAN_FD";
      else if (frameFormat.integer == 15) formatName = "ExtendedCAN_FD";
      else if (frameFormat.integer == 0 || frameFormat.integer == 1) formatName = byIndex[frameFormat.integer];
    }
    message.extended = (m.rawId & kExtendedBit) != 0 || formatName.rfind("Extended", 0) == 0 ||
                       formatName == "J1939PG";
    message.fd = formatName.find("FD") != std::string::npos;
    if (message.fd) {
      const AttributeValue brs = attribute(index.attributes, "CANFD_BRS");
      message.fastData = brs.kind == AttributeValue::None || brs.asText() == "1";
    }
    if (id > kMaxExtended) {
      const uint32_t kept = id & kMaxExtended;
      report_.warn(m.at, formatText("message %s has identifier 0x%" PRIX32 ", which no CAN frame can carry; the bits above the 29 of an extended identifier are dropped and it is imported as the extended frame 0x%" PRIX32,
                                name, id, kept));
      id = kept;
      message.extended = true;
    }
    message.identifier = id;
    if (!message.extended && id > kMaxStandard) {
      report_.warn(m.at, formatText("message %s has identifier 0x%" PRIX32 " without the extended mark; it is imported as an extended frame",
                                name, id));
      message.extended = true;
    }
    uint32_t bytes = m.length;
    if (message.fd && fdSizeOfCode(bytes)) {
      report_.warn(m.at, formatText("message %s gives the CAN FD length code %" PRIu32 "; it is imported with %" PRIu32 " bytes",
                                name, bytes, fdSizeOfCode(bytes)));
      bytes = fdSizeOfCode(bytes);
    }
    message.length = bytes;

    const AttributeValue longName = attribute(index.attributes, "SystemMessageLongSymbol");
    message.plainName = !longName.text.empty() ? longName.text : m.name;
    const AttributeValue cycle = attribute(index.attributes, "GenMsgCycleTime");
    if (cycle.isNumber() && cycle.number() > 0)
      message.cycleTime = cycle.kind == AttributeValue::Integer ? uint64_t(cycle.integer)
                                                                : uint64_t(std::floor(cycle.real));

    std::vector<DbcNetworkSignal> kept;
    kept.reserve(message.signals.size());
    for (std::size_t k = 0; k < message.signals.size(); ++k) {
      DbcNetworkSignal& signal = message.signals[k];
      const DbcSignal& s = *signal.source;
      std::string problem;
      if (s.bitLength < 1 || s.bitLength > 64)
        problem = formatText("has %" PRIu32 " bits; only 1 to 64 can be decoded", s.bitLength);
      else if (signal.valueType == DbcValueType::Float && s.bitLength != 32)
        problem = formatText("is a float of %" PRIu32 " bits; a float has 32", s.bitLength);
      else if (signal.valueType == DbcValueType::Double && s.bitLength != 64)
        problem = formatText("is a double of %" PRIu32 " bits; a double has 64", s.bitLength);
      else if (!fitsFrame(s.startBit, s.bitLength, s.bigEndian, bytes))
        problem = formatText("sticks out of its %" PRIu32 "-byte frame", bytes);
      else if (s.mux.isSwitch && !s.mux.isMultiplexed && signal.valueType != DbcValueType::Integer)
        problem = "is a multiplexer switch of floating-point type";
      if (!problem.empty()) {
        report_.warn(s.at, formatText("signal %s of message %s %s; it is not imported", s.name.c_str(), name,
                                  problem.c_str()));
        continue;
      }
      const AttributeList& own = index.signalAttributes[k];
      const AttributeValue signalLong = attribute(own, "SystemSignalLongSymbol");
      signal.plainName = !signalLong.text.empty() ? signalLong.text : s.name;
      const AttributeValue start = attribute(own, "GenSigStartValue");
      if (start.isNumber()) signal.startValue = start.number();
      if (s.scale == 0)
        report_.warn(s.at, formatText("signal %s of message %s has the factor 0: values can be decoded, not encoded",
                                      s.name.c_str(), name));
      if (signal.valueTexts) resolveValueTexts(message, signal);
      kept.push_back(std::move(signal));
    }
    message.signals = std::move(kept);

    if (index.multiplexRanges.empty())
      selectBySwitchValues(message, report_);
    else
      selectByRanges(message, index.multiplexRanges, report_);
  }

  // Value texts by raw value: keys as written, the last text of a repeated
  // key, ascending; each key made raw by the signal's sign (a negative key
  // is the raw value's two's complement, a signed signal's key may be
  // written as its bit pattern).
  void resolveValueTexts(const DbcNetworkMessage& message, DbcNetworkSignal& signal) {
    std::vector<std::pair<double, const DbcValueText*>> keys;
    keys.reserve(signal.valueTexts->values.size());
    for (const DbcValueText& value : signal.valueTexts->values) {
      const double key = value.negative ? -double(value.magnitude) : double(value.magnitude);
      const auto same = std::find_if(keys.begin(), keys.end(), [&](const auto& k) { return k.first == key; });
      if (same != keys.end())
        same->second = &value;
      else
        keys.emplace_back(key, &value);
    }
    std::stable_sort(keys.begin(), keys.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    const auto [low, high] = rawRangeOf(signal);
    const bool integer = signal.valueType == DbcValueType::Integer;
    const int bits = int(signal.source->bitLength);
    for (const auto& [key, value] : keys) {
      double raw = key;
      if (integer && signal.source->isSigned && key >= std::ldexp(1.0, bits - 1)) raw = key - std::ldexp(1.0, bits);
      if (integer && value->negative) {
        if (!signal.source->isSigned) raw = key + std::ldexp(1.0, bits);
        report_.warn(value->at, formatText("value description key %.0f of signal %s in message %s is negative; it is taken as the raw value %.0f",
                                           key, signal.name().c_str(), message.name().c_str(), raw));
      }
      if (raw < low || raw > high) {
        report_.warn(value->at, formatText("value description %.0f of signal %s in message %s lies outside the signal's raw values; it is not imported",
                                           key, signal.name().c_str(), message.name().c_str()));
        continue;
      }
      signal.rawValueTexts.emplace_back(raw, &value->text);
    }
  }

  const DbcModel& model_;
  DbcNetwork& network_;
  ImportReport& report_;
  DbcAttributes attributes_;
  std::unordered_map<std::string, std::size_t> ecuByName_;
  std::unordered_map<uint32_t, std::size_t> messageByKey_;
  std::vector<MessageIndex> index_;
  AttributeList networkAttributes_;
  std::vector<AttributeList> ecuAttributes_;
};

}  // namespace

std::pair<double, double> rawRangeOf(const DbcNetworkSignal& signal) {
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  if (signal.valueType != DbcValueType::Integer) return {-kInfinity, kInfinity};
  const uint32_t bits = signal.source->bitLength;
  if (signal.source->isSigned) return {-std::ldexp(1.0, int(bits) - 1), std::ldexp(1.0, int(bits) - 1) - 1};
  return {0.0, std::ldexp(1.0, int(bits)) - 1};
}

void resolveDbcNetwork(const DbcModel& model, DbcNetwork& network, ImportReport& report) {
  Resolver(model, network, report).run();
}

}  // namespace q9
