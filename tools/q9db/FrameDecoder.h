// Decodes frames of a capture on the CAN channels of a database and hands
// the results to a FrameWriter. Names, units and value texts are converted
// once per node and kept, so a frame costs no allocation.
#ifndef Q9DB_TOOL_FRAMEDECODER_H
#define Q9DB_TOOL_FRAMEDECODER_H

#include <memory>
#include <string>
#include <vector>

#include "FrameLine.h"
#include "FrameWriter.h"
#include "NodeCache.h"
#include "Q9Db.h"

namespace q9tool {

class FrameDecoder {
 public:
  FrameDecoder(Q9DbNode* db, std::vector<Q9DbNode*> channels, FrameWriter& writer, bool showUnknown);

  // False when no frame of the database matched.
  bool decode(const CanFrame& frame);

 private:
  struct SignalInfo {
    std::string name;
    std::string unit;
    bool single;  // an IEEE single in the frame
  };
  const std::string& nameOf(Q9DbNode* node);
  const SignalInfo& signalInfo(Q9DbNode* signal);
  const std::string& textOf(Q9DbStringSlot* slot);
  void writeSignal(HRESULT kind, const Q9DbDecodedSignal& decoded);

  Q9DbNode* db_;
  std::vector<Q9DbNode*> channels_;
  FrameWriter& writer_;
  bool showUnknown_;
  std::unique_ptr<Q9DbDecodeEnum> walk_;  // the walk in our own memory: nothing allocated per frame
  char textBuffer_[256];
  NodeCache<Q9DbNode, std::string> names_;
  NodeCache<Q9DbNode, SignalInfo> signals_;
  NodeCache<Q9DbStringSlot, std::string> texts_;
};

}  // namespace q9tool

#endif
