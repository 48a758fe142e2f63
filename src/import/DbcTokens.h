// Token codes of the DBC scanner beyond the shared ones: its keywords and
// the identifier, and the end-of-line token of line mode.
#pragma once

#include <cstddef>

namespace q9 {

enum DbcToken : int {
  kDbcEndOfLine = '\n',  // only while line mode is on
  kDbcVersion = 400,
  kDbcNamespace = 401,          // NS_
  kDbcFrame = 402,              // BO_
  kDbcSignal = 403,             // SG_
  kDbcComment = 404,            // CM_
  kDbcValues = 405,             // VAL_
  kDbcAttribute = 406,          // BA_
  kDbcAttributeDefault = 407,   // BA_DEF_DEF_
  kDbcAttributeDefinition = 408,  // BA_DEF_
  kDbcCategoryDefinition = 409,   // CAT_DEF_
  kDbcCategory = 410,             // CAT_
  kDbcNodes = 411,                // BU_
  kDbcValueTable = 412,           // VAL_TABLE_
  kDbcSignalValueType = 413,      // SIG_VALTYPE_
  kDbcIdentifier = 414,
  kDbcBusSpeed = 415,             // BS_
  kDbcEnvironmentVariable = 416,  // EV_
  kDbcInt = 417,
  kDbcHex = 418,
  kDbcFloat = 419,
  kDbcString = 420,
  kDbcEnum = 421,
};

// The keyword's code for an exact, case-sensitive match, else kDbcIdentifier.
int lookupDbcKeyword(const char* word, std::size_t length);

}  // namespace q9
