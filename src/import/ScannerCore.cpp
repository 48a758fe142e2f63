// A number's text is gathered by a small state machine and converted once at
// the end: a leading zero means octal, a sign before a hexadecimal number is
// refused, and integers beyond 32 bits stop at the nearest limit instead of
// wrapping. A sign that no digit follows is a token of its own.
#include "import/ScannerCore.h"

#include <cerrno>
#include <cstdlib>

#include "import/TokenCodes.h"
#include "platform/CNumbers.h"

namespace q9 {

uint32_t toUnsigned32(const char* text, int base) {
  errno = 0;
  const unsigned long long value = std::strtoull(text, nullptr, base);
  return errno == ERANGE || value > 0xFFFFFFFFull ? 0xFFFFFFFFu : uint32_t(value);
}

int32_t toSigned32(const char* text, int base) {
  errno = 0;
  const long long value = std::strtoll(text, nullptr, base);
  if (value < INT32_MIN) return INT32_MIN;
  if (value > INT32_MAX) return INT32_MAX;
  return int32_t(value);
}

bool initScannerCore(ScannerCore& core, platform::LexerInput* input) {
  core = ScannerCore{};
  core.input = input;
  core.pending = -1;
  core.line = 1;
  if (!initTokenBuffer(core.token)) {
    platform::destroyLexerInput(input);
    core.input = nullptr;
    return false;
  }
  return true;
}

void freeScannerCore(ScannerCore& core) {
  if (core.input) platform::destroyLexerInput(core.input);
  core.input = nullptr;
  freeTokenBuffer(core.token);
}

int foldLineEnd(ScannerCore& core, int first) {
  const int partner = first == '\r' ? '\n' : '\r';
  const int next = platform::readByte(core.input);
  if (next >= 0 && next != partner) platform::unreadByte(core.input);
  ++core.line;
  core.column = 0;
  return '\n';
}

void scanWord(ScannerCore& core, int first) {
  int c = first;
  do {
    keepChar(core, c);
    c = readChar(core);
  } while (hasCharClass(c, kCharWord));
  core.pending = c;
}

int scanNumber(ScannerCore& core, int first) {
  enum State { kStart, kSigned, kFraction, kExponent };
  int state = kStart;
  int base = 10;
  int code = 0;  // none yet; the sign's code while only a sign was seen
  int c = first;
  if (c == '+' || c == '-') {
    keepChar(core, c);
    code = c;
    state = kSigned;
    c = readChar(core);
  }
  if (hasCharClass(c, kCharDigit)) {
    code = core.token.data[0] == '-' ? kTokenNegativeInteger : kTokenInteger;
    if (c == '0') {
      keepChar(core, c);
      c = readChar(core);
      if (c == 'x' || c == 'X') {
        keepChar(core, c);
        // A sign in front of a hexadecimal number is refused on the spot.
        if (state == kSigned) return kTokenMalformedNumber;
        base = 16;
        c = readChar(core);
        while (hasCharClass(c, kCharHexDigit)) {
          keepChar(core, c);
          c = readChar(core);
        }
      } else if (hasCharClass(c, kCharDigit)) {
        base = 8;  // a leading zero means octal
      }
    }
  }
  while (base != 16 && (c == '.' || c == 'E' || c == 'e' || hasCharClass(c, kCharDigit))) {
    if (c == '.') {
      if (state >= kFraction) {
        core.pending = c;
        return kTokenMalformedNumber;
      }
      code = kTokenFloat;
      state = kFraction;
    } else if (c == 'E' || c == 'e') {
      if (state == kExponent) {
        core.pending = c;
        return kTokenMalformedNumber;
      }
      keepChar(core, c);
      code = kTokenFloat;
      state = kExponent;
      c = readChar(core);
      if (c == '+' || c == '-') {
        keepChar(core, c);
        c = readChar(core);
      }
      continue;
    }
    keepChar(core, c);
    c = readChar(core);
  }
  core.pending = c;
  switch (code) {
    case kTokenFloat:
      core.real = platform::parseDoubleC(core.token.data);
      break;
    case kTokenNegativeInteger:
      core.integer = uint32_t(toSigned32(core.token.data, base));
      break;
    case kTokenInteger:
      core.integer = toUnsigned32(core.token.data, base);
      break;
    default:  // a lone sign: a token of that one character
      break;
  }
  return code;
}

}  // namespace q9
