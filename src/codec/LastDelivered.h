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

// Per thread, so that concurrent walks don't see each other's. The
// initial-exec model makes each access a thread-pointer-relative load
// instead of a call to __tls_get_addr. It needs static TLS room: a program
// linked against the library gets that at start, but require "Q9Db" from
// Lua and the Python extension load the library by dlopen, and then the
// loader must find the library's whole TLS block (this and the XML error
// capture's pointer, 24 bytes) in the small surplus it keeps for such
// libraries; if other libraries loaded that way have used it up, the
// dlopen fails with "cannot allocate memory in static TLS block". The code
// relies on that block staying a few dozen bytes.
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
