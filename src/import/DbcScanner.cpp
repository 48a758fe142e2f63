// Bytes are scanned as they stand and converted to UTF-8 only when a token's
// text is asked for and holds a byte above 127. Strings know no escapes, and
// in line mode a newline is a token, for statements that end with the line.
#include "import/DbcScanner.h"

#include <cstring>
#include <new>
#include <string_view>

#include "import/DbcTokens.h"
#include "import/TokenCodes.h"
#include "platform/Heap.h"
#include "platform/WideText.h"

namespace q9 {
namespace {

bool isBlank(int c) { return c == 8 || c == 9 || c == 11 || c == 12 || c == 13 || c == 32; }

// No escapes: a backslash is an ordinary character and a quote always ends
// the string. The end of the file ends it too, without complaint.
int scanString(ScannerCore& core) {
  int c = readChar(core);
  while (c >= 0 && c != '"') {
    keepChar(core, c);
    c = readChar(core);
  }
  if (c == '"') core.pending = readChar(core);
  return kTokenString;
}

}  // namespace

HRESULT createDbcScanner(platform::LexerInput* input, DbcScanner** out) {
  *out = nullptr;
  DbcScanner* scanner = newScanner<DbcScanner>(input);
  if (!scanner) return E_OUTOFMEMORY;
  if (!initTokenBuffer(scanner->converted)) {
    freeScannerCore(scanner->core);
    platform::heapFree(scanner);
    return E_OUTOFMEMORY;
  }
  *out = scanner;
  return S_OK;
}

void destroyDbcScanner(DbcScanner* scanner) {
  if (!scanner) return;
  freeScannerCore(scanner->core);
  freeTokenBuffer(scanner->converted);
  platform::heapFree(scanner);
}

int nextDbcToken(DbcScanner& scanner) {
  ScannerCore& core = scanner.core;
  int c = takeChar(core);
  while (isBlank(c) || (c == '\n' && !scanner.lineMode)) c = readChar(core);
  beginToken(core);
  int code;
  if (c < 0) {
    code = kTokenEnd;
  } else if (c == 0) {
    code = kTokenZeroByte;
  } else if (c == '"') {
    code = scanString(core);
  } else if (hasCharClass(c, kCharNumberStart)) {
    code = scanNumber(core, c);
  } else if (hasCharClass(c, kCharWordStart)) {
    scanWord(core, c);
    code = lookupDbcKeyword(core.token.data, core.token.length);
  } else {
    keepChar(core, c);
    code = c;
  }
  return core.outOfMemory ? kTokenOutOfMemory : code;
}

const char* dbcTokenText(DbcScanner& scanner) {
  const std::string_view bytes(scanner.core.token.data);
  const std::size_t size = platform::cp1252Utf8Size(bytes);
  // Every byte above 127 grows in UTF-8, so an equal size means plain ASCII,
  // which reads the same in both.
  if (size == bytes.size()) return scanner.core.token.data;
  if (!reserveTokenBuffer(scanner.converted, size + 1)) {
    scanner.core.outOfMemory = true;
    return nullptr;
  }
  platform::cp1252ToUtf8Into(bytes, scanner.converted.data);
  scanner.converted.data[size] = '\0';
  return scanner.converted.data;
}

void skipDbcLine(DbcScanner& scanner) {
  int c = takeChar(scanner.core);
  while (c >= 0 && c != '\n') c = readChar(scanner.core);
}

}  // namespace q9
