// The Schedule_tables section: tables of slots, each a frame or a command
// with its delay.
#include <iterator>

#include "import/LdfReader.h"

namespace q9 {
namespace {

struct Command {
  int keyword;
  LdfSlotKind kind;
  bool node;         // a node's name first
  int integers;      // then this many integers
  bool frame;        // then a frame's name
  int moreIntegers;  // then optionally this many further integers
};

constexpr Command kCommands[] = {
    {ldf::AssignNAD, LdfSlotKind::AssignNad, true, 0, false, 0},
    {ldf::ConditionalChangeNAD, LdfSlotKind::ConditionalChangeNad, false, 6, false, 0},
    {ldf::DataDump, LdfSlotKind::DataDump, true, 5, false, 0},
    {ldf::SaveConfiguration, LdfSlotKind::SaveConfiguration, true, 0, false, 0},
    {ldf::AssignFrameIdRange, LdfSlotKind::AssignFrameIdRange, true, 1, false, 4},
    {ldf::FreeFormat, LdfSlotKind::FreeFormat, false, 8, false, 0},
    {ldf::AssignFrameId, LdfSlotKind::AssignFrameId, true, 0, true, 0},
};

const Command* commandOf(int keyword) {
  for (const Command& command : kCommands)
    if (command.keyword == keyword) return &command;
  return nullptr;
}

// What stands between the command's braces, with the separating commas.
void readCommandBody(LdfReader& r, const Command& command, LdfScheduleSlot& slot) {
  bool first = true;
  auto separator = [&] {
    if (!first) r.expect(',');
    first = false;
  };
  if (command.node) {
    separator();
    slot.node = r.name("the node");
  }
  for (int i = 0; i < command.integers; ++i) {
    separator();
    slot.values.push_back(r.integer("a command's value"));
  }
  if (command.frame) {
    separator();
    slot.frame = r.name("the frame");
  }
  if (command.moreIntegers && r.accept(',')) {
    for (int i = 0; i < command.moreIntegers; ++i) {
      if (i > 0) r.expect(',');
      slot.values.push_back(r.integer("a protected identifier"));
    }
  }
}

void readSlot(LdfReader& r, LdfScheduleTable& table) {
  LdfScheduleSlot slot;
  slot.at = r.token().at;
  const Command* command = commandOf(r.token().code);
  if (command) {
    r.label("a " + std::string(ldf::keywordText(command->keyword)) + " slot of " + table.name);
    slot.kind = command->kind;
    r.advance();
    r.expect('{');
    readCommandBody(r, *command, slot);
    r.expect('}');
  } else if (r.atWord()) {
    if (r.peek().code == '{')
      return r.skipUnknown("the schedule command of " + table.name, slot.at, r.token().begin);
    slot.frame = r.entryName("a frame");
    r.label("the slot of " + slot.frame + " in " + table.name);
  } else {
    r.slip("a frame's name or a command");
  }
  if (!r.accept(ldf::delay)) {
    if (!r.token().isNumber()) r.slip("'delay'");
    r.warn(r.token().at, "'delay' missing in front of the slot's time; it is assumed");
  }
  slot.delay = r.number("the slot's delay");
  r.unit(ldf::ms, "the slot's delay");
  r.endStatement("the slot");
  table.slots.push_back(std::move(slot));
}

}  // namespace

void readScheduleTables(LdfReader& r) {
  r.block("Schedule_tables", [&r] {
    LdfScheduleTable table;
    table.at = r.token().at;
    table.name = r.entryName("a schedule table");
    r.label("schedule table " + table.name);
    r.block("a schedule table", [&r, &table] { readSlot(r, table); }, LdfReader::Ends::Semicolon);
    r.file.scheduleTables.push_back(std::move(table));
  });
}

}  // namespace q9
