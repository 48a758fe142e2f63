// The sections that describe signals and frames.
#include <cstdint>

#include "import/LdfParser.h"
#include "import/LuaTree.h"

namespace q9 {
namespace {

// A scalar is a number; an array keeps each element's text as written.
void parseInitialValue(LdfParser& p) {
  lua_State* L = p.L;
  if (p.skip('{')) {
    lua_createtable(L, 0, 0);
    do {
      if (!p.atInteger()) p.fail("integer");
      lua_pushstring(L, p.text());
      appendToArray(L, -2);
      p.advance();
    } while (p.skip(','));
    p.expect('}');
    lua_setfield(L, -2, "initvalue");
  } else if (p.atInteger()) {
    p.integerField("initvalue");
  } else {
    p.fail("integer (scalar initvalue) or array ('{') expected ");
  }
}

// A frame without an explicit size takes it from its identifier's range.
double defaultFrameSize(uint32_t ident) {
  struct Range {
    uint32_t last;
    double size;
  };
  constexpr Range kRanges[] = {{31, 2}, {47, 4}, {63, 8}};
  for (const Range& range : kRanges)
    if (ident <= range.last) return range.size;
  return 2;
}

}  // namespace

void parseOffsetEntries(LdfParser& p, const char* tag) {
  while (p.atEntryName()) {
    pushTaggedTable(p.L, tag, 2);
    p.nameField("name");
    p.expect(',');
    p.integerField("offset");
    p.expect(';');
    p.appendToParent();
  }
}

void parseSignal(LdfParser& p) {
  lua_State* L = p.L;
  pushTaggedTable(L, "signal", 5);
  p.nameField("name");
  p.expect(':');
  p.integerField("size");
  p.expect(',');
  parseInitialValue(p);
  p.expect(',');
  p.nameField("publishedby");
  lua_createtable(L, 2, 0);
  while (p.skip(',')) {
    p.pushName();
    appendToArray(L, -2);
  }
  lua_setfield(L, -2, "subscribedby");
  p.expect(';');
  p.appendToParent();
}

void parseDiagnosticSignal(LdfParser& p) {
  pushTaggedTable(p.L, "signal");
  p.nameField("name");
  p.expect(':');
  p.integerField("size");
  p.expect(',');
  p.integerField("initvalue");
  p.expect(';');
  p.appendToParent();
}

void parseFrame(LdfParser& p) {
  pushTaggedTable(p.L, "frame", 4);
  p.nameField("name");
  p.expect(':');
  const auto ident = uint32_t(int32_t(p.integerValue()));
  p.integerField("ident");
  p.expect(',');
  p.nameField("publishedby");
  if (p.skip(','))
    p.integerField("size");
  else
    setNumberField(p.L, "size", defaultFrameSize(ident));
  p.expect('{');
  parseOffsetEntries(p, "signalinst");
  p.expect('}');
  p.appendToParent();
}

void parseSporadicFrame(LdfParser& p) {
  lua_State* L = p.L;
  pushTaggedTable(L, "frame");
  p.nameField("name");
  p.expect(':');
  do {
    p.pushName();
    appendToArray(L, -2);
  } while (p.skip(','));
  p.expect(';');
  p.appendToParent();
}

// name : [collision_table ,] ident , frame, frame ... ;
void parseEventTriggeredFrame(LdfParser& p) {
  pushTaggedTable(p.L, "frame");
  p.nameField("name");
  p.expect(':');
  if (p.atEntryName()) {
    p.textField("collisionresolvingscheduletable");
    p.expect(',');
  }
  p.integerField("ident");
  p.expect(',');
  p.appendNames(LdfParser::Names::kPlainIdentifiers);
  p.expect(';');
  p.appendToParent();
}

void parseDiagnosticFrame(LdfParser& p) {
  pushTaggedTable(p.L, "frame");
  p.nameField("name");
  p.expect(':');
  p.integerField("ident");
  p.expect('{');
  parseOffsetEntries(p, "signalinst");
  p.expect('}');
  p.appendToParent();
}

}  // namespace q9
