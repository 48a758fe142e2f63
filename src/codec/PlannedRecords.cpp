// Signal records by the compiled plans of a channel's triggerings: the
// candidates come from the channel's index as in the walk, and each match
// runs its plan's dense form (DensePlan.h), or else the plan's fields in one
// loop, reading the payload and the plan and no node. What a record holds is what the walk and Q9Db_internalToPhysical
// would give; whatever the plans leave to the nodes goes back to the walk.
#include <cstring>

#include "codec/DecodePlan.h"
#include "codec/DensePlan.h"
#include "codec/TriggeringCandidates.h"
#include "codec/WholeFrameDecoding.h"

namespace q9 {
namespace {

// Whether the list holds an item; a list may keep an empty block.
inline bool hasItems(const PagedList& list) {
  const Block* b = list.head;
  return b && (b->count != 0 || b->next != b);
}

// The record's value by a field whose conversion none of the ways below
// takes.
__attribute__((noinline)) void convertInGeneral(const PlannedField& f, uint64_t raw, Q9DbSignalRecord& r) {
  Q9DbPhysicalValue v;
  const HRESULT hr = f.conversion == Conversion::None
                         ? Q9Db_internalToPhysical(reinterpret_cast<Q9DbNode*>(const_cast<Signal*>(f.signal)), raw, &v)
                         : convertPlanned(f, raw, v);
  r.physical = hr == S_OK ? physicalAsDouble(v) : kNoPhysicalValue;
  r.text = hr == S_OK ? v.text : nullptr;
}

// The raw value of an integer field typed by its coding (cut to its length,
// or sign-extended from it), and that value as a double.
struct TypedInteger {
  uint64_t bits;
  bool isSigned;
  double x;
};
inline TypedInteger typedInteger(const PlannedField& f, uint64_t raw) {
  const bool twos = f.conversion == Conversion::TwosComplement;
  const uint64_t shifted = raw << f.down;
  const uint64_t bits = twos ? uint64_t(int64_t(shifted) >> f.down) : shifted >> f.down;
  return {bits, twos, twos ? double(int64_t(bits)) : double(bits)};
}

// A conversion whose only step adds an offset at scale one (convertPlanned's
// FieldStep::Offset): integers stay integers, the offset truncated.
inline void addOffset(const PlannedField& f, uint64_t raw, Q9DbSignalRecord& r) {
  r.text = nullptr;
  if (f.conversion == Conversion::Float) {
    double x;
    if (f.down) {
      const uint32_t bits = uint32_t(raw);
      float single;
      std::memcpy(&single, &bits, sizeof single);
      x = single;
    } else {
      std::memcpy(&x, &raw, sizeof x);
    }
    r.physical = intervalHolds(f.where.range.low, f.where.range.high, x) ? x + f.offset : kNoPhysicalValue;
    return;
  }
  const TypedInteger v = typedInteger(f, raw);
  const uint64_t sum = v.bits + f.a.offsetBits;
  const bool isSigned = v.isSigned || (int64_t(f.a.offsetBits) < 0 && (sum >> 63));
  const double physical = isSigned ? double(int64_t(sum)) : double(sum);
  r.physical = intervalHolds(f.where.range.low, f.where.range.high, v.x) ? physical : kNoPhysicalValue;
}

// A table of value texts on an integer coding (convertCompiled's textTable):
// the value stays, and the last text whose range holds it comes with it.
inline bool textTable(const CompiledDecoding& d, uint64_t raw, Q9DbSignalRecord& r) {
  double x;
  if (d.typing == Typing::Unsigned)
    x = double(raw & d.lengthMask);
  else if (d.typing == Typing::TwosComplement)
    x = double(int64_t(raw << d.signShift) >> d.signShift);
  else
    return false;
  uint64_t last = d.stepCount;
  for (uint64_t i = 0; i < d.stepCount; ++i) last = rangeHolds(d.firstRanges[i], x) ? i : last;
  r.physical = last == d.stepCount ? kNoPhysicalValue : x;
  r.text = last == d.stepCount ? nullptr : reinterpret_cast<Q9DbStringSlot*>(d.steps[last].text);
  return true;
}

// The physical value and text of a word-read field's raw value into r.
inline void convertWordField(const PlannedField& f, uint64_t raw, Q9DbSignalRecord& r) {
  if (f.step == FieldStep::Scale) {
    // convertPlanned's usual case, with the value straight into the record.
    const double x = double(int64_t(typedScaleRaw(f, raw)));
    const double product = x * f.a.scale;
    const double scaled = product + f.offset;
    r.physical = intervalHolds(f.where.range.low, f.where.range.high, x) ? scaled : kNoPhysicalValue;
    r.text = nullptr;
    return;
  }
  if (f.step == FieldStep::Offset) return addOffset(f, raw, r);
  if (f.conversion == Conversion::Shared && f.by.shared->textTable && textTable(*f.by.shared, raw, r)) return;
  convertInGeneral(f, raw, r);
}

// One signal field into r, read from source (size bytes).
inline void fillRecord(const PlannedField& f, const uint8_t* source, uint64_t size, Q9DbSignalRecord& r) {
  r.instance = reinterpret_cast<Q9DbNode*>(const_cast<ObjectBase*>(f.node));
  r.signal = reinterpret_cast<Q9DbNode*>(const_cast<Signal*>(f.signal));
  r.kind = Q9_NUMERICSIGNAL;
  uint64_t raw;
  if (__builtin_expect(f.read <= FieldRead::BigWord, 1)) {
    raw = readPlannedWord(f, source);
    r.raw = raw;
    return convertWordField(f, raw, r);
  } else if (f.read == FieldRead::Bytes) {
    raw = readFieldInside(source, size, f.where.at.pos, f.where.at.bits);
    r.raw = raw;
  } else {
    // A text: its kind alone; the walk gives its bytes.
    r.raw = 0;
    r.physical = kNoPhysicalValue;
    r.text = nullptr;
    r.kind = Q9_ASCIISIGNAL;
    return;
  }
  if (f.conversion == Conversion::Shared && f.by.shared->textTable && textTable(*f.by.shared, raw, r)) return;
  convertInGeneral(f, raw, r);
}

// The records of one message, written from records[0] by the plans.
class PlannedMessage {
 public:
  PlannedMessage(const Q9DbMessage& m, uint32_t index, Q9DbSignalRecord* records, uint32_t capacity)
      : payload_(m.payload),
        length_(m.length),
        identifierImage_(m.identifier << ((m.flags & Q9_FLAG_CANEXTENDED) ? 3 : 21)),
        index_(index),
        records_(records),
        next_(records),
        end_(records + capacity) {}

