#include "codec/DecodePlan.h"

#include "codec/LastDelivered.h"

#include "codec/BitField.h"
#include "codec/Multiplexer.h"

namespace q9 {

__thread LastDelivered lastDelivered;

namespace {

// Calls visit with each item of the list until it answers false; false then.
template <typename Visit>
bool forEachItem(const PagedList& list, Visit visit) {
  Block* b = list.head;
  if (!b) return true;
  do {
    for (uint64_t i = 0; i < b->count; ++i)
      if (!visit(static_cast<const ObjectBase*>(b->pointers()[i]))) return false;
    b = b->next;
  } while (b != list.head);
  return true;
}

// A plan is taken away by the changes to its own database only, so it may
// hold nothing of another's.
bool ownedBy(const void* node, const Q9Db* db) { return as<DatabaseRef>(node)->databaseRef == db; }

// A signal instance that the walk over the nodes would deliver from a
// payload of the frame's length: its nodes and its field.
struct Deliverable {
  const SignalInstance* instance;
  const Signal* signal;
  Coding* coding;
  uint64_t pos;
  int32_t bits;
};

// Calls pdu(instance) for each PDU instance of a multiplexed PDU and
// signal(deliverable) for each signal of the plain ones, in walk order;
// what the walk would pass over in any message of this length is left out.
// False when the frame reaches into another database.
template <typename OnPdu, typename OnSignal>
bool walkFrame(const Q9Db* db, const Frame& frame, uint64_t length, OnPdu pdu, OnSignal signal) {
  if (!ownedBy(&frame, db)) return false;
  return forEachItem(frame.PDUInstances, [&](const ObjectBase* item) {
    if (!isExact<PDUInstance>(item)) return true;
    const auto* placement = as<PDUInstance>(item);
    if (!ownedBy(placement, db)) return false;
    if (placement->bitpos < 0 || !isDecodablePdu(placement->reference)) return true;
    if (!ownedBy(placement->reference, db)) return false;
    if (isExact<MultiplexedPDU>(placement->reference)) {
      pdu(placement);
      return true;
    }
    const uint64_t offset = uint64_t(placement->bitpos);
    return forEachItem(as<SignalPDU>(placement->reference)->signalInstances, [&](const ObjectBase* node) {
      if (!isExact<SignalInstance>(node)) return true;
      const auto* instance = as<SignalInstance>(node);
      if (!ownedBy(instance, db)) return false;
      if (!isExact<Signal>(instance->reference)) return true;
      const auto* s = as<Signal>(instance->reference);
      if (!ownedBy(s, db)) return false;
      if (!isExact<Coding>(s->reference)) return true;
      auto* coding = as<Coding>(s->reference);
      if (!ownedBy(coding, db)) return false;
      if (instance->bitpos < 0 || coding->bitlen < 0) return true;
      const uint64_t pos = uint64_t(instance->bitpos) + offset;
      const int32_t bits = instance->byteOrder == Q9_BYTEORDER_BIGENDIAN ? -coding->bitlen : coding->bitlen;
      if (pos > UINT32_MAX || fieldEndByte(pos, bits) > length) return true;
      signal(Deliverable{instance, s, coding, pos, bits});
      return true;
    });
  });
}

// How the general read (readFieldInside) would take the field out of a
// payload of this length: as one load, shift and mask where it can.
void chooseRead(PlannedField& f, uint64_t pos, int32_t signedBits, uint64_t length) {
  f.read = FieldRead::Bytes;
  f.where.at.pos = uint32_t(pos);
  f.where.at.bits = signedBits;
  const uint64_t bits = fieldLength(signedBits);
  if (bits == 0 || bits > 64 || length < 8 || length - 8 > UINT16_MAX) return;
  uint64_t base, shift;
  if (signedBits > 0) {
    const uint64_t first = pos / 8;
    shift = pos % 8;
    if (shift + bits > 64) return;
    base = first + 8 <= length ? first : length - 8;
    shift += 8 * (first - base);
    f.read = FieldRead::LittleWord;
  } else {
    const uint64_t lsbWalk = (pos ^ 7) + bits - 1;
    const uint64_t lsbByte = lsbWalk / 8;
    shift = 7 - lsbWalk % 8;
    if (shift + bits > 64) return;
    const uint64_t top = lsbByte >= 7 ? lsbByte : 7;
    base = top - 7;
    shift += 8 * (top - lsbByte);
    f.read = FieldRead::BigWord;
  }
  f.wordBase = uint16_t(base);
  f.up = uint8_t(64 - shift - bits);
  f.down = uint8_t(64 - bits);
}

// Keeps the conversion in a word-read field (whose length, 1 to 64 bits, is
// the coding's) when the coding is plain unsigned or two's complement with at
// most one computation of one range; false otherwise.
bool keepConversion(PlannedField& f, const Coding& coding) {
  const uint32_t type = coding.encoding & Q9_ENCODING_TYPEMASK;
  if (type == Q9_ENCODING_DIRECT && !(coding.encoding & Q9_ENCODING_SIGNED))
    f.conversion = Conversion::Unsigned;
  else if (type == Q9_ENCODING_2COMPL)
    f.conversion = Conversion::TwosComplement;
  else
    return false;
  uint64_t steps = 0, ranges = 0;
  const Computation* only = nullptr;
  forEachComputation(coding.internalToPhysicalCompus, [&](const Computation& c) {
    ++steps;
    only = &c;
    forEachRange(c, [&](const ValueRange& r) {
      if (++ranges > 1) return;
      f.where.range = {r.lowerLimit, r.upperLimit};
      // The range test looks at the two closed bits alone.
      f.rangeFlags = uint8_t(r.flags & (Q9_FLAG_LOWERLIMIT_CLOSED | Q9_FLAG_UPPERLIMIT_CLOSED));
    });
  });
  f.step = FieldStep::None;
  if (steps == 0) return true;
  if (steps > 1 || ranges != 1 || only->databaseRef != coding.databaseRef) return false;
  f.by.computation = only;
  switch (readTag(only)) {
    case IdentityComputation::kNodeType: f.step = FieldStep::Identity; break;
    case MappedTextComputation::kNodeType:
      f.step = FieldStep::Text;
      f.a.text = as<MappedTextComputation>(only)->textvalue;
      break;
    case MappedValueComputation::kNodeType:
      f.step = FieldStep::Value;
      f.a.value = as<MappedValueComputation>(only)->value;
      break;
    case LinearComputation::kNodeType: {
      const LinearStep linear = linearStep(as<LinearComputation>(only)->scale, as<LinearComputation>(only)->offset);
      f.step = linear.atOne ? FieldStep::Offset : FieldStep::Scale;
      if (linear.atOne)
        f.a.offsetBits = linear.offsetBits;
      else
        f.a.scale = linear.scale;
      f.offset = linear.offset;
      break;
    }
    default: f.step = FieldStep::Other; break;
  }
  return true;
}

PlannedField plannedSignal(Q9Db* db, const Deliverable& d, uint64_t length) {
  PlannedField f{};
  f.node = d.instance;
  f.signal = d.signal;
  if (d.coding->encoding == Q9_ENCODING_ASCII) {
    f.read = FieldRead::Text;
    f.where.at = {uint32_t(d.pos), d.bits, uint32_t(d.coding->bitlen / 8)};
    return f;
  }
  chooseRead(f, d.pos, d.bits, length);
  PlannedField kept = f;
  if (f.read != FieldRead::Bytes && keepConversion(kept, *d.coding)) return kept;
  if (const CompiledDecoding* shared = compiledDecodingOf(db, *d.coding)) {
    f.conversion = Conversion::Shared;
    f.by.shared = shared;
  } else {
    f.conversion = Conversion::None;
  }
  return f;
}

PlannedField plannedPdu(const PDUInstance* placement) {
  PlannedField f{};
  f.node = placement;
  f.read = FieldRead::Pdu;
  return f;
}

const TriggeringPlan* usable(const void* plan) {
  const auto* p = static_cast<const TriggeringPlan*>(plan);
  return p && !p->walkNodes ? p : nullptr;
}

}  // namespace

const TriggeringPlan* planOf(Q9Db* db, const TriggeringIndexEntry& entry) {
  if (void* done = loadAccelerator(&entry.plan)) return usable(done);

  const FrameTriggering& t = *entry.triggering;
  const Frame* frame = isExact<Frame>(t.reference) ? as<Frame>(t.reference) : nullptr;
  const int64_t frameLength = frame && frame->length >= 0 ? frame->length : -1;
  uint64_t fieldCount = 0;
  bool walkNodes = !ownedBy(&t, db);
  if (!walkNodes && frameLength >= 0)
    walkNodes = !walkFrame(db, *frame, uint64_t(frameLength), [&](const PDUInstance*) { ++fieldCount; },
                           [&](const Deliverable&) { ++fieldCount; });
  if (walkNodes) fieldCount = 0;
  // Each field on a cache line of its own.
  constexpr uintptr_t kLine = sizeof(PlannedField);
  Accelerator* block = claimAccelerator(db, sizeof(TriggeringPlan) + kLine - 1 + fieldCount * sizeof(PlannedField));
  if (!block) return nullptr;

  auto* plan = reinterpret_cast<TriggeringPlan*>(block);
  auto* fields = reinterpret_cast<PlannedField*>((reinterpret_cast<uintptr_t>(plan + 1) + kLine - 1) & ~(kLine - 1));
  plan->walkNodes = walkNodes;
  plan->triggering = entry.triggering;
  if (isExact<MaskedIdentifierTriggering>(&t)) {
    plan->mask = as<MaskedIdentifierTriggering>(&t)->mask;
    plan->code = as<MaskedIdentifierTriggering>(&t)->code;
  } else {
    plan->mask = ~uint32_t(0);
    plan->code = as<IdentifierBasedTriggering>(&t)->identifier;
  }
  plan->flags = t.flags;
  plan->eitherType = (t.flags & Q9_FLAGMASK_CAN_FRAMETYPE) == Q9_FLAG_CANSTD_OR_EXT;
  plan->frameLength = frameLength;
  plan->fieldCount = fieldCount;
  plan->fields = fields;
  if (!walkNodes && frameLength >= 0)
    walkFrame(db, *frame, uint64_t(frameLength),
              [&](const PDUInstance* placement) { *fields++ = plannedPdu(placement); },
              [&](const Deliverable& d) { *fields++ = plannedSignal(db, d, uint64_t(frameLength)); });
  return usable(publishAccelerator(block, &entry.plan));
}

}  // namespace q9
