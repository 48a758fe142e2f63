// Signals and diagnostic signals with their codings: the encoding a signal
// representation gives them, or an identity over the whole raw range, and
// the initial value made physical as the default.
#include <cmath>
#include <limits>
#include <unordered_map>

#include "import/LdfBuild.h"
#include "import/LdfEncodings.h"
#include "import/ScriptNumbers.h"

namespace q9 {
namespace {

constexpr uint32_t kRangeInternal = 0xC0000003;
constexpr uint32_t kRangePhysical = 0x80000003;

// Which encoding each signal takes, and the signals in the order the
// representations name them.
struct Representations {
  std::unordered_map<std::string, const LdfEncodingType*> ofSignal;
  std::vector<const LdfName*> order;
};

Representations representations(LdfBuild& b) {
  std::unordered_map<std::string, const LdfEncodingType*> byName;
  for (const LdfEncodingType& type : b.file.encodingTypes) {
    if (!byName.emplace(type.name, &type).second)
      b.warn(type.at, "signal encoding " + type.name + " is defined twice; the second is left out");
  }
  Representations out;
  for (const LdfRepresentation& rep : b.file.representations) {
    const auto type = byName.find(rep.encoding);
    if (type == byName.end()) {
      b.warn(rep.at, "signal representation names the encoding " + rep.encoding + ", which is not defined");
      continue;
    }
    for (const LdfName& signal : rep.signals) {
      const auto taken = out.ofSignal.find(signal.text);
      if (taken != out.ofSignal.end()) {
        const std::string& first = taken->second->name;
        b.warn(signal.at, "signal " + signal.text + " has the encodings " + first + " and " + rep.encoding +
                              "; it takes " + first);
        continue;
      }
      out.ofSignal.emplace(signal.text, type->second);
      out.order.push_back(&signal);
    }
  }
  return out;
}

// The raw start value: the number, or for a byte array the bytes in
// transmission order, which a little-endian field holds low byte first.
int64_t initialRaw(LdfBuild& b, const LdfSignal& def) {
  const LdfInitialValue& init = def.initial;
  if (!init.isArray) return init.scalar;
  uint64_t raw = 0;
  for (std::size_t i = 0; i < init.bytes.size(); ++i) {
    int64_t byte = integerOfText(init.bytes[i]).value_or(0);
    if (byte < 0 || byte > 255) {
      b.warn(def.at, "signal " + def.name + ": initial byte " + init.bytes[i] + " is no byte value; 0 is taken");
      byte = 0;
    }
    if (i < 8) raw |= uint64_t(byte) << (8 * i);
  }
  if (int64_t(init.bytes.size()) * 8 != def.size)
    b.warn(def.at, "signal " + def.name + ": " + std::to_string(init.bytes.size()) + " initial bytes for a size of " +
                       std::to_string(def.size) + " bits");
  // Doubles hold 53 bits exactly; the default value of a wider array is rounded.
  if (raw >= (uint64_t(1) << 53))
    b.warn(def.at, "signal " + def.name +
                       ": the initial value of the byte array is wider than 53 bits; the default value is rounded");
  return int64_t(raw);
}

double unsignedAsDouble(int64_t raw) {
  if (raw >= 0) return double(raw);
  return double(int64_t(uint64_t(raw) >> 1)) * 2.0 + double(raw & 1);
}

void addComputations(LdfBuild& b, HRESULT (*add)(Q9DbNode*, uint64_t, Q9DbNode* const*), Q9DbNode* coding,
                     const std::vector<Q9DbNode*>& list) {
  if (list.empty()) return;  // a range of scale 0 has no inverse
  b.make.check(add(coding, list.size(), list.data()), "adding computations to a coding");
}

void buildSignal(LdfBuild& b, const LdfSignal& def, const LdfEncodingType* type, bool diagnostic) {
  const std::string& name = def.name;
  if (b.signals.count(name)) {
    b.warn(def.at, "signal " + name + " is defined twice; the second is left out");
    return;
  }
  const int64_t size = def.size;
  if (size < 1 || size > 64) {
    b.warn(def.at, "signal " + name + ": a size of " + numberText(double(size)) +
                       " bits can't be mapped (1 to 64); the signal is left out");
    return;
  }
  const int64_t raw = initialRaw(b, def);
  const LdfBuiltEncoding* encoding = type ? &b.encoding(*type) : nullptr;
  const uint32_t encodingType = encoding ? encoding->encodingType : Q9_ENCODING_DIRECT;
  Q9DbNode* coding = b.named(b.create("creating a coding", Q9Db_createCoding, b.make.id({"coding", name}),
                                         int32_t(size), encodingType, encoding ? encoding->unit : nullptr),
                             name);

  const double top = size == 64 ? 18446744073709551615.0 : double((uint64_t(1) << size) - 1);
  double defaultValue = unsignedAsDouble(raw), minValue = 0.0, maxValue = top;
  uint32_t flags = 0xC0000003;
  if (encoding && encodingType != Q9_ENCODING_ASCII && !encoding->internal.empty()) {
    const LdfLinearRange* range = nullptr;
    if (const auto physical = physicalOf(*encoding, raw, &range)) defaultValue = *physical;
    addComputations(b, Q9Db_addInternalToPhysicalComputations, coding, encoding->internal);
    addComputations(b, Q9Db_addPhysicalToInternalComputations, coding,
                    inverseFor(*encoding, defaultValue, range));
    // Limits: the span of the physical ranges, else of the logical values.
    double lo = std::numeric_limits<double>::infinity(), hi = -lo;
    for (const LdfLinearRange& p : encoding->physical) {
      lo = std::min(lo, p.image.lo);
      hi = std::max(hi, p.image.hi);
    }
    if (lo > hi) {
      for (const LdfLogicalValue& l : encoding->logical) {
        lo = std::min(lo, l.value);
        hi = std::max(hi, l.value);
      }
    }
    flags = 0x80000003;
    minValue = lo;
    maxValue = hi;
  } else if (encodingType != Q9_ENCODING_ASCII) {
    // Without an encoding the raw value is the value: an identity over the
    // signal's whole range makes every value valid and encodable.
    Q9DbNode* identity = b.create("creating an identity computation", Q9Db_createIdentityComputation,
                                     b.make.id({"compu", name, "identity"}));
    b.make.check(Q9Db_addRange(identity, 0, top, kRangeInternal), "adding a range");
    Q9DbNode* inverse = b.create("creating an identity computation", Q9Db_createIdentityComputation,
                                    b.make.id({"compu", name, "identity", "inverse"}));
    b.make.check(Q9Db_addRange(inverse, 0, top, kRangePhysical), "adding a range");
    addComputations(b, Q9Db_addInternalToPhysicalComputations, coding, {identity});
    addComputations(b, Q9Db_addPhysicalToInternalComputations, coding, {inverse});
  } else {
    defaultValue = 0.0;
  }

  Q9DbNode* signal = b.named(b.create("creating a signal", Q9Db_createSignal, b.make.id({"signal", name}), flags,
                                         defaultValue, minValue, maxValue, coding),
                             name);
  if (diagnostic) b.describe(signal, "diagnostic signal");
  b.signals.emplace(name, LdfBuiltSignal{signal, &def, size});
}

}  // namespace

void buildSignals(LdfBuild& b) {
  const Representations reps = representations(b);
  auto typeOf = [&reps](const std::string& name) -> const LdfEncodingType* {
    const auto found = reps.ofSignal.find(name);
    return found == reps.ofSignal.end() ? nullptr : found->second;
  };
  b.signals.reserve(b.file.signals.size() + b.file.diagnosticSignals.size());
  for (const LdfSignal& def : b.file.signals) buildSignal(b, def, typeOf(def.name), false);
  for (const LdfSignal& def : b.file.diagnosticSignals) buildSignal(b, def, typeOf(def.name), true);
  for (const LdfName* signal : reps.order)
    if (!b.signals.count(signal->text))
      b.warn(signal->at, "signal representation names the signal " + signal->text + ", which is not defined");
}

}  // namespace q9
