// Linear computations compose while each one's first range holds what the
// chain gives so far, with a little slack for rounding; the first whose
// range doesn't starts another piece, and the scaling stops there. Infinite
// limits read as no limits.
#include "SignalFacts.h"

#include <cmath>

#include "Nodes.h"
#include "Text.h"

namespace q9py {
namespace {

using q9tool::forEachNode;

constexpr uint16_t kLanguage = 0;
constexpr uint16_t kNoFallback = 65535;

struct Interval {
  double low, high;
};

std::optional<Interval> firstRange(Q9DbNode* computation) {
  std::optional<Interval> found;
  forEachNode(Q9Db_enumRanges, computation, [&](Q9DbNode* range) {
    if (found) return;
    Interval i{0, 0};
    Q9Db_getLowerLimit(range, &i.low);
    Q9Db_getUpperLimit(range, &i.high);
    found = i;
  });
  return found;
}

bool holds(const Interval& outer, const Interval& inner) {
  const double slack = 1e-9 * std::fmax(1.0, std::fmax(std::fabs(inner.low), std::fabs(inner.high)));
  return inner.low >= outer.low - slack && inner.high <= outer.high + slack;
}

// Linear computations compose while each one's range holds what the one
// before gives; one whose range doesn't is another piece of the coding.
void readScaling(Q9DbNode* coding, SignalFacts& facts) {
  bool started = false;
  bool done = false;
  Interval image{-INFINITY, INFINITY};
  forEachNode(Q9Db_enumInternalToPhysicalComputations, coding, [&](Q9DbNode* computation) {
    if (done || Q9Db_getNodeType(computation) != Q9_NODETYPE_LinearComputation) return;
    double scale = 1, offset = 0;
    Q9Db_getScale(computation, &scale);
    Q9Db_getOffset(computation, &offset);
    const std::optional<Interval> range = firstRange(computation);
    if (started && range && !holds(*range, image)) {
      done = true;
      return;
    }
    const Interval from = started || !range ? image : *range;
    facts.scale = started ? scale * facts.scale : scale;
    facts.offset = started ? scale * facts.offset + offset : offset;
    const double a = from.low * scale + offset, b = from.high * scale + offset;
    image = {std::fmin(a, b), std::fmax(a, b)};
    started = true;
  });
}

}  // namespace

std::string commentOf(Q9DbNode* node) {
  const char16_t* text = nullptr;
  if (Q9Db_getDescription(node, kLanguage, kNoFallback, &text) != S_OK) return {};
  return q9tool::utf8(text);
}

std::string senderOf(Q9DbNode* triggering) {
  Q9DbNode* ecu = nullptr;
  if (Q9Db_getSourceECU(triggering, &ecu) != S_OK || !ecu) return {};
  return q9tool::displayName(ecu);
}

SignalFacts signalFacts(Q9DbNode* db, Q9DbNode* signal) {
  SignalFacts facts;
  facts.name = q9tool::displayName(signal);
  facts.comment = commentOf(signal);
  uint32_t flags = 0;
  Q9Db_getFlags(signal, &flags);
  double limit = 0;
  if (Q9Db_getMinValue(signal, &limit) == S_OK && std::isfinite(limit)) facts.minimum = limit;
  if (Q9Db_getMaxValue(signal, &limit) == S_OK && std::isfinite(limit)) facts.maximum = limit;
  double initial = 0;
  if (Q9Db_getDefaultValue(signal, &initial) == S_OK) facts.initial = initial;
  Q9DbNode* unit = nullptr;
  Q9Db_getUnit(signal, &unit);
  facts.unit = q9tool::unitName(unit);
  Q9DbNode* coding = nullptr;
  if (Q9Db_getReference(signal, &coding) != S_OK || !coding) return facts;
  Q9Db_getEncoding(coding, &facts.encoding);
  const uint32_t type = facts.encoding & Q9_ENCODING_TYPEMASK;
  facts.isFloat = type == Q9_ENCODING_IEEE;
  facts.isText = type == Q9_ENCODING_ASCII;
  facts.isSigned = facts.isFloat || type == Q9_ENCODING_1COMPL || type == Q9_ENCODING_2COMPL ||
                   (facts.encoding & Q9_ENCODING_SIGNED);
  readScaling(coding, facts);
  for (const q9tool::ValueText& t : q9tool::valueTexts(db, signal))
    facts.choices.emplace_back(int64_t(std::llround(t.value)), t.text);
  return facts;
}

}  // namespace q9py
