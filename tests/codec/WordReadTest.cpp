// The decoder's word-load field read must give what the byte-wise extract
// gives, for every field that lies inside its source: both byte orders, all
// positions and lengths, sources from short to long (where the load window
// has to move to stay inside).
#include <gtest/gtest.h>

#include <vector>

#include "codec/WordRead.h"

namespace q9::test {
namespace {

TEST(WordReadTest, AgreesWithTheByteWiseExtractInsideTheSource) {
  for (uint64_t size : {1u, 5u, 8u, 9u, 13u, 24u}) {
    std::vector<uint8_t> bytes(size);
    for (uint64_t i = 0; i < size; ++i) bytes[i] = uint8_t(0x9D * (i + 1) ^ (0x5A + 7 * i));
    for (uint32_t pos = 0; pos < 8 * size; ++pos) {
      for (int32_t length = 1; length <= 72; ++length) {
        for (int32_t bits : {length, -length}) {
          if (fieldEndByte(pos, bits) > size) continue;
          uint8_t image[8];
          Q9bit_extract(image, bytes.data(), sizeof image, pos, bits);
          ASSERT_EQ(readFieldInside(bytes.data(), size, pos, bits), loadLittleEndian(image, sizeof image))
              << "size " << size << " pos " << pos << " bits " << bits;
        }
      }
    }
  }
}

}  // namespace
}  // namespace q9::test
