// Value helpers shared by the computations, the decoder and the encoders.
#pragma once

#include "Q9Db.h"
#include "store/Nodes.h"

namespace q9 {

// The value as a double: integers converted with correct rounding; a value
// of unknown type counts as 0.
double valueAsDouble(const Q9DbPhysicalValue& v);
// Whether a value range holds the value; no range holds an unknown type.
bool rangeHolds(const ValueRange& range, const Q9DbPhysicalValue& v);
// Whether any range of the computation holds the value.
bool computationHolds(const Computation& computation, const Q9DbPhysicalValue& v);

}  // namespace q9
