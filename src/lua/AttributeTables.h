// What a script reads by indexing a node: per class, a table of attribute
// names, the field's position in the node and the reader that pushes it.
#pragma once

#include <cstdint>

#include "lua/Binding.h"

namespace q9::lua {

// Pushes exactly one value for the field at `field` and answers 1.
using AttributeReader = int (*)(lua_State* L, const unsigned char* field);

struct AttributeEntry {
  const char* name;  // null closes a table
  int32_t position;
  AttributeReader reader;
};

// The attribute table of the class with this whole tag, or null.
const AttributeEntry* attributesOf(uint32_t nodeType);

}  // namespace q9::lua
