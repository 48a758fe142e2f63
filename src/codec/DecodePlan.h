// A frame triggering compiled for the decoder: what matching a message needs
// of the triggering and its frame, and the signals of the frame's PDUs in the
// order of the walk, each in one cache line with where its field lies in a
// payload of the frame's length, how to take it out and, for the usual
// codings, how its raw value becomes the physical value. A multiplexed PDU
// is a table from switch codes to its parts, each with its segments and its
// signals; one whose parts hold further multiplexed PDUs stays a step that
// the walk over the nodes decodes.
//
// The first decoder that meets an indexed triggering after a change builds
// its plan (see Accelerators.h); the walk then reads the plan and the payload
// and no node. Whatever cannot be built is decoded from the nodes as before.
#pragma once

#include <cstring>

#include "Q9Db.h"
#include "codec/CompiledDecoding.h"
#include "codec/DecodeSources.h"
#include "codec/WordRead.h"
#include "store/TriggeringIndex.h"

namespace q9 {

enum class FieldRead : uint8_t {
  LittleWord,  // one 8-byte load at wordBase, shifted and masked
  BigWord,     // the same with the bytes in big-endian order
  Bytes,       // the general read, for short frames and 9-byte fields
  Text,        // an ASCII signal into the client's buffer
  Pdu,         // a multiplexed PDU, walked over the nodes
  Mux,         // a multiplexed PDU by its MuxPlan
};

// How a field's raw value becomes its physical value.
enum class Conversion : uint8_t {
  None,            // not compiled: the nodes are read
  Shared,          // by the coding's CompiledDecoding
  Unsigned,        // DIRECT without sign, then at most one step, here
  TwosComplement,  // 2COMPL, then at most one step, here
  Float,           // IEEE of 32 or 64 bits, then at most one step, here
};

// The one step of a conversion kept in the field, with its one range.
// Scale is a linear computation on a value that a double holds once it is
// a signed 64-bit integer (a two's complement, or fewer than 64 bits);
// WideScale the same on an unsigned 64-bit value or a float.
enum class FieldStep : uint8_t { None, Identity, Text, Value, Scale, WideScale, Offset, Other };

struct MuxPlan;

struct PlannedField {
  const ObjectBase* node;  // the signal instance, or the PDU instance of a Pdu or Mux step
  const Signal* signal;
  union {
    const ObjectBase* computation;  // of the step
    const CompiledDecoding* shared;
    const MuxPlan* mux;
  } by;
  union {
    struct {
      double low;
      double high;
    } range;  // the step's range as a closed interval
    struct {
      uint32_t pos;
      int32_t bits;  // negative for big-endian
      uint32_t textBytes;
    } at;  // of a Bytes or Text read, whose conversion is never kept here
  } where;
  union {
    double scale;
    uint64_t offsetBits;  // the offset truncated, at scale one
    double value;
    StringSlot* text;
  } a;
  double offset;
  // A word read is (word << up) >> down: the field's bits moved to the top,
  // then down to bit 0. down is 64 less the field's length, 1 to 64, which
  // is also the coding's length.
  uint16_t wordBase;
  uint8_t up;
  uint8_t down;
  FieldRead read;
  Conversion conversion;
  FieldStep step;
};
static_assert(sizeof(PlannedField) == 64, "a planned field fills one cache line");

// One segment of a part's image: bits copied from the payload or the
// identifier image to bit dest of the image.
struct PlannedSegment {
  uint32_t pos;
  int32_t bits;  // negative for big-endian
  uint32_t dest;
  bool fromIdentifier;
};

// A part of a multiplexed PDU that the walk decodes: its signals read the
// image its segments make (in a buffer of Q9_DECODE_BUFFER_SIZE bytes), or
// the payload itself when it has no segments.
struct PartPlan {
  const PlannedField* fields;
  uint64_t fieldCount;
  const PlannedSegment* segments;
  uint64_t segmentCount;
  bool image;
};

enum class SwitchRead : uint8_t {
  Zero,        // no switch, or one below the identifier image: code 0
  Field,       // switchField in the payload
  Identifier,  // switchField's position in the identifier image
  Unreadable,  // no code: no dynamic part
};

struct MuxPlan {
  PlannedField switchField;
  SwitchRead switchRead;
  uint64_t partCount;
  const uint32_t* codes;           // ascending
  const PartPlan* const* parts;    // by code; null for a part that can't be decoded
  const PartPlan* elsePart;        // when no code matches; may be null
  const PartPlan* staticPart;      // first of all; may be null
};

// The part the switch selects: by its code, else the else part; null for none.
inline const PartPlan* selectedPart(const MuxPlan& mux, uint32_t code) {
  uint64_t low = 0, high = mux.partCount;
  while (low < high) {
    const uint64_t mid = (low + high) / 2;
    if (mux.codes[mid] == code) return mux.parts[mid];
    if (mux.codes[mid] < code)
      low = mid + 1;
    else
      high = mid;
  }
  return mux.elsePart;
}

struct TriggeringPlan {
  Accelerator head;
  // Set when the triggering's frame reaches into another database: then the
  // plan only says so, and the walk reads the nodes.
  bool walkNodes;
  FrameTriggering* triggering;
  // The message matches if (identifier AND mask) = code, if the frame types
  // agree (unless eitherType), the CAN FD flags agree and its length is
  // frameLength.
  uint32_t mask;
  uint32_t code;
  uint32_t flags;
  bool eitherType;
  int64_t frameLength;  // -1: no frame, nothing matches
  uint64_t fieldCount;
  const PlannedField* fields;
};

// Builds the entry's plan unless another reader has done so meanwhile; the
// answer is as planOf's.
const TriggeringPlan* buildPlan(Q9Db* db, const TriggeringIndexEntry& entry);

// The entry's plan, built now if no reader has done so since the last
// change; null when the database's room is full or the nodes must be walked.
inline const TriggeringPlan* planOf(Q9Db* db, const TriggeringIndexEntry& entry) {
  const auto* plan = static_cast<const TriggeringPlan*>(loadAccelerator(&entry.plan));
  if (!plan) return buildPlan(db, entry);
  return plan->walkNodes ? nullptr : plan;
}

// Also for a plan's dense form, which keeps the same fields.
template <typename Plan>
inline bool planMatches(const Plan& plan, uint32_t identifier, uint32_t flags, uint64_t length) {
  if ((identifier & plan.mask) != plan.code) return false;
  if (!plan.eitherType && ((plan.flags ^ flags) & Q9_FLAG_CANEXTENDED)) return false;
  if ((plan.flags ^ flags) & Q9_FLAG_CANFD_FRAME) return false;
  return plan.frameLength >= 0 && uint64_t(plan.frameLength) == length;
}

// The value of a word-read field; the payload holds the frame's length.
// Both byte orders are worked out and one is picked, without a branch: the
// order changes from frame to frame.
inline uint64_t readPlannedWord(const PlannedField& f, const uint8_t* payload) {
  const uint64_t little = loadWordLittleEndian(payload + f.wordBase);
  const uint64_t big = __builtin_bswap64(little);
  const uint64_t word = f.read == FieldRead::LittleWord ? little : big;
  return (word << f.up) >> f.down;
}

// The switch code of a message (its payload of length bytes and its
// identifier image), or false when it has none.
inline bool plannedSwitchCode(const MuxPlan& mux, const uint8_t* payload, uint64_t length, uint32_t identifierImage,
                              uint32_t* code) {
  const PlannedField& f = mux.switchField;
  switch (mux.switchRead) {
    case SwitchRead::Zero: *code = 0; return true;
    case SwitchRead::Field:
      *code = uint32_t(f.read == FieldRead::Bytes ? readFieldInside(payload, length, f.where.at.pos, f.where.at.bits)
                                                  : readPlannedWord(f, payload));
      return true;
    case SwitchRead::Identifier: {
      const IdentifierImage id(identifierImage);
      *code = uint32_t(readFieldInside(id.bytes, sizeof id.bytes, f.where.at.pos, f.where.at.bits));
      return true;
    }
    default: return false;
  }
}

// Where the fields of a part read: the payload, or the part's image
// assembled in image (Q9_DECODE_BUFFER_SIZE bytes).
inline const uint8_t* plannedPartSource(const PartPlan& part, uint8_t* image, const uint8_t* payload,
                                        uint32_t identifierImage) {
  if (!part.image) return payload;
  std::memset(image, 0, Q9_DECODE_BUFFER_SIZE);
  const IdentifierImage id(identifierImage);
  for (uint64_t i = 0; i < part.segmentCount; ++i) {
    const PlannedSegment& s = part.segments[i];
    Q9bit_copy(image, Q9_DECODE_BUFFER_SIZE, s.dest, int32_t(fieldLength(s.bits)), s.fromIdentifier ? id.bytes : payload,
               s.pos, s.bits);
  }
  return image;
}

// The raw value of a Scale field as its coding reads it: sign-extended from
// its length when it is two's complement, else its low bits; no branch,
// since which kind of signal comes next is hard to foresee.
inline uint64_t typedScaleRaw(const PlannedField& f, uint64_t raw) {
  const uint64_t twos = f.conversion == Conversion::TwosComplement;
  const uint64_t shifted = raw << f.down;
  const uint64_t signedTyped = uint64_t(int64_t(shifted) >> f.down);
  return (signedTyped & (0 - twos)) | ((shifted >> f.down) & (twos - 1));
}

// Q9Db_internalToPhysical by a field whose conversion is compiled: the same
// value, status and record as by the nodes.
inline HRESULT convertPlanned(const PlannedField& f, uint64_t raw, Q9DbPhysicalValue& v) {
  v.text = nullptr;
  if (f.step == FieldStep::Scale) {
    // The usual signal, straight through and with few branches, since which
    // kind of signal comes next is hard to foresee.
    const uint64_t twos = f.conversion == Conversion::TwosComplement;
    const uint64_t typed = typedScaleRaw(f, raw);
    const double x = double(int64_t(typed));
    if (intervalHolds(f.where.range.low, f.where.range.high, x)) {
      const double product = x * f.a.scale;
      v.computation = reinterpret_cast<Q9DbNode*>(const_cast<ObjectBase*>(f.by.computation));
      v.valueType = Q9_VALUETYPE_DOUBLE;
      v.value.d = product + f.offset;
      return S_OK;
    }
    v.computation = nullptr;
    static_assert(Q9_VALUETYPE_INT64 == Q9_VALUETYPE_UINT64 + 1, "the integer types are neighbours");
    v.valueType = uint32_t(Q9_VALUETYPE_UINT64 + twos);
    v.value.u = typed;
    return S_FALSE;
  }
  if (f.conversion == Conversion::Shared) return convertShared(*f.by.shared, raw, v);
  v.computation = nullptr;
  // The coding's length is the field's: cut to it, sign-extended from it, or
  // read as a float of its length.
  double x;
  if (f.conversion == Conversion::Unsigned) {
    v.valueType = Q9_VALUETYPE_UINT64;
    v.value.u = (raw << f.down) >> f.down;
    x = double(v.value.u);
  } else if (f.conversion == Conversion::TwosComplement) {
    v.valueType = Q9_VALUETYPE_INT64;
    v.value.i = int64_t(raw << f.down) >> f.down;
    x = double(v.value.i);
  } else {
    v.valueType = Q9_VALUETYPE_DOUBLE;
    if (f.down) {
      // A single in the low 32 bits.
      const uint32_t bits = uint32_t(raw);
      float single;
      std::memcpy(&single, &bits, sizeof single);
      v.value.d = single;
    } else {
      std::memcpy(&v.value.d, &raw, sizeof raw);
    }
    x = v.value.d;
  }
  if (f.step == FieldStep::None || !intervalHolds(f.where.range.low, f.where.range.high, x))
    return S_FALSE;
  v.computation = reinterpret_cast<Q9DbNode*>(const_cast<ObjectBase*>(f.by.computation));
  switch (f.step) {
    case FieldStep::Text: v.text = reinterpret_cast<Q9DbStringSlot*>(f.a.text); break;
    case FieldStep::Value:
      v.valueType = Q9_VALUETYPE_DOUBLE;
      v.value.d = f.a.value;
      break;
    case FieldStep::WideScale: {
      const double product = x * f.a.scale;
      v.valueType = Q9_VALUETYPE_DOUBLE;
      v.value.d = product + f.offset;
      break;
    }
    case FieldStep::Offset:
      if (v.valueType == Q9_VALUETYPE_DOUBLE) {
        v.value.d += f.offset;
        break;
      }
      // At scale one integers stay integers; the offset is truncated.
      v.value.u += f.a.offsetBits;
      if (v.valueType == Q9_VALUETYPE_UINT64 && int64_t(f.a.offsetBits) < 0 && (v.value.u >> 63))
        v.valueType = Q9_VALUETYPE_INT64;
      break;
    case FieldStep::Other: return S_FALSE;
    default: break;
  }
  return S_OK;
}

// Walks over planned fields live in the walk's cursors: the main walk in
// pduWalk, with the plan in list, &kPlannedWalk in layout and the next and
// end fields in block and index; the walk over a multiplexed PDU's parts in
// instanceWalk, with the part to follow in list, where the fields read in
// layout and the next and end fields as before.
inline constexpr char kPlannedWalk = 0;

inline bool isPlannedWalk(const Q9DbCursor& cursor) { return cursor.layout == &kPlannedWalk; }

inline const PlannedField* nextField(const Q9DbCursor& c) { return static_cast<const PlannedField*>(c.block); }
inline const PlannedField* endField(const Q9DbCursor& c) { return reinterpret_cast<const PlannedField*>(uintptr_t(c.index)); }
inline void setFields(Q9DbCursor& c, const PlannedField* next, const PlannedField* end) {
  c.block = const_cast<PlannedField*>(next);
  c.index = uintptr_t(end);
}

// A walk over all of the plan's fields, or over none.
inline void startPlannedWalk(Q9DbCursor& c, const TriggeringPlan& plan, bool all) {
  const PlannedField* end = plan.fields + plan.fieldCount;
  c.list = const_cast<TriggeringPlan*>(&plan);
  c.layout = &kPlannedWalk;
  setFields(c, all ? plan.fields : end, end);
}

inline const PartPlan* pendingPart(const Q9DbCursor& c) { return static_cast<const PartPlan*>(c.list); }
inline const uint8_t* partSourceOf(const Q9DbCursor& c) { return static_cast<const uint8_t*>(c.layout); }

inline void startPartWalk(Q9DbCursor& c, const PartPlan* part, const PartPlan* pending, const uint8_t* source) {
  c.list = const_cast<PartPlan*>(pending);
  c.layout = source;
  if (part)
    setFields(c, part->fields, part->fields + part->fieldCount);
  else
    setFields(c, nullptr, nullptr);
}

}  // namespace q9
