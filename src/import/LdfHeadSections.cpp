// The file head and the sections that describe the nodes.
#include "import/LdfParser.h"
#include "import/LuaTree.h"
#include "platform/CNumbers.h"

namespace q9 {
namespace {

// keyword = "text" ; with the keyword's own word as the key.
void stringAssignment(LdfParser& p, int keyword) {
  p.expect(keyword);
  p.expect('=');
  p.stringField(ldf::keywordText(keyword));
  p.expect(';');
}

}  // namespace

void parseFileHead(LdfParser& p) {
  pushTaggedTable(p.L, "global");
  p.expect(ldf::LIN_description_file);
  p.expect(';');
  stringAssignment(p, ldf::LIN_protocol_version);

  // The language version alone decides which sections are read later; a
  // text that is no number reads as 0.
  p.expect(ldf::LIN_language_version);
  p.expect('=');
  if (p.at(kTokenString)) p.languageVersion = platform::parseDoubleC(p.text());
  p.stringField("LIN_language_version");
  p.expect(';');

  p.expect(ldf::LIN_speed);
  p.expect('=');
  if (!p.at(kTokenFloat)) p.fail("floating point constant");
  p.numberField("LIN_speed");
  p.expect(ldf::kbps);
  p.expect(';');

  if (p.at(ldf::Channel_name)) stringAssignment(p, ldf::Channel_name);
  p.appendToParent();
}

void parseNodesBody(LdfParser& p) {
  lua_State* L = p.L;
  p.expect(ldf::Master);
  p.expect(':');
  lua_createtable(L, 0, 0);
  p.nameField("name");
  p.expect(',');
  p.numberField("timebase");
  p.expect(ldf::ms);
  p.expect(',');
  p.numberField("jitter");
  p.expect(ldf::ms);
  lua_setfield(L, -2, "Master");
  p.expect(';');

  p.expect(ldf::Slaves);
  p.expect(':');
  lua_createtable(L, 0, 0);
  p.appendNames(LdfParser::Names::kKeywordsToo);
  lua_setfield(L, -2, "Slaves");
  p.expect(';');
}

// node : address ; with the node's name as the key and the address's text,
// whatever token it is, as the value.
void parseDiagnosticAddress(LdfParser& p) {
  lua_State* L = p.L;
  lua_pushstring(L, p.text());
  p.advance();
  p.expect(':');
  lua_pushstring(L, p.text());
  p.advance();
  lua_rawset(L, -3);
  p.skip(';');
}

// configuration name { composite_node { member, member ; } ... } ...
void parseCompositeBody(LdfParser& p) {
  lua_State* L = p.L;
  while (p.skip(ldf::configuration)) {
    pushTaggedTable(L, "configuration");
    p.nameField("name");
    p.expect('{');
    while (p.atEntryName()) {
      pushTaggedTable(L, "compositenode");
      p.nameField("name");
      p.expect('{');
      p.appendNames(LdfParser::Names::kKeywordsToo);
      p.expect(';');
      p.expect('}');
      p.appendToParent();
    }
    p.expect('}');
    p.appendToParent();
  }
}

}  // namespace q9
