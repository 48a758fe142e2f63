// The class table: one row per node class, from which classification,
// allocation sizes and class names are derived.
#pragma once

#include <cstddef>
#include <cstdint>

namespace q9 {

struct NodeClassInfo {
  uint32_t nodeType;
  const char* name;        // null for the one class without a public name
  const char16_t* wideName;
  std::size_t size;
  bool allocatable;        // made by allocNode
};

// Rows in class-number order: row i is class number i + 1.
extern const NodeClassInfo kNodeClasses[37];

// Row of the class with this whole tag, or null.
const NodeClassInfo* classByNodeType(uint32_t nodeType);
// Row of the class with this two-letter code, or null.
const NodeClassInfo* classByCode(uint32_t code);

const char16_t* classNameW(uint32_t nodeType);
const char* classNameA(uint32_t nodeType);

}  // namespace q9
