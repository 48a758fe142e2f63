// Whether a signal's field lies in a payload: a field judged outside is no
// value the payload carries, so an off-by-one here loses signals at the
// payload's end, most easily big-endian ones.
#include <gtest/gtest.h>

#include "PayloadFields.h"

namespace {

TEST(PayloadFields, FieldFitsTheBytesItTouches) {
  struct Case {
    size_t size;
    int64_t pos;
    int32_t bits;
    bool fits;
  };
  const Case cases[] = {
      {8, 56, 8, true},    {8, 57, 8, false},  {8, 0, 64, true},    {8, -1, 1, false},
      {1, 0, -1, true},    // one big-endian bit at the very start
      {2, 7, -16, true},   {1, 7, -16, false}, {8, 63, -8, true},   // bits 63 down to 56
      {8, 60, -5, true},   {8, 60, -6, false},  // the second spills into byte 8
      {8, 47, -10, true},  {0, 0, 0, true},
  };
  for (const Case& c : cases)
    EXPECT_EQ(q9tool::fieldFits(c.size, c.pos, c.bits), c.fits) << c.size << " bytes, " << c.pos << "|" << c.bits;
}

}  // namespace
