// The timings of a PDU triggering as plain numbers, read once when the
// encoder starts (the database doesn't change while an encoder exists), and
// the two questions a trigger asks of them: which timing is due now, and
// from when on one may be. The answers are those of the walker's timing
// check, which tries the timings in list order.
#pragma once

#include <cstdint>

namespace q9 {

// A time no trigger reaches before the record's state changes.
constexpr uint64_t kNever = UINT64_MAX;

// "now < last + interval" without the sum overflowing: the interval since
// last hasn't passed.
inline bool withinInterval(uint64_t now, uint64_t last, uint64_t interval) {
  return now < last || now - last < interval;
}

struct TimingRule {
  uint64_t interval;  // the cycle time, or the debounce time as 32 unsigned bits
  uint16_t kind;      // Q9_NODETYPE_CyclicTiming or Q9_NODETYPE_EventControlledTiming
};

// The timings among the triggering's children, in list order, into out
// (null: only counted); their number. allTimings turns false when a child is
// anything else, as the walker then goes on below it.
uint32_t readTimingRules(void* triggering, TimingRule* out, bool* allTimings);

// The kind of the first rule due at now, the last send by timing having
// been at last; 0 when none is.
uint16_t dueKind(const TimingRule* rules, uint32_t count, uint64_t now, uint64_t last);

// The earliest time from `from` on at which the rules may let a trigger
// send: `from` when they do at `from` (a cycle, or an event with a change
// waiting); else the next time at which one of them comes due, where the
// answer may change; kNever when none will.
uint64_t nextSendTime(const TimingRule* rules, uint32_t count, uint64_t last, bool changed, uint64_t from);

}  // namespace q9
