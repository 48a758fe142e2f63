// The CAN frames a database describes, found by identifier: the decoder
// tells why a frame of a known identifier was not decoded, statistics
// compare what a capture holds with what was described, and J1939 traffic
// finds its frame by parameter group when the source address differs.
#ifndef Q9DB_TOOL_DESCRIBEDFRAMES_H
#define Q9DB_TOOL_DESCRIBEDFRAMES_H

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "FrameType.h"
#include "Q9Db.h"

namespace q9tool {

struct DescribedFrame {
  Q9DbNode* channel;
  Q9DbNode* frame;
  std::string name;
  uint32_t identifier;  // the code of a masked triggering
  uint32_t mask;        // all ones but for a masked triggering
  uint32_t flags;       // the triggering's Q9_FLAG_CAN... bits
  int32_t length;       // bytes
  uint64_t cycleMilliseconds;  // 0: not cyclic

  bool extended() const { return describedExtended(flags); }
  bool eitherType() const { return describedEitherType(flags); }
  bool fd() const { return flags & Q9_FLAG_CANFD_FRAME; }
};

// The parameter group of a J1939 identifier: priority and source address
// left out, and the destination address too where the format carries one
// (PDU1, a PDU format below 240).
uint32_t j1939ParameterGroup(uint32_t identifier);

class DescribedFrames {
 public:
  explicit DescribedFrames(const std::vector<Q9DbNode*>& channels);

  // The frames described with identifier as a standard (extended false) or
  // an extended one, on channel (null: on any of the channels).
  std::vector<const DescribedFrame*> find(uint32_t identifier, bool extended, Q9DbNode* channel = nullptr) const;
  // The extended frames of the parameter group of identifier, on channel.
  std::vector<const DescribedFrame*> findParameterGroup(uint32_t identifier, Q9DbNode* channel = nullptr) const;
  // Whether a message that the triggering (by identifier) takes on channel
  // can be taken by no other triggering of the channel, nor by this one
  // twice.
  bool takesAlone(Q9DbNode* triggering, Q9DbNode* channel) const;

  const std::vector<DescribedFrame>& all() const { return frames_; }
  // The triggering of all()[at].
  Q9DbNode* triggering(size_t at) const { return triggerings_[at]; }
  // The place in all() of a frame find() answered.
  size_t indexOf(const DescribedFrame* frame) const { return size_t(frame - frames_.data()); }

 private:
  static uint64_t key(uint32_t identifier, bool extended) { return uint64_t(identifier) << 1 | (extended ? 1 : 0); }
  std::vector<DescribedFrame> frames_;
  std::vector<Q9DbNode*> triggerings_;  // of frames_, at the same places
  std::unordered_map<uint64_t, std::vector<size_t>> byIdentifier_;
  std::unordered_map<uint32_t, std::vector<size_t>> byParameterGroup_;
  std::vector<size_t> masked_;
};

// The cycle of the first PDU of the frame that has one, in milliseconds.
uint64_t frameCycleTime(Q9DbNode* frame);

}  // namespace q9tool

#endif
