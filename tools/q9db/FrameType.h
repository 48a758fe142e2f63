// How the frame-type bits of a triggering (Q9_FLAG_CAN...) read, for every
// part of the tool that sends, writes or looks up a frame: a frame described
// for either form is an extended one when its identifier doesn't fit the 11
// bits of a standard identifier.
#ifndef Q9DB_TOOL_FRAMETYPE_H
#define Q9DB_TOOL_FRAMETYPE_H

#include <cstdint>

#include "Q9Db.h"

namespace q9tool {

constexpr uint32_t kLargestStandardId = 0x7FF;

inline bool describedExtended(uint32_t flags) {
  return (flags & Q9_FLAGMASK_CAN_FRAMETYPE) == Q9_FLAG_CANEXTENDED;
}
inline bool describedEitherType(uint32_t flags) {
  return (flags & Q9_FLAGMASK_CAN_FRAMETYPE) == Q9_FLAG_CANSTD_OR_EXT;
}
// Whether the frame goes on the bus (and into a capture) as extended.
inline bool sentExtended(uint32_t identifier, uint32_t flags) {
  return describedExtended(flags) || (describedEitherType(flags) && identifier > kLargestStandardId);
}

}  // namespace q9tool

#endif
