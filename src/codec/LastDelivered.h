// The signal that the decoder delivered last on this thread, with its
// planned field. A client asks for the physical value of what was just
// delivered (the usual order), and that is then worked out from the field
// without reading a node.
#pragma once

#include "codec/DecodePlan.h"

namespace q9 {

struct LastDelivered {
  const PlannedField* field;
  uint64_t epoch;  // acceleratorEpoch() when it was delivered
};

// Per thread, so that concurrent walks don't see each other's. The library
// is loaded with its client, so the initial model's single load serves.
extern __thread LastDelivered lastDelivered __attribute__((tls_model("initial-exec")));

inline void noteDelivered(const PlannedField& field) { lastDelivered = {&field, acceleratorEpoch()}; }

// The field of signal if it was the last delivered and the room has not been
// emptied since (so that the field is still there); else null.
inline const PlannedField* deliveredFieldOf(const void* signal) {
  const LastDelivered& last = lastDelivered;
  if (!last.field || last.epoch != acceleratorEpoch() || last.field->signal != signal) return nullptr;
  return last.field;
}

}  // namespace q9
