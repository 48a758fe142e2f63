// The signals of one frame at their places in a payload, to read and to
// write: the frame's PDUs, and of a multiplexed PDU its static part and the
// part its switch selects, assembled from their segments as the library's
// decoder assembles them, so that what is written here decodes back.
#ifndef Q9DB_TOOL_PAYLOADFIELDS_H
#define Q9DB_TOOL_PAYLOADFIELDS_H

#include <cstddef>
#include <cstdint>

#include "Q9Db.h"

namespace q9tool {

// One signal's bits in a payload or in a part assembled from it.
struct SignalField {
  Q9DbNode* signal;
  Q9DbNode* coding;
  uint8_t* data;
  size_t size;    // bytes at data
  uint32_t pos;   // as the bit functions take it
  int32_t bits;   // negative: big-endian
};

// Sees each signal field a payload carries; answers true when it changed
// the field's bits, which then go back into the payload.
class FieldVisitor {
 public:
  virtual bool visit(const SignalField& field) = 0;

 protected:
  ~FieldVisitor() = default;
};

// A frame's payload as it goes out with identifier, which a switch or a
// segment may lie in.
class PayloadFields {
 public:
  PayloadFields(Q9DbNode* frame, uint32_t identifier, bool extended, uint8_t* data, size_t length);

  // Visits the signals in the decoder's order. Bits that a written part
  // can't store back (in the identifier, past the payload's end) are
  // counted in unstoredBits.
  void walk(FieldVisitor& visitor);
  unsigned unstoredBits() const { return unstoredBits_; }

  // The raw value of a numeric field, its low bits as the coding reads them.
  static uint64_t rawValue(const SignalField& field);
  // Writes raw into the field: its low bits, as Q9Db_encodeSignalInstance does.
  static void store(const SignalField& field, uint64_t raw);

 private:
  struct Image {
    uint8_t* data;
    size_t size;
  };
  bool pdu(FieldVisitor& visitor, Q9DbNode* pdu, Image image, int64_t offset, int depth);
  bool signalPdu(FieldVisitor& visitor, Q9DbNode* pdu, Image image, int64_t offset);
  bool multiplexedPdu(FieldVisitor& visitor, Q9DbNode* pdu, Image image, int64_t offset, int depth);
  bool part(FieldVisitor& visitor, Q9DbNode* part, Image image, int64_t offset, int depth);
  uint32_t switchCode(Q9DbNode* pdu, Image image, int64_t offset) const;
  // Where a field at an absolute position lies: the image, the identifier
  // (positions -32 to -1) or nowhere; null for nowhere.
  const uint8_t* source(Image image, int64_t pos, int32_t bits, uint32_t& at) const;

  Q9DbNode* frame_;
  uint8_t identifierImage_[4];
  Image payload_;
  unsigned unstoredBits_ = 0;
};

// True when the field (pos, bits) lies wholly inside size bytes.
bool fieldFits(size_t size, int64_t pos, int32_t bits);

}  // namespace q9tool

#endif
