// The frame is walked again and again, each walk writing the switches the
// next goes by, until two walks visit the same signals; a bound on the walks
// covers the deepest nesting. Every value given is checked before it is
// written, and a failure names the frame, the signal and what is wrong.
#include "FrameEncoder.h"

#include <cmath>
#include <cstdio>
#include <limits>

#include "Nodes.h"
#include "PayloadFields.h"
#include "SignalSetting.h"

namespace q9py {
namespace {

using q9tool::forEachNode;
using PayloadField = q9tool::SignalField;

constexpr int kMostWalks = 66;  // a walk per nesting level of switches, and one to see nothing changed

std::string number(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.15g", value);
  return text;
}

// The raw value of a physical one through the first encoding computation
// that takes it; false when none does.
bool rawOfPhysical(Q9DbNode* signal, double value, uint64_t& raw) {
  Q9DbPhysicalValue physical{};
  physical.valueType = Q9_VALUETYPE_DOUBLE;
  physical.value.d = value;
  Q9DbEncodeEnum storage{};
  Q9DbEncodeEnum* walk = &storage;  // our own storage: nothing to free
  if (Q9Db_encodeSignal(signal, &physical, &walk) != S_OK) return false;
  Q9DbNode* computation = nullptr;
  while (Q9Db_encodeNextComputation(walk, &computation) == S_OK)
    if (Q9Db_physicalToInternal(signal, computation, &physical, &raw) == S_OK) return true;
  return false;
}

class Writer : public q9tool::FieldVisitor {
 public:
  Writer(Q9DbNode* db, const FrameEntry& frame, const std::unordered_map<std::string, SignalInput>& values,
         const EncodeOptions& options)
      : db_(db), frame_(frame), values_(values), options_(options) {}

  bool visit(const PayloadField& field) override {
    visited_.push_back(field.signal);
    if (!error_.empty()) return false;
    const std::string& name = nameOf(field.signal);
    auto given = values_.find(name);
    uint64_t raw = 0;
    try {
      raw = given != values_.end() ? rawOf(field, name, given->second) : startValue(field);
    } catch (const EncodeError& e) {
      error_ = e.what();
      return false;
    }
    q9tool::PayloadFields::store(field, raw);
    return true;  // the part writes back only the segments whose bits changed
  }

  // The signals the last walk wrote, in order.
  std::vector<Q9DbNode*> takeVisited() { return std::move(visited_); }
  const std::string& error() const { return error_; }
  const std::string& nameOf(Q9DbNode* signal) {
    for (size_t i = 0; i < frame_.signals.size(); ++i)
      if (frame_.signals[i].signal == signal) return names_[i];
    static const std::string unknown = "?";
    return unknown;
  }
  void nameSignals() {
    for (const LaidSignal& laid : frame_.signals) names_.push_back(q9tool::displayName(laid.signal));
  }

 private:
  [[noreturn]] void fail(const std::string& name, const std::string& problem) const {
    throw EncodeError(frame_.name + "." + name + ": " + problem);
  }

  uint64_t rawOf(const PayloadField& field, const std::string& name, const SignalInput& input) {
    if (input.kind == SignalInput::Text) return rawOfText(field.signal, name, input.text);
    if (options_.raw) return checkedRaw(field, name, input);
    return rawOfNumber(field, name, input.number);
  }

  uint64_t rawOfNumber(const PayloadField& field, const std::string& name, double value) {
    if (!std::isfinite(value)) fail(name, number(value) + " is no finite number");
    uint64_t raw = 0;
    std::string problem;
    if (!q9tool::rawValueOfNumber(field.signal, value, options_.checkRange, raw, problem)) fail(name, problem);
    return raw;
  }

  uint64_t checkedRaw(const PayloadField& field, const std::string& name, const SignalInput& input) {
    if (input.kind != SignalInput::Integer) fail(name, "a raw value must be an integer, not " + number(input.number));
    const int32_t bits = std::abs(field.bits);
    uint32_t encoding = 0;
    Q9Db_getEncoding(field.coding, &encoding);
    const bool isSigned = (encoding & Q9_ENCODING_TYPEMASK) == Q9_ENCODING_2COMPL || (encoding & Q9_ENCODING_SIGNED);
    if (bits < 64 && options_.checkRange) {
      const int64_t low = isSigned ? -(int64_t(1) << (bits - 1)) : 0;
      const int64_t high = isSigned ? (int64_t(1) << (bits - 1)) - 1 : (int64_t(1) << bits) - 1;
      if (input.integer < low || input.integer > high)
        fail(name, "raw value " + std::to_string(input.integer) + " doesn't fit " + std::to_string(bits) + " bits (" +
                       std::to_string(low) + " .. " + std::to_string(high) + ")");
    }
    return uint64_t(input.integer);
  }

