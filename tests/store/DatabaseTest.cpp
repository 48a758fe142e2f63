// A database's creation and destruction, its seven collection groups, its
// name index and the registration of ids in it.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "StoreFixture.h"

namespace q9::test {
namespace {

std::vector<std::u16string> childIds(ElementGroup* group) {
  std::vector<std::u16string> ids;
  Cursor c;
  cursorInit(&c, &childLayout, &group->children);
  void* item;
  while (cursorNextPointers(&c, 1, &item, nullptr) == S_OK)
    ids.emplace_back(as<ElementId>(item)->eid ? as<ElementId>(item)->eid : u"(anonymous)");
  return ids;
}

const std::vector<std::u16string> kCollectionOrder = {u"@clusters", u"@ECUs",    u"@PDUs",
                                                      u"@frames",   u"@signals", u"@codings",
                                                      u"@views"};

TEST(Database, CreateWithoutIdHasSevenIndexedGroups) {
  Q9DbNode* h = nullptr;
  ASSERT_EQ(Q9Db_create(nullptr, &h), S_OK);
  Q9Db* db = asDatabase(h);
  auto* collections = static_cast<DatabaseCollections*>(db->reference);
  EXPECT_EQ(db->eid, nullptr);
  EXPECT_EQ(childIds(collections), kCollectionOrder);
  // The name index is sorted by code unit: upper case before lower case.
  EXPECT_EQ(childIds(collections->identElements),
            (std::vector<std::u16string>{u"@ECUs", u"@PDUs", u"@clusters", u"@codings",
                                         u"@frames", u"@signals", u"@views"}));
  for (ElementGroup* g : {collections->clusters, collections->views}) {
    EXPECT_EQ(g->group, collections);
    EXPECT_EQ(g->reference, nullptr);
  }
  EXPECT_EQ(collections->identElements->eid, nullptr);
  EXPECT_EQ(collections->identElements->group, nullptr);
  EXPECT_EQ(Q9Db_destroy(h), S_OK);
}

TEST(Database, CreateArguments) {
  EXPECT_EQ(Q9Db_create(u"x", nullptr), E_INVALIDARG);
  EXPECT_EQ(Q9Db_destroy(Tagged(Frame::kNodeType).node()), E_INVALIDARG);
  EXPECT_EQ(Q9Db_destroy(nullptr), E_INVALIDARG);
}

TEST_F(StoreTest, FindByElementId) {
  Q9DbNode* out = nullptr;
  EXPECT_EQ(Q9Db_findByElementId(handle, u"db", &out), S_OK);
  EXPECT_EQ(out, handle);
  DatabaseCollections* collections = this->collections();
  EXPECT_EQ(Q9Db_findByElementId(handle, u"@frames", &out), S_OK);
  EXPECT_EQ(out, node(collections->frames));
  out = node(db());
  EXPECT_EQ(Q9Db_findByElementId(handle, u"@nothing", &out), S_FALSE);
  EXPECT_EQ(out, node(db())) << "out untouched when nothing is found";
  EXPECT_EQ(Q9Db_findByElementId(handle, nullptr, &out), E_INVALIDARG);
  EXPECT_EQ(Q9Db_findByElementId(handle, u"db", nullptr), E_INVALIDARG);
  EXPECT_EQ(Q9Db_findByElementId(node(collections), u"db", &out), E_INVALIDARG);
  // The collections' own children are in arrival order, where a binary
  // search can miss.
  EXPECT_EQ(Q9Db_findChildByElementId(node(collections), u"@codings", &out), S_FALSE);
  EXPECT_EQ(Q9Db_findChildByElementId(node(collections->identElements), u"@PDUs", &out), S_OK);
  EXPECT_EQ(out, node(collections->PDUs));
  auto* frame = make<Frame>();
  EXPECT_EQ(Q9Db_findChildByElementId(node(frame), u"@PDUs", &out), E_INVALIDARG);
  EXPECT_EQ(Q9Db_findChildByElementId(nullptr, u"@PDUs", &out), E_INVALIDARG);
}

// A database id is an ordinary text: one equal to a collection's id leaves
// the group as its holder in the index; the empty one sorts first.
TEST(Database, IdsThatMeetOtherEntriesOfTheIndex) {
  for (const char16_t* id : {u"@views", u""}) {
    Q9DbNode* h = nullptr;
    ASSERT_EQ(Q9Db_create(id, &h), S_OK);
    auto* collections = static_cast<DatabaseCollections*>(asDatabase(h)->reference);
    EXPECT_EQ(std::u16string(asDatabase(h)->eid), id);
    Q9DbNode* out = nullptr;
    EXPECT_EQ(Q9Db_findByElementId(h, id, &out), S_OK);
    EXPECT_EQ(out, *id ? node(collections->views) : h);
    if (!*id) {
      EXPECT_EQ(childIds(collections->identElements).front(), u"");
    }
    Q9Db_destroy(h);
  }
}

TEST_F(StoreTest, RegistrationKeepsTheFirstHolderOfAnId) {
  auto* first = make<Cluster>();
  auto* second = make<Cluster>();
  auto* anonymous = make<Frame>();
  EXPECT_EQ(registerElementId(db(), u"CAN1", first), S_OK);
  EXPECT_EQ(registerElementId(db(), u"CAN1", second), S_OK);
  EXPECT_EQ(registerElementId(db(), nullptr, anonymous), S_OK);
  EXPECT_EQ(second->eid, first->eid) << "both keep the id";
  EXPECT_EQ(anonymous->eid, nullptr);
  Q9DbNode* out = nullptr;
  EXPECT_EQ(Q9Db_findByElementId(handle, u"CAN1", &out), S_OK);
  EXPECT_EQ(out, node(first));
  EXPECT_EQ(registerElementId(db(), u"again", first), E_UNEXPECTED);
  EXPECT_EQ(registerElementId(nullptr, u"x", make<Frame>()), E_INVALIDARG);
  Tagged timing(CyclicTiming::kNodeType);
  EXPECT_EQ(registerElementId(db(), u"x", reinterpret_cast<ObjectBase*>(timing.bytes)), E_INVALIDARG);
  // An id that only an unindexed element carries is not found.
  auto* stray = make<Frame>();
  ASSERT_EQ(Q9Db_setElementId(node(stray), u"stray"), S_OK);
  EXPECT_EQ(Q9Db_findByElementId(handle, u"stray", &out), S_FALSE);
}

TEST_F(StoreTest, AllocNodeMakesOnlyConcreteClasses) {
  for (const NodeClassInfo& row : kNodeClasses) {
    ObjectBase* n = allocNode(db(), row.nodeType);
    EXPECT_EQ(n != nullptr, row.allocatable) << row.name;
    if (!n) continue;
    EXPECT_EQ(readTag(n), row.nodeType);
    if (isA<DatabaseRef>(n)) {
      EXPECT_EQ(static_cast<DatabaseRef*>(n)->databaseRef, db());
    }
  }
  EXPECT_EQ(allocNode(db(), 0x12345678), nullptr);
}

TEST_F(StoreTest, DatabaseCollectionsAndRef) {
  Q9DbNode* out = nullptr;
  Q9DbNode* collections = node(db()->reference);
  EXPECT_EQ(valueOf(Q9Db_getDatabaseCollections, handle), collections);
  EXPECT_EQ(valueOf(Q9Db_getDatabaseCollections, collections), collections);
  EXPECT_EQ(Q9Db_getDatabaseCollections(node(make<Frame>()), &out), E_INVALIDARG);
  EXPECT_EQ(Q9Db_getDatabaseCollections(nullptr, &out), E_POINTER);
  EXPECT_EQ(Q9Db_getDatabaseCollections(handle, nullptr), E_POINTER);
  EXPECT_EQ(valueOf(Q9Db_getDatabaseRef, make<Signal>()), handle);
  EXPECT_EQ(valueOf(Q9Db_getDatabaseRef, handle), handle);
}

// Every allocation of creation may fail: each failure is reported, nothing
// leaks (the leak checkers see to that), and out stays untouched.
TEST(Database, CreationSurvivesRunningOutOfMemoryAtEveryStep) {
  bool succeeded = false;
  for (int64_t n = 0; n < 200 && !succeeded; ++n) {
    Q9DbNode* out = reinterpret_cast<Q9DbNode*>(0x1);
    HRESULT hr;
    {
      platform::HeapFailureScope failing(n);
      hr = Q9Db_create(u"network", &out);
    }
    if (hr == S_OK) {
      succeeded = true;
      Q9DbNode* found = nullptr;
      EXPECT_EQ(Q9Db_findByElementId(out, u"network", &found), S_OK);
      Q9Db_destroy(out);
    } else {
      EXPECT_EQ(hr, E_OUTOFMEMORY) << "after " << n << " allocations";
      EXPECT_EQ(out, reinterpret_cast<Q9DbNode*>(0x1));
    }
  }
  EXPECT_TRUE(succeeded);
}

}  // namespace
}  // namespace q9::test