  uint32_t count() const { return uint32_t(next_ - records_); }

  // The records of a plan's dense form when the room holds them all; false,
  // with nothing written, when it doesn't (the plan then cuts them).
  bool writeDense(const DensePlan& plan) {
    auto* triggering = reinterpret_cast<Q9DbNode*>(plan.triggering);
    Q9DbSignalRecord* const base = next_;
    if (uint64_t(end_ - base) < plan.recordCount) return false;
    const uint8_t* const payload = payload_;
    const uint32_t message = index_;
    const DenseField* const end = plan.dense() + plan.denseCount;
    for (const DenseField* f = plan.dense(); f != end; ++f) {
      // Both byte orders and both typings worked out, one of each picked:
      // they change from field to field.
      const uint64_t little = loadWordLittleEndian(payload + f->wordBase);
      const uint64_t big = __builtin_bswap64(little);
      const uint64_t word = little ^ ((little ^ big) & (0 - uint64_t(f->bigEndian)));
      const uint64_t top = word << f->up;
      const uint64_t raw = top >> f->down;
      const uint64_t twos = 0 - uint64_t(f->twosComplement);
      const uint64_t typed = (uint64_t(int64_t(top) >> f->down) & twos) | (raw & ~twos);
      const double product = double(int64_t(typed)) * f->scale;
      Q9DbSignalRecord& r = base[f->record];
      r.triggering = triggering;
      r.instance = reinterpret_cast<Q9DbNode*>(const_cast<ObjectBase*>(f->node));
      r.signal = reinterpret_cast<Q9DbNode*>(const_cast<Signal*>(f->signal));
      r.raw = raw;
      r.physical = product + f->offset;
      r.text = nullptr;
      r.kind = Q9_NUMERICSIGNAL;
      r.message = message;
    }
    const TableField* const tablesEnd = plan.tables() + plan.tableCount;
    for (const TableField* f = plan.tables(); f != tablesEnd; ++f) {
      const uint64_t little = loadWordLittleEndian(payload + f->wordBase);
      const uint64_t big = __builtin_bswap64(little);
      const uint64_t word = little ^ ((little ^ big) & (0 - uint64_t(f->bigEndian)));
      const uint64_t raw = (word << f->up) >> f->down;
      const TableEntry& value = f->entries[raw];
      Q9DbSignalRecord& r = base[f->record];
      r.triggering = triggering;
      r.instance = reinterpret_cast<Q9DbNode*>(const_cast<ObjectBase*>(f->node));
      r.signal = reinterpret_cast<Q9DbNode*>(const_cast<Signal*>(f->signal));
      r.raw = raw;
      r.physical = value.physical;
      r.text = value.text;
      r.kind = Q9_NUMERICSIGNAL;
      r.message = message;
    }
    const OtherField* const othersEnd = plan.others() + plan.otherCount;
    for (const OtherField* o = plan.others(); o != othersEnd; ++o) {
      Q9DbSignalRecord& r = base[o->record];
      r.triggering = triggering;
      r.message = message;
      fillRecord(*o->field, payload, length_, r);
    }
    next_ = base + plan.recordCount;
    return true;
  }

