// Whole-frame decoding: a message into the caller's array of signal
// records, physical values converted, for clients that want every signal
// of a frame at once (the tool, language bindings) and would otherwise pay
// the walk's argument checks twice per signal. The arguments are checked
// here, once per message; the plans decode what they cover and the walk the
// rest.
#include "codec/WholeFrameDecoding.h"

namespace q9 {
namespace {

RecordsOutcome decodeOne(Q9DbNode* channel, const Q9DbMessage& m, uint32_t index, Q9DbSignalRecord* records,
                         uint32_t capacity, uint32_t& count) {
  const RecordsOutcome planned = decodeRecordsByPlans(*as<Channel>(channel), m, index, records, capacity, count);
  if (planned != RecordsOutcome::NeedsWalk) return planned;
  return decodeRecordsByWalk(channel, m, index, records, capacity, count);
}

}  // namespace
}  // namespace q9

using namespace q9;

extern "C" {

Q9DB_API HRESULT Q9Db_decodeFrame(Q9DbNode* channel, uint32_t identifier, uint32_t flags, uint64_t length,
                                  const uint8_t* payload, Q9DbSignalRecord* records, uint32_t capacity,
                                  uint32_t* count) {
  if (!count || !isExact<Channel>(channel) || (!payload && length) || (!records && capacity)) return E_INVALIDARG;
  const Q9DbMessage message{identifier, flags, length, payload};
  return decodeOne(channel, message, 0, records, capacity, *count) == RecordsOutcome::Written ? S_OK : S_FALSE;
}

Q9DB_API HRESULT Q9Db_decodeFrames(Q9DbNode* channel, const Q9DbMessage* messages, uint32_t messageCount,
                                   Q9DbSignalRecord* records, uint32_t capacity, uint32_t* decoded, uint32_t* count) {
  if (!decoded || !count || !isExact<Channel>(channel) || (!messages && messageCount) || (!records && capacity))
    return E_INVALIDARG;
  *decoded = 0;
  *count = 0;
  for (uint32_t i = 0; i < messageCount; ++i)
    if (!messages[i].payload && messages[i].length) return E_INVALIDARG;
  for (uint32_t i = 0; i < messageCount; ++i) {
    uint32_t written = 0;
    if (decodeOne(channel, messages[i], i, records + *count, capacity - *count, written) != RecordsOutcome::Written) {
      // Only whole messages count; one that can't fit even alone is an error.
      return *decoded == 0 ? E_INVALIDARG : S_FALSE;
    }
    *count += written;
    ++*decoded;
  }
  return S_OK;
}

}  // extern "C"
