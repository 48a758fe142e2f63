// A part is assembled into a local image from its segments and its PDU
// walked there; then only the segments whose bits changed are copied back,
// as parts may share frame bits and an unchanged copy would undo a change.
// Fields outside the payload are skipped; bits that can't go back are counted.
#include "PayloadFields.h"

#include <cstring>

#include "Nodes.h"

namespace q9tool {
namespace {

// The decoder's bounds: a part assembles into at most 1024 bytes, and parts
// nest no deeper than its stack.
constexpr size_t kPartImageSize = 1024;
constexpr int kDeepestNesting = 63;
constexpr int32_t kIdentifierBits = 32;

int32_t readInt(HRESULT (*get)(Q9DbNode*, int32_t*), Q9DbNode* node) {
  int32_t value = 0;
  get(node, &value);
  return value;
}

bool isPdu(Q9DbNode* node) {
  uint32_t type = node ? Q9Db_getNodeType(node) : Q9_NODETYPE_InvalidNode;
  return type == Q9_NODETYPE_SignalPDU || type == Q9_NODETYPE_MultiplexedPDU;
}

int32_t orderedLength(int32_t byteOrder, int32_t length) {
  return byteOrder == Q9_BYTEORDER_BIGENDIAN ? -length : length;
}

// Whether bits [from, from + length) of two part images differ.
bool bitsDiffer(const uint8_t* a, const uint8_t* b, uint32_t from, int32_t length) {
  uint8_t left[kPartImageSize] = {};
  uint8_t right[kPartImageSize] = {};
  Q9bit_copy(left, sizeof left, 0, length, a, from, length);
  Q9bit_copy(right, sizeof right, 0, length, b, from, length);
  return std::memcmp(left, right, (size_t(length) + 7) / 8) != 0;
}

}  // namespace

bool fieldFits(size_t size, int64_t pos, int32_t bits) {
  if (pos < 0) return false;
  if (bits >= 0) return uint64_t(pos) + uint64_t(bits) <= uint64_t(size) * 8;
  // Big-endian: from pos down to bit 0 of its byte, then on from bit 7 of
  // the next bytes.
  const int64_t length = -int64_t(bits);
  const int64_t inFirstByte = pos % 8 + 1;
  const int64_t lastByte = pos / 8 + (length > inFirstByte ? (length - inFirstByte + 7) / 8 : 0);
  return lastByte < int64_t(size);
}

PayloadFields::PayloadFields(Q9DbNode* frame, uint32_t identifier, bool extended, uint8_t* data, size_t length)
    : frame_(frame), payload_{data, length} {
  // The identifier left-aligned in 32 bits, little-endian, as the decoder
  // reads a switch or segment at a negative position.
  const uint32_t aligned = extended ? identifier << 3 : identifier << 21;
  for (int i = 0; i < 4; ++i) identifierImage_[i] = uint8_t(aligned >> (8 * i));
}

void PayloadFields::walk(FieldVisitor& visitor) {
  unstoredBits_ = 0;
  forEachNode(Q9Db_enumPDUInstances, frame_, [&](Q9DbNode* instance) {
    Q9DbNode* carried = nullptr;
    Q9Db_getReference(instance, &carried);
    if (isPdu(carried)) pdu(visitor, carried, payload_, readInt(Q9Db_getBitPosition, instance), 0);
  });
}

bool PayloadFields::pdu(FieldVisitor& visitor, Q9DbNode* pdu, Image image, int64_t offset, int depth) {
  if (Q9Db_getNodeType(pdu) == Q9_NODETYPE_MultiplexedPDU) return multiplexedPdu(visitor, pdu, image, offset, depth);
  return signalPdu(visitor, pdu, image, offset);
}

bool PayloadFields::signalPdu(FieldVisitor& visitor, Q9DbNode* pdu, Image image, int64_t offset) {
  bool changed = false;
  forEachNode(Q9Db_enumSignalInstances, pdu, [&](Q9DbNode* instance) {
    Q9DbNode* signal = nullptr;
    Q9DbNode* coding = nullptr;
    if (Q9Db_getReference(instance, &signal) != S_OK || !signal || Q9Db_getReference(signal, &coding) != S_OK ||
        !coding)
      return;
    const int32_t bitpos = readInt(Q9Db_getBitPosition, instance);
    const int32_t bits = orderedLength(readInt(Q9Db_getByteOrder, instance), readInt(Q9Db_getBitLength, coding));
    // A field that doesn't lie in the image is no value the payload carries.
    if (bitpos < 0 || !fieldFits(image.size, bitpos + offset, bits)) return;
    changed |= visitor.visit({signal, coding, image.data, image.size, uint32_t(bitpos + offset), bits});
  });
  return changed;
}

const uint8_t* PayloadFields::source(Image image, int64_t pos, int32_t bits, uint32_t& at) const {
  if (pos >= 0) {
    at = uint32_t(pos);
    return fieldFits(image.size, pos, bits) ? image.data : nullptr;
  }
  at = uint32_t(pos + kIdentifierBits);
  return pos >= -kIdentifierBits && fieldFits(sizeof identifierImage_, pos + kIdentifierBits, bits) ? identifierImage_
                                                                                                    : nullptr;
}

uint32_t PayloadFields::switchCode(Q9DbNode* pdu, Image image, int64_t offset) const {
  const int32_t length = readInt(Q9Db_getSwitchLength, pdu);
  if (length <= 0) return 0;
  const int64_t pos = readInt(Q9Db_getSwitchPosition, pdu) + offset;
  const int32_t bits = orderedLength(readInt(Q9Db_getSwitchByteOrder, pdu), length);
  uint32_t at = 0;
  const uint8_t* from = source(image, pos, bits, at);
  uint8_t value[8] = {};
  if (from) Q9bit_extract(value, from, sizeof value, at, bits);
  uint32_t code = uint32_t(value[0]) | uint32_t(value[1]) << 8 | uint32_t(value[2]) << 16 | uint32_t(value[3]) << 24;
  return length < 32 ? code & ((uint32_t(1) << length) - 1) : code;
}

bool PayloadFields::multiplexedPdu(FieldVisitor& visitor, Q9DbNode* pdu, Image image, int64_t offset, int depth) {
  Q9DbNode* fixed = nullptr;
  Q9Db_getStaticPart(pdu, &fixed);
  bool changed = false;
  // The static part's signals come first, as the decoder gives them. The
  // switch is read after them: a writer that sets the switch there gets
  // its part in the same walk, and never writes a part the switch it set
  // doesn't select (whose bits would stay behind in the payload).
  if (fixed) changed |= part(visitor, fixed, image, offset, depth);
  const uint32_t code = switchCode(pdu, image, offset);
  Q9DbNode* selected = nullptr;
  forEachNode(Q9Db_enumDynamicParts, pdu, [&](Q9DbNode* part) {
    uint32_t partCode = 0;
    if (!selected && Q9Db_getSwitchCode(part, &partCode) == S_OK && partCode == code) selected = part;
  });
  if (!selected) Q9Db_getElsePart(pdu, &selected);
  if (selected) changed |= part(visitor, selected, image, offset, depth);
  return changed;
}

bool PayloadFields::part(FieldVisitor& visitor, Q9DbNode* part, Image image, int64_t offset, int depth) {
  Q9DbNode* carried = nullptr;
  Q9Db_getReference(part, &carried);
  if (!isPdu(carried) || depth >= kDeepestNesting) return false;
  bool segmented = false;
  forEachNode(Q9Db_enumSegments, part, [&](Q9DbNode*) { segmented = true; });
  // A part without segments reads its PDU's image directly, from bit 0.
  if (!segmented) return pdu(visitor, carried, image, 0, depth + 1);

  uint8_t assembled[kPartImageSize] = {};
  uint32_t to = 0;
  forEachNode(Q9Db_enumSegments, part, [&](Q9DbNode* segment) {
    const int32_t length = readInt(Q9Db_getBitLength, segment);
    if (length <= 0) return;
    const int32_t bits = orderedLength(readInt(Q9Db_getByteOrder, segment), length);
    uint32_t at = 0;
    if (const uint8_t* from = source(image, readInt(Q9Db_getBitPosition, segment) + offset, bits, at))
      Q9bit_copy(assembled, sizeof assembled, to, length, from, at, bits);
    to += uint32_t(length);
  });
  uint8_t before[kPartImageSize];
  std::memcpy(before, assembled, sizeof before);
  if (!pdu(visitor, carried, {assembled, sizeof assembled}, 0, depth + 1)) return false;

  // The part's changed bits go back to where they came from. Only changed
  // segments: segments may copy the same bits of the frame (a signal of one
  // part where another has its own), and an unchanged copy written after a
  // changed one would undo the change.
  uint32_t from = 0;
  forEachNode(Q9Db_enumSegments, part, [&](Q9DbNode* segment) {
    const int32_t length = readInt(Q9Db_getBitLength, segment);
    if (length <= 0) return;
    const int64_t pos = readInt(Q9Db_getBitPosition, segment) + offset;
    const int32_t bits = orderedLength(readInt(Q9Db_getByteOrder, segment), length);
    if (!bitsDiffer(before, assembled, from, length)) {
      from += uint32_t(length);
      return;
    }
    if (fieldFits(image.size, pos, bits))
      Q9bit_copy(image.data, image.size, uint32_t(pos), bits, assembled, from, length);
    else
      unstoredBits_ += unsigned(length);
    from += uint32_t(length);
  });
  return true;
}

uint64_t PayloadFields::rawValue(const SignalField& field) {
  uint8_t image[8] = {};
  Q9bit_extract(image, field.data, sizeof image, field.pos, field.bits);
  uint64_t raw = 0;
  for (int i = 7; i >= 0; --i) raw = raw << 8 | image[i];
  return raw;
}

void PayloadFields::store(const SignalField& field, uint64_t raw) {
  uint8_t image[8];
  for (int i = 0; i < 8; ++i) image[i] = uint8_t(raw >> (8 * i));
  Q9bit_insert(field.data, image, field.size, field.pos, field.bits);
}

}  // namespace q9tool
