// Three kinds: the general heap; an address range reserved once and
// committed a page at a time as blocks reach it; and heap blocks threaded on
// a ring through a header in front of each, so that destroying the source
// frees them all.
#include "store/Allocator.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <new>

#include "platform/Heap.h"

namespace q9 {
namespace {

using platform::heapAlloc;
using platform::heapFree;

// Kind 0: the general heap.
void* heapKindAlloc(Allocator*, std::size_t size) { return heapAlloc(size); }
void heapKindFree(Allocator*, void* p) { heapFree(p); }
void heapKindDestroy(Allocator*) {}
Allocator heapInstance{heapKindAlloc, heapKindFree, heapKindDestroy};

// Kind 1: a reserved address range, committed piecewise.
constexpr std::size_t kRegionSize = 0x800000;
struct RegionAllocator {
  Allocator ops;
  std::size_t reserved;
  unsigned char* base;
  std::size_t cursor;
};
void* regionAlloc(Allocator* self, std::size_t size) {
  auto* r = reinterpret_cast<RegionAllocator*>(self);
  size = (size + 15) & ~std::size_t(15);
  if (size > r->reserved - r->cursor) return nullptr;
  unsigned char* p = r->base + r->cursor;
  // Commit whole pages that the new range touches.
  const std::size_t page = std::size_t(sysconf(_SC_PAGESIZE));
  const auto start = reinterpret_cast<std::uintptr_t>(p) & ~(page - 1);
  const auto end = reinterpret_cast<std::uintptr_t>(p + size);
  if (mprotect(reinterpret_cast<void*>(start), end - start, PROT_READ | PROT_WRITE) != 0)
    return nullptr;
  r->cursor += size;
  return p;
}
void regionFree(Allocator*, void*) {}
void regionDestroy(Allocator* self) {
  auto* r = reinterpret_cast<RegionAllocator*>(self);
  munmap(r->base, r->reserved);
  heapFree(r);
}

// Kind 2: every block carries two ring links in front of it.
struct TrackedHeader {
  TrackedHeader* previous;
  TrackedHeader* next;
};
struct TrackingAllocator {
  Allocator ops;
  TrackedHeader* head;  // ring of blocks, newest at the tail (head->previous)
};
void* trackingAlloc(Allocator* self, std::size_t size) {
  auto* t = reinterpret_cast<TrackingAllocator*>(self);
  auto* h = static_cast<TrackedHeader*>(heapAlloc(sizeof(TrackedHeader) + size));
  if (!h) return nullptr;
  if (!t->head) {
    h->previous = h->next = h;
    t->head = h;
  } else {
    TrackedHeader* tail = t->head->previous;
    h->previous = tail;
    h->next = t->head;
    tail->next = h;
    t->head->previous = h;
  }
  return h + 1;
}
void trackingFree(Allocator*, void*) {}
void trackingDestroy(Allocator* self) {
  auto* t = reinterpret_cast<TrackingAllocator*>(self);
  if (TrackedHeader* head = t->head) {
    // From the tail backwards, so the head goes last.
    TrackedHeader* h = head->previous;
    while (h != head) {
      TrackedHeader* prev = h->previous;
      heapFree(h);
      h = prev;
    }
    heapFree(head);
    t->head = nullptr;
  }
  heapFree(t);
}

}  // namespace

HRESULT createAllocator(int kind, Allocator** out) {
  if (!out) return E_INVALIDARG;
  *out = nullptr;
  switch (kind) {
    case kHeapAllocator:
      *out = &heapInstance;
      return S_OK;
    case kRegionAllocator: {
      void* base = mmap(nullptr, kRegionSize, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE,
                        -1, 0);
      if (base == MAP_FAILED) return E_OUTOFMEMORY;
      auto* r = static_cast<RegionAllocator*>(heapAlloc(sizeof(RegionAllocator)));
      if (!r) {
        munmap(base, kRegionSize);
        return E_OUTOFMEMORY;
      }
      new (r) RegionAllocator{{regionAlloc, regionFree, regionDestroy}, kRegionSize,
                              static_cast<unsigned char*>(base), 0};
      *out = &r->ops;
      return S_OK;
    }
    case kTrackingAllocator: {
      auto* t = static_cast<TrackingAllocator*>(heapAlloc(sizeof(TrackingAllocator)));
      if (!t) return E_OUTOFMEMORY;
      new (t) TrackingAllocator{{trackingAlloc, trackingFree, trackingDestroy}, nullptr};
      *out = &t->ops;
      return S_OK;
    }
    default:
      return E_INVALIDARG;
  }
}

}  // namespace q9
