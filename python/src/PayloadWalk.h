// The signal fields of one frame's payload as the decoder reads them: the
// frame's PDUs, and of a multiplexed PDU its static part and the part its
// switch selects, assembled from their segments. A visitor may change the
// fields; what it changed goes back into the payload segment by segment.
// Only segments whose bits changed are written back: segments of parts the
// switch didn't select may overlap them in the frame, and their stale
// copies must not undo a write.
#ifndef Q9DB_PYTHON_PAYLOADWALK_H
#define Q9DB_PYTHON_PAYLOADWALK_H

#include <cstddef>
#include <cstdint>

#include "Q9Db.h"

namespace q9py {

struct PayloadField {
  Q9DbNode* signal;
  Q9DbNode* coding;
  uint8_t* data;  // the payload or a part's image
  size_t size;    // bytes at data
  uint32_t pos;   // as the bit functions take it
  int32_t bits;   // negative: big-endian
};

class PayloadVisitor {
 public:
  virtual void visit(const PayloadField& field) = 0;

 protected:
  ~PayloadVisitor() = default;
};

// Visits the signals of frame in payload, in the decoder's order. identifier
// is the frame's own, which a switch or segment may lie in (read only).
void walkPayload(Q9DbNode* frame, uint32_t identifier, bool extended, uint8_t* payload, size_t length,
                 PayloadVisitor& visitor);

// Writes the low bits of raw into the field, as Q9Db_encodeSignalInstance does.
void storeRaw(const PayloadField& field, uint64_t raw);

}  // namespace q9py

#endif
