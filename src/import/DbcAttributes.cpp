// Integers are read by hand, so a decimal too large for 64 bits becomes a
// real rather than being clipped; reals go through the locale-free reader,
// and "inf" and "nan" stay texts, as they name things in these files. Reals
// print with a decimal point, so they still read back as reals.
#include "import/DbcAttributes.h"

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "platform/CNumbers.h"

namespace q9 {
namespace {

std::string_view trimmed(std::string_view text) {
  const auto blank = [](char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v'; };
  while (!text.empty() && blank(text.front())) text.remove_prefix(1);
  while (!text.empty() && blank(text.back())) text.remove_suffix(1);
  return text;
}

// An integer with an optional sign in decimal or 0x-hexadecimal; decimal ones
// too large for 64 bits are not integers (they read as reals), hexadecimal
// ones wrap around.
bool readInteger(std::string_view text, int64_t& out) {
  bool negative = false;
  if (!text.empty() && (text[0] == '-' || text[0] == '+')) {
    negative = text[0] == '-';
    text.remove_prefix(1);
  }
  uint64_t value = 0;
  if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
    text.remove_prefix(2);
    for (char c : text) {
      int digit;
      if (c >= '0' && c <= '9') digit = c - '0';
      else if (c >= 'a' && c <= 'f') digit = c - 'a' + 10;
      else if (c >= 'A' && c <= 'F') digit = c - 'A' + 10;
      else return false;
      value = value * 16 + uint64_t(digit);
    }
  } else {
    if (text.empty()) return false;
    for (char c : text) {
      if (c < '0' || c > '9') return false;
      const uint64_t digit = uint64_t(c - '0');
      if (value > (UINT64_MAX - digit) / 10) return false;
      value = value * 10 + digit;
    }
    if (value > uint64_t(INT64_MAX) + (negative ? 1 : 0)) return false;
  }
  out = int64_t(negative ? 0 - value : value);
  return true;
}

}  // namespace

AttributeValue numberFromText(std::string_view raw) {
  AttributeValue value;
  const std::string_view text = trimmed(raw);
  if (text.empty()) return value;
  if (readInteger(text, value.integer)) {
    value.kind = AttributeValue::Integer;
    return value;
  }
  // No "inf" or "nan": those are names, not numbers.
  for (char c : text)
    if (c == 'n' || c == 'N') return value;
  const std::string copy(text);
  char* end = nullptr;
  const double d = platform::parseDoubleC(copy.c_str(), &end);
  if (end && *end == '\0' && end != copy.c_str()) {
    value.kind = AttributeValue::Real;
    value.real = d;
  }
  return value;
}

std::string AttributeValue::asText() const {
  switch (kind) {
    case Integer: return std::to_string(integer);
    case Real: {
      char b[40];
      std::snprintf(b, sizeof b, "%.14g", real);
      std::string s(b);
      if (s.find_first_of(".eEni") == std::string::npos) s += ".0";
      return s;
    }
    case Text: return text;
    case None: break;
  }
  return {};
}

DbcAttributes::DbcAttributes(const DbcModel& model) {
  for (const DbcAttributeDefinition& d : model.attributeDefinitions) definitions_[d.name] = &d;
  for (const DbcAttributeDefault& d : model.attributeDefaults) defaults_[d.name] = d.value;
}

AttributeValue DbcAttributes::typed(const std::string& name, const std::string& text) const {
  const auto found = definitions_.find(name);
  const DbcAttributeDefinition* definition = found == definitions_.end() ? nullptr : found->second;
  AttributeValue number = numberFromText(text);
  if (definition && definition->type == DbcAttributeType::Enum) {
    if (number.kind == AttributeValue::Integer && number.integer >= 0 &&
        uint64_t(number.integer) < definition->enumValues.size()) {
      AttributeValue value;
      value.kind = AttributeValue::Text;
      value.text = definition->enumValues[std::size_t(number.integer)];
      return value;
    }
  } else if (definition && definition->type != DbcAttributeType::String) {
    return number;
  } else if (number.isNumber()) {
    number.text = text;
    return number;
  }
  AttributeValue value;
  value.kind = AttributeValue::Text;
  value.text = text;
  return value;
}

AttributeValue DbcAttributes::fallback(const std::string& name) const {
  const auto found = defaults_.find(name);
  if (found == defaults_.end()) return {};
  return typed(name, found->second);
}

}  // namespace q9
