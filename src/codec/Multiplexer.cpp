// A part with segments is pushed only once they are all copied into its
// stack entry's buffer: a malformed segment leaves the whole part out. A
// switch the message doesn't hold selects no dynamic part, the static part
// is pushed anyway, and the walk's push budget stops parts that loop.
#include "codec/Multiplexer.h"

#include <cstring>

#include "codec/DecodeSources.h"
#include "codec/WordRead.h"
#include "store/MemberLists.h"

namespace q9 {
namespace {

constexpr uint64_t kBufferBits = uint64_t(Q9_DECODE_BUFFER_SIZE) * 8;

int32_t orderedLength(int32_t byteOrder, int32_t length) {
  return byteOrder == Q9_BYTEORDER_BIGENDIAN ? -length : length;
}

// The switch code, or false when the switch lies outside what this message
// holds. A switch below the identifier image reads as 0.
bool readSwitch(const Q9DbDecodeEnum& e, const Q9DbDecodeStackEntry& entry, const MultiplexedPDU& pdu,
                uint64_t* code) {
  *code = 0;
  const int32_t length = pdu.switchLength;
  if (length == 0) return true;
  if (length < 0 || length > 64) return false;
  const IdentifierImage id(e.identifierImage);
  BitSource src;
  uint64_t pos;
  if (!locate(int64_t(pdu.switchPosition) + entry.bitOffset, entrySource(e, entry), id, &src, &pos))
    return true;
  const int32_t bits = orderedLength(pdu.switchByteOrder, length);
  if (!readable(src, pos, bits)) return false;
  *code = readFieldInside(src.bytes, src.size, pos, bits);
  return true;
}

// Copies the part's segments one after the other into buffer, from bit 0.
// False when a segment is malformed or lies outside its source; what goes
// past the buffer's end is dropped.
bool assembleSegments(const Q9DbDecodeEnum& e, const Q9DbDecodeStackEntry& outer, const MultiplexedPart& part,
                      uint8_t* buffer) {
  const BitSource data = entrySource(e, outer);
  const IdentifierImage id(e.identifierImage);
  return forEachSegment(part, [&](const Segment& s, uint64_t d) {
    BitSource src;
    uint64_t pos;
    if (locate(int64_t(s.bitpos) + outer.bitOffset, data, id, &src, &pos)) {
      const int32_t bits = orderedLength(s.byteOrder, s.bitlen);
      if (!readable(src, pos, bits)) return false;
      if (d < kBufferBits)
        Q9bit_copy(buffer, Q9_DECODE_BUFFER_SIZE, uint32_t(d), s.bitlen, src.bytes, uint32_t(pos), bits);
    }
    return true;
  });
}

void pushPart(Q9DbDecodeEnum& e, const Q9DbDecodeStackEntry& outer, const MultiplexedPart* part) {
  if (!isExact<MultiplexedPart>(part) || !isDecodablePdu(part->reference)) return;
  // Only a database whose parts lead back into each other gets this far.
  if (e.depth >= Q9_DECODE_STACK_DEPTH || e.pushBudget == 0) return;
  --e.pushBudget;
  Q9DbDecodeStackEntry& entry = e.stack[e.depth];
  entry.expanded = 0;
  entry.pdu = reinterpret_cast<Q9DbNode*>(part->reference);
  entry.bitOffset = 0;
  entry.data = outer.data;
  if (hasSegments(*part)) {
    std::memset(entry.buffer, 0, sizeof entry.buffer);
    if (!assembleSegments(e, outer, *part, entry.buffer)) return;
    entry.data = entry.buffer;
  }
  ++e.depth;
}

const MultiplexedPart* dynamicPart(const MultiplexedPDU& pdu, uint64_t code) {
  Block* block = nullptr;
  uint64_t index = 0;
  const void* key = reinterpret_cast<const void*>(uintptr_t(uint32_t(code)));
  auto& parts = const_cast<PagedList&>(pdu.dynamicParts);
  if (searchSorted(&parts, &block, &index, key, compareSwitchCode) != S_OK) return nullptr;
  return as<MultiplexedPart>(block->pointers()[index]);
}

}  // namespace

void pushMultiplexedParts(Q9DbDecodeEnum& e, const MultiplexedPDU& pdu) {
  const Q9DbDecodeStackEntry& outer = e.stack[e.depth - 1];
  uint64_t code;
  if (readSwitch(e, outer, pdu, &code)) {
    const MultiplexedPart* selected = dynamicPart(pdu, code);
    if (!selected) selected = pdu.elsePart;
    pushPart(e, outer, selected);
  }
  pushPart(e, outer, pdu.staticPart);
}

}  // namespace q9
