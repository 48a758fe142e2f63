// The closing sections: signal groups, signal encodings and which signals
// use which encoding.
#include "import/LdfParser.h"
#include "import/LuaTree.h"

namespace q9 {
namespace {

void optionalTextValue(LdfParser& p) {
  if (p.skip(',')) p.stringField("textvalue");
}

void parseValueDescription(LdfParser& p) {
  lua_State* L = p.L;
  switch (p.token()) {
    case ldf::logical_value:
      pushTaggedTable(L, "logicalvalue", 2);
      p.advance();
      p.expect(',');
      p.integerField("intvalue");
      optionalTextValue(p);
      break;
    case ldf::physical_value:
      pushTaggedTable(L, "physicalvalue", 5);
      p.advance();
      p.expect(',');
      p.integerField("minvalue");
      p.expect(',');
      p.integerField("maxvalue");
      p.expect(',');
      p.numberField("scale");
      p.expect(',');
      p.numberField("offset");
      optionalTextValue(p);
      break;
    case ldf::bcd_value:
    case ldf::ascii_value:
      pushTaggedTable(L, p.at(ldf::bcd_value) ? "bcdvalue" : "asciivalue");
      p.advance();
      if (!isNumberToken(p.token())) p.fail("number");
      p.textField("value");
      break;
    default:
      p.fail("value type");
  }
  p.expect(';');
  p.appendToParent();
}

}  // namespace

void parseSignalGroup(LdfParser& p) {
  pushTaggedTable(p.L, "signalgroup");
  p.nameField("name");
  p.expect(':');
  p.integerField("size");
  p.expect('{');
  parseOffsetEntries(p, "signal");
  p.expect('}');
  p.appendToParent();
}

void parseSignalEncoding(LdfParser& p) {
  pushTaggedTable(p.L, "signalencoding");
  p.nameField("name");
  p.expect('{');
  while (!p.at('}')) parseValueDescription(p);
  p.expect('}');
  p.appendToParent();
}

void parseSignalRepresentation(LdfParser& p) {
  pushTaggedTable(p.L, "signalrepresentation");
  p.nameField("name");
  p.expect(':');
  p.appendNames(LdfParser::Names::kPlainIdentifiers);
  p.expect(';');
  p.appendToParent();
}

}  // namespace q9
