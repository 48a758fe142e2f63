// The statement keywords as a table. A file has one keyword per line, a few
// dozen candidates each; comparing the length first keeps the search cheap.
#include "import/DbcStatementKeywords.h"

#include <cstring>

namespace q9 {
namespace {

#define Q9_KEYWORD(word, statement, holds) \
  { word, sizeof(word) - 1, DbcStatement::statement, holds }

// Signals and messages first: they are most of a file's statements.
constexpr DbcStatementKeyword kKeywords[] = {
    Q9_KEYWORD("SG_", Signal, nullptr),
    Q9_KEYWORD("BO_", Message, nullptr),
    Q9_KEYWORD("CM_", Comment, nullptr),
    Q9_KEYWORD("BA_", Attribute, nullptr),
    Q9_KEYWORD("VAL_", ValueDescriptions, nullptr),
    Q9_KEYWORD("SIG_VALTYPE_", SignalValueType, nullptr),
    Q9_KEYWORD("BA_DEF_", AttributeDefinition, nullptr),
    Q9_KEYWORD("BA_DEF_DEF_", AttributeDefault, nullptr),
    Q9_KEYWORD("SG_MUL_VAL_", MultiplexRanges, nullptr),
    Q9_KEYWORD("EV_", EnvironmentVariable, nullptr),
    Q9_KEYWORD("BU_", Nodes, nullptr),
    Q9_KEYWORD("VERSION", Version, nullptr),
    Q9_KEYWORD("NS_", Namespace, nullptr),
    Q9_KEYWORD("BS_", BusSpeed, nullptr),
    // Value tables are only reached through the VAL_ of a signal, which
    // carries its own texts; categories, filters and signal types hold
    // nothing the database has a place for or needs.
    Q9_KEYWORD("VAL_TABLE_", Skipped, nullptr),
    Q9_KEYWORD("BO_TX_BU_", Skipped, nullptr),
    Q9_KEYWORD("CAT_DEF_", Skipped, nullptr),
    Q9_KEYWORD("CAT_", Skipped, nullptr),
    Q9_KEYWORD("FILTER", Skipped, nullptr),
    Q9_KEYWORD("SGTYPE_", Skipped, nullptr),
    Q9_KEYWORD("SGTYPE_VAL_", Skipped, nullptr),
    Q9_KEYWORD("BA_DEF_SGTYPE_", Skipped, nullptr),
    Q9_KEYWORD("BA_SGTYPE_", Skipped, nullptr),
    Q9_KEYWORD("SIG_TYPE_REF_", Skipped, nullptr),
    Q9_KEYWORD("SIGTYPE_VALTYPE_", Skipped, nullptr),
    Q9_KEYWORD("ENVVAR_DATA_", Skipped, nullptr),
    Q9_KEYWORD("EV_DATA_", Skipped, nullptr),
    // Relations and signal groups carry data the database leaves out.
    Q9_KEYWORD("BA_DEF_REL_", NotImported, "relation attribute definitions"),
    Q9_KEYWORD("BA_DEF_DEF_REL_", NotImported, "relation attribute defaults"),
    Q9_KEYWORD("BA_REL_", NotImported, "relation attribute values"),
    Q9_KEYWORD("BU_SG_REL_", NotImported, "node to signal relations"),
    Q9_KEYWORD("BU_BO_REL_", NotImported, "node to message relations"),
    Q9_KEYWORD("BU_EV_REL_", NotImported, "node to environment variable relations"),
    Q9_KEYWORD("SIG_GROUP_", NotImported, "signal groups"),
};

#undef Q9_KEYWORD

}  // namespace

const DbcStatementKeyword* findDbcStatement(const char* word, std::size_t length) {
  for (const DbcStatementKeyword& keyword : kKeywords)
    if (keyword.length == length && std::memcmp(keyword.word, word, length) == 0) return &keyword;
  return nullptr;
}

const DbcStatementKeyword* dbcStatementKeywords() { return kKeywords; }

std::size_t dbcStatementKeywordCount() { return sizeof kKeywords / sizeof kKeywords[0]; }

}  // namespace q9
