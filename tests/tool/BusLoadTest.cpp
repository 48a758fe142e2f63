// Bits of CAN frames on the wire, against a count done apart from the
// code under test: the frame as a string of '0' and '1', its CRC by
// polynomial long division, stuffing by looking back over what was sent.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "BusLoad.h"

namespace {

using q9tool::classicFrameBits;
using q9tool::fdFrameBits;
using q9tool::kFrameTailBits;

std::string field(uint32_t value, int width) {
  std::string bits;
  for (int i = width - 1; i >= 0; --i) bits += (value >> i & 1) ? '1' : '0';
  return bits;
}

std::string crc15ByDivision(const std::string& message) {
  const std::string generator = "1100010110011001";  // x^15+x^14+x^10+x^8+x^7+x^4+x^3+1
  std::string rest = message + std::string(15, '0');
  for (size_t i = 0; i + 15 < rest.size(); ++i)
    if (rest[i] == '1')
      for (size_t j = 0; j < generator.size(); ++j) rest[i + j] = rest[i + j] == generator[j] ? '0' : '1';
  return rest.substr(rest.size() - 15);
}

// After five equal bits on the wire, stuff bits among them, the opposite one.
std::string stuffed(const std::string& bits) {
  std::string wire;
  for (char bit : bits) {
    wire += bit;
    if (wire.size() >= 5 && wire.compare(wire.size() - 5, 5, std::string(5, bit)) == 0) wire += bit == '0' ? '1' : '0';
  }
  return wire;
}

size_t independentClassicBits(uint32_t id, bool extended, const std::vector<uint8_t>& data) {
  std::string bits = "0";  // SOF
  if (extended) bits += field(id >> 18, 11) + "11" + field(id & 0x3FFFF, 18) + "000";  // SRR IDE .. RTR r1 r0
  else bits += field(id, 11) + "000";                                                  // RTR IDE r0
  bits += field(static_cast<uint32_t>(data.size()), 4);
  for (uint8_t byte : data) bits += field(byte, 8);
  bits += crc15ByDivision(bits);
  return stuffed(bits).size() + kFrameTailBits;
}

struct Classic {
  uint32_t id;
  bool extended;
  std::vector<uint8_t> data;
};

TEST(ClassicFrameBits, MatchABitByBitCount) {
  const Classic frames[] = {
      {0x000, false, {}},                                  // dominant all through: a stuff bit every five
      {0x7FF, false, {}},                                  // recessive identifier
      {0x109, false, {0x55, 0x55, 0x55, 0x55, 0x55, 0x55, 0x55, 0x55}},  // no stuff bit at all
      {0x123, false, {0xDE, 0xAD, 0xBE, 0xEF}},
      {0x0C8, false, {0xF9, 0x11, 0x80, 0xE7, 0x0F, 0x14, 0x82, 0x00}},
      {0x000, false, {0, 0, 0, 0, 0, 0, 0, 0}},
      {0x00000000, true, {}},
      {0x1FFFFFFF, true, {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}},
      {0x0422AAAA, true, {0x55, 0x55, 0x55, 0x55, 0x55, 0x55, 0x55, 0x55}},  // no stuff bit at all
      {0x18FEF117, true, {1, 2, 3, 4, 5, 6, 7, 8}},
  };
  for (const Classic& f : frames) {
    auto bits = classicFrameBits(f.id, f.extended, f.data.data(), f.data.size());
    EXPECT_EQ(bits.nominal, independentClassicBits(f.id, f.extended, f.data)) << std::hex << f.id;
    EXPECT_EQ(bits.data, 0u);
  }
}

TEST(ClassicFrameBits, WorkedByHand) {
  // 34 dominant bits from SOF to the CRC (of zeros: zero), six stuff bits.
  EXPECT_EQ(classicFrameBits(0, false, nullptr, 0).nominal, 34u + 6 + 13);
  // Standard, 8 bytes, no stuffing: 1+11+3+4+64+15 and the tail.
  const uint8_t fives[8] = {0x55, 0x55, 0x55, 0x55, 0x55, 0x55, 0x55, 0x55};
  EXPECT_EQ(classicFrameBits(0x109, false, fives, 8).nominal, 111u);
  // Extended, the same: 39 bits before the data.
  EXPECT_EQ(classicFrameBits(0x0422AAAA, true, fives, 8).nominal, 131u);
}

TEST(FdFrameBits, WorkedByHand) {
  // Standard identifier 0, no data: SOF, identifier, RRS and IDE are 14
  // dominant bits (two stuff bits), FDF 1, res 0, BRS: 19 bits at the
  // nominal rate. Then ESI and DLC, five dominant bits whose stuff bit is
  // the first fixed one; stuff count and CRC-17 with six fixed stuff bits: 27.
  auto fast = fdFrameBits(0, false, true, false, nullptr, 0);
  EXPECT_EQ(fast.nominal, 19u + 13);
  EXPECT_EQ(fast.data, 5u + 27);
  // Without bit rate switch BRS is dominant: the run of zeros from res on
  // takes a stuff bit after the second DLC bit, and all goes at one rate.
  auto slow = fdFrameBits(0, false, false, false, nullptr, 0);
  EXPECT_EQ(slow.nominal, 19u + 6 + 27 + 13);
  EXPECT_EQ(slow.data, 0u);
  // 64 bytes of alternating bits: no dynamic stuffing past the arbitration;
  // CRC-21 with seven fixed stuff bits.
  std::vector<uint8_t> alternating(64, 0x55);
  auto large = fdFrameBits(0x555, false, true, false, alternating.data(), alternating.size());
  EXPECT_EQ(large.data, 1u + 4 + 512 + 4 + 21 + 7);
}

}  // namespace
