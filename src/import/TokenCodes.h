// Token codes that the DBC and LDF scanners share. Single bytes stand for
// themselves (their own value is their code); everything else is below.
#pragma once

namespace q9 {

constexpr int kTokenEnd = -1;             // end of the file
constexpr int kTokenOutOfMemory = -2;     // the token buffer could not grow
constexpr int kTokenZeroByte = 1;         // a zero byte in the file
constexpr int kTokenString = 300;         // string constant, text without quotes
constexpr int kTokenNegativeInteger = 301;
constexpr int kTokenInteger = 302;        // plain or with '+'
constexpr int kTokenFloat = 303;
constexpr int kTokenMalformedNumber = 350;

constexpr bool isNumberToken(int code) {
  return code == kTokenNegativeInteger || code == kTokenInteger || code == kTokenFloat;
}

}  // namespace q9
