// A database per test, plus helpers to make nodes of any class directly or
// through the factories, and bytes that carry nothing but a tag.
#pragma once

#include <gtest/gtest.h>

#include "Q9Db.h"
#include "store/Database.h"
#include "store/NodeClasses.h"
#include "store/StringStore.h"
#include "platform/Heap.h"

#include <cstring>
#include <memory>
#include <vector>

namespace q9::test {

inline Q9DbNode* node(void* p) { return static_cast<Q9DbNode*>(p); }

// Bytes that carry a node's tag and nothing else: a node of a wrong class,
// to be refused by its tag.
struct Tagged {
  explicit Tagged(uint32_t type) { writeTag(bytes, type); }
  Q9DbNode* node() { return reinterpret_cast<Q9DbNode*>(bytes); }
  unsigned char bytes[64] = {};
};

class StoreTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(Q9Db_create(u"db", &handle), S_OK); }
  void TearDown() override { EXPECT_EQ(Q9Db_destroy(handle), S_OK); }

  Q9Db* db() { return asDatabase(handle); }
  DatabaseCollections* collections() { return static_cast<DatabaseCollections*>(db()->reference); }

  // What a factory makes of these arguments (the database first, the out
  // last); the factory must succeed.
  template <typename Factory, typename... Args>
  Q9DbNode* create(Factory factory, Args... args) {
    Q9DbNode* out = nullptr;
    EXPECT_EQ(factory(handle, args..., &out), S_OK);
    return out;
  }
  StringStore* store() { return db()->stringStore; }

  template <typename Node>
  Node* make() {
    auto* n = allocNodeOf<Node>(db());
    EXPECT_NE(n, nullptr);
    return n;
  }

  // A node of the class with this class number; records and the handle
  // come from their own places.
  void* makeByNumber(int number) {
    const uint32_t type = kNodeClasses[number - 1].nodeType;
    if (type == Q9Db::kNodeType) return db();
    if (type == DatabaseCollections::kNodeType) return db()->reference;
    if (type == Segment::kNodeType || type == ValueRange::kNodeType) {
      records.emplace_back(new unsigned char[64]());
      writeTag(records.back().get(), type);
      return records.back().get();
    }
    return allocNode(db(), type);
  }

  Q9DbNode* handle = nullptr;
  std::vector<std::unique_ptr<unsigned char[]>> records;
};

using Nodes = std::vector<void*>;

// What a getter answers for n, which must be S_OK. The value starts as
// garbage, so that an answer the getter doesn't write shows.
template <typename T>
T valueOf(HRESULT (*get)(Q9DbNode*, T*), const void* n) {
  T value;
  std::memset(static_cast<void*>(&value), 0xA5, sizeof value);
  EXPECT_EQ(get(node(const_cast<void*>(n)), &value), S_OK);
  return value;
}

// The members of one of an owner's lists, through a heap enumerator.
inline Nodes listed(Q9DbNode* owner, HRESULT (*open)(Q9DbNode*, Q9DbEnumerator**)) {
  Nodes out;
  Q9DbEnumerator* e = nullptr;
  if (open(owner, &e) != S_OK) return out;
  Q9DbNode* item = nullptr;
  while (Q9Db_enumeratorNext(e, 1, &item, nullptr) == S_OK) out.push_back(item);
  Q9Db_enumeratorDestroy(e);
  return out;
}

// The classes that exist as nodes (no abstract class has instances).
inline const std::vector<int>& concreteClassNumbers() {
  static const std::vector<int> numbers = {6,  7,  8,  9,  10, 13, 14, 15, 16, 17, 18, 19, 20, 21,
                                           22, 23, 24, 26, 27, 28, 29, 31, 32, 34, 35, 36, 37};
  return numbers;
}

}  // namespace q9::test
