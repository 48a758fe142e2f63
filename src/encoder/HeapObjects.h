// Objects of the encoder on the library's heap, so that the test hooks that
// count and fail allocations see them like every other allocation.
#pragma once

#include <new>
#include <utility>

#include "platform/Heap.h"

namespace q9 {

template <typename T, typename... Args>
T* heapNew(Args&&... args) {
  void* memory = platform::heapAlloc(sizeof(T));
  return memory ? new (memory) T(std::forward<Args>(args)...) : nullptr;
}

template <typename T>
void heapDelete(T* object) {
  if (!object) return;
  object->~T();
  platform::heapFree(object);
}

}  // namespace q9
