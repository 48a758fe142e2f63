// The words that begin a DBC statement, and what the tolerant reader does
// with each: read it into the model, skip it because it holds nothing the
// database keeps, or skip it and say how many were left out.
#pragma once

#include <cstddef>
#include <cstdint>

namespace q9 {

enum class DbcStatement : uint8_t {
  Version,
  Namespace,  // NS_
  BusSpeed,   // BS_
  Nodes,      // BU_
  Message,    // BO_
  Signal,     // SG_
  Comment,    // CM_
  AttributeDefinition,
  AttributeDefault,
  Attribute,
  ValueDescriptions,  // VAL_
  SignalValueType,
  MultiplexRanges,      // SG_MUL_VAL_
  EnvironmentVariable,  // EV_
  Skipped,              // read to its ';' and dropped: nothing in it is wanted
  NotImported,          // read to its ';' and counted: the report says how many
};

struct DbcStatementKeyword {
  const char* word;
  std::size_t length;
  DbcStatement statement;
  const char* holds;  // NotImported: what such a statement holds, for the report
};

// The keyword's entry, or null when the word begins no statement.
const DbcStatementKeyword* findDbcStatement(const char* word, std::size_t length);

// Every entry, for counting by index.
const DbcStatementKeyword* dbcStatementKeywords();
std::size_t dbcStatementKeywordCount();

}  // namespace q9
