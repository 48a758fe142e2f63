// The per-node cache of the decoder: one make per node, and values that
// stay where they are while the table grows.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "NodeCache.h"

namespace {

TEST(NodeCache, MakesEachValueOnceAndKeepsItsAddress) {
  // Neighbouring addresses, as nodes of one block have them.
  std::vector<long> nodes(5000);
  q9tool::NodeCache<long, std::string> cache;
  int made = 0;
  auto make = [&made](long* node) {
    ++made;
    return std::to_string(*node);
  };
  for (size_t i = 0; i < nodes.size(); ++i) nodes[i] = static_cast<long>(i);
  const std::string* first = &cache.get(&nodes[0], make);
  for (int round = 0; round < 2; ++round)
    for (long& node : nodes) EXPECT_EQ(cache.get(&node, make), std::to_string(node));
  EXPECT_EQ(made, 5000);
  EXPECT_EQ(&cache.get(&nodes[0], make), first);
}

}  // namespace
