#include "FrameDecoder.h"

#include "Nodes.h"

namespace q9tool {

FrameDecoder::FrameDecoder(Q9DbNode* db, std::vector<Q9DbNode*> channels, FrameWriter& writer, bool showUnknown)
    : db_(db), channels_(std::move(channels)), writer_(writer), showUnknown_(showUnknown),
      walk_(std::make_unique<Q9DbDecodeEnum>()) {}

const std::string& FrameDecoder::nameOf(Q9DbNode* node) { return names_.get(node, displayName); }

const FrameDecoder::SignalInfo& FrameDecoder::signalInfo(Q9DbNode* signal) {
  return signals_.get(signal, [](Q9DbNode* node) {
    Q9DbNode* unit = nullptr;
    Q9Db_getUnit(node, &unit);  // the unit of the signal's coding
    Q9DbNode* coding = nullptr;
    uint32_t encoding = 0;
    int32_t length = 0;
    if (Q9Db_getReference(node, &coding) == S_OK && coding) {
      Q9Db_getEncoding(coding, &encoding);
      Q9Db_getBitLength(coding, &length);
    }
    bool single = (encoding & Q9_ENCODING_TYPEMASK) == Q9_ENCODING_IEEE && length == 32;
    return SignalInfo{displayName(node), unitName(unit), single};
  });
}

const std::string& FrameDecoder::textOf(Q9DbStringSlot* slot) {
  return texts_.get(slot, [this](Q9DbStringSlot* s) { return slotText(db_, s); });
}

void FrameDecoder::writeSignal(HRESULT kind, const Q9DbDecodedSignal& decoded) {
  const SignalInfo& info = signalInfo(decoded.signal);
  SignalValue value{info.name, {}, true, info.unit, {}};
  char number[40];
  if (kind == Q9_ASCIISIGNAL) {
    std::string_view text(textBuffer_, decoded.textLength);
    value.value = text.substr(0, text.find('\0'));  // texts are padded with zeros
    value.isNumber = false;
  } else {
    Q9DbPhysicalValue physical{};
    if (FAILED(Q9Db_internalToPhysical(decoded.signal, decoded.value, &physical))) {
      // An encoding the value rules can't read: show the raw value.
      physical.valueType = Q9_VALUETYPE_UINT64;
      physical.value.u = decoded.value;
      physical.text = nullptr;
    }
    bool finite = true;
    value.value = formatPhysical(physical, number, finite, info.single);
    if (!finite) {
      value.isNumber = false;
    }
    if (physical.text) value.text = textOf(physical.text);
  }
  writer_.signal(value);
}

bool FrameDecoder::decode(const CanFrame& frame) {
  bool matched = false;
  Q9DbDecodeEnum* walk = walk_.get();
  for (Q9DbNode* channel : channels_) {
    if (Q9Db_decodeMessage(channel, frame.identifier, frame.flags, frame.length, frame.data, &walk) != S_OK) continue;
    Q9DbNode* triggering = nullptr;
    for (HRESULT step; (step = Q9Db_decodeNextFrametriggering(walk, &triggering)) >= 0;) {
      Q9DbDecodedSignal decoded{};
      decoded.textCapacity = sizeof textBuffer_;
      decoded.textBuffer = textBuffer_;
      HRESULT kind = Q9Db_decodeNextSignal(walk, nullptr, &decoded);
      // A triggering opens a frame even without signals; the channel's own
      // PDUs only when they deliver something.
      if (step == S_FALSE && FAILED(kind)) break;
      Q9DbNode* frameNode = nullptr;
      if (step == S_OK) Q9Db_getFrame(triggering, &frameNode);
      writer_.beginFrame(frame, nameOf(frameNode ? frameNode : channel));
      matched = true;
      for (; SUCCEEDED(kind); kind = Q9Db_decodeNextSignal(walk, nullptr, &decoded)) writeSignal(kind, decoded);
      writer_.endFrame();
      if (step == S_FALSE) break;
    }
  }
  if (!matched && showUnknown_) writer_.unknownFrame(frame);
  return matched;
}

}  // namespace q9tool
