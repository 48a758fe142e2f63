// A coding's decoding (raw value to physical value) compiled into one block
// of the database's accelerator room: its length, its encoding word and its
// decoding computations in list order, each with its class, its constants
// and its ranges. Converting by it reads that block alone, where the nodes
// take the coding, its computation list, each computation and each block of
// ranges, one after the other. The first ranges of all steps lie together,
// so that a value table is tested on a cache line or two.
#pragma once

#include "codec/ValueConversion.h"
#include "store/Accelerators.h"

namespace q9 {

// A range as a closed interval where it has one (see closedInterval),
// else as its limits and flags.
struct CompiledRange {
  double low;
  double high;
  uint32_t flags;  // kClosedInterval, or the range's flags
  uint32_t more;   // of a step's first range: how many further ranges it has
};

constexpr uint32_t kClosedInterval = 0x80000000;

inline bool rangeHolds(const CompiledRange& r, double x) {
  return r.flags == kClosedInterval ? intervalHolds(r.low, r.high, x) : limitsHold(r.low, r.high, r.flags, x);
}

enum class StepKind : uint32_t { Identity, Text, Value, Linear, Other };

// What applying a step needs, and its further ranges.
struct CompiledStep {
  const ObjectBase* computation;
  const CompiledRange* more;
  StepKind kind;
  LinearStep linear;
  double value;      // of a mapped value
  StringSlot* text;  // of a mapped text
};

// How raw bits become the typed value: the two common encodings without the
// general switch.
enum class Typing : uint32_t {
  Unsigned,        // DIRECT without sign: cut to the length
  TwosComplement,  // 2COMPL of 1 to 64 bits: the low bits sign-extended
  General,         // typedValue
};

struct CompiledDecoding {
  Accelerator head;
  int32_t length;
  uint32_t encoding;
  Typing typing;
  uint32_t signShift;  // 64 - length, for TwosComplement
  uint64_t lengthMask;  // for Unsigned
  // Set when there is exactly one step with exactly one range, the usual
  // scaling of a signal.
  bool single;
  // Set when every step is a text computation of one range, a table of
  // value texts: no step changes the value, so the last that holds it is
  // what the cascade leaves.
  bool textTable;
  uint64_t stepCount;
  const CompiledRange* firstRanges;  // one per step; a step without ranges holds nothing
  const CompiledStep* steps;
};

// Calls visit with every computation of the list, in list order, that the
// cascade looks at.
template <typename Visit>
void forEachComputation(const PagedList& list, Visit visit) {
  forEachPointer(list, [&](void* item) {
    const auto* node = static_cast<const ObjectBase*>(item);
    if (isA<Computation>(node)) visit(*as<Computation>(node));
  });
}

template <typename Visit>
void forEachRange(const Computation& c, Visit visit) {
  forEachRecord<const ValueRange>(c.ranges, [&](const ValueRange& r) { visit(r); });
}

// The coding's decoding, compiled now if no reader has done so since the
// last change; null when the database's room is full.
const CompiledDecoding* compiledDecodingOf(Q9Db* db, Coding& coding);

// Applies a step whose range holds the value: S_OK, or S_FALSE for a class
// that is no computation the cascade knows.
inline HRESULT applyStep(const CompiledStep& step, Q9DbPhysicalValue& v) {
  v.computation = reinterpret_cast<Q9DbNode*>(const_cast<ObjectBase*>(step.computation));
  switch (step.kind) {
    case StepKind::Identity: break;
    case StepKind::Text: v.text = reinterpret_cast<Q9DbStringSlot*>(step.text); break;
    case StepKind::Value:
      v.valueType = Q9_VALUETYPE_DOUBLE;
      v.value.d = step.value;
      break;
    case StepKind::Linear: applyLinear(step.linear, v); break;
    case StepKind::Other: return S_FALSE;
  }
  return S_OK;
}

// Whether one of the step's ranges holds x.
inline bool stepHolds(const CompiledDecoding& d, uint64_t i, double x) {
  const CompiledRange& first = d.firstRanges[i];
  if (rangeHolds(first, x)) return true;
  for (uint32_t j = 0; j < first.more; ++j)
    if (rangeHolds(d.steps[i].more[j], x)) return true;
  return false;
}

// The cascade of the coding's computations, as the nodes would run it.
inline HRESULT runCompiledCascade(const CompiledDecoding& d, Q9DbPhysicalValue& v) {
  HRESULT result = S_FALSE;
  // Only an applied computation changes the value, so its double is worked
  // out again only then; no range holds a value of unknown type.
  bool comparable = v.valueType <= Q9_VALUETYPE_INT64;
  double x = valueAsDouble(v);
  for (uint64_t i = 0; i < d.stepCount && comparable; ++i) {
    if (!stepHolds(d, i, x)) continue;
    result = applyStep(d.steps[i], v);
    comparable = v.valueType <= Q9_VALUETYPE_INT64;
    x = valueAsDouble(v);
  }
  return result;
}

// Q9Db_internalToPhysical by the compiled block: the same value, status and
// record as by the nodes.
inline HRESULT convertCompiled(const CompiledDecoding& d, uint64_t raw, Q9DbPhysicalValue& v) {
  v.computation = nullptr;
  v.text = nullptr;
  if (d.typing == Typing::Unsigned) {
    v.valueType = Q9_VALUETYPE_UINT64;
    v.value.u = raw & d.lengthMask;
  } else if (d.typing == Typing::TwosComplement) {
    v.valueType = Q9_VALUETYPE_INT64;
    v.value.i = int64_t(raw << d.signShift) >> d.signShift;
  } else {
    const HRESULT hr = typedValue(d.length, d.encoding, raw, v);
    if (hr != S_OK) return hr;
  }
  // Every encoding gives a value that ranges can hold.
  if (d.textTable) {
    // Without a branch per step: which text holds a value is hard to foresee.
    const double x = valueAsDouble(v);
    uint64_t last = d.stepCount;
    for (uint64_t i = 0; i < d.stepCount; ++i) last = rangeHolds(d.firstRanges[i], x) ? i : last;
    if (last == d.stepCount) return S_FALSE;
    v.computation = reinterpret_cast<Q9DbNode*>(const_cast<ObjectBase*>(d.steps[last].computation));
    v.text = reinterpret_cast<Q9DbStringSlot*>(d.steps[last].text);
    return S_OK;
  }
  if (d.single) {
    if (!rangeHolds(d.firstRanges[0], valueAsDouble(v))) return S_FALSE;
    return applyStep(d.steps[0], v);
  }
  return runCompiledCascade(d, v);
}

// convertCompiled out of line, for callers whose usual way is shorter.
HRESULT convertShared(const CompiledDecoding& d, uint64_t raw, Q9DbPhysicalValue& v);

}  // namespace q9
