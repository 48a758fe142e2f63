// The Schedule_tables section: named tables of slots, each a frame or a
// command, followed by its delay.
#include "import/LdfParser.h"
#include "import/LuaTree.h"

namespace q9 {
namespace {

// count integers into an array under key, separated by commas; with
// commaFirst a comma stands in front of the first one too.
void integerArray(LdfParser& p, const char* key, int count, bool commaFirst) {
  lua_State* L = p.L;
  lua_createtable(L, 0, 0);
  for (int i = 0; i < count; ++i) {
    if (i > 0 || commaFirst) p.expect(',');
    p.pushInteger();
    lua_rawseti(L, -2, i + 1);
  }
  lua_setfield(L, -2, key);
}

void nodeOnly(LdfParser& p) { p.nameField("node"); }

void conditionalChangeNad(LdfParser& p) {
  bool first = true;
  for (const char* key : {"NAD", "id", "byte", "mask", "inv", "new_NAD"}) {
    if (!first) p.expect(',');
    first = false;
    p.integerField(key);
  }
}

void dataDump(LdfParser& p) {
  p.nameField("name");
  integerArray(p, "data", 5, true);
}

// node, index and, optionally, all four protected identifiers.
void assignFrameIdRange(LdfParser& p) {
  p.nameField("node");
  p.expect(',');
  p.integerField("frameindex");
  if (p.skip(',')) integerArray(p, "framePIDs", 4, false);
}

void freeFormat(LdfParser& p) { integerArray(p, "data", 8, false); }

void assignFrameId(LdfParser& p) {
  p.nameField("node");
  p.expect(',');
  p.nameField("frame");
}

struct SlotCommand {
  int keyword;
  const char* tag;
  void (*body)(LdfParser& p);  // what stands between the braces
};

constexpr SlotCommand kSlotCommands[] = {
    {ldf::AssignNAD, "assignNAD", nodeOnly},
    {ldf::ConditionalChangeNAD, "conditionalChangeNAD", conditionalChangeNad},
    {ldf::DataDump, "datadump", dataDump},
    {ldf::SaveConfiguration, "saveconfiguration", nodeOnly},
    {ldf::AssignFrameIdRange, "assignframeidrange", assignFrameIdRange},
    {ldf::FreeFormat, "freeformat", freeFormat},
    {ldf::AssignFrameId, "assignframeid", assignFrameId},
};

const SlotCommand* findSlotCommand(int token) {
  for (const SlotCommand& command : kSlotCommands)
    if (command.keyword == token) return &command;
  return nullptr;
}

void parseSlot(LdfParser& p) {
  if (p.atEntryName()) {
    pushTaggedTable(p.L, "identifier");
    p.textField("frame");
  } else {
    const SlotCommand* command = findSlotCommand(p.token());
    if (!command) p.fail("frame_name or command type");
    pushTaggedTable(p.L, command->tag);
    p.advance();
    p.expect('{');
    command->body(p);
    p.expect('}');
  }
  p.expect(ldf::delay);
  p.numberField("time");
  p.expect(ldf::ms);
  p.expect(';');
  p.appendToParent();
}

}  // namespace

void parseScheduleTable(LdfParser& p) {
  pushTaggedTable(p.L, "scheduletable");
  p.nameField("name");
  p.expect('{');
  while (!p.at('}')) parseSlot(p);
  p.expect('}');
  p.appendToParent();
}

}  // namespace q9
