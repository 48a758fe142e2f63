// Every node comes zeroed from the database's own allocator, which frees
// them all with the database. The name index keeps the first holder of an
// id and ignores later ones; while the database gathers, ids wait beside the
// index, and lookups by id look there too.
#include "store/Database.h"

#include <cstring>
#include <new>

#include "platform/Heap.h"
#include "store/Accelerators.h"
#include "store/Allocator.h"
#include "store/BlockDirectory.h"
#include "store/Gathering.h"
#include "store/NodeClasses.h"
#include "store/StringStore.h"
#include "store/WordText.h"

namespace q9 {

Q9Db* asDatabase(const void* handle) {
  return isExact<Q9Db>(handle) ? const_cast<Q9Db*>(as<Q9Db>(handle)) : nullptr;
}

StringStore* storeOf(const void* handle) {
  Q9Db* db = asDatabase(handle);
  return db ? db->stringStore : nullptr;
}

DatabaseCollections* collectionsOf(const void* p) {
  if (isExact<DatabaseCollections>(p))
    return const_cast<DatabaseCollections*>(as<DatabaseCollections>(p));
  if (Q9Db* db = asDatabase(p)) return static_cast<DatabaseCollections*>(db->reference);
  return nullptr;
}

ObjectBase* allocNode(Q9Db* db, uint32_t nodeType) {
  const NodeClassInfo* row = classByNodeType(nodeType);
  if (!row || !row->allocatable) return nullptr;
  Allocator* alloc = db->allocator;
  void* mem = alloc->alloc(alloc, row->size);
  if (!mem) return nullptr;
  std::memset(mem, 0, row->size);
  auto* node = static_cast<ObjectBase*>(mem);
  writeTag(node, nodeType);
  if (tagFirst(nodeType) >= DatabaseRef::kFirst && tagLast(nodeType) <= DatabaseRef::kLast)
    static_cast<DatabaseRef*>(node)->databaseRef = db;
  return node;
}

const void* elementIdOf(const void* item) {
  // Light nodes may stand in a sorted group; they have no id to read.
  return inClasses(item, ElementId::kFirst, ElementId::kLast) ? as<ElementId>(item)->eid : nullptr;
}

int32_t compareElementId(const void* key, const void* item) {
  return compareStoredTexts(key, elementIdOf(item));
}

namespace {

// Inserts element into group's children at its eid: S_OK, S_FALSE when the
// eid is there already, or the insertion's failure.
HRESULT insertSortedById(ElementGroup* group, ElementId* element, const BlockLayout* layout) {
  Q9Db* db = group->databaseRef;
  BlockDirectory* directory = directoryFor(&db->directories, &group->children);
  prepareDirectory(directory, &group->children, elementIdOf, compareStoredTexts);
  Block* block = nullptr;
  uint64_t position = 0, slot = 0;
  if (searchSortedWith(directory, &group->children, &block, &position, &slot, element->eid,
                       compareElementId) == S_OK)
    return S_FALSE;
  return insertSortedWith(directory, layout, db->allocator, &group->children, block, position,
                          slot, element);
}

// Enters an element into the name index unless its id is taken there.
HRESULT indexElement(DatabaseCollections* collections, ElementId* element) {
  const HRESULT hr = insertSortedById(collections->identElements, element, &indexLayout);
  return hr == S_FALSE ? S_OK : hr;  // the first holder of an id keeps it
}

HRESULT makeCollectionGroup(Q9Db* db, DatabaseCollections* collections, const char16_t* id,
                            ElementGroup** field) {
  auto* group = allocNodeOf<ElementGroup>(db);
  if (!group) return E_OUTOFMEMORY;
  *field = group;
  group->eid = internText(db->stringStore, id);
  if (!group->eid) return E_OUTOFMEMORY;
  HRESULT hr = indexElement(collections, group);
  if (hr != S_OK) return hr;
  hr = appendPointer(&childLayout, db->allocator, &collections->children, group);
  if (hr != S_OK) return hr;
  group->group = collections;
  return S_OK;
}

void release(Q9Db* db) {
  releaseGathering(db);
  releaseAccelerators(db);
  releaseDirectories(&db->directories);
  if (db->stringStore) destroyStringStore(db->stringStore);
  if (db->allocator) db->allocator->destroy(db->allocator);
  platform::heapFree(db);
}

HRESULT build(Q9Db* db, const char16_t* id) {
  HRESULT hr = createAllocator(kTrackingAllocator, &db->allocator);
  if (hr != S_OK) return hr;
  auto* collections = allocNodeOf<DatabaseCollections>(db);
  if (!collections) return E_OUTOFMEMORY;
  db->reference = collections;
  hr = createStringStore(db->allocator, &db->stringStore);
  if (hr != S_OK) return hr;
  collections->identElements = allocNodeOf<ElementGroup>(db);
  if (!collections->identElements) return E_OUTOFMEMORY;

  struct {
    const char16_t* id;
    ElementGroup** field;
  } const groups[] = {
      {u"@clusters", &collections->clusters}, {u"@ECUs", &collections->ECUs},
      {u"@PDUs", &collections->PDUs},         {u"@frames", &collections->frames},
      {u"@signals", &collections->signals},   {u"@codings", &collections->codings},
      {u"@views", &collections->views},
  };
  for (const auto& g : groups) {
    hr = makeCollectionGroup(db, collections, g.id, g.field);
    if (hr != S_OK) return hr;
  }
  if (id) {
    db->eid = internText(db->stringStore, id);
    if (!db->eid) return E_OUTOFMEMORY;
    hr = indexElement(collections, db);
    if (hr != S_OK) return hr;
  }
  return S_OK;
}

}  // namespace

HRESULT registerElementId(Q9Db* db, const char16_t* text, ObjectBase* node) {
  if (!asDatabase(db) || !inClasses(node, ElementId::kFirst, ElementId::kLast))
    return E_INVALIDARG;
  auto* element = static_cast<ElementId*>(node);
  if (element->eid) return E_UNEXPECTED;
  if (!text) return S_OK;
  element->eid = internText(db->stringStore, text);
  auto* collections = static_cast<DatabaseCollections*>(db->reference);
  if (!collections) return S_FALSE;
  if (!element->eid) return E_INVALIDARG;
  if (db->gathering) return gatherId(db, element);
  return indexElement(collections, element);
}

HRESULT insertChildSorted(ElementGroup* owner, ElementId* child, const BlockLayout* layout) {
  const HRESULT hr = insertSortedById(owner, child, layout);
  if (hr == S_FALSE) return S_OK;
  if (hr == S_OK) child->group = owner;
  return hr;
}

}  // namespace q9

