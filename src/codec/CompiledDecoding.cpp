// The coding is read twice: once to count its steps and ranges, so that the
// block is claimed at its final size, and once to fill it. Nothing is
// compiled when a computation belongs to another database, whose changes
// would not take the block away; the raw value's typing is chosen here.
#include "codec/CompiledDecoding.h"

#include <limits>

namespace q9 {

namespace {

StepKind kindOf(const Computation& c) {
  switch (readTag(&c)) {
    case IdentityComputation::kNodeType: return StepKind::Identity;
    case MappedTextComputation::kNodeType: return StepKind::Text;
    case MappedValueComputation::kNodeType: return StepKind::Value;
    case LinearComputation::kNodeType: return StepKind::Linear;
    default: return StepKind::Other;
  }
}

CompiledStep stepOf(const Computation& c, const CompiledRange* more) {
  CompiledStep step{};
  step.computation = &c;
  step.more = more;
  step.kind = kindOf(c);
  if (step.kind == StepKind::Linear) {
    const auto* linear = as<LinearComputation>(&c);
    step.linear = linearStep(linear->scale, linear->offset);
  } else if (step.kind == StepKind::Value) {
    step.value = as<MappedValueComputation>(&c)->value;
  } else if (step.kind == StepKind::Text) {
    step.text = as<MappedTextComputation>(&c)->textvalue;
  }
  return step;
}

// The typings agree with typedValue: DIRECT without the sign flag cuts to
// lengths of 1 to 63 and leaves the others whole; 2COMPL sets the bits above
// a set sign bit and cuts otherwise, which for 1 to 64 bits is a sign
// extension of the low bits.
void chooseTyping(CompiledDecoding& d) {
  const uint32_t type = d.encoding & Q9_ENCODING_TYPEMASK;
  d.typing = Typing::General;
  d.signShift = 0;
  d.lengthMask = ~uint64_t(0);
  if (type == Q9_ENCODING_DIRECT && !(d.encoding & Q9_ENCODING_SIGNED)) {
    d.typing = Typing::Unsigned;
    if (d.length > 0 && d.length < 64) d.lengthMask = (uint64_t(1) << d.length) - 1;
  } else if (type == Q9_ENCODING_2COMPL && d.length > 0 && d.length <= 64) {
    d.typing = Typing::TwosComplement;
    d.signShift = uint32_t(64 - d.length);
  }
}

}  // namespace

const CompiledDecoding* compiledDecodingOf(Q9Db* db, Coding& coding) {
  void** slot = &coding.compiledDecoding;
  if (void* done = loadAccelerator(slot)) return static_cast<const CompiledDecoding*>(done);

  uint64_t stepCount = 0, rangeCount = 0;
  bool foreign = false;
  forEachComputation(coding.internalToPhysicalCompus, [&](const Computation& c) {
    ++stepCount;
    foreign = foreign || c.databaseRef != coding.databaseRef;
    forEachRange(c, [&](const ValueRange&) { ++rangeCount; });
  });
  // The block is taken away by the changes to the coding's database only.
  if (foreign || coding.databaseRef != db) return nullptr;
  // The head, the first ranges, the steps, the further ranges.
  const uint64_t size = sizeof(CompiledDecoding) + stepCount * (sizeof(CompiledRange) + sizeof(CompiledStep)) +
                        rangeCount * sizeof(CompiledRange);
  Accelerator* block = claimAccelerator(db, size);
  if (!block) return nullptr;

  auto* compiled = reinterpret_cast<CompiledDecoding*>(block);
  auto* firstRanges = reinterpret_cast<CompiledRange*>(compiled + 1);
  auto* steps = reinterpret_cast<CompiledStep*>(firstRanges + stepCount);
  auto* more = reinterpret_cast<CompiledRange*>(steps + stepCount);
  compiled->length = coding.bitlen;
  compiled->encoding = coding.encoding;
  chooseTyping(*compiled);
  compiled->stepCount = stepCount;
  compiled->firstRanges = firstRanges;
  compiled->steps = steps;
  compiled->single = stepCount == 1 && rangeCount == 1;
  compiled->textTable = stepCount > 0 && rangeCount == stepCount;
  // A NaN interval: held by nothing.
  const double none = std::numeric_limits<double>::quiet_NaN();
  forEachComputation(coding.internalToPhysicalCompus, [&](const Computation& c) {
    CompiledRange& first = *firstRanges++;
    first = {none, none, kClosedInterval, 0};
    CompiledRange* further = more;
    uint64_t seen = 0;
    forEachRange(c, [&](const ValueRange& r) {
      // The range test looks at the two closed bits alone.
      CompiledRange range{r.lowerLimit, r.upperLimit, r.flags & (Q9_FLAG_LOWERLIMIT_CLOSED | Q9_FLAG_UPPERLIMIT_CLOSED), 0};
      if (closedInterval(r.lowerLimit, r.upperLimit, r.flags, &range.low, &range.high)) range.flags = kClosedInterval;
      if (seen++ == 0) {
        first = range;
      } else {
        *more++ = range;
        ++first.more;
      }
    });
    *steps++ = stepOf(c, further);
    compiled->textTable = compiled->textTable && seen == 1 && kindOf(c) == StepKind::Text;
  });
  return static_cast<const CompiledDecoding*>(publishAccelerator(block, slot));
}

HRESULT convertShared(const CompiledDecoding& d, uint64_t raw, Q9DbPhysicalValue& v) {
  return convertCompiled(d, raw, v);
}

}  // namespace q9
