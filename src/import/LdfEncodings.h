// Signal encoding types as computations. One encoding type becomes one set
// of computations, shared by the codings of all signals that use it.
// Internal to physical:
//   logical_value v, "text"   MappedTextComputation on the closed range v..v
//   logical_value v           IdentityComputation on v..v, so v counts as valid
//   physical_value a, b, s, o LinearComputation s, o on the closed range a..b
// Physical to internal: the inverse of each, on the physical range.
//
// The decoder visits every computation of a coding in list order and each
// one sees the value the previous one produced. So the texts come first
// (they leave the value as it is), and the linear ones are ordered so that
// no range's scaled values fall into the raw range of a later one.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Q9Db.h"
#include "import/LdfBuild.h"

namespace q9 {

struct LdfValueSpan {
  double lo = 0, hi = 0;
};

struct LdfLinearRange {
  LdfValueSpan raw, image;
  double scale = 1, offset = 0;
  std::size_t index = 0;  // of the value description, from 1, for its id
  Q9DbNode* inverse = nullptr;
};

struct LdfLogicalValue {
  double value = 0;
  Q9DbNode* inverse = nullptr;
};

struct LdfBuiltEncoding {
  std::vector<Q9DbNode*> internal;  // in the order to add them to a coding
  std::vector<Q9DbNode*> inverse;
  uint32_t encodingType = Q9_ENCODING_DIRECT;
  Q9DbNode* unit = nullptr;
  std::vector<LdfLinearRange> physical;  // in decoding order
  std::vector<LdfLogicalValue> logical;
};

LdfBuiltEncoding buildEncoding(LdfBuild& b, const LdfEncodingType& type);

// The decoding order of linear ranges: Kahn's algorithm over "must come
// before" edges, lowest file position first among the ready ones, so that
// independent ranges keep the file's order; a cycle keeps the rest in file
// order. `clashes` gets the pairs (by position) that scale into each other.
std::vector<std::size_t> orderLinearRanges(const std::vector<LdfLinearRange>& ranges,
                                           std::vector<std::pair<std::size_t, std::size_t>>& clashes);

// The physical value of a raw value as the decoder finds it, with the range
// that holds it; none when no physical range does.
std::optional<double> physicalOf(const LdfBuiltEncoding& encoding, int64_t raw,
                                 const LdfLinearRange** range);

// The inverse computations with the one that holds `physical` first: the
// encoder turns a signal's default value into raw bits through the first
// inverse computation of its coding, whatever its range.
std::vector<Q9DbNode*> inverseFor(const LdfBuiltEncoding& encoding, double physical,
                                  const LdfLinearRange* range);

}  // namespace q9
