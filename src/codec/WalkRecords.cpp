// Signal records by the walk, a client of the public calls like any other:
// the reference that the planned way is checked against, and the way for
// whatever the plans leave to the nodes.
#include "codec/WholeFrameDecoding.h"

namespace q9 {
namespace {

// The walk lives on the stack: its record is large, but a stack entry is
// touched only when it is pushed. Out of line, so that callers that don't
// walk don't pay for the frame.
struct StackWalk {
  Q9DbDecodeEnum record;
  Q9DbDecodeEnum* handle = &record;
  // A text's bytes are not kept: the record tells its kind, and a client
  // that wants the text walks.
  char text[8];
  Q9DbDecodedSignal decoded{};

  bool start(Q9DbNode* channel, const Q9DbMessage& m) {
    record.magic = 0;
    decoded.textBuffer = text;
    decoded.textCapacity = sizeof text;
    return Q9Db_decodeMessage(channel, m.identifier, m.flags, m.length, m.payload, &handle) == S_OK;
  }

  // The signals of the current stage behind records[count]; false when
  // they didn't all fit.
  bool drain(uint32_t index, Q9DbSignalRecord* records, uint32_t capacity, uint32_t& count) {
    HRESULT kind;
    while ((kind = Q9Db_decodeNextSignal(&record, nullptr, &decoded)) >= 0) {
      if (count == capacity) return false;
      Q9DbSignalRecord& r = records[count++];
      r.triggering = decoded.triggering;
      r.instance = decoded.instance;
      r.signal = decoded.signal;
      r.raw = decoded.value;
      r.physical = kNoPhysicalValue;
      r.text = nullptr;
      r.kind = uint32_t(kind);
      r.message = index;
      Q9DbPhysicalValue physical;
      if (kind == Q9_NUMERICSIGNAL && Q9Db_internalToPhysical(decoded.signal, decoded.value, &physical) == S_OK) {
        r.physical = physicalAsDouble(physical);
        r.text = physical.text;
      }
    }
    return true;
  }
};

}  // namespace

__attribute__((noinline)) RecordsOutcome decodeRecordsByWalk(Q9DbNode* channel, const Q9DbMessage& m, uint32_t index,
                                                             Q9DbSignalRecord* records, uint32_t capacity,
                                                             uint32_t& count) {
  count = 0;
  StackWalk walk;
  if (!walk.start(channel, m)) return RecordsOutcome::Written;
  for (HRESULT stage; (stage = Q9Db_decodeNextFrametriggering(&walk.record, nullptr)) >= 0;) {
    if (!walk.drain(index, records, capacity, count)) return RecordsOutcome::Cut;
    if (stage == S_FALSE) break;  // the channel's own PDU instances were the last stage
  }
  return RecordsOutcome::Written;
}

__attribute__((noinline)) RecordsOutcome appendChannelRecordsByWalk(Q9DbNode* channel, const Q9DbMessage& m,
                                                                    uint32_t index, Q9DbSignalRecord* records,
                                                                    uint32_t capacity, uint32_t& count) {
  StackWalk walk;
  if (!walk.start(channel, m)) return RecordsOutcome::Written;
  // Past the triggerings without walking their signals.
  HRESULT stage;
  while ((stage = Q9Db_decodeNextFrametriggering(&walk.record, nullptr)) == S_OK) {
  }
  if (stage != S_FALSE) return RecordsOutcome::Written;
  return walk.drain(index, records, capacity, count) ? RecordsOutcome::Written : RecordsOutcome::Cut;
}

}  // namespace q9
