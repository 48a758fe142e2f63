// The database handle: creation, release, node allocation and the name index.
#pragma once

#include "Q9Db.h"
#include "store/Nodes.h"

namespace q9 {

struct StringStore;

// The handle behind a client's pointer when it carries the Q9Db tag, else null.
Q9Db* asDatabase(const void* handle);
// The string store of a database handle, or null for anything else.
StringStore* storeOf(const void* handle);
// The collections node of a database or collections node; null otherwise.
DatabaseCollections* collectionsOf(const void* dbOrCollections);

// A zeroed node of a concrete class from the database's allocator, or null.
ObjectBase* allocNode(Q9Db* db, uint32_t nodeType);
template <typename Node>
Node* allocNodeOf(Q9Db* db) {
  return static_cast<Node*>(allocNode(db, Node::kNodeType));
}

HRESULT registerElementId(Q9Db* db, const char16_t* text, ObjectBase* node);

// Sorted insertion of an element into a children list by eid: S_OK with
// nothing done when the id is taken. Sets the element's group on insertion.
HRESULT insertChildSorted(ElementGroup* owner, ElementId* child, const BlockLayout* layout);

// The eid of a listed element, null for a light node.
const void* elementIdOf(const void* item);
// Comparison of an eid key with a listed element; the key is an interned
// text or a WordReadableCopy.
int32_t compareElementId(const void* key, const void* item);

}  // namespace q9
