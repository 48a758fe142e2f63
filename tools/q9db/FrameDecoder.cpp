// A frame is tried as logged, then at the length its padding hides, then by
// parameter group; only when all fail is a described frame of the identifier
// sought to say why. Whole-frame records are used only when they tell all
// that the walk would write; otherwise the walk decodes the frame.
#include "FrameDecoder.h"

#include <cmath>

#include "LogLine.h"
#include "Nodes.h"

namespace q9tool {
namespace {

// Room for the records of a frame on one channel; a frame with more signals
// is walked.
constexpr uint32_t kRecordRoom = 1024;
// A double below this prints as the integer it may stand for; one above may
// be an integer of more digits than a double prints, and is asked for in its
// own type.
constexpr double kPrintedAlike = 1e15;

}  // namespace

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
      walk_(std::make_unique<Q9DbDecodeEnum>()), records_(kRecordRoom) {}

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

void FrameDecoder::writeRecord(const Q9DbSignalRecord& record) {
  if (!(std::fabs(record.physical) < kPrintedAlike)) {
    // No value converted, or one that may print otherwise in its own type.
    Q9DbDecodedSignal decoded{};
    decoded.signal = record.signal;
    decoded.value = record.raw;
    writeSignal(Q9_NUMERICSIGNAL, decoded);
    return;
  }
  const SignalInfo& info = signalInfo(record.signal);
  SignalValue value{info.name, {}, true, info.unit, {}};
  Q9DbPhysicalValue physical{};
  physical.valueType = Q9_VALUETYPE_DOUBLE;
  physical.value.d = record.physical;
  // A whole number prints as its integer, which is the cheaper to print;
  // a single's shortest form may be another.
  const auto whole = static_cast<int64_t>(record.physical);
  if (!info.single && static_cast<double>(whole) == record.physical) {
    physical.valueType = Q9_VALUETYPE_INT64;
    physical.value.i = whole;
  }
  char number[40];
  bool finite = true;
  value.value = formatPhysical(physical, number, finite, info.single);
  if (record.text) value.text = textOf(record.text);
  writer_.signal(value);
}

void FrameDecoder::writeRecords(const CanFrame& frame, Q9DbNode* named, const Q9DbSignalRecord* first,
                                const Q9DbSignalRecord* end) {
  if (!frameShown(named)) return;
  // With a signal filter, a frame is written once a signal of it is.
  bool selecting = settings_.filter.selectsSignals();
  bool begun = !selecting;
  if (begun) writer_.beginFrame(frame, nameOf(named));
  for (const Q9DbSignalRecord* r = first; r != end; ++r) {
    if (selecting && !signalInfo(r->signal).shown) continue;
    if (!begun) writer_.beginFrame(frame, nameOf(named));
    begun = true;
    writeRecord(*r);
  }
  if (begun) writer_.endFrame();
}

// False, with nothing written, where the records don't tell all the walk
// would write: none (a frame without signals is still written), a text (its
// bytes come from the walk), more than the room, or a triggering that
// shares its messages with another.
bool FrameDecoder::decodeByRecords(const CanFrame& frame, uint32_t identifier, size_t length, Q9DbNode* channel) {
  uint32_t count = 0;
  HRESULT hr = Q9Db_decodeFrame(channel, identifier, frame.flags, length, frame.data, records_.data(), kRecordRoom, &count);
  if (hr != S_OK || count == 0) return false;
  const Q9DbSignalRecord* first = records_.data();
  const Q9DbSignalRecord* end = first + count;
  Q9DbNode* triggering = first->triggering;
  if (!triggering) return false;
  const TriggeringInfo& info = triggerings_.get(triggering, [&](Q9DbNode* t) {
    Q9DbNode* frameNode = nullptr;
    Q9Db_getFrame(t, &frameNode);
    return TriggeringInfo{channel, frameNode, described_.takesAlone(t, channel)};
  });
  if (!info.alone || info.channel != channel || !info.frame) return false;
  // The triggering's records, then those of the channel's own PDUs.
  const Q9DbSignalRecord* own = first;
  for (; own != end && own->triggering == triggering; ++own)
    if (own->kind != Q9_NUMERICSIGNAL) return false;
  for (const Q9DbSignalRecord* r = own; r != end; ++r)
    if (r->triggering || r->kind != Q9_NUMERICSIGNAL) return false;
  writeRecords(frame, info.frame, first, own);
  if (own != end) writeRecords(frame, channel, own, end);
  return true;
}

bool FrameDecoder::walk(const CanFrame& frame, uint32_t identifier, size_t length, Q9DbNode* channel) {
  bool matched = false;
  bool selecting = settings_.filter.selectsSignals();
  Q9DbDecodeEnum* walk = walk_.get();
  if (Q9Db_decodeMessage(channel, identifier, frame.flags, length, frame.data, &walk) != S_OK) return false;
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
  return matched;
}

bool FrameDecoder::decodeAs(const CanFrame& frame, uint32_t identifier, size_t length,
                            const std::vector<Q9DbNode*>& channels) {
  bool matched = false;
  for (Q9DbNode* channel : channels)
    if (decodeByRecords(frame, identifier, length, channel) || walk(frame, identifier, length, channel)) matched = true;
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
