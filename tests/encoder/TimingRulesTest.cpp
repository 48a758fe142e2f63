// The earliest send time that the schedule keeps for a record must never
// lie past a time at which a trigger would send it: checked against the due
// kind at every time up to it, over lists of timings in every order.
#include <gtest/gtest.h>

#include <vector>

#include "encoder/TimingRules.h"
#include "store/Nodes.h"

namespace q9::test {
namespace {

constexpr uint16_t C = Q9_NODETYPE_CyclicTiming, E = Q9_NODETYPE_EventControlledTiming;

bool sends(const std::vector<TimingRule>& rules, uint64_t now, uint64_t last, bool changed) {
  const uint16_t kind = dueKind(rules.data(), uint32_t(rules.size()), now, last);
  return kind == C || (kind == E && changed);
}

TEST(TimingRulesTest, NoSendComesBeforeTheNextSendTime) {
  const TimingRule pool[] = {{0, C}, {5, C}, {30, C}, {0, E}, {7, E}, {25, E}};
  std::vector<std::vector<TimingRule>> lists = {{}};
  for (const TimingRule& a : pool) {
    lists.push_back({a});
    for (const TimingRule& b : pool) {
      lists.push_back({a, b});
      for (const TimingRule& c : pool) lists.push_back({a, b, c});
    }
  }
  for (const auto& rules : lists) {
    for (uint64_t last : {0, 10, 40}) {
      for (bool changed : {false, true}) {
        for (uint64_t from = 0; from < 80; from += 3) {
          const uint64_t next = nextSendTime(rules.data(), uint32_t(rules.size()), last, changed, from);
          ASSERT_GE(next, from);
          EXPECT_EQ(next == from, sends(rules, from, last, changed)) << rules.size() << " " << last << " " << from;
          for (uint64_t t = from; t < next && t < 200; ++t)
            ASSERT_FALSE(sends(rules, t, last, changed)) << "at " << t << ", next " << next;
        }
      }
    }
  }
}

TEST(TimingRulesTest, SumsPastTheEndOfTimeNeverComeDue) {
  const TimingRule cycle{100, C}, event{100, E};
  for (const TimingRule& rule : {cycle, event}) {
    EXPECT_EQ(dueKind(&rule, 1, UINT64_MAX, UINT64_MAX - 99), 0) << rule.kind;
    EXPECT_EQ(dueKind(&rule, 1, UINT64_MAX, UINT64_MAX - 100), rule.kind) << "exactly at the end";
    EXPECT_EQ(nextSendTime(&rule, 1, UINT64_MAX - 50, true, UINT64_MAX - 10), kNever);
  }
}

}  // namespace
}  // namespace q9::test
