// A byte source over a file for the description-file scanners: the file is
// read in blocks of 32768 bytes and handed out one byte at a time, so that a
// scanner's inner loop is a pointer compare and an increment.
#pragma once

#include <cstdint>
#include <cstdio>

#include "Q9Db.h"

namespace q9::platform {

constexpr std::size_t kLexerInputBlockSize = 32768;

struct LexerInput {
  uint32_t magic;  // kLexerInputMagic while alive
  HRESULT (*destroy)(LexerInput* input);
  int (*refillAndRead)(LexerInput* input);  // next byte after an empty buffer, or -1
  std::FILE* file;
  const unsigned char* end;   // end of the valid data in buffer
  const unsigned char* next;  // next byte to hand out
  bool readFailed;            // the stream reported an error, not just its end
  unsigned char buffer[kLexerInputBlockSize];
};

constexpr uint32_t kLexerInputMagic = uint32_t('L') | uint32_t('x') << 8 |
                                      uint32_t('I') << 16 | uint32_t('n') << 24;

// Opens the file named by a UTF-16 path for binary reading. E_INVALIDARG for
// a null path or out, E_FAIL when the file can't be opened (or is a folder),
// E_OUTOFMEMORY when the record can't be made.
HRESULT openLexerInput(const char16_t* path, LexerInput** out);

// Closes the file and frees the record; E_INVALIDARG for anything that isn't
// a live LexerInput.
HRESULT destroyLexerInput(LexerInput* input);

// The next byte as 0..255, or -1 at the end of the data.
inline int readByte(LexerInput* input) {
  return input->next < input->end ? *input->next++ : input->refillAndRead(input);
}

// Gives back the byte that the last readByte returned. Valid only directly
// after a readByte that returned a byte (not -1): that byte always still
// stands in the buffer just before the read position.
inline void unreadByte(LexerInput* input) { --input->next; }

}  // namespace q9::platform
