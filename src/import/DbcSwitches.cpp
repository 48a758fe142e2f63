// Which switch selects each signal of a DBC message, and by which values:
// the "M" and "m<n>" marks of the signals, and SG_MUL_VAL_ lines for
// extended multiplexing, with what doesn't fit together reported.
#include "import/DbcSwitches.h"

#include <string_view>
#include <unordered_map>

namespace q9 {

// "M" marks the switch and "m<n>" the signals its value n selects. One
// switch per message: with several, the first is kept, and the signals of
// the others are read as if it selected them. "m<n>M" is a signal of n.
void selectBySwitchValues(DbcNetworkMessage& message, ImportReport& report) {
  const char* name = message.name().c_str();
  std::vector<std::size_t> switches;
  for (std::size_t k = 0; k < message.signals.size(); ++k) {
    const DbcMultiplexMark& mux = message.signals[k].source->mux;
    if (mux.isSwitch && !mux.isMultiplexed) switches.push_back(k);
  }
  if (switches.size() > 1)
    report.warn(message.source->at, formatText("message %s has %zu multiplexer switches (extended multiplexing); only %s is used as the switch",
                                            name, switches.size(), message.signals[switches[0]].name().c_str()));
  if (switches.empty()) {
    for (DbcNetworkSignal& signal : message.signals)
      if (signal.source->mux.isMultiplexed)
        report.warn(signal.source->at, formatText("signal %s of message %s is multiplexed, but message %s has no multiplexer switch; it is imported as a plain signal",
                                               signal.name().c_str(), name, name));
    return;
  }
  message.switchSignal = int(switches[0]);
  message.signals[switches[0]].isSwitch = true;
  for (DbcNetworkSignal& signal : message.signals)
    if (signal.source->mux.isMultiplexed) {
      signal.selector = message.switchSignal;
      signal.selectingValues.assign(1, {signal.source->mux.switchValue, signal.source->mux.switchValue});
    }
}

// Extended multiplexing: SG_MUL_VAL_ names each signal's switch and the
// ranges of its values that select it; switches may be selected in turn.
// Multiplexed signals without such a line keep their "m<n>" under the
// message's switch, the one that no other selects.
void selectByRanges(DbcNetworkMessage& message, const std::vector<const DbcMultiplexRanges*>& lines,
                    ImportReport& report) {
  const char* name = message.name().c_str();
  std::unordered_map<std::string_view, std::size_t> byName;
  for (std::size_t k = 0; k < message.signals.size(); ++k) {
    byName.emplace(message.signals[k].name(), k);
    message.signals[k].isSwitch = message.signals[k].source->mux.isSwitch;
  }
  std::vector<bool> given(message.signals.size(), false);
  for (const DbcMultiplexRanges* line : lines) {
    const auto signal = byName.find(line->signal);
    const auto selector = byName.find(line->switchName);
    if (signal == byName.end() || selector == byName.end()) {
      report.warn(line->at, formatText("the extended multiplexing entry of signal %s refers to %s %s of message %s, which is not imported; the entry is ignored",
                                    line->signal.c_str(), signal == byName.end() ? "signal" : "switch",
                                    (signal == byName.end() ? line->signal : line->switchName).c_str(), name));
      continue;
    }
    DbcNetworkSignal& target = message.signals[signal->second];
    if (!message.signals[selector->second].isSwitch || selector->second == signal->second) {
      report.warn(line->at, formatText("the extended multiplexing entry of signal %s names %s, which is no multiplexer switch of it; the entry is ignored",
                                    line->signal.c_str(), line->switchName.c_str()));
      continue;
    }
    if (given[signal->second] && target.selector != int(selector->second)) {
      report.warn(line->at, formatText("signal %s of message %s is selected by two switches; the entry naming %s is ignored",
                                    line->signal.c_str(), name, line->switchName.c_str()));
      continue;
    }
    if (!given[signal->second]) target.selectingValues.clear();
    given[signal->second] = true;
    target.selector = int(selector->second);
    target.selectingValues.insert(target.selectingValues.end(), line->ranges.begin(), line->ranges.end());
  }
  for (std::size_t k = 0; k < message.signals.size(); ++k) {
    const DbcNetworkSignal& signal = message.signals[k];
    if (signal.isSwitch && !given[k] && !signal.source->mux.isMultiplexed) {
      message.switchSignal = int(k);
      break;
    }
  }
  for (std::size_t k = 0; k < message.signals.size(); ++k) {
    DbcNetworkSignal& signal = message.signals[k];
    if (given[k] || !signal.source->mux.isMultiplexed) continue;
    if (message.switchSignal < 0 || int(k) == message.switchSignal) {
      report.warn(signal.source->at, formatText("signal %s of message %s is multiplexed, but message %s has no multiplexer switch; it is imported as a plain signal",
                                             signal.name().c_str(), name, name));
      continue;
    }
    signal.selector = message.switchSignal;
    signal.selectingValues.assign(1, {signal.source->mux.switchValue, signal.source->mux.switchValue});
  }
  // A switch that selects itself through others would have no place.
  for (std::size_t k = 0; k < message.signals.size(); ++k) {
    int at = message.signals[k].selector;
    for (std::size_t steps = 0; at >= 0 && steps <= message.signals.size(); ++steps) {
      if (at == int(k)) {
        report.warn(message.signals[k].source->at, formatText("signal %s of message %s selects itself through its switches; it is imported as a plain signal",
                                                           message.signals[k].name().c_str(), name));
        message.signals[k].selector = -1;
        break;
      }
      at = message.signals[std::size_t(at)].selector;
    }
  }
  if (message.switchSignal < 0) {
    // Without a switch of its own the message's PDU isn't multiplexed;
    // the first switch takes the place.
    for (std::size_t k = 0; k < message.signals.size(); ++k)
      if (message.signals[k].isSwitch && message.signals[k].selector < 0) {
        message.switchSignal = int(k);
        break;
      }
  }
}

}  // namespace q9
