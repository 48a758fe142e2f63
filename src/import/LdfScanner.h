// Tokens of a LIN description file. Texts are the file's own bytes, with no
// conversion of encoding.
#pragma once

#include <cstdint>

#include "Q9Db.h"
#include "import/ScannerCore.h"
#include "import/TokenCodes.h"

namespace q9 {

struct LdfScanner {
  ScannerCore core;
  int32_t tokenClass;  // code of the current token
};

// Takes over input, also when it fails (E_OUTOFMEMORY).
HRESULT createLdfScanner(platform::LexerInput* input, LdfScanner** out);
// Closes the input and frees everything.
void destroyLdfScanner(LdfScanner* scanner);

// The next token's code (see TokenCodes.h and LdfTokens.h); comments are
// dropped. kTokenOutOfMemory when a token's text could not be held.
int nextLdfToken(LdfScanner& scanner);

// The current token's text; valid until the next token is read.
inline const char* ldfTokenText(const LdfScanner& scanner) { return scanner.core.token.data; }

inline int32_t ldfIntegerValue(const LdfScanner& scanner) { return int32_t(scanner.core.integer); }

// A double by the current token's class: the unsigned or signed integer, or
// the floating-point value.
inline double ldfNumberValue(const LdfScanner& scanner) {
  switch (scanner.tokenClass) {
    case kTokenInteger: return double(scanner.core.integer);
    case kTokenNegativeInteger: return double(int32_t(scanner.core.integer));
    default: return scanner.core.real;
  }
}

}  // namespace q9
