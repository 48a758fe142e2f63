// A DBC file as the tolerant reader understood it: every statement that
// carries data, in file order, with the place it was written, before any
// decision about what becomes a node. Texts are UTF-8; numbers keep the
// range the file needs (identifiers 32 bits unsigned, keys 64 bits).
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "import/ImportReport.h"

namespace q9 {

enum class DbcObjectKind : uint8_t { Network, Node, Message, Signal, EnvironmentVariable };

// "M": a switch; "m<n>": a signal selected by switch value n; "m<n>M": both
// (a switch that is itself selected, extended multiplexing).
struct DbcMultiplexMark {
  bool isSwitch = false;
  bool isMultiplexed = false;
  uint64_t switchValue = 0;  // meaningful when isMultiplexed
};

// A key as written: its magnitude and whether a minus sign stood before it.
struct DbcValueText {
  TextPosition at;
  bool negative = false;
  uint64_t magnitude = 0;
  std::string text;
};

struct DbcSignal {
  TextPosition at;
  std::string name;
  DbcMultiplexMark mux;
  uint32_t startBit = 0;
  uint32_t bitLength = 0;
  bool bigEndian = false;  // "@0"
  bool isSigned = false;   // "-"
  double scale = 1, offset = 0, minimum = 0, maximum = 0;
  std::string unit;
  std::vector<std::string> receivers;
};

struct DbcMessage {
  TextPosition at;
  uint32_t rawId = 0;  // as written, bit 31 the extended mark
  std::string name;
  uint32_t length = 0;  // the size field as written
  std::string sender;
  std::vector<DbcSignal> signals;
};

// CM_ with the object it names (Network for a comment on the whole file).
struct DbcComment {
  TextPosition at;
  DbcObjectKind object = DbcObjectKind::Network;
  uint32_t messageId = 0;   // Message, Signal
  std::string name;         // Signal: the signal; Node, EnvironmentVariable: the name
  std::string text;
};

enum class DbcAttributeType : uint8_t { Int, Hex, Float, String, Enum };

// BA_DEF_ (and BA_DEF_REL_ is skipped with a warning).
struct DbcAttributeDefinition {
  TextPosition at;
  DbcObjectKind object = DbcObjectKind::Network;
  std::string name;
  DbcAttributeType type = DbcAttributeType::String;
  std::vector<std::string> enumValues;  // Enum
};

// BA_DEF_DEF_ and BA_: the value as its text; numbers as the file writes
// them ("14", "0.5"), strings without their quotes.
struct DbcAttributeDefault {
  TextPosition at;
  std::string name;
  std::string value;
  bool quoted = false;  // the value was a string constant
};

struct DbcAttributeValue {
  TextPosition at;
  std::string name;
  DbcObjectKind object = DbcObjectKind::Network;
  uint32_t messageId = 0;  // Message, Signal
  std::string objectName;  // Signal, Node, EnvironmentVariable
  std::string value;
  bool quoted = false;
};

// VAL_ of a signal (or of an environment variable: messageId unused).
struct DbcValueDescriptions {
  TextPosition at;
  bool environmentVariable = false;
  uint32_t messageId = 0;
  std::string name;  // the signal or environment variable
  std::vector<DbcValueText> values;
};

// SIG_VALTYPE_: 0 integer, 1 float, 2 double.
struct DbcSignalValueType {
  TextPosition at;
  uint32_t messageId = 0;
  std::string signal;
  uint32_t valueType = 0;
};

// SG_MUL_VAL_ message signal switch a-b, c-d ... ;
struct DbcMultiplexRanges {
  TextPosition at;
  uint32_t messageId = 0;
  std::string signal;
  std::string switchName;
  std::vector<std::pair<uint64_t, uint64_t>> ranges;
};

struct DbcModel {
  std::string version;
  std::vector<std::pair<TextPosition, std::string>> nodes;  // BU_
  std::vector<DbcMessage> messages;
  std::vector<DbcComment> comments;
  std::vector<DbcAttributeDefinition> attributeDefinitions;
  std::vector<DbcAttributeDefault> attributeDefaults;
  std::vector<DbcAttributeValue> attributeValues;
  std::vector<DbcValueDescriptions> valueDescriptions;
  std::vector<DbcSignalValueType> signalValueTypes;
  std::vector<DbcMultiplexRanges> multiplexRanges;
  // Environment variables (EV_) by name, to tell their references apart.
  std::vector<std::string> environmentVariables;
};

// Reads text (UTF-8, as SourceText gives it) into model. Deviations from the
// grammar that have one clear meaning are read as meant and warned about; a
// statement that makes no sense is skipped to the next statement with a
// warning quoting it. False (with report.fail set) only when nothing of the
// file can be used: no statement at all was understood in a non-empty file.
bool readDbcModel(const std::string& text, DbcModel& model, ImportReport& report);

}  // namespace q9
