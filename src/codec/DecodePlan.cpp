// A plan is built in two passes over the same nodes, the first only
// measuring, so that the block is claimed at its final size. A node of
// another database, nested multiplexing, or dynamic parts a table by code
// wouldn't find as the walk's search does leave that piece to the walk.
#include "codec/DecodePlan.h"

#include <utility>

#include "codec/BitField.h"
#include "codec/LastDelivered.h"
#include "codec/Multiplexer.h"
#include "store/MemberLists.h"

namespace q9 {

__thread LastDelivered lastDelivered;

namespace {

constexpr uint64_t kImageBytes = Q9_DECODE_BUFFER_SIZE;

// Calls visit with each item of the list until it answers false; false then.
template <typename Visit>
bool forEachItem(const PagedList& list, Visit visit) {
  return forEachPointer(list, [&](void* item) { return visit(static_cast<const ObjectBase*>(item)); });
}

// A plan is taken away by the changes to its own database only, so it may
// hold nothing of another's.
bool ownedBy(const void* node, const Q9Db* db) { return as<DatabaseRef>(node)->databaseRef == db; }

// Where a plan's parts go: a block of the room, or nowhere while the plan is
// measured (then every take answers null and nothing is written).
class PlanSpace {
 public:
  PlanSpace() = default;
  PlanSpace(unsigned char* base, uint64_t size) : base_(base), size_(size) {}

  template <typename T>
  T* take(uint64_t count, uint64_t align = alignof(T)) {
    used_ = (used_ + align - 1) & ~(align - 1);
    const uint64_t at = used_;
    used_ += count * sizeof(T);
    if (!base_ || used_ > size_) return nullptr;
    return reinterpret_cast<T*>(base_ + at);
  }
  uint64_t used() const { return used_; }