  uint64_t rawOfText(Q9DbNode* signal, const std::string& name, const std::string& text) {
    const std::vector<q9tool::ValueText> texts = q9tool::valueTexts(db_, signal);
    for (const q9tool::ValueText& t : texts) {
      if (t.text != text) continue;
      // The text's value is what the coding reads from the bits: no
      // computation, only the encoding, turns it back.
      Q9DbPhysicalValue internal{};
      internal.valueType = Q9_VALUETYPE_DOUBLE;
      internal.value.d = t.value;
      uint64_t raw = 0;
      if (Q9Db_physicalToInternal(signal, nullptr, &internal, &raw) == S_OK) return raw;
      fail(name, "the value of the text '" + text + "' can't be encoded");
    }
    std::string problem = "'" + text + "' is no value text of the signal";
    if (texts.empty()) {
      problem += ", which has none";
    } else {
      problem += " (";
      for (size_t i = 0; i < texts.size(); ++i) problem += (i ? ", " : "") + texts[i].text;
      problem += ")";
    }
    fail(name, problem);
  }

  // A signal left out goes out at its start value, else as zero bits.
  uint64_t startValue(const PayloadField& field) {
    double value = 0;
    uint64_t raw = 0;
    if (Q9Db_getDefaultValue(field.signal, &value) == S_OK && rawOfPhysical(field.signal, value, raw)) return raw;
    return 0;
  }

  Q9DbNode* db_;
  const FrameEntry& frame_;
  const std::unordered_map<std::string, SignalInput>& values_;
  const EncodeOptions& options_;
  std::vector<std::string> names_;
  std::vector<Q9DbNode*> visited_;
  std::string error_;
};

}  // namespace

std::vector<uint8_t> encodeFrame(Q9DbNode* db, const FrameEntry& frame,
                                 const std::unordered_map<std::string, SignalInput>& values,
                                 const EncodeOptions& options) {
  std::vector<uint8_t> payload(size_t(std::max(frame.length, 0)), 0);
  Writer writer(db, frame, values, options);
  writer.nameSignals();
  for (const auto& [name, input] : values) {
    bool known = false;
    for (const LaidSignal& laid : frame.signals) known = known || writer.nameOf(laid.signal) == name;
    if (!known) {
      std::string names;
      for (const LaidSignal& laid : frame.signals) names += (names.empty() ? "" : ", ") + writer.nameOf(laid.signal);
      throw EncodeError(frame.name + " has no signal " + name + (names.empty() ? "" : " (it has " + names + ")"));
    }
  }
  // Each walk writes the switches the next one goes by; once a walk visits
  // what the one before did, every switch is where the values put it.
  std::vector<Q9DbNode*> visited;
  for (int walk = 0; walk < kMostWalks; ++walk) {
    q9tool::PayloadFields(frame.frame, frame.identifier, frame.extended(), payload.data(), payload.size()).walk(writer);
    if (!writer.error().empty()) throw EncodeError(writer.error());
    std::vector<Q9DbNode*> now = writer.takeVisited();
    const bool settled = now == visited;
    visited = std::move(now);
    if (settled) break;
  }
  for (const auto& [name, input] : values) {
    bool written = false;
    for (Q9DbNode* signal : visited) written = written || writer.nameOf(signal) == name;
    if (written) continue;
    const LaidSignal* laid = nullptr;
    for (const LaidSignal& l : frame.signals)
      if (writer.nameOf(l.signal) == name) laid = &l;
    std::string codes;
    for (uint32_t code : laid->switchCodes) codes += (codes.empty() ? "" : ", ") + std::to_string(code);
    const std::string switchName = laid->switchSignal ? writer.nameOf(laid->switchSignal) : std::string("its switch");
    throw EncodeError(frame.name + "." + name + ": carried only when " + switchName + " is " +
                      (codes.empty() ? std::string("another value") : codes) + ", not with the value given");
  }
  return payload;
}

}  // namespace q9py
