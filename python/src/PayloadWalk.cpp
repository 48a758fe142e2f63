#include "PayloadWalk.h"

#include <cstring>
#include <vector>

#include "Nodes.h"

namespace q9py {
namespace {

using q9tool::forEachNode;

constexpr size_t kPartImageSize = 1024;  // what the decoder assembles a part into
constexpr int kDeepestNesting = 63;      // and how deep it nests
constexpr int64_t kIdentifierBits = 32;

int32_t readInt(HRESULT (*get)(Q9DbNode*, int32_t*), Q9DbNode* node) {
  int32_t value = 0;
  get(node, &value);
  return value;
}

bool isPdu(Q9DbNode* node) {
  const uint32_t type = node ? Q9Db_getNodeType(node) : Q9_NODETYPE_InvalidNode;
  return type == Q9_NODETYPE_SignalPDU || type == Q9_NODETYPE_MultiplexedPDU;
}

int32_t ordered(int32_t byteOrder, int32_t length) { return byteOrder == Q9_BYTEORDER_BIGENDIAN ? -length : length; }

// True when the field (pos, bits) lies wholly inside size bytes.
bool fits(size_t size, int64_t pos, int32_t bits) {
  if (pos < 0) return false;
  if (bits >= 0) return uint64_t(pos) + uint64_t(bits) <= uint64_t(size) * 8;
  // Big-endian: from pos down to bit 0 of its byte, then on from bit 7 of
  // the next bytes.
  const int64_t length = -int64_t(bits);
  const int64_t inFirstByte = pos % 8 + 1;
  const int64_t lastByte = pos / 8 + (length > inFirstByte ? (length - inFirstByte + 7) / 8 : 0);
  return lastByte < int64_t(size);
}

struct Image {
  uint8_t* data;
  size_t size;
};

struct Segment {
  int64_t pos;   // in the enclosing image
  int32_t bits;  // ordered
  uint32_t length;
};

class Walk {
 public:
  Walk(Q9DbNode* frame, uint32_t identifier, bool extended, PayloadVisitor& visitor)
      : frame_(frame), visitor_(visitor) {
    // The identifier left-aligned in 32 bits, little-endian, as the decoder
    // reads a switch or segment at a negative position.
    const uint32_t aligned = extended ? identifier << 3 : identifier << 21;
    for (int i = 0; i < 4; ++i) identifierImage_[i] = uint8_t(aligned >> (8 * i));
  }

  void run(Image payload) {
    forEachNode(Q9Db_enumPDUInstances, frame_, [&](Q9DbNode* instance) {
      Q9DbNode* carried = nullptr;
      Q9Db_getReference(instance, &carried);
      if (isPdu(carried)) pdu(carried, payload, readInt(Q9Db_getBitPosition, instance), 0);
    });
  }

 private:
  void pdu(Q9DbNode* pdu, Image image, int64_t offset, int depth) {
    if (Q9Db_getNodeType(pdu) == Q9_NODETYPE_MultiplexedPDU) return multiplexed(pdu, image, offset, depth);
    forEachNode(Q9Db_enumSignalInstances, pdu, [&](Q9DbNode* instance) {
      Q9DbNode* signal = nullptr;
      Q9DbNode* coding = nullptr;
      if (Q9Db_getReference(instance, &signal) != S_OK || !signal || Q9Db_getReference(signal, &coding) != S_OK ||
          !coding)
        return;
      const int64_t pos = readInt(Q9Db_getBitPosition, instance) + offset;
      const int32_t bits = ordered(readInt(Q9Db_getByteOrder, instance), readInt(Q9Db_getBitLength, coding));
      // A field that doesn't lie in the image is no value the payload carries.
      if (!fits(image.size, pos, bits)) return;
      visitor_.visit({signal, coding, image.data, image.size, uint32_t(pos), bits});
    });
  }

  // Where a field at an absolute position lies: the image, the identifier
  // (positions -32 to -1) or nowhere (null).
  const uint8_t* source(Image image, int64_t pos, int32_t bits, uint32_t& at) const {
    if (pos >= 0) {
      at = uint32_t(pos);
      return fits(image.size, pos, bits) ? image.data : nullptr;
    }
    at = uint32_t(pos + kIdentifierBits);
    return pos >= -kIdentifierBits && fits(sizeof identifierImage_, pos + kIdentifierBits, bits) ? identifierImage_
                                                                                                : nullptr;
  }

