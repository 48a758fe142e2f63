// The stream follows the controller bit by bit: each bit updates the CRC-15
// and the run of equal bits, and a run of five inserts a stuff bit that
// starts the next run. In an FD frame the bits after BRS to the end of the
// CRC are counted apart, as they go at the data rate when the rate switches.
#include "BusLoad.h"

#include "Q9Db.h"

namespace q9tool {
namespace {

constexpr uint16_t kCrc15Polynomial = 0x4599;  // x^15 + x^14 + x^10 + x^8 + x^7 + x^4 + x^3 + 1, top bit implied
constexpr unsigned kStuffRun = 5;              // equal bits after which the opposite one is inserted
constexpr uint32_t kExtensionBits = 18;        // the part of an extended identifier after the base
constexpr uint32_t kStuffCountBits = 4;        // CAN FD: stuff count modulo 8 in Gray code, and its parity
constexpr size_t kLargestCrc17Length = 16;     // CAN FD: longer data is guarded by CRC-21

// A frame's bits from SOF on, as the controller sends them: counts the stuff
// bits it inserts and keeps the CRC-15 of the bits put so far.
class StuffedStream {
 public:
  void put(uint32_t value, unsigned width) {
    while (width-- > 0) bit((value >> width) & 1u);
  }
  void bit(unsigned value) {
    ++bits_;
    unsigned feedback = value ^ (crc_ >> 14 & 1u);
    crc_ = static_cast<uint16_t>((crc_ << 1) & 0x7FFF);
    if (feedback) crc_ ^= kCrc15Polynomial;
    if (value == last_) {
      ++run_;
    } else {
      last_ = value;
      run_ = 1;
    }
    stuffedLast_ = run_ == kStuffRun;
    if (stuffedLast_) {  // the stuff bit starts the next run
      ++stuffBits_;
      last_ = !value;
      run_ = 1;
    }
  }
  uint32_t sent() const { return bits_ + stuffBits_; }
  uint16_t crc15() const { return crc_; }
  bool stuffedLast() const { return stuffedLast_; }

 private:
  uint32_t bits_ = 0;
  uint32_t stuffBits_ = 0;
  unsigned last_ = 2;  // no bit yet
  unsigned run_ = 0;
  bool stuffedLast_ = false;
  uint16_t crc_ = 0;
};

// SOF and the identifier fields up to the bit before the frame's control
// bits: RTR in a classic frame, RRS in a CAN FD one (both dominant).
void putArbitration(StuffedStream& stream, uint32_t identifier, bool extended) {
  stream.bit(0);  // SOF
  if (extended) {
    stream.put(identifier >> kExtensionBits, 11);
    stream.bit(1);  // SRR
    stream.bit(1);  // IDE
    stream.put(identifier, kExtensionBits);
  } else {
    stream.put(identifier, 11);
  }
  stream.bit(0);  // RTR (classic) or RRS (CAN FD)
  if (!extended) stream.bit(0);  // IDE
}

void putData(StuffedStream& stream, const uint8_t* data, size_t length) {
  for (size_t i = 0; i < length; ++i) stream.put(data[i], 8);
}

uint32_t fdLengthCode(size_t length) {
  static const size_t kLengths[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 12, 16, 20, 24, 32, 48, 64};
  uint32_t code = 0;
  while (code < 15 && kLengths[code] < length) ++code;
  return code;
}

}  // namespace

WireBits classicFrameBits(uint32_t identifier, bool extended, const uint8_t* data, size_t length) {
  StuffedStream stream;
  putArbitration(stream, identifier, extended);
  if (extended) stream.bit(0);  // r1
  stream.bit(0);                // r0
  stream.put(static_cast<uint32_t>(length), 4);
  putData(stream, data, length);
  stream.put(stream.crc15(), 15);  // stuffed like the rest, up to its last bit
  return {stream.sent() + kFrameTailBits, 0};
}

WireBits fdFrameBits(uint32_t identifier, bool extended, bool bitRateSwitch, bool errorStateIndicator,
                     const uint8_t* data, size_t length) {
  StuffedStream stream;
  putArbitration(stream, identifier, extended);
  stream.bit(1);  // FDF
  stream.bit(0);  // res
  // A stuff bit that BRS calls for is already sent at the data rate.
  uint32_t nominal = stream.sent() + 1;
  stream.bit(bitRateSwitch);
  stream.bit(errorStateIndicator);
  stream.put(fdLengthCode(length), 4);
  putData(stream, data, length);
  uint32_t fast = stream.sent() - nominal;
  // Dynamic stuffing ends with the data; a stuff bit due after its last bit
  // is the first fixed stuff bit, counted below, not a second one.
  if (stream.stuffedLast()) --fast;
  // The stuff count and the CRC: a fixed stuff bit before the first, and one
  // after every four bits that follow.
  uint32_t crcBits = length > kLargestCrc17Length ? 21 : 17;
  uint32_t fixedStuffBits = 1 + (kStuffCountBits + crcBits - 1) / 4;
  fast += kStuffCountBits + crcBits + fixedStuffBits;
  if (!bitRateSwitch) return {nominal + fast + kFrameTailBits, 0};
  return {nominal + kFrameTailBits, fast};
}

WireBits frameBits(const CanFrame& frame) {
  bool extended = (frame.flags & Q9_FLAGMASK_CAN_FRAMETYPE) == Q9_FLAG_CANEXTENDED;
  if (!(frame.flags & Q9_FLAG_CANFD_FRAME)) return classicFrameBits(frame.identifier, extended, frame.data, frame.length);
  return fdFrameBits(frame.identifier, extended, frame.flags & Q9_FLAG_CANFD_FASTDATA,
                     frame.flags & Q9_FLAG_CANFD_ERRORSTATEIND, frame.data, frame.length);
}

}  // namespace q9tool
