// PduCarriers: where each PDU record's image goes when it is sent: into the
// frame records of its PDU instances and the multiplexed PDU records of its
// parts, in the order of the PDU's parents. Looked up once when the encoder
// starts (the database doesn't change while an encoder exists), so that a
// send walks no list and searches no index. Carriers without a record (a
// frame outside the scope) are left out, as a send skips them.
#pragma once

#include <cstdint>

#include "Q9Db.h"
#include "encoder/EncoderStore.h"

namespace q9 {

struct PduCarrier {
  EncoderRecord* target;
  const void* link;  // the PDUInstance, or the MultiplexedPart
  bool isPart;
};

class PduCarriers {
 public:
  struct Range {
    const PduCarrier* first;
    const PduCarrier* last;  // one past
    const PduCarrier* begin() const { return first; }
    const PduCarrier* end() const { return last; }
  };

  PduCarriers() = default;
  ~PduCarriers() { Free(); }
  PduCarriers(const PduCarriers&) = delete;
  PduCarriers& operator=(const PduCarriers&) = delete;

  // Both stores sealed; their records stay where they are from then on.
  // E_OUTOFMEMORY.
  HRESULT Build(EncoderStore& pdus, EncoderStore& frames);
  void Free();

  // The carriers of a record of the PDU store given to Build.
  Range Of(const EncoderRecord& pdu) const {
    const uint32_t index = uint32_t(&pdu - records_);
    return Range{carriers_ + starts_[index], carriers_ + starts_[index + 1]};
  }

 private:
  // Counts (into null) or fills the carriers of one record; their number.
  static uint32_t Collect(const EncoderRecord& pdu, EncoderStore& pdus, EncoderStore& frames, PduCarrier* out);

  const EncoderRecord* records_ = nullptr;
  uint32_t* starts_ = nullptr;  // per record, and one past the last
  PduCarrier* carriers_ = nullptr;
  void* block_ = nullptr;
};

}  // namespace q9
