// What the DBC and LDF scanners have in common: reading characters with line
// ends folded and counted, the token buffer, words, and the number rule.
// Each scanner adds its own whitespace, strings, comments and keywords.
#pragma once

#include <array>
#include <cstdint>
#include <new>

#include "import/TokenBuffer.h"
#include "platform/Heap.h"
#include "platform/LexerInput.h"

namespace q9 {

struct ScannerCore {
  platform::LexerInput* input;
  int32_t pending;  // one character read ahead and not yet tokenised, or -1
  uint32_t line;    // from 1
  uint32_t column;  // from 1 for a line's first character; 0 right after a line end
  TokenBuffer token;
  uint32_t tokenLine;
  uint32_t tokenColumn;
  uint32_t integer;  // value of an integer token: unsigned, or signed for 301
  double real;       // value of a floating-point token
  bool outOfMemory;  // the token buffer could not grow; the token is cut short
};

// Takes over input (and destroys it when this fails). False when memory runs out.
bool initScannerCore(ScannerCore& core, platform::LexerInput* input);
void freeScannerCore(ScannerCore& core);

// A scanner record of the heap around its core, which takes over input
// (released here when anything fails). Null when memory runs out.
template <typename Scanner>
Scanner* newScanner(platform::LexerInput* input) {
  void* block = platform::heapAlloc(sizeof(Scanner));
  if (!block) {
    platform::destroyLexerInput(input);
    return nullptr;
  }
  auto* scanner = new (block) Scanner{};
  if (!initScannerCore(scanner->core, input)) {
    platform::heapFree(block);
    return nullptr;
  }
  return scanner;
}

enum CharClassBits : uint8_t {
  kCharDigit = 1,
  kCharHexDigit = 2,
  kCharWordStart = 4,  // A..Z, a..z, _
  kCharWord = 8,       // word start or digit
  kCharNumberStart = 16,  // digit, + or -
};

constexpr std::array<uint8_t, 256> buildCharClasses() {
  std::array<uint8_t, 256> table{};
  for (int c = '0'; c <= '9'; ++c)
    table[c] = kCharDigit | kCharHexDigit | kCharWord | kCharNumberStart;
  for (int c = 'a'; c <= 'z'; ++c) table[c] = kCharWordStart | kCharWord;
  for (int c = 'A'; c <= 'Z'; ++c) table[c] = kCharWordStart | kCharWord;
  for (int c = 'a'; c <= 'f'; ++c) table[c] |= kCharHexDigit;
  for (int c = 'A'; c <= 'F'; ++c) table[c] |= kCharHexDigit;
  table['_'] = kCharWordStart | kCharWord;
  table['+'] = kCharNumberStart;
  table['-'] = kCharNumberStart;
  return table;
}

inline constexpr std::array<uint8_t, 256> kCharClass = buildCharClasses();

// c is a byte or -1 for the end of the file.
inline bool hasCharClass(int c, uint8_t bits) { return c >= 0 && (kCharClass[c] & bits) != 0; }

int foldLineEnd(ScannerCore& core, int first);

// Integer texts read as a C library with a 32-bit long reads them: what
// doesn't fit saturates.
uint32_t toUnsigned32(const char* text, int base);
int32_t toSigned32(const char* text, int base);

// One character with CR, LF, CR LF and LF CR each folded into one LF that
// counts a line; any other character, and the end of the file, counts a column.
inline int readChar(ScannerCore& core) {
  const int c = platform::readByte(core.input);
  if (c == '\n' || c == '\r') return foldLineEnd(core, c);
  ++core.column;
  return c;
}

// The pending character if there is one, else a fresh one.
inline int takeChar(ScannerCore& core) {
  const int c = core.pending;
  if (c < 0) return readChar(core);
  core.pending = -1;
  return c;
}

// Notes where the current token starts and empties its text.
inline void beginToken(ScannerCore& core) {
  core.tokenLine = core.line;
  core.tokenColumn = core.column;
  clearTokenBuffer(core.token);
}

inline void keepChar(ScannerCore& core, int c) {
  if (!appendToTokenBuffer(core.token, c)) core.outOfMemory = true;
}

// Gathers letters, digits and '_' from first on; the first other character
// stays pending.
void scanWord(ScannerCore& core, int first);

// The number rule shared by both formats, from a first character that is a
// digit, '+' or '-'. Gives kTokenInteger, kTokenNegativeInteger, kTokenFloat
// or kTokenMalformedNumber, or the sign's own code when no digit followed it.
int scanNumber(ScannerCore& core, int first);

}  // namespace q9
