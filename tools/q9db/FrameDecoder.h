// Decodes frames of a capture on the CAN channels of a database and hands
// the results to a FrameWriter; a frame of a known identifier that can't be
// decoded comes back with the reason. A channel's signals come from one
// whole-frame call where its records tell all that is to be written, else
// from the walk. Names, units, value texts and filter answers are worked
// out once per node and kept, so a frame costs no allocation.
#ifndef Q9DB_TOOL_FRAMEDECODER_H
#define Q9DB_TOOL_FRAMEDECODER_H

#include <memory>
#include <string>
#include <vector>

#include "DescribedFrames.h"
#include "FrameFilter.h"
#include "FrameLine.h"
#include "FrameWriter.h"
#include "NodeCache.h"
#include "Q9Db.h"

namespace q9tool {

struct DecoderSettings {
  bool showUnknown = false;
  bool j1939 = false;  // an extended frame unknown by identifier is looked up by parameter group
  FrameFilter filter;
};

enum class Outcome {
  Decoded,     // written (or all its signals filtered out)
  Filtered,    // left out by the identifier filter
  Unknown,     // no frame of this identifier is described on the channels
  NotDecoded,  // described, but the frame doesn't fit the description: see Mismatch
};

struct Mismatch {
  enum Kind { Length, LoggedAsFd, LoggedAsClassic, IdentifierType } kind;
  const DescribedFrame* described;
};
// "2 bytes, EngineStatus has 8" and the like.
std::string describeMismatch(const CanFrame& frame, const Mismatch& mismatch);

class FrameDecoder {
 public:
  FrameDecoder(Q9DbNode* db, const DescribedFrames& described, FrameWriter& writer, DecoderSettings settings);

  // Decodes frame on channels; mismatch is set for NotDecoded.
  Outcome decode(const CanFrame& frame, const std::vector<Q9DbNode*>& channels, Mismatch& mismatch);

 private:
  struct SignalInfo {
    std::string name;
    std::string unit;
    bool single;  // an IEEE single in the frame
    bool shown;   // passes the signal filter
  };
  const std::string& nameOf(Q9DbNode* node);
  bool frameShown(Q9DbNode* frame);
  const SignalInfo& signalInfo(Q9DbNode* signal);
  // A triggering whose records tell all: it alone takes its messages on
  // channel, and its frame.
  struct TriggeringInfo {
    Q9DbNode* channel;
    Q9DbNode* frame;
    bool alone;
  };
  const std::string& textOf(Q9DbStringSlot* slot);
  void writeSignal(HRESULT kind, const Q9DbDecodedSignal& decoded);
  void writeRecord(const Q9DbSignalRecord& record);
  bool decodeAs(const CanFrame& frame, uint32_t identifier, size_t length, const std::vector<Q9DbNode*>& channels);
  bool decodeByRecords(const CanFrame& frame, uint32_t identifier, size_t length, Q9DbNode* channel);
  void writeRecords(const CanFrame& frame, Q9DbNode* named, const Q9DbSignalRecord* first,
                    const Q9DbSignalRecord* end);
  bool walk(const CanFrame& frame, uint32_t identifier, size_t length, Q9DbNode* channel);
  bool findMismatch(const CanFrame& frame, const std::vector<Q9DbNode*>& channels, Mismatch& mismatch) const;
  const DescribedFrame* paddedFdFrame(const CanFrame& frame, const std::vector<Q9DbNode*>& channels) const;
  const DescribedFrame* parameterGroupFrame(const CanFrame& frame, const std::vector<Q9DbNode*>& channels) const;

  Q9DbNode* db_;
  const DescribedFrames& described_;
  FrameWriter& writer_;
  DecoderSettings settings_;
  std::unique_ptr<Q9DbDecodeEnum> walk_;  // the walk in our own memory: nothing allocated per frame
  char textBuffer_[256];
  std::vector<Q9DbSignalRecord> records_;
  NodeCache<Q9DbNode, TriggeringInfo> triggerings_;
  NodeCache<Q9DbNode, std::string> names_;
  NodeCache<Q9DbNode, bool> framesShown_;
  NodeCache<Q9DbNode, SignalInfo> signals_;
  NodeCache<Q9DbStringSlot, std::string> texts_;
};

}  // namespace q9tool

#endif
