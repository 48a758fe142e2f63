// The general heap of the library. Everything the library takes from the heap
// goes through here, so tests can count allocations and make them fail.
#pragma once

#include <cstddef>
#include <cstdint>

namespace q9::platform {

void* heapAlloc(std::size_t size);
void heapFree(void* p);

// Test hooks. failAfter(n): the next n allocations succeed, all later ones
// fail until reset; failAfter(-1) turns failing off.
void heapFailAfter(int64_t n);
uint64_t heapAllocationCount();

// Turns failing off again when it goes out of scope.
struct HeapFailureScope {
  explicit HeapFailureScope(int64_t n) { heapFailAfter(n); }
  ~HeapFailureScope() { heapFailAfter(-1); }
  HeapFailureScope(const HeapFailureScope&) = delete;
  HeapFailureScope& operator=(const HeapFailureScope&) = delete;
};

}  // namespace q9::platform
