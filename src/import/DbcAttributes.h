// Attribute values of a DBC file, typed by their definitions: the values the
// import maps (cycle times, frame formats, start values, long names) are read
// from here, explicit or by the file's default. A value's text becomes a
// number when it reads as one (decimal, hexadecimal or floating point), an
// enumeration's index becomes its text.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>

#include "import/DbcModel.h"

namespace q9 {

struct AttributeValue {
  enum Kind : uint8_t { None, Integer, Real, Text } kind = None;
  int64_t integer = 0;
  double real = 0;
  // A Text's text; a number keeps the text it was written as when no
  // numeric definition types it, since a name may read as one ("5").
  std::string text;

  bool isNumber() const { return kind == Integer || kind == Real; }
  double number() const { return kind == Integer ? double(integer) : real; }
  bool isText() const { return kind == Text; }
  // The value as text, numbers in their shortest form ("1", "0.5").
  std::string asText() const;
};

// A number as the text of a value reads: integers stay integers, decimal or
// 0x-hexadecimal with a sign; anything else that strtod takes whole is a real.
AttributeValue numberFromText(std::string_view text);

class DbcAttributes {
 public:
  explicit DbcAttributes(const DbcModel& model);

  // The value of a definition's text: an enumeration index as its text, a
  // numeric type as a number (None when it isn't one), any other as a number
  // when it reads as one, else as text.
  AttributeValue typed(const std::string& name, const std::string& text) const;
  // The file's default for the attribute, or None.
  AttributeValue fallback(const std::string& name) const;

 private:
  std::unordered_map<std::string, const DbcAttributeDefinition*> definitions_;
  std::unordered_map<std::string, std::string> defaults_;
};

}  // namespace q9
