// The two ways a message becomes the caller's signal records (see
// Q9Db_decodeFrame): by the walk, which takes every database and is the
// reference, and by the triggerings' compiled plans, which take the usual
// ones at a fraction of the cost and hand the rest back to the walk.
#pragma once

#include <limits>

#include "Q9Db.h"
#include "store/Nodes.h"

namespace q9 {

enum class RecordsOutcome {
  Written,    // every record of the message
  Cut,        // records ran out: capacity records written
  NeedsWalk,  // the plans can't answer for this message; nothing is promised of records
};

// What a record holds for a value no computation converted.
constexpr double kNoPhysicalValue = std::numeric_limits<double>::quiet_NaN();

// The physical value of a conversion that succeeded, as the record holds it.
inline double physicalAsDouble(const Q9DbPhysicalValue& v) {
  switch (v.valueType) {
    case Q9_VALUETYPE_DOUBLE: return v.value.d;
    case Q9_VALUETYPE_UINT64: return double(v.value.u);
    case Q9_VALUETYPE_INT64: return double(v.value.i);
    default: return kNoPhysicalValue;
  }
}

// The records of message m (index in its batch) on channel from records[0],
// by the walk: Written or Cut.
RecordsOutcome decodeRecordsByWalk(Q9DbNode* channel, const Q9DbMessage& m, uint32_t index, Q9DbSignalRecord* records,
                                   uint32_t capacity, uint32_t& count);

// The records of the channel's own PDU instances, appended behind the count
// records there are: Written or Cut.
RecordsOutcome appendChannelRecordsByWalk(Q9DbNode* channel, const Q9DbMessage& m, uint32_t index,
                                          Q9DbSignalRecord* records, uint32_t capacity, uint32_t& count);

// The same as decodeRecordsByWalk by the plans of the channel's triggerings;
// NeedsWalk where they don't cover the message (no current index or plan, a
// part holding a further multiplexed PDU).
RecordsOutcome decodeRecordsByPlans(Channel& channel, const Q9DbMessage& m, uint32_t index, Q9DbSignalRecord* records,
                                    uint32_t capacity, uint32_t& count);

}  // namespace q9
