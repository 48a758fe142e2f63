// What the extension knows of a database's networks, worked out after each
// import: the channels, every frame triggering with its identifier, and a
// slot per frame and signal (a decoded row of a log names its slot, and the
// Python side names the slot's frame, signal and unit once, not per row),
// and the texts values can have. Decoding and encoding look things up here
// instead of walking the nodes per frame.
#ifndef Q9DB_PYTHON_CATALOG_H
#define Q9DB_PYTHON_CATALOG_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "DescribedFrames.h"
#include "PointerIndex.h"
#include "Q9Db.h"
#include "SignalLayout.h"

namespace q9py {

struct ChannelEntry {
  Q9DbNode* node;
  std::string name;
  int32_t clusterType;  // Q9_CLUSTERTYPE_...
};

// A frame as the tool's index describes it, with what the package adds.
struct FrameEntry : q9tool::DescribedFrame {
  Q9DbNode* triggering;
  uint32_t channelIndex;  // among the catalog's channels
  std::vector<LaidSignal> signals;
  std::vector<uint32_t> slots;  // beside signals
};

// A signal as one frame carries it.
struct SlotEntry {
  int32_t frame;  // index among the frames; -1: a channel's own PDU instances
  uint32_t channel;
  Q9DbNode* signal;
  std::string name;
  std::string unit;
};

class Catalog {
 public:
  void build(Q9DbNode* db);

  const std::vector<ChannelEntry>& channels() const { return channels_; }
  const std::vector<FrameEntry>& frames() const { return frames_; }
  const std::vector<SlotEntry>& slots() const { return slots_; }
  const std::vector<std::string>& texts() const { return texts_; }

  // The frame of a triggering, or -1.
  int32_t frameOf(const Q9DbNode* triggering) const { return byTriggering_.find(triggering, nullptr); }
  // The slot of signal as decoded in frame (-1: on channel's own PDU
  // instances); a signal the frame's walk didn't list gets a new slot.
  uint32_t slotOf(int32_t frame, uint32_t channel, Q9DbNode* signal);
  // The code of a text among texts(); new texts are added.
  int32_t textCode(Q9DbStringSlot* slot);
  int32_t textCode(std::string_view text);

  // Calls visit(index) for each frame described with identifier as a
  // standard (extended false) or extended one; masked triggerings whose
  // code and mask take it too. The tool's index finds them, so both find
  // the same frames.
  template <typename Visit>
  void forFramesWith(uint32_t identifier, bool extended, Visit visit) const {
    if (!index_) return;
    for (const q9tool::DescribedFrame* found : index_->find(identifier, extended)) visit(uint32_t(index_->indexOf(found)));
  }

 private:
  uint32_t addSlot(int32_t frame, uint32_t channel, Q9DbNode* signal);

  Q9DbNode* db_ = nullptr;
  std::vector<ChannelEntry> channels_;
  std::vector<FrameEntry> frames_;
  std::vector<SlotEntry> slots_;
  std::vector<std::string> texts_;
  std::unordered_map<std::string, int32_t> textCodes_;
  PointerIndex byTriggering_;
  PointerIndex slotIndex_;     // (triggering or channel, signal) -> slot
  PointerIndex textSlotIndex_;  // (text slot, null) -> text code
  std::optional<q9tool::DescribedFrames> index_;  // frames_ at the same places
};

}  // namespace q9py

#endif
