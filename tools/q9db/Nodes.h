// Small readers over the C interface: lists walked with a callback, and the
// names a user knows a node by.
#ifndef Q9DB_TOOL_NODES_H
#define Q9DB_TOOL_NODES_H

#include <string>
#include <vector>

#include "Q9Db.h"

namespace q9tool {

using OpenEnumerator = HRESULT (*)(Q9DbNode*, Q9DbEnumerator**);

// Calls visit(node) for each member of the list that open reaches from owner.
template <typename Visit>
void forEachNode(OpenEnumerator open, Q9DbNode* owner, Visit visit) {
  Q9DbEnumerator* walk = nullptr;
  if (FAILED(open(owner, &walk))) return;
  Q9DbNode* node = nullptr;
  uint32_t fetched = 0;
  while (Q9Db_enumeratorNext(walk, 1, &node, &fetched) == S_OK && fetched == 1) visit(node);
  Q9Db_enumeratorDestroy(walk);
}

// The short name, else the element id, else "?".
std::string displayName(Q9DbNode* node);
// The display name of a unit, or empty.
std::string unitName(Q9DbNode* unitSpec);
// The text of a string slot, or empty.
std::string slotText(Q9DbNode* db, Q9DbStringSlot* slot);

// The signals a frame carries: those of its PDUs, and of every part of a
// multiplexed one, in the order of the lists.
std::vector<Q9DbNode*> frameSignals(Q9DbNode* frame);

// A text of a signal's coding and the value it stands for, as the coding
// reads the raw bits (before any scaling).
struct ValueText {
  double value;
  std::string text;
};
std::vector<ValueText> valueTexts(Q9DbNode* db, Q9DbNode* signal);

}  // namespace q9tool

#endif
