// Schedule tables as groups of slot references, the collision resolving
// table of each event-triggered frame, and signal groups.
#include "import/LdfBuild.h"
#include "import/ScriptNumbers.h"

namespace q9 {
namespace {

const char* commandName(LdfSlotKind kind) {
  switch (kind) {
    case LdfSlotKind::AssignNad: return "AssignNAD";
    case LdfSlotKind::ConditionalChangeNad: return "ConditionalChangeNAD";
    case LdfSlotKind::DataDump: return "DataDump";
    case LdfSlotKind::SaveConfiguration: return "SaveConfiguration";
    case LdfSlotKind::AssignFrameIdRange: return "AssignFrameIdRange";
    case LdfSlotKind::FreeFormat: return "FreeFormat";
    case LdfSlotKind::AssignFrameId: return "AssignFrameId";
    case LdfSlotKind::Frame: break;
  }
  return "";
}

// The command as the file writes it, numbers in hexadecimal but the frame
// index of AssignFrameIdRange.
std::string commandText(const LdfScheduleSlot& slot) {
  std::vector<std::string> parts;
  switch (slot.kind) {
    case LdfSlotKind::AssignNad:
    case LdfSlotKind::SaveConfiguration:
    case LdfSlotKind::DataDump: parts.push_back(slot.node); break;
    case LdfSlotKind::AssignFrameId:
      parts.push_back(slot.node);
      parts.push_back(slot.frame);
      break;
    case LdfSlotKind::AssignFrameIdRange: parts.push_back(slot.node); break;
    default: break;
  }
  for (std::size_t i = 0; i < slot.values.size(); ++i) {
    const bool frameIndex = slot.kind == LdfSlotKind::AssignFrameIdRange && i == 0;
    parts.push_back(frameIndex ? numberText(double(slot.values[i])) : hexText(slot.values[i]));
  }
  std::string text = std::string(commandName(slot.kind)) + " { ";
  for (std::size_t i = 0; i < parts.size(); ++i) text += (i ? ", " : "") + parts[i];
  return text + " }";
}

void buildSlot(LdfBuild& b, const LdfScheduleTable& table, Q9DbNode* group, std::size_t index,
               const LdfScheduleSlot& slot, uint64_t delay) {
  const std::string where = "schedule table " + table.name + ", slot " + std::to_string(index);
  const char16_t* id = b.make.id({"slot", table.name, std::to_string(index)});
  if (slot.kind == LdfSlotKind::Frame) {
    const auto f = b.frames.find(slot.frame);
    if (f == b.frames.end())
      b.warn(slot.at, where + ": frame " + slot.frame + " is not defined; the slot stays empty");
    b.reference(group, id, f == b.frames.end() ? nullptr : f->second.node, slot.frame, delay);
    return;
  }
  // Commands go out in the master request frame; the slot names the
  // command and refers to the node it addresses.
  Q9DbNode* target = nullptr;
  if (!slot.node.empty()) {
    const auto e = b.ecus.find(slot.node);
    if (e != b.ecus.end())
      target = e->second;
    else
      b.warn(slot.at, where + ": node " + slot.node + " is not defined");
  }
  Q9DbNode* ref = b.reference(group, id, target, commandName(slot.kind), delay);
  b.describe(ref, commandText(slot));
}

// An event-triggered frame refers to the table that resolves its collisions.
void buildCollisionReferences(LdfBuild& b) {
  for (const LdfEventTriggeredFrame& def : b.file.eventTriggeredFrames) {
    const auto f = b.frames.find(def.name);
    if (!def.collisionTable || f == b.frames.end() || f->second.event != &def) continue;
    const auto table = b.schedules.find(*def.collisionTable);
    if (table == b.schedules.end()) {
      b.warn(def.at, "event-triggered frame " + def.name + ": collision resolving schedule table " +
                         *def.collisionTable + " is not defined");
      continue;
    }
    b.reference(f->second.triggering, b.make.id({"triggering", def.name, "collision_resolving"}), table->second,
                "collision_resolving_schedule_table");
  }
}

}  // namespace

void buildSchedules(LdfBuild& b) {
  const auto& tables = b.file.scheduleTables;
  if (tables.empty()) return;
  Q9DbNode* holder = b.container("schedules", "Schedule_tables");
  for (const LdfScheduleTable& table : tables) {
    if (b.schedules.count(table.name)) {
      b.warn(table.at, "schedule table " + table.name + " is defined twice; the second is left out");
      continue;
    }
    Q9DbNode* group = b.named(b.create("creating a group", Q9Db_createElementGroup,
                                          b.make.id({"schedule", table.name}), holder,
                                          static_cast<Q9DbNode*>(nullptr)),
                              table.name);
    b.schedules.emplace(table.name, group);
    ScriptNumber cycle;
    for (std::size_t i = 0; i < table.slots.size(); ++i) {
      const ScriptNumber delay = thousandths(table.slots[i].delay);
      cycle = cycle + delay;
      buildSlot(b, table, group, i + 1, table.slots[i], paramOf(delay));
    }
    b.make.setParam(group, paramOf(cycle));
    ++b.scheduleCount;
  }
  buildCollisionReferences(b);
}

void buildSignalGroups(LdfBuild& b) {
  const auto& groups = b.file.signalGroups;
  if (groups.empty()) return;
  Q9DbNode* holder = b.container("signal-groups", "Signal_groups");
  for (const LdfSignalGroup& def : groups) {
    if (b.make.taken(b.make.id({"signal-group", def.name}))) {
      b.warn(def.at, "signal group " + def.name + " is defined twice; the second is left out");
      continue;
    }
    Q9DbNode* group = b.named(b.create("creating a group", Q9Db_createElementGroup,
                                          b.make.id({"signal-group", def.name}), holder,
                                          static_cast<Q9DbNode*>(nullptr)),
                              def.name);
    b.make.setParam(group, uint64_t(def.size));
    for (const LdfSignalEntry& member : def.signals) {
      const auto signal = b.signals.find(member.signal);
      if (signal == b.signals.end()) {
        b.warn(member.at, "signal group " + def.name + ": signal " + member.signal + " is not defined");
        continue;
      }
      const char16_t* id = b.make.id({"signal-group", def.name, member.signal});
      if (b.make.taken(id)) {
        b.warn(member.at, "signal group " + def.name + ": signal " + member.signal +
                              " is listed twice; the second is left out");
        continue;
      }
      b.reference(group, id, signal->second.node, member.signal, uint64_t(member.offset));
    }
  }
}

}  // namespace q9
