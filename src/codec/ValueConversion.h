// Value helpers shared by the computations, the decoder and the encoders.
#pragma once

#include <cfloat>
#include <cmath>

#include "Q9Db.h"
#include "store/Nodes.h"

namespace q9 {

// The value as a double: integers converted with correct rounding; a value
// of unknown type counts as 0.
inline double valueAsDouble(const Q9DbPhysicalValue& v) {
  switch (v.valueType) {
    case Q9_VALUETYPE_DOUBLE: return v.value.d;
    case Q9_VALUETYPE_INT64: return double(v.value.i);
    case Q9_VALUETYPE_UINT64: return double(v.value.u);  // correctly rounded above 2^63 too
    default: return 0.0;
  }
}
// Whether a value range holds the value; no range holds an unknown type.
bool rangeHolds(const ValueRange& range, const Q9DbPhysicalValue& v);
// Whether any range of the computation holds the value.
bool computationHolds(const Computation& computation, const Q9DbPhysicalValue& v);

// Raw bits to a typed value by a coding's length and encoding word.
HRESULT typedValue(int32_t length, uint32_t encoding, uint64_t raw, Q9DbPhysicalValue& v);

// The range test on x, the value as a double; a NaN is held by nothing.
inline bool limitsHold(double lower, double upper, uint32_t flags, double x) {
  return (lower < x && x < upper) || ((flags & Q9_FLAG_LOWERLIMIT_CLOSED) && x == lower) ||
         ((flags & Q9_FLAG_UPPERLIMIT_CLOSED) && x == upper);
}

// A closed interval [low, high] that holds exactly the values the range
// holds, so that the test is two comparisons without branches. Every range
// whose lower limit lies below its upper one has one (an open limit moves
// to the next double inside), and so has a range of one point; false for
// the others (a lower limit above the upper, a NaN limit).
inline bool closedInterval(double lower, double upper, uint32_t flags, double* low, double* high) {
  const bool lowerClosed = flags & Q9_FLAG_LOWERLIMIT_CLOSED;
  const bool upperClosed = flags & Q9_FLAG_UPPERLIMIT_CLOSED;
  if (lower < upper) {
    *low = lowerClosed ? lower : std::nextafter(lower, HUGE_VAL);
    *high = upperClosed ? upper : std::nextafter(upper, -HUGE_VAL);
    return true;
  }
  if (lower != upper) return false;
  // A point holds only with a closed limit; a NaN interval holds nothing.
  *low = *high = lowerClosed || upperClosed ? lower : std::nan("");
  return true;
}

inline bool intervalHolds(double low, double high, double x) { return (low <= x) & (x <= high); }

constexpr double kTwo63 = 9223372036854775808.0;
constexpr uint64_t kUnrepresentable = 0x8000000000000000ull;

// Truncation toward zero; doubles that fit no signed 64-bit integer give the
// one pattern that stands for "no value".
inline uint64_t signedBits(double d) {
  if (!(d >= -kTwo63 && d < kTwo63)) return kUnrepresentable;
  return uint64_t(int64_t(d));
}

// A linear computation's constants as applying it needs them.
struct LinearStep {
  double scale;
  double offset;
  uint64_t offsetBits;  // the offset truncated, for integers at scale one
  bool atOne;           // scale one within the double epsilon
};

inline LinearStep linearStep(double scale, double offset) {
  // min(1, |scale|) spelt out: fmin is a library call.
  const double magnitude = std::fabs(scale);
  const bool atOne = std::fabs(scale - 1.0) <= (magnitude < 1.0 ? magnitude : 1.0) * DBL_EPSILON;
  return {scale, offset, signedBits(offset), atOne};
}

inline void applyLinear(const LinearStep& c, Q9DbPhysicalValue& v) {
  if (!c.atOne) {
    const double product = valueAsDouble(v) * c.scale;
    v.value.d = product + c.offset;
    v.valueType = Q9_VALUETYPE_DOUBLE;
    return;
  }
  // At scale one integers stay integers; the offset is truncated.
  switch (v.valueType) {
    case Q9_VALUETYPE_DOUBLE:
      v.value.d += c.offset;
      break;
    case Q9_VALUETYPE_INT64:
      v.value.u += c.offsetBits;
      break;
    case Q9_VALUETYPE_UINT64:
      v.value.u += c.offsetBits;
      if (int64_t(c.offsetBits) < 0 && (v.value.u >> 63)) v.valueType = Q9_VALUETYPE_INT64;
      break;
    default:
      break;
  }
}

}  // namespace q9
