// Building the dense form of a triggering's plan (see DensePlan.h): which
// fields reduce to scale * x + offset exactly, and the two lists.
#include "codec/DensePlan.h"

#include <utility>
#include <cmath>

#include "codec/ValueConversion.h"

namespace q9 {

namespace {

constexpr double kTwo52 = 4503599627370496.0;

// The smallest and largest integer value of the field, as doubles the way
// the records compute x; every x lies between them.
void extremes(const PlannedField& f, double* low, double* high) {
  if (f.conversion == Conversion::TwosComplement) {
    *low = double(int64_t(uint64_t(1) << 63) >> f.down);
    *high = double(int64_t(~uint64_t(0) >> 1) >> f.down);
  } else {
    *low = 0;
    *high = double(int64_t(~uint64_t(0) >> f.down));
  }
}

// The order the others run in: alike fields together, so that the branches
// on their kind change seldom within a frame.
uint32_t kindOf(const PlannedField& f) {
  return (uint32_t(f.read) << 16) | (uint32_t(f.conversion) << 8) | uint32_t(f.step);
}

// A word-read field short enough to be a table.
bool tabled(const PlannedField& f) {
  return (f.read == FieldRead::LittleWord || f.read == FieldRead::BigWord) && uint64_t(64 - f.down) <= kMaxTableBits;
}

}  // namespace

bool denseConversion(const PlannedField& f, double* scale, double* offset) {
  if (f.read != FieldRead::LittleWord && f.read != FieldRead::BigWord) return false;
  const bool twos = f.conversion == Conversion::TwosComplement;
  if (!twos && (f.conversion != Conversion::Unsigned || f.down == 0)) return false;
  double low, high;
  extremes(f, &low, &high);
  // The range is one interval: holding both ends, it holds every value.
  if (!intervalHolds(f.where.range.low, f.where.range.high, low) ||
      !intervalHolds(f.where.range.low, f.where.range.high, high))
    return false;
  // Scale one on an integer of at most 52 bits and a whole offset of at
  // most 2^52 sum exactly in a double, as the integer sum converts.
  const bool exactSum = f.down >= 12;
  switch (f.step) {
    case FieldStep::Scale:
      *scale = f.a.scale;
      *offset = f.offset;
      return true;
    case FieldStep::Offset:
      if (!exactSum || !(std::fabs(f.offset) <= kTwo52) || double(int64_t(f.offset)) != f.offset ||
          f.a.offsetBits != uint64_t(int64_t(f.offset)))
        return false;
      *scale = 1.0;
      *offset = f.offset;
      return true;
    case FieldStep::Identity:
      if (!exactSum) return false;
      *scale = 1.0;
      *offset = 0.0;
      return true;
    default: return false;
  }
}

const DensePlan* buildDensePlan(Q9Db* db, const TriggeringIndexEntry& entry, RecordConversion convert) {
  void** slot = &entry.dense;
  if (void* done = loadAccelerator(slot)) return static_cast<const DensePlan*>(done);

  // Without a usable plan the dense form only says so.
  const TriggeringPlan* plan = planOf(db, entry);
  bool usable = plan && plan->fieldCount <= UINT16_MAX;
  uint64_t denseCount = 0, tableCount = 0, entryCount = 0;
  double scale, offset;
  for (uint64_t i = 0; usable && i < plan->fieldCount; ++i) {
    const PlannedField& f = plan->fields[i];
    usable = f.read <= FieldRead::Text;
    if (denseConversion(f, &scale, &offset)) {
      ++denseCount;
    } else if (tabled(f)) {
      ++tableCount;
      entryCount += uint64_t(1) << (64 - f.down);
    }
  }
  if (!usable) denseCount = tableCount = entryCount = 0;
  const uint64_t otherCount = usable ? plan->fieldCount - denseCount - tableCount : 0;
  const uint64_t othersAt = sizeof(DensePlan) + denseCount * sizeof(DenseField) + tableCount * sizeof(TableField) +
                            entryCount * sizeof(TableEntry);
  Accelerator* block = claimAccelerator(db, othersAt + otherCount * sizeof(OtherField));
  if (!block) return nullptr;

  const Accelerator head = *block;
  auto* dense = reinterpret_cast<DensePlan*>(block);
  *dense = DensePlan{};
  dense->head = head;
  dense->usable = usable;
  if (usable) {
    dense->triggering = plan->triggering;
    dense->frameLength = plan->frameLength;
    dense->mask = plan->mask;
    dense->code = plan->code;
    dense->flags = plan->flags;
    dense->eitherType = plan->eitherType;
    auto* fields = reinterpret_cast<DenseField*>(dense + 1);
    auto* tables = reinterpret_cast<TableField*>(fields + denseCount);
    auto* entries = reinterpret_cast<TableEntry*>(tables + tableCount);
    auto* others = reinterpret_cast<OtherField*>(reinterpret_cast<unsigned char*>(dense) + othersAt);
    DenseField* nextDense = fields;
    TableField* nextTable = tables;
    OtherField* nextOther = others;
    for (uint64_t i = 0; i < plan->fieldCount; ++i) {
      const PlannedField& f = plan->fields[i];
      const uint8_t bigEndian = f.read == FieldRead::BigWord;
      if (denseConversion(f, &scale, &offset)) {
        *nextDense++ = DenseField{f.node, f.signal, scale, offset, f.wordBase, f.up, f.down, bigEndian,
                                  uint8_t(f.conversion == Conversion::TwosComplement), uint16_t(i)};
      } else if (tabled(f)) {
        *nextTable++ = TableField{f.node, f.signal, entries, f.wordBase, f.up, f.down, bigEndian, uint16_t(i)};
        for (uint64_t raw = 0; raw >> (64 - f.down) == 0; ++raw) {
          Q9DbSignalRecord r{};
          convert(f, raw, r);
          *entries++ = TableEntry{r.physical, r.text};
        }
      } else {
        *nextOther++ = OtherField{&f, i};
      }
    }
    // Sorted in place, keeping the plan's order among alike fields: the
    // decoder takes nothing from the heap.
    for (OtherField* o = others + 1; o < nextOther; ++o)
      for (OtherField* p = o; p > others && kindOf(*p[-1].field) > kindOf(*p->field); --p) std::swap(p[-1], p[0]);
    dense->recordCount = uint16_t(plan->fieldCount);
    dense->denseCount = uint16_t(denseCount);
    dense->tableCount = uint16_t(tableCount);
    dense->otherCount = uint16_t(otherCount);
    dense->othersAt = uint32_t(othersAt);
  }
  return static_cast<const DensePlan*>(publishAccelerator(block, slot));
}

}  // namespace q9
