// Fields go in through the bit helpers, which clip at the target's size, and a
// whole-byte little-endian field in place is a plain copy. A part with segments
// is laid out segment by segment; one without is overlaid signal by signal, so
// the other parts' signals in the multiplexed image stay as they were.
#include "encoder/ImageWriting.h"

#include <algorithm>
#include <cstring>

#include "codec/BitField.h"
#include "encoder/MemberWalk.h"

namespace q9 {
namespace {

int32_t ordered(int32_t byteOrder, int32_t length) {
  return byteOrder == Q9_BYTEORDER_BIGENDIAN ? -length : length;
}

void setBit(EncoderRecord& target, int32_t bit) {
  if (bit < 0 || uint32_t(bit) / 8 >= target.byteSize) return;
  target.image[bit / 8] |= uint8_t(1u << (bit % 8));
}

// Each segment takes the next bits of the part's image, from bit 0 on.
// Segments below bit 0 lie in the identifier, which no image holds; what
// runs past the part's image is written as zeros, never read.
bool writeSegments(EncoderRecord& target, const MultiplexedPart& part, const EncoderRecord& source) {
  MemberWalk segments(Q9Db_enumSegments, const_cast<MultiplexedPart*>(&part));
  uint64_t taken = 0;
  bool any = false;
  void* item = nullptr;
  while (segments.next(&item)) {
    any = true;
    const auto& s = *static_cast<const Segment*>(item);
    if (s.bitlen <= 0) continue;
    const uint64_t left = taken < source.bitLength ? source.bitLength - taken : 0;
    if (s.bitpos >= 0)
      Q9bit_copy(target.image, target.byteSize, uint32_t(s.bitpos), ordered(s.byteOrder, s.bitlen), source.image,
                 uint32_t(std::min<uint64_t>(taken, source.bitLength)),
                 int32_t(std::min<uint64_t>(uint64_t(s.bitlen), left)));
    taken += uint64_t(s.bitlen);
  }
  return any;
}

// A part without segments is read by the decoder straight from its
// multiplexed PDU, so the part's signals lie in the same place in both
// images: each of their fields (and update bits) is carried over, and
// nothing else, which keeps the other parts' signals intact.
void overlaySignals(EncoderRecord& target, const SignalPDU& pdu, const EncoderRecord& source) {
  MemberWalk instances(Q9Db_enumSignalInstances, const_cast<SignalPDU*>(&pdu));
  void* item = nullptr;
  while (instances.next(&item)) {
    const auto* instance = static_cast<const SignalInstance*>(item);
    const auto* signal = isExact<Signal>(instance->reference) ? as<Signal>(instance->reference) : nullptr;
    if (!signal || !isExact<Coding>(signal->reference)) continue;
    const int32_t length = as<Coding>(signal->reference)->bitlen;
    if (length <= 0 || length > 64 || instance->bitpos < 0) continue;
    const int32_t bits = ordered(instance->byteOrder, length);
    if (fieldEndByte(uint64_t(instance->bitpos), bits) > source.byteSize) continue;
    uint8_t value[8];
    Q9bit_extract(value, source.image, sizeof value, uint32_t(instance->bitpos), bits);
    Q9bit_insert(target.image, value, target.byteSize, uint32_t(instance->bitpos), bits);
    const int32_t update = instance->updateBitpos;
    if (update >= 0 && uint32_t(update) / 8 < source.byteSize && (source.image[update / 8] >> (update % 8)) & 1)
      setBit(target, update);
  }
}

// A nested multiplexed PDU without segments covers its part from bit 0.
void overlayImage(EncoderRecord& target, const EncoderRecord& source) {
  const uint32_t bits = std::min(target.bitLength, source.bitLength);
  Q9bit_copy(target.image, target.byteSize, 0, int32_t(bits), source.image, 0, int32_t(bits));
}

void writeSwitch(EncoderRecord& target, const MultiplexedPDU& pdu, uint32_t code) {
  if (pdu.switchLength <= 0 || pdu.switchPosition < 0) return;
  const uint8_t image[4] = {uint8_t(code), uint8_t(code >> 8), uint8_t(code >> 16), uint8_t(code >> 24)};
  const int32_t bits = ordered(pdu.switchByteOrder, std::min(pdu.switchLength, 32));
  Q9bit_insert(target.image, image, target.byteSize, uint32_t(pdu.switchPosition), bits);
}

}  // namespace

void writeField(EncoderRecord& target, const FieldPlace& place, const uint8_t* source, uint32_t sourceBits) {
  if (place.bitpos >= 0 && sourceBits != 0) {
    const uint32_t bitpos = uint32_t(place.bitpos);
    // Whole bytes in place, as a PDU mostly stands in its frame: a copy
    // does what the bit insert would.
    if (place.byteOrder != Q9_BYTEORDER_BIGENDIAN && bitpos % 8 == 0 && sourceBits % 8 == 0 &&
        uint64_t(bitpos / 8) + sourceBits / 8 <= target.byteSize)
      std::memcpy(target.image + bitpos / 8, source, sourceBits / 8);
    else
      Q9bit_insert(target.image, source, target.byteSize, bitpos, ordered(place.byteOrder, int32_t(sourceBits)));
  }
  setBit(target, place.updateBitpos);
}

void writePart(EncoderRecord& multiplexed, const MultiplexedPart& part, const EncoderRecord& partPdu) {
  if (!writeSegments(multiplexed, part, partPdu)) {
    if (isExact<SignalPDU>(partPdu.node))
      overlaySignals(multiplexed, *as<SignalPDU>(partPdu.node), partPdu);
    else
      overlayImage(multiplexed, partPdu);
  }
  const auto& pdu = *as<MultiplexedPDU>(multiplexed.node);
  // The part sent last decides the switch; static and else parts have no code.
  if (&part != pdu.staticPart && &part != pdu.elsePart) writeSwitch(multiplexed, pdu, part.switchCode);
}

}  // namespace q9
