// The planner works from each signal's selector (the switch whose values
// select it) and recurses: in each scope the first switch that selects
// something there, or the message's own at the top, splits it into parts.
// Every value of a range gets a part, up to a bound beyond which it warns.
#include "import/DbcPduPlan.h"

#include <algorithm>
#include <cinttypes>
#include <cstdarg>
#include <cstdio>

namespace q9 {
namespace {

// Every value of a range becomes a part of its own; beyond this many values
// per switch a file more likely means "all the others" than each one.
constexpr std::size_t kMaxValuesPerSwitch = 4096;

class Planner {
 public:
  Planner(const DbcNetworkMessage& message, ImportReport& report)
      : message_(message), report_(report), children_(message.signals.size()) {
    for (std::size_t k = 0; k < message.signals.size(); ++k) {
      const int selector = message.signals[k].selector;
      if (selector >= 0) children_[std::size_t(selector)].push_back(k);
    }
  }

  PlannedPdu top(int32_t frameBits) {
    std::vector<PlannedField> fields;
    for (std::size_t k = 0; k < message_.signals.size(); ++k) {
      const DbcSignal& s = *message_.signals[k].source;
      fields.push_back({k, s.bigEndian ? Q9_BYTEORDER_BIGENDIAN : Q9_BYTEORDER_LITTLEENDIAN, int32_t(s.startBit),
                        int32_t(s.bitLength)});
    }
    PlannedPdu pdu = plan(fields, "", message_.switchSignal);
    pdu.bits = frameBits;
    return pdu;
  }

 private:
  // The PDU of the signals of `scope`, given in the coordinates of the PDU
  // or part that holds them.
  PlannedPdu plan(const std::vector<PlannedField>& scope, const std::string& label, int forcedSwitch) {
    PlannedPdu pdu;
    pdu.label = label;
    for (const PlannedField& f : scope) pdu.bits += f.length;
    std::vector<bool> inScope(message_.signals.size(), false);
    for (const PlannedField& f : scope) inScope[f.signal] = true;
    const auto direct = [&](std::size_t k) {
      const int selector = message_.signals[k].selector;
      return selector < 0 || !inScope[std::size_t(selector)];
    };
    const PlannedField* switchField = nullptr;
    for (const PlannedField& f : scope) {
      const bool selects = std::any_of(children_[f.signal].begin(), children_[f.signal].end(),
                                       [&](std::size_t c) { return inScope[c]; });
      if (direct(f.signal) && (forcedSwitch >= 0 ? int(f.signal) == forcedSwitch : selects)) {
        switchField = &f;
        break;
      }
    }
    if (!switchField) {
      pdu.fields = scope;
      return pdu;
    }
    pdu.multiplexed = true;
    pdu.switchField = *switchField;
    const std::size_t switchSignal = switchField->signal;
    std::vector<bool> below(message_.signals.size(), false);
    markBelow(switchSignal, below);

    // The static part: everything the switch doesn't select, itself included.
    std::vector<PlannedField> fixed;
    for (const PlannedField& f : scope)
      if (!below[f.signal]) fixed.push_back(f);
    pdu.parts.push_back(part(fixed, true, 0, label.empty() ? "static" : label + "/static"));

    for (const uint64_t value : valuesOf(switchSignal, inScope, switchField->length)) {
      std::vector<bool> selected(message_.signals.size(), false);
      for (std::size_t c : children_[switchSignal])
        if (inScope[c] && selects(message_.signals[c], value)) {
          selected[c] = true;
          markBelow(c, selected);
        }
      std::vector<PlannedField> members;
      for (const PlannedField& f : scope)
        if (selected[f.signal]) members.push_back(f);
      const std::string code = std::to_string(value);
      pdu.parts.push_back(part(members, false, uint32_t(value), label.empty() ? code : label + "/" + code));
    }
    return pdu;
  }

  PlannedPart part(const std::vector<PlannedField>& members, bool isStatic, uint32_t code, const std::string& label) {
    PlannedPart made;
    made.isStatic = isStatic;
    made.code = code;
    made.segments = members;
    // Inside the part its fields stand one after the other, little-endian.
    std::vector<PlannedField> inPart;
    int32_t position = 0;
    for (const PlannedField& f : members) {
      inPart.push_back({f.signal, Q9_BYTEORDER_LITTLEENDIAN, position, f.length});
      position += f.length;
    }
    made.pdu = std::make_unique<PlannedPdu>(plan(inPart, label, -1));
    return made;
  }

  void markBelow(std::size_t k, std::vector<bool>& marks) const {
    for (std::size_t c : children_[k])
      if (!marks[c]) {
        marks[c] = true;
        markBelow(c, marks);
      }
  }

  static bool selects(const DbcNetworkSignal& s, uint64_t value) {
    for (const auto& [low, high] : s.selectingValues)
      if (value >= low && value <= high) return true;
    return false;
  }

  // The switch values that select anything in scope, ascending. A range
  // beyond the switch's width is cut to it, and so is a switch with more
  // values than parts are made for; single values stay as the file gives
  // them (those that can't occur are warned about here).
  std::vector<uint64_t> valuesOf(std::size_t switchSignal, const std::vector<bool>& inScope, int32_t bits) {
    const uint64_t top = bits >= 64 ? UINT64_MAX : (uint64_t(1) << bits) - 1;
    std::vector<uint64_t> values;
    bool cut = false;
    for (std::size_t c : children_[switchSignal]) {
      if (!inScope[c]) continue;
      for (auto [low, high] : message_.signals[c].selectingValues) {
        if (low < high && high > top) {
          report_.warn(message_.signals[c].source->at,
                       formatText("signal %s of message %s is selected by values up to %" PRIu64 ", beyond the %" PRId32 "-bit switch %s; the range is cut at %" PRIu64,
                              message_.signals[c].name().c_str(), message_.name().c_str(), high, bits,
                              message_.signals[switchSignal].name().c_str(), top));
          high = top;
        }
        if (low == high && low > top)
          report_.warn(message_.signals[c].source->at,
                       formatText("signals of message %s with switch value %" PRIu64 " can never be selected by the %" PRId32 "-bit switch %s",
                                  message_.name().c_str(), low, bits, message_.signals[switchSignal].name().c_str()));
        for (uint64_t v = low; v <= high && !cut; ++v) {
          values.push_back(v);
          if (values.size() > 4 * kMaxValuesPerSwitch) {
            std::sort(values.begin(), values.end());
            values.erase(std::unique(values.begin(), values.end()), values.end());
            cut = values.size() > kMaxValuesPerSwitch;
          }
          if (v == UINT64_MAX) break;
        }
      }
    }
    std::sort(values.begin(), values.end());
    values.erase(std::unique(values.begin(), values.end()), values.end());
    if (values.size() > kMaxValuesPerSwitch) {
      values.resize(kMaxValuesPerSwitch);
      cut = true;
    }
    if (cut)
      report_.warn(message_.source->at, formatText("switch %s of message %s selects signals by more than %zu values; only the first %zu get a part",
                                               message_.signals[switchSignal].name().c_str(), message_.name().c_str(),
                                               kMaxValuesPerSwitch, kMaxValuesPerSwitch));
    return values;
  }

  const DbcNetworkMessage& message_;
  ImportReport& report_;
  std::vector<std::vector<std::size_t>> children_;
};

}  // namespace

PlannedPdu planDbcMessage(const DbcNetworkMessage& message, int32_t frameBits, ImportReport& report) {
  return Planner(message, report).top(frameBits);
}

}  // namespace q9