  // The fields of a matching triggering's plan.
  RecordsOutcome write(const TriggeringPlan& plan) {
    auto* triggering = reinterpret_cast<Q9DbNode*>(plan.triggering);
    const PlannedField* f = plan.fields;
    const PlannedField* const end = f + plan.fieldCount;
    while (f != end) {
      if (f->read > FieldRead::Text) {
        if (f->read != FieldRead::Mux) return RecordsOutcome::NeedsWalk;  // a multiplexed PDU only the nodes decode
        if (!parts(*f->by.mux, triggering)) return RecordsOutcome::Cut;
        ++f;
        continue;
      }
      f = signals(f, end, payload_, length_, triggering);
      if (!f) return RecordsOutcome::Cut;
    }
    return RecordsOutcome::Written;
  }

 private:
  // The records of the signal fields from f on, read from source, up to
  // end or the first field that is no signal, which is the answer; null
  // when the room ran out.
  const PlannedField* signals(const PlannedField* f, const PlannedField* end, const uint8_t* source, uint64_t size,
                              Q9DbNode* triggering) {
    Q9DbSignalRecord* out = next_;
    Q9DbSignalRecord* const room = end_;
    const uint32_t message = index_;
    for (; f != end && f->read <= FieldRead::Text; ++f) {
      if (out == room) {
        next_ = out;
        return nullptr;
      }
      Q9DbSignalRecord& r = *out++;
      r.triggering = triggering;
      r.message = message;
      fillRecord(*f, source, size, r);
    }
    next_ = out;
    return f;
  }

  bool part(const PartPlan& part, Q9DbNode* triggering) {
    const uint8_t* source = plannedPartSource(part, image_, payload_, identifierImage_);
    const uint64_t size = source == payload_ ? length_ : uint64_t(Q9_DECODE_BUFFER_SIZE);
    const PlannedField* end = part.fields + part.fieldCount;
    return signals(part.fields, end, source, size, triggering) == end;
  }

  // The static part's signals, then those of the part the switch selects.
  bool parts(const MuxPlan& mux, Q9DbNode* triggering) {
    uint32_t code = 0;
    const PartPlan* selected =
        plannedSwitchCode(mux, payload_, length_, identifierImage_, &code) ? selectedPart(mux, code) : nullptr;
    if (mux.staticPart && !part(*mux.staticPart, triggering)) return false;
    return !selected || part(*selected, triggering);
  }

  const uint8_t* const payload_;
  const uint64_t length_;
  const uint32_t identifierImage_;
  const uint32_t index_;
  Q9DbSignalRecord* const records_;
  Q9DbSignalRecord* next_;
  Q9DbSignalRecord* const end_;
  // One part's image at a time: a part's signals are all written before
  // the next part is assembled.
  uint8_t image_[Q9_DECODE_BUFFER_SIZE];
};

}  // namespace

RecordsOutcome decodeRecordsByPlans(Channel& channel, const Q9DbMessage& m, uint32_t index, Q9DbSignalRecord* records,
                                    uint32_t capacity, uint32_t& count) {
  count = 0;
  Q9DbCursor candidates;
  startCandidates(candidates, channel, m.identifier);
  Q9Db* db = channel.databaseRef;
  PlannedMessage message(m, index, records, capacity);
  void* node = nullptr;
  const TriggeringIndexEntry* entry = nullptr;
  while (nextCandidate(candidates, m.identifier, &node, &entry)) {
    // The dense form first: it alone is read for most triggerings.
    const DensePlan* dense = entry ? densePlanOf(db, *entry, convertWordField) : nullptr;
    if (dense && dense->usable) {
      // Without a payload no PDU instance is decoded.
      if (!planMatches(*dense, m.identifier, m.flags, m.length) || !m.payload) continue;
      if (message.writeDense(*dense)) {
        count = message.count();
        continue;
      }
    }
    const TriggeringPlan* plan = entry ? planOf(db, *entry) : nullptr;
    if (!plan) return RecordsOutcome::NeedsWalk;
    if (!planMatches(*plan, m.identifier, m.flags, m.length) || !m.payload) continue;
    const RecordsOutcome outcome = message.write(*plan);
    count = message.count();
    if (outcome != RecordsOutcome::Written) return outcome;
  }
  if (!hasItems(channel.PDUInstances)) return RecordsOutcome::Written;
  return appendChannelRecordsByWalk(reinterpret_cast<Q9DbNode*>(&channel), m, index, records, capacity, count);
}

}  // namespace q9
