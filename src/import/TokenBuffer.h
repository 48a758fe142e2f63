// The growable, zero-terminated byte buffer that holds a token's text. It has
// no length limit; growing doubles it, so gathering a token stays linear.
#pragma once

#include <cstddef>

namespace q9 {

struct TokenBuffer {
  std::size_t capacity;  // usable bytes; one is always kept for the terminator
  std::size_t length;
  char* data;
};

constexpr std::size_t kInitialTokenCapacity = 64;

// False when the first block can't be had.
bool initTokenBuffer(TokenBuffer& buffer);
void freeTokenBuffer(TokenBuffer& buffer);

// Makes room for at least needed bytes (terminator included), keeping the
// content. False when memory runs out; the buffer is then unchanged.
bool reserveTokenBuffer(TokenBuffer& buffer, std::size_t needed);
bool growTokenBuffer(TokenBuffer& buffer);

inline void clearTokenBuffer(TokenBuffer& buffer) {
  buffer.length = 0;
  buffer.data[0] = '\0';
}

// Appends one byte and keeps the text terminated. False when memory runs out.
inline bool appendToTokenBuffer(TokenBuffer& buffer, int c) {
  if (buffer.length + 1 >= buffer.capacity && !growTokenBuffer(buffer)) return false;
  buffer.data[buffer.length++] = char(c);
  buffer.data[buffer.length] = '\0';
  return true;
}

}  // namespace q9
