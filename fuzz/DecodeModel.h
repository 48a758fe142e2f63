// What a delivered signal must hold, found bit by bit from the message and
// the way the network places the signal's PDU: at a PDU instance's offset
// in the payload, as the part of a multiplexer reading that multiplexer's
// data as it stands, or as the image a part's segments assemble from it
// (from the payload, the identifier image, or an enclosing image). Which
// parts the switches select is not modelled: only the values of what comes.
#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "FuzzSupport.h"
#include "Q9Db.h"
#include "codec/BitModel.h"

namespace q9::fuzz {

struct SegmentSpec {
  int32_t bitpos;
  int32_t bitlen;
  int32_t byteOrder = 0;
};

struct Placement {
  enum Kind { Unknown, Payload, Part } kind = Unknown;
  int32_t bitpos = 0;                // Payload: the PDU instance's position
  const void* carrier = nullptr;     // Payload: the frame or channel that holds it
  const Placement* outer = nullptr;  // Part: where its multiplexer reads
  std::vector<SegmentSpec> segments;  // Part: big-endian ones of at most 64 bits
};

struct FieldSpec {
  const Placement* placement;
  int32_t bitpos;
  int32_t bits;      // signed: negative is big-endian
  bool text;         // an ASCII field: passed over without a text buffer
  bool filteredOut;  // the target's filter rejects it
};

class MessageModel {
 public:
  MessageModel(const uint8_t* payload, uint64_t length, uint32_t identifierImage)
      : payload_(payload), length_(length), identifier_(identifierImage) {}

  // Whether a field of a PDU placed in the payload is readable from this
  // message, and so must come once for each match of its carrier.
  bool readableInPayload(const FieldSpec& f) const {
    const int64_t pos = int64_t(f.bitpos) + f.placement->bitpos;
    return f.bitpos >= 0 && pos <= UINT32_MAX && test::fieldInside(length_, uint32_t(pos), f.bits);
  }

  // The delivered value or text against the model; an unknown placement
  // passes.
  void check(const FieldSpec& f, HRESULT kind, uint64_t value, const char* text, uint32_t textLength) {
    const uint64_t pos = uint64_t(int64_t(f.bitpos) + offsetOf(*f.placement));
    const uint64_t length = test::modelLength(f.bits);
    if (pos > UINT32_MAX) violated("a field beyond the position range was delivered");
    uint64_t expected = 0;
    for (uint64_t i = 0; i < length; ++i) {
      const int bit = dataBit(*f.placement, test::bufferBit(uint32_t(pos), f.bits, i));
      if (bit == kUnknown) return;
      if (bit == kOutside) violated("a field outside its source was delivered");
      if (bit == kDropped) violated("a signal of a part that can't be assembled was delivered");
      if (kind == Q9_ASCIISIGNAL) {
        if (i < 8 * uint64_t(textLength) && ((uint8_t(text[i / 8]) >> (i % 8)) & 1) != bit)
          violated("a text other than the field's bytes");
      } else if (i < 64) {
        expected |= uint64_t(bit) << i;
      }
    }
    if (kind == Q9_NUMERICSIGNAL && expected != value) violated("a value other than the field's bits");
  }

 private:
  enum : int { kOutside = -1, kDropped = -2, kUnknown = -3 };
  static constexpr uint64_t kImageBits = 8 * uint64_t(Q9_DECODE_BUFFER_SIZE);

  struct Image {
    bool dropped = false;
    std::vector<int8_t> bits;
  };

  // A placement's offset for the positions of its fields and segments.
  static int64_t offsetOf(const Placement& p) { return p.kind == Placement::Payload ? p.bitpos : 0; }

  // Bit n of the data that the placement's fields read.
  int dataBit(const Placement& p, uint64_t n) {
    switch (p.kind) {
      case Placement::Unknown: return kUnknown;
      case Placement::Payload: return n < 8 * length_ ? (payload_[n / 8] >> (n % 8)) & 1 : kOutside;
      case Placement::Part: break;
    }
    if (p.segments.empty()) return dataBit(*p.outer, n);
    const Image& image = imageOf(p);
    if (image.dropped) return kDropped;
    return n < kImageBits ? image.bits[n] : kOutside;
  }

  // The segments one after the other from bit 0; a segment that its source
  // doesn't hold drops the part, and bits past the buffer are lost.
  const Image& imageOf(const Placement& p) {
    auto found = images_.find(&p);
    if (found != images_.end()) return found->second;
    Image image;
    image.bits.assign(kImageBits, 0);
    uint64_t d = 0;
    for (const SegmentSpec& s : p.segments) {
      if (s.bitlen == 0) continue;
      if (s.bitlen < 0) {
        image.dropped = true;
        break;
      }
      const int32_t bits = s.byteOrder == Q9_BYTEORDER_BIGENDIAN ? -s.bitlen : s.bitlen;
      const int64_t at = int64_t(s.bitpos) + offsetOf(*p.outer);
      for (uint64_t j = 0; j < uint64_t(s.bitlen) && at >= -32; ++j) {
        int bit;
        if (at >= 0) {
          bit = at <= UINT32_MAX ? dataBit(*p.outer, test::bufferBit(uint32_t(at), bits, j)) : kOutside;
        } else {
          const uint64_t n = test::bufferBit(uint32_t(at + 32), bits, j);
          bit = n < 32 ? int((identifier_ >> n) & 1) : kOutside;
        }
        if (bit == kUnknown) return images_[&p] = Image{false, std::vector<int8_t>(kImageBits, kUnknown)};
        if (bit < 0) {
          image.dropped = true;
          break;
        }
        if (d + j < kImageBits) image.bits[d + j] = int8_t(bit);
      }
      if (image.dropped) break;
      d += uint64_t(s.bitlen);
    }
    return images_[&p] = std::move(image);
  }

  const uint8_t* payload_;
  uint64_t length_;
  uint32_t identifier_;
  std::map<const Placement*, Image> images_;
};

}  // namespace q9::fuzz
