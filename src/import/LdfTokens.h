// Token codes of the LDF scanner beyond the shared ones. The identifier and
// every keyword have codes of 32768 and up, so "any name" is one compare.
#pragma once

#include <cstddef>

namespace q9::ldf {

enum Token : int {
  kLoneSlash = '/',  // a '/' that starts no comment; its text is empty
  kIdentifier = 32768,
#define LDF_KEYWORD(word) word,
#include "import/LdfKeywords.def"
#undef LDF_KEYWORD
  kAfterLastKeyword
};

// The keyword's code for an exact, case-sensitive match, else kIdentifier.
int lookupKeyword(const char* word, std::size_t length);

// The keyword's own word; null for a code that is no keyword.
const char* keywordText(int code);

}  // namespace q9::ldf