using namespace q9;

extern "C" {

Q9DB_API HRESULT Q9Db_create(const char16_t* id, Q9DbNode** out) {
  if (!out) return E_INVALIDARG;
  auto* db = static_cast<Q9Db*>(platform::heapAlloc(sizeof(Q9Db)));
  if (!db) return E_OUTOFMEMORY;
  std::memset(static_cast<void*>(db), 0, sizeof(Q9Db));
  writeTag(db, Q9Db::kNodeType);
  db->databaseRef = db;
  const HRESULT hr = build(db, id);
  if (hr != S_OK) {
    release(db);
    return hr;
  }
  *out = reinterpret_cast<Q9DbNode*>(db);
  return S_OK;
}

Q9DB_API HRESULT Q9Db_destroy(Q9DbNode* handle) {
  Q9Db* db = asDatabase(handle);
  if (!db) return E_INVALIDARG;
  release(db);
  return S_OK;
}

Q9DB_API HRESULT Q9Db_getDatabaseCollections(Q9DbNode* node, Q9DbNode** out) {
  if (!node || !out) return E_POINTER;
  if (isExact<DatabaseCollections>(node)) {
    *out = node;
    return S_OK;
  }
  Q9Db* db = asDatabase(node);
  if (!db) return E_INVALIDARG;
  *out = reinterpret_cast<Q9DbNode*>(db->reference);
  return db->reference ? S_OK : S_FALSE;
}

Q9DB_API HRESULT Q9Db_findByElementId(Q9DbNode* handle, const char16_t* id, Q9DbNode** out) {
  if (!handle || !id || !out) return E_INVALIDARG;
  Q9Db* db = asDatabase(handle);
  if (!db) return E_INVALIDARG;
  auto* collections = static_cast<DatabaseCollections*>(db->reference);
  if (!collections) return S_FALSE;
  const HRESULT hr =
      Q9Db_findChildByElementId(reinterpret_cast<Q9DbNode*>(collections->identElements), id, out);
  if (hr != S_FALSE || !db->gathering) return hr;
  // An id entered while the database gathers waits beside the index.
  const WordReadableCopy key(id);
  if (!key.text()) return E_OUTOFMEMORY;
  ElementId* holder = gatheredHolder(*db->gathering, key.text());
  if (!holder) return S_FALSE;
  *out = reinterpret_cast<Q9DbNode*>(holder);
  return S_OK;
}

Q9DB_API HRESULT Q9Db_findChildByElementId(Q9DbNode* groupNode, const char16_t* id,
                                           Q9DbNode** out) {
  if (!isA<ElementGroup>(groupNode)) return E_INVALIDARG;
  auto* group = as<ElementGroup>(groupNode);
  const WordReadableCopy key(id);
  if (id && !key.text()) return E_OUTOFMEMORY;
  const BlockDirectory* directory =
      group->databaseRef ? findDirectory(group->databaseRef->directories, &group->children) : nullptr;
  Block* block = nullptr;
  uint64_t position = 0, slot = 0;
  if (searchSortedWith(directory, &group->children, &block, &position, &slot, key.text(),
                       compareElementId) != S_OK)
    return S_FALSE;
  *out = static_cast<Q9DbNode*>(block->pointers()[position]);
  return S_OK;
}

}  // extern "C"
