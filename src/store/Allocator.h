// Block sources of a database. A database frees everything at once, so the
// free operation of the kinds in use does nothing.
#pragma once

#include <cstddef>

#include "Q9Db.h"

namespace q9 {

struct Allocator {
  void* (*alloc)(Allocator* self, std::size_t size);
  void (*free)(Allocator* self, void* p);
  void (*destroy)(Allocator* self);
};

enum AllocatorKind : int {
  kHeapAllocator = 0,      // general heap, one static instance
  kRegionAllocator = 1,    // reserve once, commit at a moving cursor
  kTrackingAllocator = 2,  // heap blocks in a ring, freed together
};

HRESULT createAllocator(int kind, Allocator** out);

}  // namespace q9
