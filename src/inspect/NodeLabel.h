// What a node shows in the graph dump: the record label and its fill.
#pragma once

#include <cstdint>
#include <string>

#include "store/Nodes.h"

namespace q9::dot {

struct NodeLabel {
  // "Class [short name]: id details", ready to stand between quotes (UTF-8).
  std::string text;
  // A colour by the node's param, or null when the node isn't filled.
  const char* fill;
};

NodeLabel labelOf(ObjectBase* node, uint16_t language, uint16_t fallback);

}  // namespace q9::dot
