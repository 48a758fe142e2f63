// One pass over a member list through an enumerator that lives in the
// walker's own storage, so that opening and stepping never touch the heap.
// The encoder walks lists on every change and trigger; none of that may
// allocate once the encoder stands.
#pragma once

#include "Q9Db.h"

namespace q9 {

using ListOpening = HRESULT (*)(Q9DbNode* owner, Q9DbEnumerator** pEnum);

class MemberWalk {
 public:
  MemberWalk(ListOpening open, void* owner) {
    // Any of the two tags lets the opening re-aim the storage in place.
    storage_.tag = Q9_ENUMERATOR_TAG_RECORDS;
    status_ = open(static_cast<Q9DbNode*>(owner), &enumerator_);
  }
  MemberWalk(const MemberWalk&) = delete;
  MemberWalk& operator=(const MemberWalk&) = delete;

  // S_OK when the list could be opened; else the opening's failure.
  HRESULT status() const { return status_; }

  // The next member (a node, or a record's address); false at the end.
  bool next(void** item) {
    if (status_ != S_OK) return false;
    Q9DbNode* out = nullptr;
    if (Q9Db_enumeratorNext(enumerator_, 1, &out, nullptr) != S_OK) return false;
    *item = out;
    return true;
  }

 private:
  Q9DbEnumerator storage_{};
  Q9DbEnumerator* enumerator_ = &storage_;
  HRESULT status_;
};

}  // namespace q9
