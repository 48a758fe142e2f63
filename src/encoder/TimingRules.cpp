// Time sums are tested against overflow rather than computed, so a last
// send near the end of time can't wrap into the past. The next send time is
// sought only where some rule comes due, since which rule answers first can
// change nowhere else.
#include "encoder/TimingRules.h"

#include "encoder/MemberWalk.h"
#include "store/Nodes.h"

namespace q9 {
namespace {

bool isDue(const TimingRule& rule, uint64_t now, uint64_t last) {
  if (rule.kind == Q9_NODETYPE_CyclicTiming) return rule.interval != 0 && !withinInterval(now, last, rule.interval);
  return rule.interval == 0 || last == 0 || !withinInterval(now, last, rule.interval);
}

// The time from which a rule is due after a send at last; kNever for a
// cycle of 0 and for sums past the end of time, where a trigger at kNever
// itself merely looks once more.
uint64_t dueFrom(const TimingRule& rule, uint64_t last) {
  if (rule.kind == Q9_NODETYPE_EventControlledTiming && (rule.interval == 0 || last == 0)) return 0;
  if (rule.interval == 0 || rule.interval > kNever - last) return kNever;
  return last + rule.interval;
}

}  // namespace

uint32_t readTimingRules(void* triggering, TimingRule* out, bool* allTimings) {
  *allTimings = true;
  MemberWalk children(Q9Db_enumChildren, triggering);
  uint32_t count = 0;
  void* child = nullptr;
  while (children.next(&child)) {
    TimingRule rule{};
    switch (Q9Db_getNodeType(child)) {
      case Q9_NODETYPE_CyclicTiming:
        rule = {as<CyclicTiming>(child)->cycleTime, Q9_NODETYPE_CyclicTiming};
        break;
      case Q9_NODETYPE_EventControlledTiming:
        rule = {uint32_t(as<EventControlledTiming>(child)->debounceTime), Q9_NODETYPE_EventControlledTiming};
        break;
      default:
        *allTimings = false;
        continue;
    }
    if (out) out[count] = rule;
    ++count;
  }
  return count;
}

uint16_t dueKind(const TimingRule* rules, uint32_t count, uint64_t now, uint64_t last) {
  for (uint32_t i = 0; i < count; ++i)
    if (isDue(rules[i], now, last)) return rules[i].kind;
  return 0;
}

uint64_t nextSendTime(const TimingRule* rules, uint32_t count, uint64_t last, bool changed, uint64_t from) {
  const uint16_t kind = dueKind(rules, count, from, last);
  if (kind == Q9_NODETYPE_CyclicTiming || (kind == Q9_NODETYPE_EventControlledTiming && changed)) return from;
  // Which rule comes first only changes where one of them comes due.
  uint64_t next = kNever;
  for (uint32_t i = 0; i < count; ++i) {
    const uint64_t due = dueFrom(rules[i], last);
    if (due > from && due < next) next = due;
  }
  return next;
}

}  // namespace q9
