// The computations of signal encoding types, their decoding order, and the
// default value of a signal seen through them.
#include "import/LdfEncodings.h"

#include <cmath>
#include <utility>

#include "import/ScriptNumbers.h"

namespace q9 {
namespace {

constexpr uint32_t kRangeInternal = 0xC0000003;  // valid, internal values, both limits closed
constexpr uint32_t kRangePhysical = 0x80000003;  // valid, both limits closed

bool overlaps(const LdfValueSpan& a, const LdfValueSpan& b) { return a.lo <= b.hi && b.lo <= a.hi; }

constexpr double kTwoTo63 = 9223372036854775808.0;

// i <= f and f <= i, exactly, for integers beyond the doubles' precision too.
bool atMost(int64_t i, double f) {
  if (std::isnan(f)) return false;
  if (f >= kTwoTo63) return true;
  if (f < -kTwoTo63) return false;
  return i <= int64_t(std::floor(f));
}
bool atLeast(int64_t i, double f) {
  if (std::isnan(f)) return false;
  if (f >= kTwoTo63) return false;
  if (f < -kTwoTo63) return true;
  return i >= int64_t(std::ceil(f));
}

void addRange(LdfBuild& b, Q9DbNode* computation, double lo, double hi, uint32_t flags) {
  b.make.check(Q9Db_addRange(computation, lo, hi, flags), "adding a range");
}

}  // namespace

std::vector<std::size_t> orderLinearRanges(const std::vector<LdfLinearRange>& items,
                                           std::vector<std::pair<std::size_t, std::size_t>>& clashes) {
  const std::size_t n = items.size();
  std::vector<std::vector<std::size_t>> before(n);
  std::vector<std::size_t> pending(n, 0);
  for (std::size_t i = 0; i < n; ++i) {
    for (std::size_t j = 0; j < n; ++j) {
      // i's results fall into j's raw range: j must be visited before i.
      if (i == j || !overlaps(items[i].image, items[j].raw)) continue;
      before[j].push_back(i);
      ++pending[i];
      if (j > i && overlaps(items[j].image, items[i].raw)) clashes.emplace_back(i, j);
    }
  }
  std::vector<std::size_t> order;
  std::vector<bool> done(n, false);
  while (order.size() < n) {
    std::size_t pick = n;
    for (std::size_t i = 0; i < n && pick == n; ++i)
      if (!done[i] && pending[i] == 0) pick = i;
    for (std::size_t i = 0; i < n && pick == n; ++i)  // a cycle: the rest in file order
      if (!done[i]) pick = i;
    done[pick] = true;
    order.push_back(pick);
    for (std::size_t k : before[pick]) --pending[k];
  }
  return order;
}

LdfBuiltEncoding buildEncoding(LdfBuild& b, const LdfEncodingType& type) {
  LdfBuiltEncoding result;
  const std::string& name = type.name;
  std::vector<LdfLinearRange> linear;
  std::vector<TextPosition> linearAt;
  std::vector<std::string> units;
  std::vector<TextPosition> unitsAt;

  for (std::size_t index = 1; index <= type.values.size(); ++index) {
    const LdfEncodingValue& value = type.values[index - 1];
    const std::string number = std::to_string(index);
    switch (value.kind) {
      case LdfValueKind::Logical: {
        const auto v = double(value.value);
        Q9DbNode* c;
        if (value.text) {
          Q9DbStringSlot* slot = b.make.slot(*value.text);
          c = b.create("creating a text computation", Q9Db_createMappedTextComputation,
                          b.make.id({"encoding", name, number}), slot);
        } else {
          c = b.create("creating an identity computation", Q9Db_createIdentityComputation,
                          b.make.id({"encoding", name, number}));
        }
        addRange(b, c, v, v, kRangeInternal);
        Q9DbNode* back = b.create("creating an identity computation", Q9Db_createIdentityComputation,
                                     b.make.id({"encoding", name, number, "inverse"}));
        addRange(b, back, v, v, kRangePhysical);
        result.internal.push_back(c);
        result.inverse.push_back(back);
        result.logical.push_back({v, back});
        break;
      }
      case LdfValueKind::Physical: {
        const double s = value.scale, o = value.offset;
        double lo = double(value.min), hi = double(value.max);
        if (lo > hi) std::swap(lo, hi);
        double p = lo * s + o, q = hi * s + o;
        if (p > q) std::swap(p, q);
        LdfLinearRange range;
        range.raw = {lo, hi};
        range.image = {p, q};
        range.scale = s;
        range.offset = o;
        range.index = index;
        linear.push_back(range);
        linearAt.push_back(value.at);
        if (value.text && !value.text->empty()) {
          units.push_back(*value.text);
          unitsAt.push_back(value.at);
        }
        // On integers a scale of exactly one adds only the whole part of the offset.
        if (s == 1 && o != std::floor(o))
          b.warn(value.at, "signal encoding " + name + ": physical range " + numberText(lo) + ".." +
                               numberText(hi) + " has scale 1 and offset " + numberText(o) +
                               "; the decoder adds only the whole part of the offset to integer values");
        break;
      }
      case LdfValueKind::Bcd: result.encodingType = Q9_ENCODING_PACKED_BCD; break;
      case LdfValueKind::Ascii: result.encodingType = Q9_ENCODING_ASCII; break;
    }
  }

  std::vector<std::pair<std::size_t, std::size_t>> clashes;
  const std::vector<std::size_t> order = orderLinearRanges(linear, clashes);
  for (const auto& [first, second] : clashes) {
    const LdfLinearRange& x = linear[first];
    const LdfLinearRange& y = linear[second];
    b.warn(linearAt[first], "signal encoding " + name + ": physical ranges " + numberText(x.raw.lo) + ".." +
                                numberText(x.raw.hi) + " and " + numberText(y.raw.lo) + ".." +
                                numberText(y.raw.hi) +
                                " scale into each other; values of one may be scaled a second time by the other");
  }
  for (std::size_t position : order) {
    LdfLinearRange item = linear[position];
    const std::string number = std::to_string(item.index);
    Q9DbNode* c = b.create("creating a linear computation", Q9Db_createLinearComputation,
                              b.make.id({"encoding", name, number}), item.scale, item.offset);
    addRange(b, c, item.raw.lo, item.raw.hi, kRangeInternal);
    result.internal.push_back(c);
    if (item.scale != 0) {
      Q9DbNode* back = b.create("creating a linear computation", Q9Db_createLinearComputation,
                                   b.make.id({"encoding", name, number, "inverse"}), 1 / item.scale,
                                   -item.offset / item.scale);
      addRange(b, back, item.image.lo, item.image.hi, kRangePhysical);
      result.inverse.push_back(back);
      item.inverse = back;
    } else {
      b.warn(linearAt[position], "signal encoding " + name + ": physical range " + numberText(item.raw.lo) +
                                     ".." + numberText(item.raw.hi) +
                                     " has scale 0; its values can't be encoded");
    }
    result.physical.push_back(item);
  }

  if (result.encodingType == Q9_ENCODING_ASCII && (!linear.empty() || !result.logical.empty()))
    b.warn(type.at, "signal encoding " + name +
                        ": ascii_value with logical or physical values; the values don't apply to text");

  if (!units.empty()) {
    for (std::size_t i = 1; i < units.size(); ++i) {
      if (units[i] == units[0]) continue;
      b.warn(unitsAt[i], "signal encoding " + name + ": physical ranges name the units '" + units[0] +
                             "' and '" + units[i] + "'; the coding takes '" + units[0] + "'");
      break;
    }
    const std::u16string unitText = toUtf16(units[0]);
    result.unit = b.create("creating a unit", Q9Db_createUnitSpec, b.make.id({"unit", name}),
                              b.language(), unitText.c_str());
    b.named(result.unit, units[0]);
  }
  return result;
}

std::optional<double> physicalOf(const LdfBuiltEncoding& encoding, int64_t raw, const LdfLinearRange** range) {
  for (const LdfLinearRange& item : encoding.physical) {
    if (atLeast(raw, item.raw.lo) && atMost(raw, item.raw.hi)) {
      *range = &item;
      return double(raw) * item.scale + item.offset;
    }
  }
  *range = nullptr;
  return std::nullopt;
}

std::vector<Q9DbNode*> inverseFor(const LdfBuiltEncoding& encoding, double physical, const LdfLinearRange* range) {
  Q9DbNode* first = range ? range->inverse : nullptr;
  if (!first) {
    for (const LdfLogicalValue& logical : encoding.logical) {
      if (logical.value == physical) {
        first = logical.inverse;
        break;
      }
    }
  }
  std::vector<Q9DbNode*> list;
  if (first) list.push_back(first);
  for (Q9DbNode* c : encoding.inverse)
    if (c != first) list.push_back(c);
  return list;
}

}  // namespace q9