  uint32_t switchCode(Q9DbNode* pdu, Image image, int64_t offset) const {
    const int32_t length = readInt(Q9Db_getSwitchLength, pdu);
    if (length <= 0) return 0;
    const int32_t bits = ordered(readInt(Q9Db_getSwitchByteOrder, pdu), length);
    uint32_t at = 0;
    const uint8_t* from = source(image, readInt(Q9Db_getSwitchPosition, pdu) + offset, bits, at);
    uint8_t value[8] = {};
    if (from) Q9bit_extract(value, from, sizeof value, at, bits);
    const uint32_t code = uint32_t(value[0]) | uint32_t(value[1]) << 8 | uint32_t(value[2]) << 16 |
                          uint32_t(value[3]) << 24;
    return length < 32 ? code & ((uint32_t(1) << length) - 1) : code;
  }

  void multiplexed(Q9DbNode* pdu, Image image, int64_t offset, int depth) {
    const uint32_t code = switchCode(pdu, image, offset);
    Q9DbNode* selected = nullptr;
    forEachNode(Q9Db_enumDynamicParts, pdu, [&](Q9DbNode* p) {
      uint32_t partCode = 0;
      if (!selected && Q9Db_getSwitchCode(p, &partCode) == S_OK && partCode == code) selected = p;
    });
    if (!selected) Q9Db_getElsePart(pdu, &selected);
    Q9DbNode* fixed = nullptr;
    Q9Db_getStaticPart(pdu, &fixed);
    if (fixed) part(fixed, image, offset, depth);  // the static part's signals come first, as decoded
    if (selected) part(selected, image, offset, depth);
  }

  void part(Q9DbNode* part, Image image, int64_t offset, int depth) {
    Q9DbNode* carried = nullptr;
    Q9Db_getReference(part, &carried);
    if (!isPdu(carried) || depth >= kDeepestNesting) return;
    std::vector<Segment> segments;
    forEachNode(Q9Db_enumSegments, part, [&](Q9DbNode* segment) {
      const int32_t length = readInt(Q9Db_getBitLength, segment);
      if (length > 0)
        segments.push_back({readInt(Q9Db_getBitPosition, segment) + offset,
                            ordered(readInt(Q9Db_getByteOrder, segment), length), uint32_t(length)});
    });
    // A part without segments reads its PDU's image directly, from bit 0.
    if (segments.empty()) return pdu(carried, image, 0, depth + 1);

    std::vector<uint8_t> assembled(kPartImageSize, 0);
    uint32_t to = 0;
    for (const Segment& s : segments) {
      uint32_t at = 0;
      if (const uint8_t* from = source(image, s.pos, s.bits, at))
        Q9bit_copy(assembled.data(), assembled.size(), to, int32_t(s.length), from, at, s.bits);
      to += s.length;
    }
    const std::vector<uint8_t> before = assembled;
    pdu(carried, {assembled.data(), assembled.size()}, 0, depth + 1);
    uint32_t from = 0;
    for (const Segment& s : segments) {
      if (changed(before, assembled, from, s.length) && fits(image.size, s.pos, s.bits))
        Q9bit_copy(image.data, image.size, uint32_t(s.pos), s.bits, assembled.data(), from, int32_t(s.length));
      from += s.length;
    }
  }

  static bool changed(const std::vector<uint8_t>& before, const std::vector<uint8_t>& after, uint32_t pos,
                      uint32_t length) {
    for (uint32_t bit = pos; bit < pos + length; ++bit)
      if (((before[bit / 8] ^ after[bit / 8]) >> (bit % 8)) & 1) return true;
    return false;
  }

  Q9DbNode* frame_;
  PayloadVisitor& visitor_;
  uint8_t identifierImage_[4];
};

}  // namespace

void walkPayload(Q9DbNode* frame, uint32_t identifier, bool extended, uint8_t* payload, size_t length,
                 PayloadVisitor& visitor) {
  Walk(frame, identifier, extended, visitor).run({payload, length});
}

void storeRaw(const PayloadField& field, uint64_t raw) {
  uint8_t image[8];
  for (int i = 0; i < 8; ++i) image[i] = uint8_t(raw >> (8 * i));
  Q9bit_insert(field.data, image, field.size, field.pos, field.bits);
}

}  // namespace q9py
