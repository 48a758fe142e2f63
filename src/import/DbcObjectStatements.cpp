// The statements that say something about the network, a node, a message,
// a signal or an environment variable: comments, attributes, value
// descriptions, value types and multiplexer ranges, and the environment
// variables themselves (only their names are kept).
#include <optional>
#include <utility>

#include "import/DbcTextNumbers.h"
#include "import/TolerantDbcReader.h"

namespace q9 {
namespace {

std::optional<DbcObjectKind> objectKindOf(const DbcStatementKeyword* keyword) {
  if (!keyword) return std::nullopt;
  switch (keyword->statement) {
    case DbcStatement::Nodes: return DbcObjectKind::Node;
    case DbcStatement::Message: return DbcObjectKind::Message;
    case DbcStatement::Signal: return DbcObjectKind::Signal;
    case DbcStatement::EnvironmentVariable: return DbcObjectKind::EnvironmentVariable;
    default: return std::nullopt;
  }
}

}  // namespace

// "BU_ name", "BO_ id", "SG_ id name", "EV_ name" or nothing (the network).
bool TolerantDbcReader::readObjectReference(DbcObjectKind& object, uint32_t& id, std::string& objectName) {
  object = DbcObjectKind::Network;
  if (token_.kind != DbcTokenKind::Word || token_.startsLine) return true;
  const std::optional<DbcObjectKind> kind = objectKindOf(findDbcStatement(token_.begin, token_.size()));
  if (!kind) return true;
  object = *kind;
  advance();
  switch (object) {
    case DbcObjectKind::Node: return name(objectName, "node name");
    case DbcObjectKind::Message: return messageId(id);
    case DbcObjectKind::Signal:
      return messageId(id) && (token_.kind == DbcTokenKind::String || name(objectName, "signal name"));
    default: return name(objectName, "environment variable name");
  }
}

bool TolerantDbcReader::readComment() {
  DbcComment comment;
  comment.at = statementAt_;
  DbcInteger bare;
  if (readDbcInteger(token_, false, bare) && !token_.startsLine) {
    const TextPosition at = token_.at;
    if (!messageId(comment.messageId)) return false;
    comment.object = DbcObjectKind::Message;
    const std::string id = std::to_string(comment.messageId);
    report_.warn(at,
                 "comment names object " + id + " without BO_; it was taken as the comment of message " + id);
  } else if (!readObjectReference(comment.object, comment.messageId, comment.name)) {
    return false;
  } else if (comment.object == DbcObjectKind::Signal && comment.name.empty()) {
    comment.object = DbcObjectKind::Message;
    const std::string id = std::to_string(comment.messageId);
    report_.warn(token_.at, "signal comment on message " + id +
                                " names no signal; it was taken as the comment of message " + id);
  }
  if (!quotedText(comment.text, "comment string") || !endStatement()) return false;
  model_.comments.push_back(std::move(comment));
  return true;
}

bool TolerantDbcReader::readAttributeDefinition() {
  DbcAttributeDefinition definition;
  definition.at = statementAt_;
  if (token_.kind == DbcTokenKind::Word && !token_.startsLine) {
    if (auto kind = objectKindOf(findDbcStatement(token_.begin, token_.size()))) {
      definition.object = *kind;
      advance();
    }
  }
  if (!quotedText(definition.name, "attribute name")) return false;
  static constexpr struct {
    const char* word;
    std::size_t length;
    DbcAttributeType type;
  } kTypes[] = {{"INT", 3, DbcAttributeType::Int},
                {"HEX", 3, DbcAttributeType::Hex},
                {"FLOAT", 5, DbcAttributeType::Float},
                {"STRING", 6, DbcAttributeType::String},
                {"ENUM", 4, DbcAttributeType::Enum}};
  bool known = false;
  for (const auto& type : kTypes) {
    if (!token_.isWord(type.word, type.length)) continue;
    definition.type = type.type;
    known = true;
    break;
  }
  if (!known) return expected("'INT', 'HEX', 'FLOAT', 'STRING' or 'ENUM'");
  advance();
  double bound = 0;
  switch (definition.type) {
    case DbcAttributeType::String: break;
    case DbcAttributeType::Enum:
      while (token_.kind == DbcTokenKind::String) {
        definition.enumValues.push_back(unescapeDbcString(token_));
        advance();
        if (token_.is(',')) advance();
      }
      break;
    default:
      // Bounds are checked but not kept; some writers leave them out.
      if (token_.is(';') || atStatementEnd())
        report_.warn(previousEnd_,
                     "attribute definition '" + definition.name + "' gives no bounds; read without them");
      else if (!real(bound, "minimum") || !real(bound, "maximum"))
        return false;
  }
  if (!endStatement()) return false;
  model_.attributeDefinitions.push_back(std::move(definition));
  return true;
}

bool TolerantDbcReader::readAttributeDefault() {
  DbcAttributeDefault value;
  value.at = statementAt_;
  if (!quotedText(value.name, "attribute name") || !constantValue(value.value, value.quoted) ||
      !endStatement())
    return false;
  model_.attributeDefaults.push_back(std::move(value));
  return true;
}

bool TolerantDbcReader::readAttribute() {
  DbcAttributeValue value;
  value.at = statementAt_;
  if (!quotedText(value.name, "attribute name") ||
      !readObjectReference(value.object, value.messageId, value.objectName))
    return false;
  if (value.object == DbcObjectKind::Signal && value.objectName.empty()) return expected("signal name");
  if (!constantValue(value.value, value.quoted) || !endStatement()) return false;
  model_.attributeValues.push_back(std::move(value));
  return true;
}

// "VAL_ id signal" or "VAL_ variable", then pairs of a key and its text.
bool TolerantDbcReader::readValueDescriptions() {
  DbcValueDescriptions values;
  values.at = statementAt_;
  DbcInteger id;
  if (readDbcInteger(token_, false, id)) {
    if (!messageId(values.messageId) || !name(values.name, "signal name")) return false;
  } else {
    values.environmentVariable = true;
    if (!name(values.name, "message id or environment variable name")) return false;
  }
  while (!token_.is(';') && !atStatementEnd()) {
    DbcInteger key;
    if (!readDbcInteger(token_, true, key) || key.overflow) return expected("value (an integer)");
    DbcValueText& entry = values.values.emplace_back();
    entry.at = token_.at;
    entry.negative = key.negative;
    entry.magnitude = key.magnitude;
    advance();
    if (!quotedText(entry.text, "value text")) return false;
  }
  if (!endStatement()) return false;
  model_.valueDescriptions.push_back(std::move(values));
  return true;
}

bool TolerantDbcReader::readSignalValueType() {
  DbcSignalValueType type;
  type.at = statementAt_;
  if (!messageId(type.messageId) || !name(type.signal, "signal name") || !symbol(':') ||
      !unsigned32(type.valueType, "value type") || !endStatement())
    return false;
  model_.signalValueTypes.push_back(std::move(type));
  return true;
}

// "SG_MUL_VAL_ id signal switch a-b, c-d ;". The scanner reads "0-3" as
// "0" and "-3", since a sign before a digit begins a number.
bool TolerantDbcReader::readMultiplexRanges() {
  DbcMultiplexRanges ranges;
  ranges.at = statementAt_;
  if (!messageId(ranges.messageId) || !name(ranges.signal, "signal name") ||
      !name(ranges.switchName, "multiplexer switch name"))
    return false;
  for (;;) {
    DbcInteger low, high;
    if (!readDbcInteger(token_, false, low) || low.overflow) return expected("switch value");
    advance();
    const bool dashAlone = token_.is('-');
    if (dashAlone)
      advance();
    else if (token_.kind != DbcTokenKind::Number || *token_.begin != '-')
      return expected("'-'");
    if (!readDbcInteger(token_, !dashAlone, high) || high.overflow || high.negative == dashAlone)
      return expected("switch value");
    ranges.ranges.emplace_back(low.magnitude, high.magnitude);
    advance();
    if (!token_.is(',')) break;
    advance();
  }
  if (!endStatement()) return false;
  model_.multiplexRanges.push_back(std::move(ranges));
  return true;
}

bool TolerantDbcReader::readEnvironmentVariable() {
  std::string variable;
  if (!name(variable, "environment variable name")) return false;
  model_.environmentVariables.push_back(std::move(variable));
  return skipToStatementEnd();
}

}  // namespace q9
