// Frames of every kind: unconditional and diagnostic frames with their
// triggering, PDU and signal instances; event-triggered frames as a PDU
// multiplexed on the protected identifier; sporadic frames as groups of
// references.
#include <algorithm>
#include <optional>
#include <unordered_set>

#include "import/LdfBuild.h"
#include "import/LdfFrameChecks.h"
#include "import/ScriptNumbers.h"

namespace q9 {
namespace {

// The frame id with its two parity bits: also the first data byte of a
// frame sent in an event-triggered slot.
uint32_t protectedId(int64_t ident) {
  const auto id = uint32_t(ident);
  auto bit = [id](int n) { return (id >> n) & 1u; };
  const uint32_t p0 = bit(0) ^ bit(1) ^ bit(2) ^ bit(4);
  const uint32_t p1 = 1u ^ (bit(1) ^ bit(3) ^ bit(4) ^ bit(5));
  return id | p0 << 6 | p1 << 7;
}

// LIN 2.x frames carry the enhanced checksum, unless a LIN 1.x slave
// publishes or reads them; diagnostic frames always carry the classic one.
uint32_t checksumFlags(const LdfBuild& b, const LdfFrame& def, bool diagnostic) {
  if (diagnostic || b.protocol < 2) return 0;
  auto isOld = [&b](const std::string& node) {
    const auto version = b.nodeProtocol.find(node);
    return version != b.nodeProtocol.end() && version->second < 2;
  };
  if (isOld(def.publisher)) return 0;
  for (const LdfSignalEntry& entry : def.signals) {
    const auto signal = b.signals.find(entry.signal);
    if (signal == b.signals.end()) continue;
    for (const std::string& reader : signal->second.def->subscribers)
      if (isOld(reader)) return 0;
  }
  return Q9_FLAG_LIN_ENH_CHECKSUM;
}

bool claimFrameName(LdfBuild& b, const std::string& name, TextPosition at) {
  if (b.frameNames.insert(name).second) return true;
  b.warn(at, "frame " + name + " is defined twice; the second is left out");
  return false;
}

bool checkIdentifier(LdfBuild& b, const std::string& name, int64_t ident, TextPosition at) {
  const std::string defect = ldfIdentifierDefect(name, ident);
  if (!defect.empty()) {
    b.warn(at, defect);
    return false;
  }
  const auto used = b.usedIds.find(ident);
  if (used != b.usedIds.end())
    b.warn(at, "frame " + name + ": identifier " + hexText(ident) + " is already used by " + used->second +
                   " on this channel");
  b.usedIds[ident] = name;
  return true;
}

struct FrameNodes {
  Q9DbNode* frame;
  Q9DbNode* triggering;
};

FrameNodes frameWithTriggering(LdfBuild& b, const std::string& name, int64_t ident, int64_t length, uint32_t flags,
                               const std::string* publisher, TextPosition at) {
  Q9DbNode* frame =
      b.named(b.create("creating a frame", Q9Db_createFrame, b.make.id({"frame", name}), int32_t(length)), name);
  Q9DbNode* ecu = nullptr;
  if (publisher) {
    const auto found = b.ecus.find(*publisher);
    if (found != b.ecus.end())
      ecu = found->second;
    else
      b.warn(at, "frame " + name + ": publisher " + *publisher + " is no node of the file");
  }
  Q9DbNode* triggering = b.named(b.create("creating a triggering", Q9Db_createIdentifierBasedTriggering,
                                             b.make.id({"triggering", name}), uint32_t(ident), flags, frame, ecu,
                                             b.channel),
                                 name);
  return {frame, triggering};
}

void makePduInstance(LdfBuild& b, const std::string& name, Q9DbNode* pdu, Q9DbNode* frame) {
  b.create("creating a PDU instance", Q9Db_createPDUInstance, b.make.id({"PDUInstance", name}),
              int32_t(Q9_BYTEORDER_LITTLEENDIAN), 0, -1, pdu, frame);
}

// A frame with signals: frame, triggering, one PDU filling the frame, and a
// signal instance per signal entry that fits.
void buildSignalFrame(LdfBuild& b, const LdfFrame& def, bool diagnostic) {
  const std::string& name = def.name;
  const int64_t ident = def.ident;
  if (!claimFrameName(b, name, def.at) || !checkIdentifier(b, name, ident, def.at)) return;
  const int64_t length = diagnostic ? 8 : def.size;
  const std::string defect = ldfLengthDefect(name, length);
  if (!defect.empty()) {
    b.warn(def.at, defect);
    return;
  }
  const std::string* publisher = &def.publisher;
  if (diagnostic) publisher = ident == 0x3C ? b.master : nullptr;
  const uint32_t flags = checksumFlags(b, def, diagnostic);
  const FrameNodes nodes = frameWithTriggering(b, name, ident, length, flags, publisher, def.at);
  if (diagnostic) b.describe(nodes.frame, "diagnostic frame");
  Q9DbNode* pdu = b.named(b.create("creating a PDU", Q9Db_createSignalPDU, b.make.id({"PDU", name}),
                                      int32_t(length * 8), static_cast<Q9DbNode*>(nullptr)),
                          name);
  makePduInstance(b, name, pdu, nodes.frame);
  std::unordered_set<std::string> placed;
  for (const LdfSignalEntry& entry : def.signals) {
    const auto signal = b.signals.find(entry.signal);
    if (signal == b.signals.end()) {
      b.warn(entry.at, "frame " + name + ": signal " + entry.signal + " is not defined; it is left out");
    } else if (placed.count(entry.signal)) {
      b.warn(entry.at, "frame " + name + ": signal " + entry.signal + " is placed twice; the second is left out");
    } else if (entry.offset < 0 || entry.offset + signal->second.size > length * 8) {
      b.warn(entry.at, "frame " + name + ": signal " + entry.signal + " at bit " + numberText(double(entry.offset)) +
                           " with " + std::to_string(signal->second.size) + " bits sticks out of the frame's " +
                           std::to_string(length) + " bytes; it is left out");
    } else {
      placed.insert(entry.signal);
      b.create("creating a signal instance", Q9Db_createSignalInstance,
                  b.make.id({"instance", name, entry.signal}), int32_t(Q9_BYTEORDER_LITTLEENDIAN),
                  int32_t(entry.offset), -1, signal->second.node, pdu);
    }
  }
  LdfBuiltFrame& built = b.frames[name];
  built = LdfBuiltFrame{nodes.frame, nodes.triggering, pdu, flags, length, ident, !diagnostic, false, nullptr};
  if (!diagnostic && (ident == 0x3C || ident == 0x3D))
    b.warn(def.at, "frame " + name + " uses the diagnostic identifier " + hexText(ident));
}

// An event-triggered frame answers with one of its associated frames, whose
// first byte is that frame's protected identifier. So its PDU is
// multiplexed on that byte: one part per associated frame, holding the
// associated frame's own PDU.
void buildEventTriggered(LdfBuild& b, const LdfEventTriggeredFrame& def) {
  const std::string& name = def.name;
  struct Associated {
    const std::string* name;
    const LdfBuiltFrame* frame;
  };
  std::vector<Associated> associated;
  std::optional<int64_t> length;
  for (const std::string& frameName : def.frames) {
    const auto f = b.frames.find(frameName);
    if (f == b.frames.end() || !f->second.unconditional) {
      b.warn(def.at, "event-triggered frame " + name + ": " + frameName +
                         " is no unconditional frame; it is left out");
      continue;
    }
    if (std::any_of(associated.begin(), associated.end(),
                    [&frameName](const Associated& a) { return *a.name == frameName; })) {
      b.warn(def.at, "event-triggered frame " + name + ": " + frameName + " is listed twice; the second is left out");
      continue;
    }
    if (length && f->second.length != *length)
      b.warn(def.at, "event-triggered frame " + name + ": associated frames differ in length (" +
                         std::to_string(*length) + " and " + std::to_string(f->second.length) +
                         " bytes); the frame takes " + std::to_string(std::max(*length, f->second.length)));
    length = std::max(length.value_or(0), f->second.length);
    associated.push_back({&frameName, &f->second});
  }
  if (!claimFrameName(b, name, def.at) || !checkIdentifier(b, name, def.ident, def.at)) return;
  const int64_t bytes = length.value_or(8);
  uint32_t flags = Q9_FLAG_LIN_ENH_CHECKSUM;
  for (const Associated& a : associated)
    if (a.frame->flags == 0) flags = 0;
  if (b.protocol < 2) flags = 0;
  const FrameNodes nodes = frameWithTriggering(b, name, def.ident, bytes, flags, nullptr, def.at);
  b.describe(nodes.frame, "event-triggered frame");
  Q9DbNode* mux = b.named(b.create("creating a multiplexed PDU", Q9Db_createMultiplexedPDU,
                                      b.make.id({"PDU", name}), int32_t(bytes * 8),
                                      int32_t(Q9_BYTEORDER_LITTLEENDIAN), 0, 8, 0u,
                                      static_cast<Q9DbNode*>(nullptr)),
                          name);
  makePduInstance(b, name, mux, nodes.frame);
  for (const Associated& a : associated) {
    Q9DbNode* part = b.named(b.create("creating a multiplexed part", Q9Db_createMultiplexedPart,
                                         b.make.id({"part", name, *a.name}), protectedId(a.frame->ident), mux),
                             *a.name);
    b.make.check(Q9Db_addDynamicParts(mux, 1, &part), "adding a multiplexed part");
    b.make.check(Q9Db_setReference(part, a.frame->pdu), "setting a part's PDU");
    b.make.check(Q9Db_addParents(a.frame->pdu, 1, &part), "adding a PDU's parent");
  }
  b.frames[name] = LdfBuiltFrame{nodes.frame, nodes.triggering, mux, flags, bytes, def.ident, false, false, &def};
}

// A sporadic frame has no identifier of its own: the master sends one of its
// associated frames in the slot. It becomes a group of references to those
// frames in priority order.
void buildSporadic(LdfBuild& b, const LdfSporadicFrame& def) {
  const std::string& name = def.name;
  if (!claimFrameName(b, name, def.at)) return;
  if (!b.sporadicGroup) b.sporadicGroup = b.container("sporadic", "Sporadic_frames");
  Q9DbNode* group = b.named(b.create("creating a group", Q9Db_createElementGroup, b.make.id({"frame", name}),
                                        b.sporadicGroup, static_cast<Q9DbNode*>(nullptr)),
                            name);
  b.describe(group, "sporadic frame");
  for (std::size_t i = 0; i < def.frames.size(); ++i) {
    const std::string& frameName = def.frames[i];
    const auto f = b.frames.find(frameName);
    if (f == b.frames.end() || !f->second.unconditional) {
      b.warn(def.at, "sporadic frame " + name + ": " + frameName + " is no unconditional frame; it is left out");
      continue;
    }
    b.reference(group, b.make.id({"frame", name, std::to_string(i + 1)}), f->second.node, frameName, uint64_t(i));
  }
  LdfBuiltFrame sporadic;
  sporadic.node = group;
  sporadic.sporadic = true;
  b.frames[name] = sporadic;
}

}  // namespace

void buildFrames(LdfBuild& b) {
  const LdfFile& f = b.file;
  const std::size_t count =
      f.frames.size() + f.diagnosticFrames.size() + f.eventTriggeredFrames.size() + f.sporadicFrames.size();
  b.frames.reserve(count);
  b.frameNames.reserve(count);
  for (const LdfFrame& def : b.file.frames) buildSignalFrame(b, def, false);
  for (const LdfFrame& def : b.file.diagnosticFrames) buildSignalFrame(b, def, true);
  for (const LdfEventTriggeredFrame& def : b.file.eventTriggeredFrames) buildEventTriggered(b, def);
  for (const LdfSporadicFrame& def : b.file.sporadicFrames) buildSporadic(b, def);
}

}  // namespace q9
