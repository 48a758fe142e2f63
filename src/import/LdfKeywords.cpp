// The LDF keywords, sorted at compile time and found by binary search.
#include <algorithm>
#include <array>
#include <string_view>

#include "import/LdfTokens.h"

namespace q9::ldf {
namespace {

struct Keyword {
  std::string_view word;
  int code;
};

constexpr Keyword kKeywordsInCodeOrder[] = {
#define LDF_KEYWORD(word) {#word, word},
#include "import/LdfKeywords.def"
#undef LDF_KEYWORD
};

constexpr std::size_t kKeywordCount = std::size(kKeywordsInCodeOrder);
static_assert(kKeywordCount == std::size_t(kAfterLastKeyword - kIdentifier - 1));

constexpr std::array<Keyword, kKeywordCount> sortedByWord() {
  std::array<Keyword, kKeywordCount> sorted{};
  for (std::size_t i = 0; i < kKeywordCount; ++i) {
    std::size_t j = i;
    for (; j > 0 && kKeywordsInCodeOrder[i].word < sorted[j - 1].word; --j) sorted[j] = sorted[j - 1];
    sorted[j] = kKeywordsInCodeOrder[i];
  }
  return sorted;
}

constexpr std::array<Keyword, kKeywordCount> kKeywordsByWord = sortedByWord();

}  // namespace

int lookupKeyword(const char* word, std::size_t length) {
  const std::string_view key(word, length);
  const auto found =
      std::lower_bound(kKeywordsByWord.begin(), kKeywordsByWord.end(), key,
                       [](const Keyword& keyword, std::string_view w) { return keyword.word < w; });
  return found != kKeywordsByWord.end() && found->word == key ? found->code : kIdentifier;
}

const char* keywordText(int code) {
  if (code <= kIdentifier || code >= kAfterLastKeyword) return nullptr;
  // Every entry's word is a string literal, so it is zero-terminated.
  return kKeywordsInCodeOrder[code - kIdentifier - 1].word.data();
}

}  // namespace q9::ldf