 private:
  unsigned char* base_ = nullptr;
  uint64_t size_ = 0;
  uint64_t used_ = 0;
};

// A signal instance that the walk over the nodes would deliver from a
// source of the given length: its nodes and its field.
struct Deliverable {
  const SignalInstance* instance;
  const Signal* signal;
  Coding* coding;
  uint64_t pos;
  int32_t bits;
};

// Calls signal(deliverable) for each signal instance of the PDU, placed at
// offset in a source of the given length, that the walk would deliver from
// every message; false when one reaches into another database.
template <typename OnSignal>
bool forEachDeliverable(const Q9Db* db, const SignalPDU& pdu, uint64_t offset, uint64_t length, OnSignal signal) {
  return forEachItem(pdu.signalInstances, [&](const ObjectBase* node) {
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
}

// How the general read (readFieldInside) would take the field out of a
// source of this length: as one load and two shifts where it can.
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
// the coding's) when the coding is plain unsigned, two's complement or a
// float with at most one computation of one range; false otherwise.
bool keepConversion(PlannedField& f, const Coding& coding) {
  const uint32_t type = coding.encoding & Q9_ENCODING_TYPEMASK;
  if (type == Q9_ENCODING_DIRECT && !(coding.encoding & Q9_ENCODING_SIGNED))
    f.conversion = Conversion::Unsigned;
  else if (type == Q9_ENCODING_2COMPL)
    f.conversion = Conversion::TwosComplement;
  else if (type == Q9_ENCODING_IEEE && (f.down == 32 || f.down == 0))
    f.conversion = Conversion::Float;
  else
    return false;
  uint64_t steps = 0, ranges = 0;
  const Computation* only = nullptr;
  bool interval = false;
  forEachComputation(coding.internalToPhysicalCompus, [&](const Computation& c) {
    ++steps;
    only = &c;
    forEachRange(c, [&](const ValueRange& r) {
      if (++ranges == 1) interval = closedInterval(r.lowerLimit, r.upperLimit, r.flags, &f.where.range.low, &f.where.range.high);
    });
  });
  f.step = FieldStep::None;
  if (steps == 0) return true;
  if (steps > 1 || ranges != 1 || !interval || only->databaseRef != coding.databaseRef) return false;
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
      const bool wide = f.conversion == Conversion::Float || (f.conversion == Conversion::Unsigned && f.down == 0);
      f.step = linear.atOne ? FieldStep::Offset : wide ? FieldStep::WideScale : FieldStep::Scale;
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

// The fields of a plain PDU's signals, on cache lines of their own.
const PlannedField* planSignals(Q9Db* db, const SignalPDU& pdu, uint64_t offset, uint64_t length,
                                PlanSpace& space, uint64_t* count) {
  *count = 0;
  forEachDeliverable(db, pdu, offset, length, [&](const Deliverable&) { ++*count; });
  PlannedField* fields = space.take<PlannedField>(*count, sizeof(PlannedField));
  PlannedField* next = fields;
  if (fields) forEachDeliverable(db, pdu, offset, length, [&](const Deliverable& d) { *next++ = plannedSignal(db, d, length); });
  return fields;
}

// What becomes of one part of a multiplexed PDU.
struct PartOutcome {
  bool walkNodes;       // the part holds what only the walk over the nodes decodes
  bool decoded;         // the walk pushes the part
  const PartPlan* plan;  // null while measuring
};

// The segments that copy bits into the part's image, as the walk assembles
// them from a payload of the frame's length; false when the walk would drop
// the part because a segment can't be read from any such message.
template <typename OnCopy>
bool forEachCopy(const MultiplexedPart& part, uint64_t offset, uint64_t frameLength, OnCopy copy) {
  return forEachSegment(part, [&](const Segment& s, uint64_t d) {
    const int64_t p = int64_t(s.bitpos) + int64_t(offset);
    if (p >= -32) {
      const bool fromIdentifier = p < 0;
      const uint64_t pos = uint64_t(fromIdentifier ? p + 32 : p);
      const int32_t bits = s.byteOrder == Q9_BYTEORDER_BIGENDIAN ? -s.bitlen : s.bitlen;
      if (pos > UINT32_MAX || fieldEndByte(pos, bits) > (fromIdentifier ? 4 : frameLength)) return false;
      if (d < 8 * kImageBytes) copy(PlannedSegment{uint32_t(pos), bits, uint32_t(d), fromIdentifier});
    }
    return true;
  });
}

PartOutcome planPart(Q9Db* db, const MultiplexedPart* part, uint64_t offset, uint64_t frameLength,
                     PlanSpace& space) {
  if (!isExact<MultiplexedPart>(part) || !isDecodablePdu(part->reference)) return {false, false, nullptr};
  if (!ownedBy(part, db) || !ownedBy(part->reference, db) || !isExact<SignalPDU>(part->reference))
    return {true, false, nullptr};
  const bool image = hasSegments(*part);
  uint64_t segmentCount = 0;
  if (image && !forEachCopy(*part, offset, frameLength, [&](const PlannedSegment&) { ++segmentCount; }))
    return {false, false, nullptr};
  // The signals count from bit 0 of the image, or of the payload itself
  // when the part has no segments.
  const auto& pdu = *as<SignalPDU>(part->reference);
  const uint64_t length = image ? kImageBytes : frameLength;
  if (!forEachDeliverable(db, pdu, 0, length, [](const Deliverable&) {})) return {true, false, nullptr};

  PartPlan* plan = space.take<PartPlan>(1);
  PlannedSegment* segments = space.take<PlannedSegment>(segmentCount);
  PlannedSegment* next = segments;
  if (segments && image) forEachCopy(*part, offset, frameLength, [&](const PlannedSegment& s) { *next++ = s; });
  uint64_t fieldCount = 0;
  const PlannedField* fields = planSignals(db, pdu, 0, length, space, &fieldCount);
  if (plan) *plan = PartPlan{fields, fieldCount, segments, segmentCount, image};
  return {false, true, plan};
}

// The switch as the walk reads it from a payload of the frame's length.
void planSwitch(MuxPlan& mux, const MultiplexedPDU& pdu, uint64_t offset, uint64_t frameLength) {
  const int32_t length = pdu.switchLength;
  mux.switchRead = SwitchRead::Zero;
  if (length == 0) return;
  mux.switchRead = SwitchRead::Unreadable;
  if (length < 0 || length > 64) return;
  const int64_t p = int64_t(pdu.switchPosition) + int64_t(offset);
  const int32_t bits = pdu.switchByteOrder == Q9_BYTEORDER_BIGENDIAN ? -length : length;
  if (p < -32) {
    mux.switchRead = SwitchRead::Zero;
  } else if (p < 0) {
    const uint64_t pos = uint64_t(p + 32);
    if (fieldEndByte(pos, bits) > 4) return;
    mux.switchRead = SwitchRead::Identifier;
    mux.switchField.where.at = {uint32_t(pos), bits, 0};
  } else {
    const uint64_t pos = uint64_t(p);
    if (pos > UINT32_MAX || fieldEndByte(pos, bits) > frameLength) return;
    mux.switchRead = SwitchRead::Field;
    chooseRead(mux.switchField, pos, bits, frameLength);
  }
}

// Whether the walk's search of the dynamic parts finds each part by its own
// code, so that a table by code answers as the search does.
bool searchFindsEveryPart(const MultiplexedPDU& pdu) {
  auto& parts = const_cast<PagedList&>(pdu.dynamicParts);
  return forEachItem(parts, [&](const ObjectBase* item) {
    if (!isExact<MultiplexedPart>(item)) return false;
    Block* block = nullptr;
    uint64_t index = 0;
    const void* key = reinterpret_cast<const void*>(uintptr_t(as<MultiplexedPart>(item)->switchCode));
    return searchSorted(&parts, &block, &index, key, compareSwitchCode) == S_OK && block->pointers()[index] == item;
  });
}

// A multiplexed PDU placed at offset; null (and walkNodes) when the walk over
// the nodes must decode it, null alone while measuring.
const MuxPlan* planMux(Q9Db* db, const MultiplexedPDU& pdu, uint64_t offset, uint64_t frameLength,
                       PlanSpace& space, bool* walkNodes) {
  *walkNodes = true;
  if (!searchFindsEveryPart(pdu)) return nullptr;
  uint64_t partCount = 0;
  forEachItem(pdu.dynamicParts, [&](const ObjectBase*) {
    ++partCount;
    return true;
  });
  MuxPlan* mux = space.take<MuxPlan>(1);
  auto* codes = space.take<uint32_t>(partCount);
  auto* parts = space.take<const PartPlan*>(partCount);
  uint64_t i = 0;
  bool nested = false;
  auto plan = [&](const MultiplexedPart* part) {
    const PartOutcome outcome = planPart(db, part, offset, frameLength, space);
    nested = nested || outcome.walkNodes;
    return outcome.plan;
  };
  // The list is in ascending code order but for the wrap-around of its
  // comparison; the table is sorted plainly below.
  forEachItem(pdu.dynamicParts, [&](const ObjectBase* item) {
    const PartPlan* part = plan(as<MultiplexedPart>(item));
    if (codes) {
      codes[i] = as<MultiplexedPart>(item)->switchCode;
      parts[i] = part;
    }
    ++i;
    return true;
  });
  const PartPlan* elsePart = plan(pdu.elsePart);
  const PartPlan* staticPart = plan(pdu.staticPart);
  if (nested) return nullptr;
  *walkNodes = false;
  if (!mux) return nullptr;
  for (uint64_t j = 1; j < partCount; ++j)
    for (uint64_t k = j; k > 0 && codes[k - 1] > codes[k]; --k) {
      std::swap(codes[k - 1], codes[k]);
      std::swap(parts[k - 1], parts[k]);
    }
  mux->switchField = PlannedField{};
  planSwitch(*mux, pdu, offset, frameLength);
  mux->partCount = partCount;
  mux->codes = codes;
  mux->parts = parts;
  mux->elsePart = elsePart;
  mux->staticPart = staticPart;
  return mux;
}

const TriggeringPlan* usable(const void* plan) {
  const auto* p = static_cast<const TriggeringPlan*>(plan);
  return p && !p->walkNodes ? p : nullptr;
}

// The frame's fields into space, one per signal or multiplexed PDU instance,
// with what they refer to behind them; false when the frame reaches into
// another database.
bool planFrame(Q9Db* db, const Frame& frame, uint64_t length, PlanSpace& space, const PlannedField** fields,
               uint64_t* fieldCount) {
  if (!ownedBy(&frame, db)) return false;
  // Each multiplexed PDU instance and each signal of a plain one is a field.
  uint64_t count = 0;
  const bool owned = forEachItem(frame.PDUInstances, [&](const ObjectBase* item) {
    if (!isExact<PDUInstance>(item)) return true;
    const auto* placement = as<PDUInstance>(item);
    if (!ownedBy(placement, db)) return false;
    if (placement->bitpos < 0 || !isDecodablePdu(placement->reference)) return true;
    if (!ownedBy(placement->reference, db)) return false;
    if (isExact<MultiplexedPDU>(placement->reference)) {
      ++count;
      return true;
    }
    return forEachDeliverable(db, *as<SignalPDU>(placement->reference), uint64_t(placement->bitpos), length,
                              [&](const Deliverable&) { ++count; });
  });
  if (!owned) return false;
  PlannedField* out = space.take<PlannedField>(count, sizeof(PlannedField));
  PlannedField* next = out;
  forEachItem(frame.PDUInstances, [&](const ObjectBase* item) {
    if (!isExact<PDUInstance>(item)) return true;
    const auto* placement = as<PDUInstance>(item);
    if (placement->bitpos < 0 || !isDecodablePdu(placement->reference)) return true;
    const uint64_t offset = uint64_t(placement->bitpos);
    if (isExact<MultiplexedPDU>(placement->reference)) {
      bool walkNodes = false;
      const MuxPlan* mux = planMux(db, *as<MultiplexedPDU>(placement->reference), offset, length, space, &walkNodes);
      if (out) {
        *next = PlannedField{};
        next->node = placement;
        next->read = walkNodes ? FieldRead::Pdu : FieldRead::Mux;
        next->by.mux = mux;
        ++next;
      }
      return true;
    }
    forEachDeliverable(db, *as<SignalPDU>(placement->reference), offset, length, [&](const Deliverable& d) {
      if (out) *next++ = plannedSignal(db, d, length);
    });
    return true;
  });
  *fields = out;
  *fieldCount = count;
  return true;
}

// What matching a message needs of the triggering.
void fillPlan(TriggeringPlan& plan, const TriggeringIndexEntry& entry, int64_t frameLength) {
  const FrameTriggering& t = *entry.triggering;
  plan.triggering = entry.triggering;
  if (isExact<MaskedIdentifierTriggering>(&t)) {
    plan.mask = as<MaskedIdentifierTriggering>(&t)->mask;
    plan.code = as<MaskedIdentifierTriggering>(&t)->code;
  } else {
    plan.mask = ~uint32_t(0);
    plan.code = as<IdentifierBasedTriggering>(&t)->identifier;
  }
  plan.flags = t.flags;
  plan.eitherType = (t.flags & Q9_FLAGMASK_CAN_FRAMETYPE) == Q9_FLAG_CANSTD_OR_EXT;
  plan.frameLength = frameLength;
}

}  // namespace

const TriggeringPlan* buildPlan(Q9Db* db, const TriggeringIndexEntry& entry) {
  if (void* done = loadAccelerator(&entry.plan)) return usable(done);

  const FrameTriggering& t = *entry.triggering;
  const Frame* frame = isExact<Frame>(t.reference) ? as<Frame>(t.reference) : nullptr;
  const int64_t frameLength = frame && frame->length >= 0 ? frame->length : -1;
  // Measured first; the fields start on a cache line of the block.
  PlanSpace measure;
  const PlannedField* fields = nullptr;
  uint64_t fieldCount = 0;
  bool walkNodes = !ownedBy(&t, db);
  if (!walkNodes && frameLength >= 0)
    walkNodes = !planFrame(db, *frame, uint64_t(frameLength), measure, &fields, &fieldCount);
  constexpr uint64_t kLine = sizeof(PlannedField);
  const uint64_t body = walkNodes ? 0 : measure.used();
  Accelerator* block = claimAccelerator(db, sizeof(TriggeringPlan) + kLine + body);
  if (!block) return nullptr;

  const Accelerator head = *block;
  auto* plan = reinterpret_cast<TriggeringPlan*>(block);
  *plan = TriggeringPlan{};
  plan->head = head;
  plan->walkNodes = walkNodes;
  fillPlan(*plan, entry, frameLength);
  if (!walkNodes && frameLength >= 0) {
    auto* base = reinterpret_cast<unsigned char*>((reinterpret_cast<uintptr_t>(plan + 1) + kLine - 1) & ~(kLine - 1));
    PlanSpace space(base, body);
    planFrame(db, *frame, uint64_t(frameLength), space, &fields, &fieldCount);
    // Both passes read the same nodes, so the space fits; a plan that
    // didn't would only say to walk the nodes.
    if (space.used() > body) {
      plan->walkNodes = true;
      fieldCount = 0;
    }
    plan->fields = fields;
    plan->fieldCount = fieldCount;
  }
  return usable(publishAccelerator(block, &entry.plan));
}

}  // namespace q9
