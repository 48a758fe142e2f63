#include "FrameDecoder.h"

#include "LogLine.h"
#include "Nodes.h"

namespace q9tool {

std::string describeMismatch(const CanFrame& frame, const Mismatch& mismatch) {
  const DescribedFrame& d = *mismatch.described;
  switch (mismatch.kind) {
    case Mismatch::Length:
      return std::to_string(frame.length) + " byte" + (frame.length == 1 ? "" : "s") + ", " + d.name + " has " +
             std::to_string(d.length);
    case Mismatch::LoggedAsFd: return "logged as CAN FD, " + d.name + " is a classic CAN frame";
    case Mismatch::LoggedAsClassic: return "logged as classic CAN, " + d.name + " is a CAN FD frame";
    case Mismatch::IdentifierType:
      return (frame.flags & Q9_FLAG_CANEXTENDED) ? "an extended identifier, " + d.name + " has a standard one"
                                                 : "a standard identifier, " + d.name + " has an extended one";
  }
  return {};
}

FrameDecoder::FrameDecoder(Q9DbNode* db, const DescribedFrames& described, FrameWriter& writer, DecoderSettings settings)
    : db_(db), described_(described), writer_(writer), settings_(std::move(settings)),
      walk_(std::make_unique<Q9DbDecodeEnum>()) {}

const std::string& FrameDecoder::nameOf(Q9DbNode* node) { return names_.get(node, displayName); }

bool FrameDecoder::frameShown(Q9DbNode* frame) {
  return framesShown_.get(frame, [this](Q9DbNode* node) { return settings_.filter.passesFrame(nameOf(node)); });
}

const FrameDecoder::SignalInfo& FrameDecoder::signalInfo(Q9DbNode* signal) {
  return signals_.get(signal, [this](Q9DbNode* node) {
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
    std::string name = displayName(node);
    bool shown = settings_.filter.passesSignal(name);
    return SignalInfo{std::move(name), unitName(unit), single, shown};
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
    if (!finite) value.isNumber = false;
    if (physical.text) value.text = textOf(physical.text);
  }
  writer_.signal(value);
}

bool FrameDecoder::decodeAs(const CanFrame& frame, uint32_t identifier, size_t length,
                            const std::vector<Q9DbNode*>& channels) {
  bool matched = false;
  bool selecting = settings_.filter.selectsSignals();
  Q9DbDecodeEnum* walk = walk_.get();
  for (Q9DbNode* channel : channels) {
    if (Q9Db_decodeMessage(channel, identifier, frame.flags, length, frame.data, &walk) != S_OK) continue;
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
      Q9DbNode* named = frameNode ? frameNode : channel;
      matched = true;
      if (frameShown(named)) {
        // With a signal filter, a frame is written once a signal of it is.
        bool begun = !selecting;
        if (begun) writer_.beginFrame(frame, nameOf(named));
        for (; SUCCEEDED(kind); kind = Q9Db_decodeNextSignal(walk, nullptr, &decoded)) {
          if (selecting && !signalInfo(decoded.signal).shown) continue;
          if (!begun) writer_.beginFrame(frame, nameOf(named));
          begun = true;
          writeSignal(kind, decoded);
        }
        if (begun) writer_.endFrame();
      }
      if (step == S_FALSE) break;
    }
  }
  return matched;
}

// A CAN FD frame of a length no DLC gives goes out padded to the next one.
const DescribedFrame* FrameDecoder::paddedFdFrame(const CanFrame& frame, const std::vector<Q9DbNode*>& channels) const {
  if (!(frame.flags & Q9_FLAG_CANFD_FRAME)) return nullptr;
  for (Q9DbNode* channel : channels)
    for (const DescribedFrame* d : described_.find(frame.identifier, frame.flags & Q9_FLAG_CANEXTENDED, channel))
      if (d->fd() && d->length >= 0 && size_t(d->length) < frame.length && canFdLength(size_t(d->length)) == frame.length)
        return d;
  return nullptr;
}

const DescribedFrame* FrameDecoder::parameterGroupFrame(const CanFrame& frame,
                                                        const std::vector<Q9DbNode*>& channels) const {
  if (!settings_.j1939 || !(frame.flags & Q9_FLAG_CANEXTENDED)) return nullptr;
  for (Q9DbNode* channel : channels)
    for (const DescribedFrame* d : described_.findParameterGroup(frame.identifier, channel))
      if (d->length >= 0 && size_t(d->length) == frame.length && d->fd() == bool(frame.flags & Q9_FLAG_CANFD_FRAME))
        return d;
  return nullptr;
}

bool FrameDecoder::findMismatch(const CanFrame& frame, const std::vector<Q9DbNode*>& channels, Mismatch& mismatch) const {
  bool extended = frame.flags & Q9_FLAG_CANEXTENDED;
  bool fd = frame.flags & Q9_FLAG_CANFD_FRAME;
  const DescribedFrame* otherType = nullptr;
  for (Q9DbNode* channel : channels) {
    for (const DescribedFrame* d : described_.find(frame.identifier, extended, channel)) {
      mismatch.described = d;
      mismatch.kind = d->fd() != fd ? (fd ? Mismatch::LoggedAsFd : Mismatch::LoggedAsClassic) : Mismatch::Length;
      return true;
    }
    if (!otherType) {
      std::vector<const DescribedFrame*> found = described_.find(frame.identifier, !extended, channel);
      if (!found.empty()) otherType = found.front();
    }
  }
  if (!otherType) return false;
  mismatch = {Mismatch::IdentifierType, otherType};
  return true;
}

Outcome FrameDecoder::decode(const CanFrame& frame, const std::vector<Q9DbNode*>& channels, Mismatch& mismatch) {
  if (!settings_.filter.passesIdentifier(frame.identifier)) return Outcome::Filtered;
  if (decodeAs(frame, frame.identifier, frame.length, channels)) return Outcome::Decoded;
  if (const DescribedFrame* d = paddedFdFrame(frame, channels))
    if (decodeAs(frame, frame.identifier, size_t(d->length), channels)) return Outcome::Decoded;
  if (const DescribedFrame* d = parameterGroupFrame(frame, channels))
    if (decodeAs(frame, d->identifier, frame.length, channels)) return Outcome::Decoded;
  if (findMismatch(frame, channels, mismatch)) return Outcome::NotDecoded;
  if (settings_.showUnknown && !settings_.filter.selectsSignals() && !settings_.filter.selectsFrames())
    writer_.unknownFrame(frame);
  return Outcome::Unknown;
}

}  // namespace q9tool
