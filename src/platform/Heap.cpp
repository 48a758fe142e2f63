// A countdown of allowed allocations stands in for a failing heap: once it
// runs out, every later allocation fails too, until a test resets it. A
// request for zero bytes takes one, so null always means failure.
#include "platform/Heap.h"

#include <atomic>
#include <cstdlib>

namespace q9::platform {
namespace {
std::atomic<int64_t> allowedAllocations{-1};
std::atomic<uint64_t> allocations{0};
}  // namespace

void* heapAlloc(std::size_t size) {
  if (allowedAllocations.load(std::memory_order_relaxed) >= 0 &&
      allowedAllocations.fetch_sub(1, std::memory_order_relaxed) <= 0) {
    allowedAllocations.store(0, std::memory_order_relaxed);
    return nullptr;
  }
  allocations.fetch_add(1, std::memory_order_relaxed);
  return std::malloc(size ? size : 1);
}

void heapFree(void* p) { std::free(p); }

void heapFailAfter(int64_t n) { allowedAllocations.store(n < 0 ? -1 : n); }

uint64_t heapAllocationCount() { return allocations.load(std::memory_order_relaxed); }

}  // namespace q9::platform
