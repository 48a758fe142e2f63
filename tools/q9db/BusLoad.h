// The bits a CAN frame takes on the wire, for the bus load of a capture.
// A classic frame is counted exactly: its bit stream is built (SOF,
// identifier, control, data, the CRC-15 computed over them) and the stuff
// bits the controller inserts after five equal bits are counted, then the
// fixed-form tail and the interframe space are added.
// A CAN FD frame is counted the same way up to the end of its data (its
// dynamic stuff bits are exact), then the stuff count and CRC-17/21 with
// their fixed stuff bits. What stays an estimate is time, not bits: the
// rate switches at the sample points of BRS and the CRC delimiter, and both
// are counted whole at the nominal rate.
#ifndef Q9DB_TOOL_BUSLOAD_H
#define Q9DB_TOOL_BUSLOAD_H

#include <cstddef>
#include <cstdint>

#include "FrameLine.h"

namespace q9tool {

// Bits after the CRC: CRC delimiter, ACK slot, ACK delimiter, seven bits
// of end of frame, and the three of the intermission before the next frame.
constexpr uint32_t kFrameTailBits = 1 + 1 + 1 + 7 + 3;

struct WireBits {
  uint32_t nominal = 0;  // at the nominal (arbitration) bit rate
  uint32_t data = 0;     // at the data bit rate: the data phase of a CAN FD frame with bit rate switch
};

struct BitRates {
  uint32_t nominal = 500000;
  uint32_t data = 2000000;
  double seconds(uint64_t nominalBits, uint64_t dataBits) const {
    return double(nominalBits) / nominal + double(dataBits) / data;
  }
};

WireBits classicFrameBits(uint32_t identifier, bool extended, const uint8_t* data, size_t length);
WireBits fdFrameBits(uint32_t identifier, bool extended, bool bitRateSwitch, bool errorStateIndicator,
                     const uint8_t* data, size_t length);
// Either, as the frame's flags say.
WireBits frameBits(const CanFrame& frame);

}  // namespace q9tool

#endif
