// The room a database sets aside for what the decoder compiles: claims up to
// its end, one block per slot however many readers publish, and a change
// that empties every slot and tells kept addresses that they are stale.
#include <gtest/gtest.h>

#include <vector>

#include "StoreFixture.h"
#include "store/Accelerators.h"

namespace q9::test {
namespace {

class AcceleratorsTest : public StoreTest {
 protected:
  // Sets room aside as the creation of nodes would.
  void SetUp() override {
    StoreTest::SetUp();
    noteChange(db(), 10000);
  }
};

TEST_F(AcceleratorsTest, ClaimsEndAtTheRoomsEndAndAChangeEmptiesEverySlot) {
  std::vector<void*> slots(64, nullptr);
  size_t published = 0;
  for (void*& slot : slots) {
    Accelerator* block = claimAccelerator(db(), 200 + 8 * published);
    if (!block) break;
    EXPECT_EQ(publishAccelerator(block, &slot), block);
    ++published;
  }
  ASSERT_GT(published, 10u) << "the room holds what was set aside";
  ASSERT_LT(published, slots.size()) << "and no more";
  EXPECT_EQ(claimAccelerator(db(), 16), nullptr) << "a full room stays full";

  const uint64_t epoch = acceleratorEpoch();
  noteNodeChange(db()->reference);
  EXPECT_EQ(acceleratorEpoch(), epoch + 1);
  for (void* slot : slots) EXPECT_EQ(slot, nullptr);
  EXPECT_NE(claimAccelerator(db(), 200), nullptr) << "the room is free again";

  noteChange(db());
  noteChange(db());
  EXPECT_EQ(acceleratorEpoch(), epoch + 2) << "an empty room has nothing to take away";
}

TEST_F(AcceleratorsTest, TheFirstPublisherWins) {
  void* slot = nullptr;
  Accelerator* first = claimAccelerator(db(), 64);
  Accelerator* second = claimAccelerator(db(), 64);
  ASSERT_TRUE(first && second);
  EXPECT_EQ(publishAccelerator(first, &slot), first);
  EXPECT_EQ(publishAccelerator(second, &slot), first) << "the later block stays unused";
  EXPECT_EQ(loadAccelerator(&slot), first);
  noteChange(db());
  EXPECT_EQ(slot, nullptr);
}

TEST_F(AcceleratorsTest, TheRoomGrowsWithTheNodesThatPlansCompile) {
  auto blocksThatFit = [&] {
    noteChange(db());
    int n = 0;
    while (claimAccelerator(db(), 1024)) ++n;
    return n;
  };
  const int before = blocksThatFit();
  for (int i = 0; i < 100; ++i) {
    Q9DbNode* cluster = nullptr;
    Q9Db_createCluster(handle, nullptr, 1, &cluster);
  }
  EXPECT_EQ(blocksThatFit(), before) << "a plan compiles nothing of a cluster";
  for (int i = 0; i < 100; ++i) {
    Q9DbNode* instance = nullptr;
    Q9Db_createSignalInstance(handle, nullptr, 0, 0, -1, nullptr, nullptr, &instance);
  }
  EXPECT_GT(blocksThatFit(), before);
}

}  // namespace
}  // namespace q9::test
