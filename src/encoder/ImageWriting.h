// How one image goes into another: a signal's value into its PDU, a PDU
// into its frame, and a multiplexer part's PDU into its multiplexed PDU.
// Every write is bounded by the target image.
#pragma once

#include <cstdint>

#include "encoder/EncoderStore.h"
#include "store/Nodes.h"

namespace q9 {

// Where an instance (of a signal in a PDU, or of a PDU in a frame) places
// its source.
struct FieldPlace {
  int32_t bitpos;
  int32_t byteOrder;
  int32_t updateBitpos;  // -1: no update bit
};

template <typename Instance>
FieldPlace placeOf(const Instance& instance) {
  return FieldPlace{instance.bitpos, instance.byteOrder, instance.updateBitpos};
}

// Writes sourceBits bits of source (a little-endian value image) at the
// place, and sets the place's update bit. Update bits are never cleared.
void writeField(EncoderRecord& target, const FieldPlace& place, const uint8_t* source, uint32_t sourceBits);

// Writes the part's PDU image into its multiplexed PDU's image, the inverse
// of the decoder's assembly, and then the part's switch code, unless the
// part is the static or the else part.
void writePart(EncoderRecord& multiplexed, const MultiplexedPart& part, const EncoderRecord& partPdu);

}  // namespace q9
