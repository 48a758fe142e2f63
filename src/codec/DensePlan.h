// A second, denser form of a triggering's plan for whole-frame decoding.
// Most signals are an integer field whose physical value is scale * x +
// offset on doubles, with a range that holds every value the field can
// take; those get 40 bytes each and one straight loop with no branch on
// their kind. A field of a few bits (most value texts) takes its value and
// text from a table of what the plan gives for each raw value. The rest keep
// the plan's own field and its way of decoding. Every list names the record
// each field fills, so the records stay in the plan's order.
//
// Built the first time a frame meets the triggering, in the accelerator room
// and published in its index entry beside the plan; a change to the
// database takes both away. It holds what matching needs, so that a frame
// reads the entry and the dense form and not the plan's head.
#pragma once

#include <cstdint>

#include "codec/DecodePlan.h"

namespace q9 {

struct DenseField {
  const ObjectBase* node;  // the signal instance
  const Signal* signal;
  double scale;
  double offset;
  // The word read of the plan's field: (word << up) >> down.
  uint16_t wordBase;
  uint8_t up;
  uint8_t down;
  uint8_t bigEndian;
  uint8_t twosComplement;
  uint16_t record;  // from the message's first record
};
static_assert(sizeof(DenseField) == 40, "five words a signal");

// The physical value and text of one raw value.
struct TableEntry {
  double physical;
  Q9DbStringSlot* text;
};

// A field of at most kMaxTableBits bits, by its table.
struct TableField {
  const ObjectBase* node;
  const Signal* signal;
  const TableEntry* entries;  // by raw value
  uint16_t wordBase;
  uint8_t up;
  uint8_t down;
  uint8_t bigEndian;
  uint16_t record;
};
static_assert(sizeof(TableField) == 32, "four words a signal");
constexpr uint64_t kMaxTableBits = 4;

// A field decoded as the plan decodes it.
struct OtherField {
  const PlannedField* field;
  uint64_t record;
};

struct DensePlan {
  Accelerator head;
  FrameTriggering* triggering;
  // As the plan's (planMatches).
  int64_t frameLength;
  uint32_t mask;
  uint32_t code;
  uint32_t flags;
  bool eitherType;
  // Clear when the triggering has no plan or one that holds what only it
  // decodes (a multiplexed PDU): then the plan is run as it is.
  bool usable;
  uint16_t recordCount;
  uint16_t denseCount;
  uint16_t tableCount;
  uint16_t otherCount;
  uint32_t othersAt;  // bytes from the head; the fields follow the head
  const DenseField* dense() const { return reinterpret_cast<const DenseField*>(this + 1); }
  const TableField* tables() const { return reinterpret_cast<const TableField*>(dense() + denseCount); }
  const OtherField* others() const {
    return reinterpret_cast<const OtherField*>(reinterpret_cast<const unsigned char*>(this) + othersAt);
  }
};
static_assert(sizeof(DensePlan) == 64, "a cache line's worth of head, the fields right behind it");

// How the plan converts a word-read field's raw value into the record's
// physical value and text; the tables hold what it gives.
using RecordConversion = void (*)(const PlannedField& f, uint64_t raw, Q9DbSignalRecord& r);

// The field's scale and offset when its record is exactly scale * x +
// offset for every raw value, x the field's integer value as a double;
// false otherwise.
bool denseConversion(const PlannedField& f, double* scale, double* offset);

// Builds the entry's dense form (and its plan) unless another reader has
// done so meanwhile; null when the room is full.
const DensePlan* buildDensePlan(Q9Db* db, const TriggeringIndexEntry& entry, RecordConversion convert);

// The entry's dense form, built now if need be; null when there is none.
inline const DensePlan* densePlanOf(Q9Db* db, const TriggeringIndexEntry& entry, RecordConversion convert) {
  const auto* dense = static_cast<const DensePlan*>(loadAccelerator(&entry.dense));
  return dense ? dense : buildDensePlan(db, entry, convert);
}

}  // namespace q9
