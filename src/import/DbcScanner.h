// Tokens of a DBC file. The file's text is Windows-1252; token texts are
// handed out as UTF-8.
#pragma once

#include <cstdint>

#include "Q9Db.h"
#include "import/ScannerCore.h"
#include "import/TokenBuffer.h"

namespace q9 {

struct DbcScanner {
  ScannerCore core;
  int32_t lineMode;       // while set, a line end is a token of its own
  TokenBuffer converted;  // the UTF-8 form of the last text asked for
};

// Takes over input, also when it fails (E_OUTOFMEMORY).
HRESULT createDbcScanner(platform::LexerInput* input, DbcScanner** out);
// Closes the input and frees everything.
void destroyDbcScanner(DbcScanner* scanner);

// The next token's code (see TokenCodes.h and DbcTokens.h); kTokenOutOfMemory
// when its text could not be held.
int nextDbcToken(DbcScanner& scanner);

// The current token's text in UTF-8, up to its first zero byte; valid until
// the next call. Null when memory runs out.
const char* dbcTokenText(DbcScanner& scanner);

// Drops the characters up to and including the next line end.
void skipDbcLine(DbcScanner& scanner);

inline void setDbcLineMode(DbcScanner& scanner, bool on) { scanner.lineMode = on ? 1 : 0; }

inline uint32_t dbcUnsignedValue(const DbcScanner& scanner) { return scanner.core.integer; }
inline int32_t dbcSignedValue(const DbcScanner& scanner) { return int32_t(scanner.core.integer); }
inline double dbcRealValue(const DbcScanner& scanner) { return scanner.core.real; }

}  // namespace q9
