// Only triggerings by identifier or by mask enter, as nothing else can be
// found from a log of identifiers. Slots and value texts are numbered up
// front in frame order, so that the codes a decoded log uses depend on the
// database alone, not on what the log holds.
#include "Catalog.h"

#include "DescribedFrames.h"
#include "Nodes.h"

namespace q9py {
namespace {

using q9tool::displayName;
using q9tool::forEachNode;

std::string signalUnit(Q9DbNode* signal) {
  Q9DbNode* unit = nullptr;
  Q9Db_getUnit(signal, &unit);  // the unit of the signal's coding
  return q9tool::unitName(unit);
}

}  // namespace

void Catalog::build(Q9DbNode* db) {
  *this = Catalog();
  db_ = db;
  forEachNode(Q9Db_enumClusters, db, [&](Q9DbNode* cluster) {
    int32_t type = Q9_CLUSTERTYPE_INVALID;
    Q9Db_getClusterType(cluster, &type);
    forEachNode(Q9Db_enumChildren, cluster, [&](Q9DbNode* channel) {
      if (Q9Db_getNodeType(channel) == Q9_NODETYPE_Channel) channels_.push_back({channel, displayName(channel), type});
    });
  });
  // The frames the tool's index finds from a log (by identifier or mask),
  // in its order, which is the channels' and their triggerings'.
  std::vector<Q9DbNode*> nodes;
  for (const ChannelEntry& channel : channels_) nodes.push_back(channel.node);
  index_.emplace(nodes);
  const std::vector<q9tool::DescribedFrame>& described = index_->all();
  for (size_t at = 0; at < described.size(); ++at) {
    const q9tool::DescribedFrame& d = described[at];
    uint32_t channel = 0;
    while (channels_[channel].node != d.channel) ++channel;
    FrameEntry entry{d, index_->triggering(at), channel, layOutSignals(d.frame), {}};
    byTriggering_.insert(entry.triggering, nullptr, int32_t(at));
    frames_.push_back(std::move(entry));
  }
  // The frames' signals and their value texts first, in order: the
  // categories of a decoded log are the same whatever it holds.
  for (uint32_t f = 0; f < frames_.size(); ++f) {
    for (const LaidSignal& laid : frames_[f].signals) {
      frames_[f].slots.push_back(addSlot(int32_t(f), frames_[f].channelIndex, laid.signal));
      for (const q9tool::ValueText& text : q9tool::valueTexts(db, laid.signal)) textCode(text.text);
    }
  }
}

uint32_t Catalog::addSlot(int32_t frame, uint32_t channel, Q9DbNode* signal) {
  const void* owner = frame >= 0 ? static_cast<const void*>(frames_[size_t(frame)].triggering)
                                 : static_cast<const void*>(channels_[channel].node);
  const int32_t known = slotIndex_.find(owner, signal);
  if (known >= 0) return uint32_t(known);
  const auto at = uint32_t(slots_.size());
  slots_.push_back({frame, channel, signal, displayName(signal), signalUnit(signal)});
  slotIndex_.insert(owner, signal, int32_t(at));
  return at;
}

uint32_t Catalog::slotOf(int32_t frame, uint32_t channel, Q9DbNode* signal) {
  const void* owner = frame >= 0 ? static_cast<const void*>(frames_[size_t(frame)].triggering)
                                 : static_cast<const void*>(channels_[channel].node);
  const int32_t known = slotIndex_.find(owner, signal);
  return known >= 0 ? uint32_t(known) : addSlot(frame, channel, signal);
}

int32_t Catalog::textCode(std::string_view text) {
  auto found = textCodes_.find(std::string(text));
  if (found != textCodes_.end()) return found->second;
  const auto code = int32_t(texts_.size());
  texts_.emplace_back(text);
  textCodes_.emplace(texts_.back(), code);
  return code;
}

int32_t Catalog::textCode(Q9DbStringSlot* slot) {
  const int32_t known = textSlotIndex_.find(slot, nullptr);
  if (known >= 0) return known;
  const int32_t code = textCode(q9tool::slotText(db_, slot));
  textSlotIndex_.insert(slot, nullptr, code);
  return code;
}

}  // namespace q9py
