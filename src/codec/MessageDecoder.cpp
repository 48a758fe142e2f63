// The message decoder: matches a received message to the frame triggerings
// of its channel and walks the PDUs of each match down to the signal
// instances, one signal per call. All state lives in the Q9DbDecodeEnum, so
// a walk allocates nothing.
//
// A signal instance that cannot be read from this message (no signal or
// coding, a field outside its source, text without a buffer, a failing
// filter) is passed over alone; the instances after it are still decoded.
//
// A triggering found through the channel's index is walked by its compiled
// plan (DecodePlan.h) when there is one; the plan gives what the walk over
// the nodes would give, in the same order.
#include <algorithm>
#include <cstddef>
#include <cstring>

#include "codec/DecodePlan.h"
#include "codec/DecodeSources.h"
#include "codec/LastDelivered.h"
#include "codec/ListWalk.h"
#include "codec/Multiplexer.h"
#include "codec/TriggeringCandidates.h"
#include "codec/WordRead.h"
#include "platform/Heap.h"

namespace q9 {
namespace {

constexpr uint32_t kDecodeMagic = fourCC("eDec");
constexpr uint32_t kDestroyedStamp = 0xDEADBEEF;

enum WalkState : uint32_t { kTriggerings = 0, kChannelPdus = 1, kFinished = 2 };

// Legitimate multiplexing stays far below this; it bounds the work that a
// database whose parts refer to each other can cause per PDU instance.
constexpr uint32_t kPushesPerPduInstance = 16 * Q9_DECODE_STACK_DEPTH;

Q9DbDecodeEnum* checked(Q9DbDecodeEnum* e) {
  return e && e->magic == kDecodeMagic && e->depth <= Q9_DECODE_STACK_DEPTH ? e : nullptr;
}

// Identifier (exact or masked), frame type, CAN FD flag and exact length.
bool matches(const Q9DbDecodeEnum& e, const void* node) {
  const FrameTriggering* t = nullptr;
  if (isExact<IdentifierBasedTriggering>(node)) {
    const auto* byIdentifier = as<IdentifierBasedTriggering>(node);
    if (byIdentifier->identifier != e.identifier) return false;
    t = byIdentifier;
  } else if (isExact<MaskedIdentifierTriggering>(node)) {
    const auto* masked = as<MaskedIdentifierTriggering>(node);
    if ((e.identifier & masked->mask) != masked->code) return false;
    t = masked;
  } else {
    return false;
  }
  const bool eitherType = (t->flags & Q9_FLAGMASK_CAN_FRAMETYPE) == Q9_FLAG_CANSTD_OR_EXT;
  if (!eitherType && ((t->flags ^ e.flags) & Q9_FLAG_CANEXTENDED)) return false;
  if ((t->flags ^ e.flags) & Q9_FLAG_CANFD_FRAME) return false;
  if (!isExact<Frame>(t->reference)) return false;
  const int32_t length = as<Frame>(t->reference)->length;
  return length >= 0 && uint64_t(length) == e.length;
}

void clearStack(Q9DbDecodeEnum& e) {
  e.depth = 0;
  endWalk(e.instanceWalk);
}

// Starts the stack with the PDU that a PDU instance places in the payload.
void pushPduInstance(Q9DbDecodeEnum& e, const void* node) {
  if (!e.payload || !isExact<PDUInstance>(node)) return;
  const auto* instance = as<PDUInstance>(node);
  if (instance->bitpos < 0 || !isDecodablePdu(instance->reference)) return;
  Q9DbDecodeStackEntry& entry = e.stack[0];
  entry.expanded = 0;
  entry.pdu = reinterpret_cast<Q9DbNode*>(instance->reference);
  entry.bitOffset = uint32_t(instance->bitpos);
  entry.data = e.payload;
  e.depth = 1;
  e.pushBudget = kPushesPerPduInstance;
}

// Pops the finished entries and opens the top one; false once the stack is
// empty.
bool expandNext(Q9DbDecodeEnum& e) {
  while (e.depth > 0 && e.stack[e.depth - 1].expanded) --e.depth;
  if (e.depth == 0) return false;
  Q9DbDecodeStackEntry& top = e.stack[e.depth - 1];
  top.expanded = 1;
  if (isExact<SignalPDU>(top.pdu)) {
    startWalk(e.instanceWalk, as<SignalPDU>(top.pdu)->signalInstances);
  } else {
    endWalk(e.instanceWalk);
    pushMultiplexedParts(e, *as<MultiplexedPDU>(top.pdu));
  }
  return true;
}

bool passesFilter(const Q9DbFilter* filter, const Signal* signal, const SignalInstance* instance) {
  if (!filter) return true;
  HRESULT hr = Q9Db_filterNode(filter, signal);
  if (hr == S_FALSE) hr = Q9Db_filterNode(filter, instance);
  return hr == S_OK;
}

// Puts one signal instance's field into out with its kind; false when the
// instance is passed over.
bool deliver(const Q9DbDecodeEnum& e, const void* node, Q9DbDecodedSignal& out, HRESULT& kind) {
  if (!isExact<SignalInstance>(node) || e.depth == 0) return false;
  const auto* instance = as<SignalInstance>(node);
  if (!isExact<Signal>(instance->reference)) return false;
  const auto* signal = as<Signal>(instance->reference);
  if (!isExact<Coding>(signal->reference)) return false;
  const auto* coding = as<Coding>(signal->reference);
  if (!passesFilter(e.filter, signal, instance)) return false;

  if (instance->bitpos < 0 || coding->bitlen < 0) return false;
  const Q9DbDecodeStackEntry& top = e.stack[e.depth - 1];
  const BitSource src = entrySource(e, top);
  const uint64_t pos = uint64_t(instance->bitpos) + top.bitOffset;
  const int32_t bits = instance->byteOrder == Q9_BYTEORDER_BIGENDIAN ? -coding->bitlen : coding->bitlen;
  if (!readable(src, pos, bits)) return false;

  const bool text = coding->encoding == Q9_ENCODING_ASCII;
  if (text && !out.textBuffer) return false;
  out.value = 0;
  out.triggering = e.triggering;
  out.instance = reinterpret_cast<Q9DbNode*>(const_cast<SignalInstance*>(instance));
  out.signal = reinterpret_cast<Q9DbNode*>(const_cast<Signal*>(signal));
  if (text) {
    // Taken as a value image, so a big-endian text arrives last byte first.
    Q9bit_extract(reinterpret_cast<uint8_t*>(out.textBuffer), src.bytes, out.textCapacity, uint32_t(pos), bits);
    out.textLength = std::min(out.textCapacity, uint32_t(coding->bitlen / 8));
    kind = Q9_ASCIISIGNAL;
  } else {
    out.value = readFieldInside(src.bytes, src.size, pos, bits);
    out.textLength = 0;
    kind = Q9_NUMERICSIGNAL;
  }
  return true;
}

// Fills out with a planned numeric field's value.
inline void deliverValue(const Q9DbDecodeEnum& e, const PlannedField& f, uint64_t value, Q9DbDecodedSignal& out) {
  out.value = value;
  out.triggering = e.triggering;
  out.instance = reinterpret_cast<Q9DbNode*>(const_cast<ObjectBase*>(f.node));
  out.signal = reinterpret_cast<Q9DbNode*>(const_cast<Signal*>(f.signal));
  out.textLength = 0;
  if (f.conversion != Conversion::None) noteDelivered(f);
}

// Puts a planned field, read from source, into out with its kind; false when
// it is passed over.
bool deliverPlanned(const Q9DbDecodeEnum& e, const PlannedField& f, const uint8_t* source, Q9DbDecodedSignal& out,
                    HRESULT& kind) {
  if (e.filter && !passesFilter(e.filter, f.signal, as<SignalInstance>(f.node))) return false;
  switch (f.read) {
    case FieldRead::LittleWord:
    case FieldRead::BigWord: deliverValue(e, f, readPlannedWord(f, source), out); break;
    case FieldRead::Bytes: {
      const uint64_t size = entrySource(e, Q9DbDecodeStackEntry{0, nullptr, 0, source, {}}).size;
      deliverValue(e, f, readFieldInside(source, size, f.where.at.pos, f.where.at.bits), out);
      break;
    }
    default: {
      if (!out.textBuffer) return false;
      out.value = 0;
      out.triggering = e.triggering;
      out.instance = reinterpret_cast<Q9DbNode*>(const_cast<ObjectBase*>(f.node));
      out.signal = reinterpret_cast<Q9DbNode*>(const_cast<Signal*>(f.signal));
      // Taken as a value image, so a big-endian text arrives last byte first.
      Q9bit_extract(reinterpret_cast<uint8_t*>(out.textBuffer), source, out.textCapacity, f.where.at.pos,
                    f.where.at.bits);
      out.textLength = std::min(out.textCapacity, f.where.at.textBytes);
      kind = Q9_ASCIISIGNAL;
      return true;
    }
  }
  kind = Q9_NUMERICSIGNAL;
  return true;
}

// Where the fields of a part read, its image in the buffer of stack entry
// `entry`.
const uint8_t* partSource(Q9DbDecodeEnum& e, const PartPlan& part, uint32_t entry) {
  return plannedPartSource(part, e.stack[entry].buffer, e.payload, e.identifierImage);
}

// Starts the walk over a multiplexed PDU's parts: the static part's signals
// first, then those of the part the switch selects.
void startParts(Q9DbDecodeEnum& e, const MuxPlan& mux) {
  uint32_t code = 0;
  const PartPlan* selected =
      plannedSwitchCode(mux, e.payload, e.length, e.identifierImage, &code) ? selectedPart(mux, code) : nullptr;
  const PartPlan* first = mux.staticPart ? mux.staticPart : selected;
  if (!first) return startPartWalk(e.instanceWalk, nullptr, nullptr, nullptr);
  startPartWalk(e.instanceWalk, first, first == selected ? nullptr : selected, partSource(e, *first, 0));
}

enum class PlannedStep { Delivered, Pushed, Ended };

// The next field of a planned walk: a signal delivered into out, a
// multiplexed PDU instance pushed for the walk over the nodes, or the end.
PlannedStep nextPlanned(Q9DbDecodeEnum& e, Q9DbDecodedSignal& out, HRESULT& kind) {
  Q9DbCursor& parts = e.instanceWalk;
  Q9DbCursor& walk = e.pduWalk;
  for (;;) {
    if (const PlannedField* f = nextField(parts); f != endField(parts)) {
      setFields(parts, f + 1, endField(parts));
      if (deliverPlanned(e, *f, partSourceOf(parts), out, kind)) return PlannedStep::Delivered;
      continue;
    }
    if (const PartPlan* pending = pendingPart(parts)) {
      startPartWalk(parts, pending, nullptr, partSource(e, *pending, 1));
      continue;
    }
    const PlannedField* f = nextField(walk);
    if (f == endField(walk)) return PlannedStep::Ended;
    setFields(walk, f + 1, endField(walk));
    if (f->read == FieldRead::Pdu) {
      pushPduInstance(e, f->node);
      return PlannedStep::Pushed;
    }
    if (f->read == FieldRead::Mux) {
      startParts(e, *f->by.mux);
      continue;
    }
    if (deliverPlanned(e, *f, e.payload, out, kind)) return PlannedStep::Delivered;
  }
}

// The next signal of the PDU on the stack; false when the stack runs empty.
bool nextOfStack(Q9DbDecodeEnum& e, Q9DbDecodedSignal& out, HRESULT& kind) {
  for (;;) {
    void* node = nullptr;
    if (nextItem(e.instanceWalk, &node)) {
      if (deliver(e, node, out, kind)) return true;
    } else if (!expandNext(e)) {
      return false;
    }
  }
}

// Q9Db_decodeNextSignal in general.
__attribute__((noinline)) HRESULT nextSignal(Q9DbDecodeEnum* e, const Q9DbFilter* filter, Q9DbDecodedSignal* out) {
  if (!checked(e) || !out) return E_INVALIDARG;
  e->filter = filter;
  for (;;) {
    HRESULT kind = Q9_NUMERICSIGNAL;
    // An empty stack has no instance walk left; in a planned walk the
    // cursor then holds the walk over multiplexed parts, none yet.
    if (e->depth) {
      if (nextOfStack(*e, *out, kind)) return kind;
      if (isPlannedWalk(e->pduWalk)) endWalk(e->instanceWalk);
    }
    if (isPlannedWalk(e->pduWalk)) {
      const PlannedStep step = nextPlanned(*e, *out, kind);
      if (step == PlannedStep::Delivered) return kind;
      if (step == PlannedStep::Ended) return Q9_E_NOT_FOUND;
      continue;
    }
    void* node = nullptr;
    if (!nextItem(e->pduWalk, &node)) {
      if (e->state == kChannelPdus) e->state = kFinished;
      return Q9_E_NOT_FOUND;
    }
    pushPduInstance(*e, node);
  }
}

}  // namespace
}  // namespace q9

