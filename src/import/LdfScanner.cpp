// Line and block comments are skipped between tokens, and a slash that starts
// neither is a token of its own. Strings take backslash escapes (\n, \r, \t, or
// the character itself); an unclosed comment or string ends with the file.
#include "import/LdfScanner.h"

#include <new>

#include "import/LdfTokens.h"
#include "platform/Heap.h"

namespace q9 {
namespace {

bool isBlankOrLineEnd(int c) { return (c >= 8 && c <= 13) || c == 32; }

void skipLineComment(ScannerCore& core) {
  int c = readChar(core);
  while (c >= 0 && c != '\n') c = readChar(core);
}

// Up to and including the first "*/"; the end of the file ends it too.
void skipBlockComment(ScannerCore& core) {
  int previous = 0;
  for (int c = readChar(core); c >= 0; c = readChar(core)) {
    if (previous == '*' && c == '/') return;
    previous = c;
  }
}

char unescape(int c) {
  switch (c) {
    case 'n': return '\n';
    case 'r': return '\r';
    case 't': return '\t';
    default: return char(c);  // \" and \\ included: the character itself
  }
}

// A backslash escapes the next character. Nothing is read behind the closing
// quote, and the end of the file ends the string without complaint.
int scanString(ScannerCore& core) {
  for (int c = readChar(core); c >= 0 && c != '"'; c = readChar(core)) {
    if (c == '\\') {
      c = readChar(core);
      if (c < 0) break;
      c = unescape(c);
    }
    keepChar(core, c);
  }
  return kTokenString;
}

}  // namespace

HRESULT createLdfScanner(platform::LexerInput* input, LdfScanner** out) {
  *out = nullptr;
  LdfScanner* scanner = newScanner<LdfScanner>(input);
  if (!scanner) return E_OUTOFMEMORY;
  scanner->tokenClass = kTokenEnd;
  *out = scanner;
  return S_OK;
}

void destroyLdfScanner(LdfScanner* scanner) {
  if (!scanner) return;
  freeScannerCore(scanner->core);
  platform::heapFree(scanner);
}

int nextLdfToken(LdfScanner& scanner) {
  ScannerCore& core = scanner.core;
  int c;
  for (;;) {
    c = takeChar(core);
    while (isBlankOrLineEnd(c)) c = readChar(core);
    beginToken(core);
    if (c != '/') break;
    const int after = readChar(core);
    if (after == '/') {
      skipLineComment(core);
    } else if (after == '*') {
      skipBlockComment(core);
    } else {
      core.pending = after;
      return scanner.tokenClass = ldf::kLoneSlash;
    }
  }
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
    code = ldf::lookupKeyword(core.token.data, core.token.length);
  } else {
    keepChar(core, c);
    code = c;
  }
  if (core.outOfMemory) code = kTokenOutOfMemory;
  return scanner.tokenClass = code;
}

}  // namespace q9
