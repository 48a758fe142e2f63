// The encoder's record store: records found by node and counted by level,
// the changed list newest first, and active counts that saturate.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "encoder/EncoderStore.h"

namespace q9::test {
namespace {

// Stand-ins for nodes: the store only compares their addresses.
char nodes[8];

std::string listed(const EncoderStore& store, EncoderList list, uint32_t level) {
  std::string out;
  for (EncoderRecord* r = store.First(list, level); r; r = EncoderStore::Next(list, r))
    out += char('A' + (static_cast<char*>(r->node) - nodes));
  return out;
}

// A sealed store with a record per level given, for nodes A, B, C, ...,
// added in reverse address order so that the index has work to do.
void fill(EncoderStore& store, const std::vector<uint32_t>& levels) {
  ASSERT_EQ(store.Reserve(uint32_t(levels.size()) + 1), S_OK);
  for (size_t i = levels.size(); i-- > 0;) ASSERT_EQ(store.Add(12, levels[i], nullptr, &nodes[i]), S_OK);
  EXPECT_EQ(store.Add(8, kEncoderLevels, nullptr, &nodes[7]), E_INVALIDARG) << "no such level";
  store.Seal();
  EXPECT_EQ(store.Add(8, 0, nullptr, &nodes[7]), E_INVALIDARG) << "sealed";
}

TEST(EncoderStoreTest, SealedRecordsAreFoundByNodeAndCountedByLevel) {
  EncoderStore store;
  EXPECT_EQ(store.Find(&nodes[0]), nullptr) << "never reserved";
  EXPECT_EQ(store.HighestLevel(), 0u);
  fill(store, {1, 5, 2});
  EXPECT_EQ(store.Reserve(2), E_INVALIDARG);
  EXPECT_EQ(store.HighestLevel(), 5u);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(store.Find(&nodes[i])->node, &nodes[i]);
  EXPECT_EQ(store.Find(&nodes[1])->byteSize, 2u);
  EXPECT_EQ(store.Find(&nodes[3]), nullptr);

  EncoderStore flat;
  fill(flat, {0, 0});
  EXPECT_EQ(flat.HighestLevel(), 0u) << "the same as empty";
}

TEST(EncoderStoreTest, ChangedListReadsNewestFirstAndUnlinksAnywhere) {
  EncoderStore store;
  fill(store, {0, 0, 0});
  EncoderRecord *a = store.Find(&nodes[0]), *b = store.Find(&nodes[1]), *c = store.Find(&nodes[2]);
  for (EncoderRecord* r : {a, b, c}) ASSERT_EQ(store.Mark(true, 1, r), S_OK);
  EXPECT_EQ(listed(store, kChangedList, 0), "CBA");
  EXPECT_EQ(store.Mark(false, 1, b), S_OK);
  EXPECT_EQ(listed(store, kChangedList, 0), "CA");
  EXPECT_EQ(store.Mark(false, 1, c), S_OK);
  EXPECT_EQ(listed(store, kChangedList, 0), "A");

  // Bits accumulate; the record leaves only with the last of them.
  ASSERT_EQ(store.Mark(true, 2, a), S_OK);
  EXPECT_EQ(store.Mark(false, 1, a), E_FAIL);
  EXPECT_EQ(a->changeMask, 2u);
  EXPECT_EQ(listed(store, kChangedList, 0), "A");
  EXPECT_EQ(store.Mark(false, 2, a), S_OK);
  EXPECT_EQ(listed(store, kChangedList, 0), "");
}

TEST(EncoderStoreTest, ActiveCountsNeverLeaveTheirSixteenBits) {
  EncoderStore store;
  fill(store, {0, 0});
  EncoderRecord* a = store.Find(&nodes[0]);
  EXPECT_EQ(store.SetActive(&nodes[0], false), S_FALSE) << "delete of what isn't inserted";
  EXPECT_EQ(a->activeCount, 0);
  for (int i : {0, 1, 0}) EXPECT_EQ(store.SetActive(&nodes[i], true), S_OK);
  EXPECT_EQ(store.SetActive(&nodes[0], false), S_OK);
  EXPECT_EQ(listed(store, kActiveList, 0), "BA") << "inserted twice, deleted once";
  EXPECT_EQ(store.SetActive(&nodes[0], false), S_OK);
  EXPECT_EQ(listed(store, kActiveList, 0), "B");

  a->activeCount = UINT16_MAX - 1;
  EXPECT_EQ(store.SetActive(&nodes[0], true), S_OK);
  EXPECT_EQ(store.SetActive(&nodes[0], true), S_FALSE);
  EXPECT_EQ(a->activeCount, UINT16_MAX);
}

}  // namespace
}  // namespace q9::test
