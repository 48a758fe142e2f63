// The Node_attributes section: one block per node with its protocol, its
// addresses and, from product_id on, its identity, timing and frames.
#include "import/LdfParser.h"
#include "import/LuaTree.h"

namespace q9 {
namespace {

// Optional timing lines, in the only order they may stand in, and the keys
// under which the tree keeps them.
struct TimingLine {
  int keyword;
  const char* key;
};
constexpr TimingLine kTimingLines[] = {
    {ldf::P2_min, "P2_min"},
    {ldf::ST_min, "ST_min"},
    {ldf::N_As_timeout, "N_as"},
    {ldf::N_Cr_timeout, "N_CR_timeout"},
};

void parseProductId(LdfParser& p) {
  lua_State* L = p.L;
  p.expect(ldf::product_id);
  p.expect('=');
  lua_createtable(L, 0, 0);
  p.integerField("supplierid");
  p.expect(',');
  p.integerField("functionid");
  if (p.skip(',')) p.integerField("variant");
  lua_setfield(L, -2, "productid");
  p.expect(';');
}

void parseFaultStateSignals(LdfParser& p) {
  lua_State* L = p.L;
  p.expect('=');
  lua_createtable(L, 0, 0);
  p.pushName();
  appendToArray(L, -2);
  p.skip(',');
  p.appendNames(LdfParser::Names::kPlainIdentifiers);
  lua_setfield(L, -2, "faultstatesignals");
  p.expect(';');
}

// configurable_frames { frame [= ident] ; ... }
void parseConfigurableFrames(LdfParser& p) {
  lua_State* L = p.L;
  p.expect(ldf::configurable_frames);
  p.expect('{');
  lua_createtable(L, 0, 0);
  while (p.atEntryName()) {
    pushTaggedTable(L, "frame");
    p.nameField("name");
    if (p.skip('=')) p.integerField("ident");
    p.expect(';');
    p.appendToParent();
  }
  p.expect('}');
  lua_setfield(L, -2, "configurableframes");
}

// Everything from product_id to the frames; a node without product_id ends
// before it.
void parseProductDetails(LdfParser& p) {
  parseProductId(p);
  p.expect(ldf::response_error);
  p.expect('=');
  p.nameField("responseerror");
  p.expect(';');
  if (p.skip(ldf::fault_state_signals)) parseFaultStateSignals(p);
  for (const TimingLine& line : kTimingLines) {
    if (!p.skip(line.keyword)) continue;
    p.expect('=');
    p.numberField(line.key);
    p.expect(ldf::ms);
    p.expect(';');
  }
  parseConfigurableFrames(p);
}

}  // namespace

void parseNodeAttributes(LdfParser& p) {
  pushTaggedTable(p.L, "node");
  p.nameField("name");
  p.expect('{');

  p.expect(ldf::LIN_protocol);
  p.expect('=');
  // A string or a float; a plain integer is refused.
  if (!p.at(kTokenString) && !p.at(kTokenFloat)) p.fail("constant");
  p.textField("LIN_protocol");
  p.expect(';');

  p.expect(ldf::configured_NAD);
  p.expect('=');
  p.integerField("configured_NAD");
  p.expect(';');

  if (p.skip(ldf::initial_NAD)) {
    p.expect('=');
    p.integerField("diagaddress");
    p.expect(';');
  }

  if (p.at(ldf::product_id)) parseProductDetails(p);
  p.expect('}');
  p.appendToParent();
}

}  // namespace q9
