// The channel's triggering index must give a message exactly the triggerings
// that a walk over the whole list gives, in list order, however the list
// grew: through factories or Q9Db_addFrameTriggerings, before or after a
// decode, and behind the index's back.
#include <gtest/gtest.h>

#include "codec/DecoderFixture.h"
#include "store/MemberLists.h"
#include "store/TriggeringIndex.h"

namespace q9::test {
namespace {

class TriggeringIndexTest : public DecoderTest {
 protected:
  void SetUp() override {
    DecoderTest::SetUp();
    frameNode = create(Q9Db_createFrame, u"F", 8);
  }

  Q9DbNode* exact(uint32_t identifier, Q9DbNode* on) {
    return create(Q9Db_createIdentifierBasedTriggering, nullptr, identifier, 0, frameNode, nullptr, on);
  }
  Q9DbNode* masked(uint32_t mask, uint32_t code, Q9DbNode* on) {
    return create(Q9Db_createMaskedIdentifierTriggering, nullptr, mask, code, 0, frameNode, nullptr, on);
  }

  // What the decoder delivers for a standard 8-byte message.
  std::vector<Q9DbNode*> delivered(uint32_t identifier) {
    const uint8_t payload[8] = {};
    Q9DbDecodeEnum* e = nullptr;
    EXPECT_EQ(Q9Db_decodeMessage(channel, identifier, 0, 8, payload, &e), S_OK);
    std::vector<Q9DbNode*> out;
    Q9DbNode* t = nullptr;
    while (Q9Db_decodeNextFrametriggering(e, &t) == S_OK) out.push_back(t);
    Q9Db_destroyDecodeEnum(e);
    return out;
  }

  // The same by the rule, over the channel's list as it stands.
  std::vector<Q9DbNode*> byTheRule(uint32_t identifier) {
    std::vector<Q9DbNode*> out;
    const PagedList& list = as<Channel>(channel)->frameTriggerings;
    for (uint64_t i = 0;; ++i) {
      void* item = nullptr;
      if (getAt(&list, i, &item) != S_OK) break;
      if ((isExact<IdentifierBasedTriggering>(item) && as<IdentifierBasedTriggering>(item)->identifier == identifier) ||
          (isExact<MaskedIdentifierTriggering>(item) &&
           (identifier & as<MaskedIdentifierTriggering>(item)->mask) == as<MaskedIdentifierTriggering>(item)->code))
        out.push_back(node(item));
    }
    return out;
  }

  bool indexCurrent() { return currentTriggeringIndex(*as<Channel>(channel)) != nullptr; }

  Q9DbNode* frameNode = nullptr;
};

TEST_F(TriggeringIndexTest, ExactAndMaskedMatchesComeInListOrder) {
  Q9DbNode* m1 = masked(0x7F0, 0x120, channel);
  Q9DbNode* a = exact(0x123, channel);
  exact(0x456, channel);
  create(Q9Db_createAbsolutelyScheduledTriggering, nullptr, 0x123, 0, 1, 0, frameNode, nullptr, channel);
  Q9DbNode* m2 = masked(0x700, 0x100, channel);
  Q9DbNode* b = exact(0x123, channel);
  ASSERT_EQ(Q9Db_addFrameTriggerings(channel, 1, &a), S_OK);  // the same triggering twice

  EXPECT_TRUE(indexCurrent());
  EXPECT_EQ(delivered(0x123), (std::vector<Q9DbNode*>{m1, a, m2, b, a}));
  EXPECT_EQ(delivered(0x12F), (std::vector<Q9DbNode*>{m1, m2}));
  EXPECT_EQ(delivered(0x456), byTheRule(0x456));
  EXPECT_EQ(delivered(0x7FF), byTheRule(0x7FF));
}

TEST_F(TriggeringIndexTest, AppendsAfterADecodeAreFound) {
  Q9DbNode* first = exact(0x10, channel);
  EXPECT_EQ(delivered(0x10), (std::vector<Q9DbNode*>{first}));

  // Made elsewhere, then added: through the list operation.
  Q9DbNode* loose = exact(0x10, nullptr);
  Q9DbNode* looseMask = masked(0x7F0, 0x10, nullptr);
  Q9DbNode* both[] = {looseMask, loose};
  ASSERT_EQ(Q9Db_addFrameTriggerings(channel, 2, both), S_OK);
  // And through a factory that names the channel.
  Q9DbNode* last = exact(0x10, channel);

  EXPECT_TRUE(indexCurrent());
  EXPECT_EQ(delivered(0x10), (std::vector<Q9DbNode*>{first, looseMask, loose, last}));
  EXPECT_EQ(delivered(0x1F), (std::vector<Q9DbNode*>{looseMask}));
}

TEST_F(TriggeringIndexTest, ManyTriggeringsWithSharedIdentifiersAgreeWithTheRule) {
  // Enough to grow the buckets several times, with repeats and masks between.
  uint32_t state = 1;
  auto next = [&] { return state = state * 1103515245u + 12345u, (state >> 16) & 0x7FF; };
  for (int i = 0; i < 600; ++i) {
    if (i % 97 == 0)
      masked(0x7C0, next() & 0x7C0, channel);
    else
      exact(next() % 300, channel);
  }
  ASSERT_TRUE(indexCurrent());
  for (uint32_t identifier = 0; identifier < 0x800; identifier += 7) {
    SCOPED_TRACE(identifier);
    EXPECT_EQ(delivered(identifier), byTheRule(identifier));
  }
}

TEST_F(TriggeringIndexTest, AnAppendTheIndexMissedMakesTheDecoderWalkTheList) {
  exact(0x20, channel);
  Q9DbNode* unseen = exact(0x20, nullptr);
  auto* list = &as<Channel>(channel)->frameTriggerings;
  for (int i = 0; i < 6; ++i)  // into the next block, too
    ASSERT_EQ(appendPointer(&childLayout, allocatorOf(as<ObjectBase>(channel)), list, unseen), S_OK);
  EXPECT_FALSE(indexCurrent());
  EXPECT_EQ(delivered(0x20), byTheRule(0x20));
  EXPECT_EQ(delivered(0x20).size(), 7u);

  // The next append that the index hears of brings it up to date.
  exact(0x21, channel);
  EXPECT_TRUE(indexCurrent());
  EXPECT_EQ(delivered(0x20), byTheRule(0x20));
}

}  // namespace
}  // namespace q9::test
