// Exact triggerings are indexed by identifier and frame type (one that may
// be sent either way under both), and extended ones by parameter group too;
// masked ones are tested in turn. Triggerings scheduled in time slots are
// left out, as nothing in a capture of identifiers can match them.
#include "DescribedFrames.h"

#include "Nodes.h"

namespace q9tool {
namespace {

constexpr uint32_t kFirstPdu2Format = 240;

}  // namespace

uint32_t j1939ParameterGroup(uint32_t identifier) {
  uint32_t format = (identifier >> 16) & 0xFF;
  uint32_t group = (identifier >> 8) & 0x3FFFF;  // data page bits and PDU format and specific
  return format < kFirstPdu2Format ? group & 0x3FF00 : group;
}

uint64_t frameCycleTime(Q9DbNode* frame) {
  uint64_t cycle = 0;
  forEachNode(Q9Db_enumPDUInstances, frame, [&](Q9DbNode* instance) {
    Q9DbNode* pdu = nullptr;
    if (cycle || Q9Db_getReference(instance, &pdu) != S_OK || !pdu) return;
    forEachNode(Q9Db_enumPDUTriggerings, pdu, [&](Q9DbNode* pduTriggering) {
      forEachNode(Q9Db_enumChildren, pduTriggering, [&](Q9DbNode* timing) {
        if (!cycle && Q9Db_getNodeType(timing) == Q9_NODETYPE_CyclicTiming) Q9Db_getCycletime(timing, &cycle);
      });
    });
  });
  return cycle;
}

DescribedFrames::DescribedFrames(const std::vector<Q9DbNode*>& channels) {
  for (Q9DbNode* channel : channels) {
    forEachNode(Q9Db_enumFrameTriggerings, channel, [&](Q9DbNode* triggering) {
      Q9DbNode* frame = nullptr;
      if (Q9Db_getFrame(triggering, &frame) != S_OK || !frame) return;
      DescribedFrame described{channel, frame, displayName(frame), 0, ~0u, 0, 0, frameCycleTime(frame)};
      Q9Db_getFlags(triggering, &described.flags);
      Q9Db_getLength(frame, &described.length);
      uint32_t type = Q9Db_getNodeType(triggering);
      if (type == Q9_NODETYPE_MaskedIdentifierTriggering) {
        Q9Db_getIdentifierCode(triggering, &described.identifier);
        Q9Db_getIdentifierMask(triggering, &described.mask);
        masked_.push_back(frames_.size());
      } else if (type == Q9_NODETYPE_IdentifierBasedTriggering) {
        Q9Db_getIdentifier(triggering, &described.identifier);
        size_t at = frames_.size();
        if (!described.extended()) byIdentifier_[key(described.identifier, false)].push_back(at);
        if (sentExtended(described.identifier, described.flags))
          byIdentifier_[key(described.identifier, true)].push_back(at);
        if (described.extended()) byParameterGroup_[j1939ParameterGroup(described.identifier)].push_back(at);
      } else {
        return;
      }
      frames_.push_back(std::move(described));
      triggerings_.push_back(triggering);
    });
  }
}

std::vector<const DescribedFrame*> DescribedFrames::find(uint32_t identifier, bool extended, Q9DbNode* channel) const {
  std::vector<const DescribedFrame*> found;
  auto take = [&](size_t at) {
    const DescribedFrame& f = frames_[at];
    if (!channel || f.channel == channel) found.push_back(&f);
  };
  auto exact = byIdentifier_.find(key(identifier, extended));
  if (exact != byIdentifier_.end())
    for (size_t at : exact->second) take(at);
  for (size_t at : masked_) {
    const DescribedFrame& f = frames_[at];
    if ((identifier & f.mask) == f.identifier && (f.eitherType() || f.extended() == extended)) take(at);
  }
  return found;
}

std::vector<const DescribedFrame*> DescribedFrames::findParameterGroup(uint32_t identifier, Q9DbNode* channel) const {
  std::vector<const DescribedFrame*> found;
  auto group = byParameterGroup_.find(j1939ParameterGroup(identifier));
  if (group == byParameterGroup_.end()) return found;
  for (size_t at : group->second)
    if (!channel || frames_[at].channel == channel) found.push_back(&frames_[at]);
  return found;
}

bool DescribedFrames::takesAlone(Q9DbNode* triggering, Q9DbNode* channel) const {
  uint32_t identifier = 0;
  if (Q9Db_getNodeType(triggering) != Q9_NODETYPE_IdentifierBasedTriggering ||
      Q9Db_getIdentifier(triggering, &identifier) != S_OK)
    return false;
  // Every triggering that may take the identifier, in either frame type.
  const DescribedFrame* only = nullptr;
  for (bool extended : {false, true})
    for (const DescribedFrame* d : find(identifier, extended, channel)) {
      if (only && d != only) return false;
      only = d;
    }
  return only && triggerings_[size_t(only - frames_.data())] == triggering;
}

}  // namespace q9tool
