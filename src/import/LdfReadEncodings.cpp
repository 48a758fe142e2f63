// The closing sections: signal groups, signal encoding types and which
// signals use which encoding.
#include "import/LdfReader.h"

namespace q9 {
namespace {

void optionalText(LdfReader& r, LdfEncodingValue& value, const char* what) {
  if (r.accept(',')) value.text = r.text(what);
}

void readValue(LdfReader& r, LdfEncodingType& encoding) {
  LdfEncodingValue value;
  value.at = r.token().at;
  switch (r.token().code) {
    case ldf::logical_value:
      r.label("a logical value of " + encoding.name);
      r.advance();
      value.kind = LdfValueKind::Logical;
      r.expect(',');
      value.value = r.integer("the logical value");
      optionalText(r, value, "the value's text");
      break;
    case ldf::physical_value:
      r.label("a physical range of " + encoding.name);
      r.advance();
      value.kind = LdfValueKind::Physical;
      r.expect(',');
      value.min = r.integer("the range's minimum");
      r.expect(',');
      value.max = r.integer("the range's maximum");
      r.expect(',');
      value.scale = r.number("the scale");
      r.expect(',');
      value.offset = r.number("the offset");
      optionalText(r, value, "the unit");
      break;
    case ldf::bcd_value:
    case ldf::ascii_value:
      value.kind = r.at(ldf::bcd_value) ? LdfValueKind::Bcd : LdfValueKind::Ascii;
      r.label(std::string(r.token().text) + " of " + encoding.name);
      r.advance();
      if (r.token().isNumber()) r.advance();  // a number some writers add means nothing
      break;
    default:
      return r.skipUnknown("the value description of " + encoding.name, value.at, r.token().begin);
  }
  r.endStatement("the value description");
  encoding.values.push_back(std::move(value));
}

}  // namespace

void readSignalGroups(LdfReader& r) {
  r.block("Signal_groups", [&r] {
    LdfSignalGroup group;
    group.at = r.token().at;
    group.name = r.entryName("a signal group");
    r.label("signal group " + group.name);
    r.expect(':');
    group.size = r.integer("the group's size");
    readSignalEntries(r, "a signal group", group.signals);
    r.file.signalGroups.push_back(std::move(group));
  });
}

void readEncodingTypes(LdfReader& r) {
  r.block("Signal_encoding_types", [&r] {
    LdfEncodingType encoding;
    encoding.at = r.token().at;
    encoding.name = r.entryName("a signal encoding");
    r.label("signal encoding " + encoding.name);
    r.block("a signal encoding", [&r, &encoding] { readValue(r, encoding); }, LdfReader::Ends::Semicolon);
    r.file.encodingTypes.push_back(std::move(encoding));
  });
}

void readRepresentations(LdfReader& r) {
  r.block("Signal_representation", [&r] {
    LdfRepresentation representation;
    representation.at = r.token().at;
    representation.encoding = r.entryName("a signal encoding");
    r.label("the representation by " + representation.encoding);
    r.expect(':');
    // A name followed by ':' starts the next entry: the ';' was left out.
    while (r.atWord() && r.peek().code != ':') {
      const TextPosition at = r.token().at;
      representation.signals.push_back({at, r.entryName("a signal")});
      r.accept(',');
    }
    r.endStatement("the signal list");
    r.file.representations.push_back(std::move(representation));
  }, LdfReader::Ends::Semicolon);
}

}  // namespace q9
