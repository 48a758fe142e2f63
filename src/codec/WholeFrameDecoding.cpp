// Whole-frame decoding: a message into the caller's array of signal
// records, physical values converted, for clients that want every signal
// of a frame at once (the tool, language bindings) and would otherwise pay
// the walk's argument checks twice per signal.
#include <cmath>
#include <limits>

#include "Q9Db.h"

namespace {

constexpr double kNoValue = std::numeric_limits<double>::quiet_NaN();

double asDouble(const Q9DbPhysicalValue& value) {
  switch (value.valueType) {
    case Q9_VALUETYPE_DOUBLE: return value.value.d;
    case Q9_VALUETYPE_UINT64: return static_cast<double>(value.value.u);
    case Q9_VALUETYPE_INT64: return static_cast<double>(value.value.i);
    default: return kNoValue;
  }
}

// The records of one message from records[0]; false when they didn't all
// fit, count then being capacity.
bool decodeOne(Q9DbNode* channel, const Q9DbMessage& m, uint32_t index, Q9DbSignalRecord* records, uint32_t capacity,
               uint32_t& count) {
  count = 0;
  Q9DbDecodeEnum walk;  // the stack form: its buffers are set up as they are used
  Q9DbDecodeEnum* handle = &walk;
  walk.magic = 0;
  if (Q9Db_decodeMessage(channel, m.identifier, m.flags, m.length, m.payload, &handle) != S_OK) return true;
  char text[8];  // a text's bytes are not kept: the record tells its kind
  Q9DbDecodedSignal decoded{};
  decoded.textBuffer = text;
  decoded.textCapacity = sizeof text;
  for (HRESULT step; (step = Q9Db_decodeNextFrametriggering(&walk, nullptr)) >= 0;) {
    HRESULT kind;
    while ((kind = Q9Db_decodeNextSignal(&walk, nullptr, &decoded)) >= 0) {
      if (count == capacity) return false;
      Q9DbSignalRecord& r = records[count++];
      r.triggering = decoded.triggering;
      r.instance = decoded.instance;
      r.signal = decoded.signal;
      r.raw = decoded.value;
      r.physical = kNoValue;
      r.text = nullptr;
      r.kind = static_cast<uint32_t>(kind);
      r.message = index;
      Q9DbPhysicalValue physical{};
      if (kind == Q9_NUMERICSIGNAL && Q9Db_internalToPhysical(decoded.signal, decoded.value, &physical) == S_OK) {
        r.physical = asDouble(physical);
        r.text = physical.text;
      }
    }
    if (step == S_FALSE) break;  // the channel's own PDU instances were the last stage
  }
  return true;
}

bool isChannel(Q9DbNode* node) { return node && Q9Db_getNodeType(node) == Q9_NODETYPE_Channel; }

}  // namespace

extern "C" {

Q9DB_API HRESULT Q9Db_decodeFrame(Q9DbNode* channel, uint32_t identifier, uint32_t flags, uint64_t length,
                                  const uint8_t* payload, Q9DbSignalRecord* records, uint32_t capacity,
                                  uint32_t* count) {
  if (!count || !isChannel(channel) || (!payload && length) || (!records && capacity)) return E_INVALIDARG;
  const Q9DbMessage message{identifier, flags, length, payload};
  return decodeOne(channel, message, 0, records, capacity, *count) ? S_OK : S_FALSE;
}

Q9DB_API HRESULT Q9Db_decodeFrames(Q9DbNode* channel, const Q9DbMessage* messages, uint32_t messageCount,
                                   Q9DbSignalRecord* records, uint32_t capacity, uint32_t* decoded,
                                   uint32_t* count) {
  if (!decoded || !count || !isChannel(channel) || (!messages && messageCount) || (!records && capacity))
    return E_INVALIDARG;
  *decoded = 0;
  *count = 0;
  for (uint32_t i = 0; i < messageCount; ++i)
    if (!messages[i].payload && messages[i].length) return E_INVALIDARG;
  for (uint32_t i = 0; i < messageCount; ++i) {
    uint32_t written = 0;
    if (!decodeOne(channel, messages[i], i, records + *count, capacity - *count, written)) {
      // Only whole messages count; one that can't fit even alone is an error.
      return *decoded == 0 ? E_INVALIDARG : S_FALSE;
    }
    *count += written;
    ++*decoded;
  }
  return S_OK;
}

}  // extern "C"
