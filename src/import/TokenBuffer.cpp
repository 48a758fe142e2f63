// Every block keeps two bytes past its capacity for the terminator, and
// growth stops short of where doubling would overflow the size, so a huge
// token fails cleanly as out of memory instead of wrapping.
#include "import/TokenBuffer.h"

#include <cstring>
#include <limits>

#include "platform/Heap.h"

namespace q9 {
namespace {

bool replaceBlock(TokenBuffer& buffer, std::size_t capacity) {
  // Two spare bytes behind the capacity: room for the terminator even when
  // the text fills the buffer exactly.
  auto* block = static_cast<char*>(platform::heapAlloc(capacity + 2));
  if (!block) return false;
  if (buffer.data) {
    std::memcpy(block, buffer.data, buffer.length + 1);
    platform::heapFree(buffer.data);
  } else {
    block[0] = '\0';
  }
  buffer.data = block;
  buffer.capacity = capacity;
  return true;
}

constexpr std::size_t kLargestCapacity = (std::numeric_limits<std::size_t>::max() - 10) / 2;

}  // namespace

bool initTokenBuffer(TokenBuffer& buffer) {
  buffer = TokenBuffer{0, 0, nullptr};
  return replaceBlock(buffer, kInitialTokenCapacity);
}

void freeTokenBuffer(TokenBuffer& buffer) {
  platform::heapFree(buffer.data);
  buffer = TokenBuffer{0, 0, nullptr};
}

bool growTokenBuffer(TokenBuffer& buffer) {
  if (buffer.capacity > kLargestCapacity) return false;
  return replaceBlock(buffer, 2 * buffer.capacity + 10);
}

bool reserveTokenBuffer(TokenBuffer& buffer, std::size_t needed) {
  if (needed < buffer.capacity) return true;
  if (needed > kLargestCapacity) return false;
  return replaceBlock(buffer, 2 * needed + 10);
}

}  // namespace q9
