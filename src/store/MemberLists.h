// Where each member list of a node lives, and the one-item link steps that
// the list operations and the factories share.
#pragma once

#include "Q9Db.h"
#include "store/Nodes.h"

namespace q9 {

// Which field of the member receives the owner when it joins a list.
enum class BackReference { None, Parent, Reference, Group };

// A list of an owner class: the class interval, how to reach the list, its
// layout and the back-reference it keeps.
struct ListPlace {
  uint8_t first, last;
  PagedList* (*list)(ObjectBase* owner);
  const BlockLayout* layout;
  BackReference backReference;

  bool owns(const void* owner) const { return inClasses(owner, first, last); }
};

template <typename Owner, PagedList Owner::*Member>
PagedList* listOf(ObjectBase* owner) {
  return &(static_cast<Owner*>(owner)->*Member);
}

template <typename Owner, PagedList Owner::*Member, BackReference back = BackReference::None>
constexpr ListPlace place(const BlockLayout* layout = &childLayout) {
  return ListPlace{Owner::kFirst, Owner::kLast, &listOf<Owner, Member>, layout, back};
}

// The allocator that serves new blocks of an owner's lists.
Allocator* allocatorOf(ObjectBase* owner);

// Appends one item in arrival order and writes its back-reference.
HRESULT appendMember(const ListPlace& where, ObjectBase* owner, ObjectBase* item);

// Dynamic parts are sorted by switch code; the key is the code itself.
int32_t compareSwitchCode(const void* key, const void* item);
// Inserts a part unless one with its switch code is there already.
HRESULT addDynamicPart(MultiplexedPDU* pdu, MultiplexedPart* part);

}  // namespace q9
