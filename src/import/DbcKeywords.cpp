// The DBC keywords, found by a perfect hash: a word's slot is its length plus
// the weights of its first two characters, and no two keywords share a slot.
#include <array>
#include <string_view>

#include "import/DbcTokens.h"

namespace q9 {
namespace {

struct Keyword {
  std::string_view word;
  int code;
};

constexpr Keyword kKeywords[] = {
    {"VERSION", kDbcVersion},
    {"NS_", kDbcNamespace},
    {"BO_", kDbcFrame},
    {"SG_", kDbcSignal},
    {"CM_", kDbcComment},
    {"VAL_", kDbcValues},
    {"BA_", kDbcAttribute},
    {"BA_DEF_DEF_", kDbcAttributeDefault},
    {"BA_DEF_", kDbcAttributeDefinition},
    {"CAT_DEF_", kDbcCategoryDefinition},
    {"CAT_", kDbcCategory},
    {"BU_", kDbcNodes},
    {"VAL_TABLE_", kDbcValueTable},
    {"SIG_VALTYPE_", kDbcSignalValueType},
    {"BS_", kDbcBusSpeed},
    {"EV_", kDbcEnvironmentVariable},
    {"INT", kDbcInt},
    {"HEX", kDbcHex},
    {"FLOAT", kDbcFloat},
    {"STRING", kDbcString},
    {"ENUM", kDbcEnum},
};

constexpr std::size_t kShortest = 3;
constexpr std::size_t kLongest = 12;
constexpr int kSlotCount = 44;
constexpr int kNoKeyword = kSlotCount;  // weight of a character that starts no keyword

constexpr int weight(char c) {
  switch (c) {
    case 'A': return 5;
    case 'C': return 15;
    case 'G': return 30;
    case 'H': return 8;
    case 'I': return 5;
    case 'M': return 20;
    case 'N': return 10;
    case 'O': return 3;
    case 'S': return 10;
    case 'T': return 5;
    case 'U': return 30;
    case 'B': case 'E': case 'F': case 'L': case 'V': return 0;
    default: return kNoKeyword;
  }
}

constexpr int slotOf(std::string_view word) {
  return int(word.size()) + weight(word[0]) + weight(word[1]);
}

constexpr std::array<Keyword, kSlotCount> buildSlots() {
  std::array<Keyword, kSlotCount> slots{};
  for (const Keyword& keyword : kKeywords) slots[std::size_t(slotOf(keyword.word))] = keyword;
  return slots;
}

constexpr std::array<Keyword, kSlotCount> kSlots = buildSlots();

constexpr bool everyKeywordHasItsOwnSlot() {
  for (const Keyword& keyword : kKeywords) {
    const int slot = slotOf(keyword.word);
    if (slot >= kSlotCount || kSlots[std::size_t(slot)].word != keyword.word) return false;
  }
  return true;
}
static_assert(everyKeywordHasItsOwnSlot(), "the keyword hash has a collision");

}  // namespace

int lookupDbcKeyword(const char* word, std::size_t length) {
  if (length < kShortest || length > kLongest) return kDbcIdentifier;
  const int slot = int(length) + weight(word[0]) + weight(word[1]);
  if (slot >= kSlotCount) return kDbcIdentifier;
  const Keyword& candidate = kSlots[std::size_t(slot)];
  return candidate.word == std::string_view(word, length) ? candidate.code : kDbcIdentifier;
}

}  // namespace q9