using namespace q9;

extern "C" {

Q9DB_API HRESULT Q9Db_decodeMessage(Q9DbNode* channel, uint32_t identifier, uint32_t flags, uint64_t length,
                                    const uint8_t* payload, Q9DbDecodeEnum** pEnum) {
  if (!pEnum || !isExact<Channel>(channel)) return E_INVALIDARG;
  Q9DbDecodeEnum* e = *pEnum;
  if (!e) {
    e = static_cast<Q9DbDecodeEnum*>(platform::heapAlloc(sizeof *e));
    if (!e) return E_INVALIDARG;
    *pEnum = e;
  }
  // Every field before the stack; stack entries are set up as they are
  // pushed, so 67 KB need no clearing per message.
  e->filter = nullptr;
  e->triggering = nullptr;
  endWalk(e->pduWalk);
  endWalk(e->instanceWalk);
  e->depth = 0;
  e->pushBudget = 0;
  e->magic = kDecodeMagic;
  e->channel = channel;
  e->state = kTriggerings;
  e->flags = flags;
  e->identifier = identifier;
  e->identifierImage = identifier << ((flags & Q9_FLAG_CANEXTENDED) ? 3 : 21);
  e->length = length;
  e->payload = payload;
  startCandidates(e->triggeringWalk, *as<Channel>(channel), identifier);
  return S_OK;
}

Q9DB_API HRESULT Q9Db_decodeNextFrametriggering(Q9DbDecodeEnum* e, Q9DbNode** outTriggering) {
  if (!checked(e)) return E_INVALIDARG;
  switch (e->state) {
    case kFinished: return Q9_E_NOT_FOUND;
    case kChannelPdus: return S_OK;
    case kTriggerings: break;
    default: return E_INVALIDARG;
  }
  // Signals left over from the previous triggering belong to it, not the next.
  clearStack(*e);
  Q9Db* db = as<Channel>(e->channel)->databaseRef;
  void* node = nullptr;
  const TriggeringIndexEntry* entry = nullptr;
  while (nextCandidate(e->triggeringWalk, e->identifier, &node, &entry)) {
    if (const TriggeringPlan* plan = entry ? planOf(db, *entry) : nullptr) {
      if (!planMatches(*plan, e->identifier, e->flags, e->length)) continue;
      // Without a payload no PDU instance is decoded.
      startPlannedWalk(e->pduWalk, *plan, e->payload != nullptr);
    } else {
      if (!matches(*e, node)) continue;
      startWalk(e->pduWalk, as<Frame>(as<FrameTriggering>(node)->reference)->PDUInstances);
    }
    e->triggering = static_cast<Q9DbNode*>(node);
    if (outTriggering) *outTriggering = e->triggering;
    return S_OK;
  }
  e->state = kChannelPdus;
  e->triggering = nullptr;
  if (outTriggering) *outTriggering = nullptr;
  startWalk(e->pduWalk, as<Channel>(e->channel)->PDUInstances);
  return S_FALSE;
}

Q9DB_API HRESULT Q9Db_decodeNextSignal(Q9DbDecodeEnum* e, const Q9DbFilter* filter, Q9DbDecodedSignal* out) {
  // The usual step, a word of a planned walk without a filter, takes no call.
  if (e && out && !filter && e->magic == kDecodeMagic && e->depth == 0 && isPlannedWalk(e->pduWalk)) {
    // Within a multiplexed PDU its parts' fields come first.
    Q9DbCursor* walk = &e->pduWalk;
    const uint8_t* source = e->payload;
    const bool inParts = nextField(e->instanceWalk) != endField(e->instanceWalk);
    if (inParts) {
      walk = &e->instanceWalk;
      source = partSourceOf(e->instanceWalk);
    }
    if (inParts || !pendingPart(e->instanceWalk)) {
      const PlannedField* f = nextField(*walk);
      if (f != endField(*walk) && f->read <= FieldRead::BigWord) {
        e->filter = nullptr;
        setFields(*walk, f + 1, endField(*walk));
        deliverValue(*e, *f, readPlannedWord(*f, source), *out);
        return Q9_NUMERICSIGNAL;
      }
      if (f == endField(*walk) && !inParts) {
        e->filter = nullptr;
        return Q9_E_NOT_FOUND;
      }
    }
  }
  // The usual end of a message: a channel without PDU instances of its own.
  if (e && out && e->magic == kDecodeMagic && e->depth == 0 && e->state == kChannelPdus &&
      e->pduWalk.layout == &childLayout && !e->pduWalk.block) {
    e->filter = filter;
    e->state = kFinished;
    return Q9_E_NOT_FOUND;
  }
  return nextSignal(e, filter, out);
}

Q9DB_API HRESULT Q9Db_getFrameTriggering(Q9DbDecodeEnum* e, Q9DbNode** out) {
  if (!checked(e) || !out) return E_INVALIDARG;
  *out = e->triggering;
  return e->triggering ? S_OK : S_FALSE;
}

Q9DB_API HRESULT Q9Db_destroyDecodeEnum(Q9DbDecodeEnum* e) {
  if (!e || e->magic != kDecodeMagic) return E_INVALIDARG;
  e->magic = kDestroyedStamp;
  platform::heapFree(e);
  return S_OK;
}

}  // extern "C"
