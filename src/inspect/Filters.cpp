// Node filters: id lists resolved to node pointers at creation, and
// combinations (OR of members); either may be inverted.
#include <string>

#include "platform/Boundary.h"
#include "platform/Heap.h"
#include "platform/WideText.h"
#include "store/Allocator.h"
#include "store/Database.h"

namespace q9 {
namespace {

constexpr uint32_t kIdListKind = fourCC("fNde");
constexpr uint32_t kCombinationKind = fourCC("fCmb");
constexpr int32_t kInverted = 1;

const BlockLayout filterLayout = makeLayout(8, 128);

struct Filter {
  uint32_t kind;
  int32_t mode;
  Allocator* allocator;
  PagedList list;  // sorted nodes, or member filters in appending order
};

const Filter* checked(const Q9DbFilter* f) {
  auto* filter = reinterpret_cast<const Filter*>(f);
  return filter && (filter->kind == kIdListKind || filter->kind == kCombinationKind) ? filter
                                                                                     : nullptr;
}

// Any total order on node identity will do.
int32_t compareNodes(const void* key, const void* item) {
  return key < item ? -1 : key > item ? 1 : 0;
}

HRESULT createFilter(uint32_t kind, int32_t mode, Q9DbFilter** out) {
  if (!out) return E_INVALIDARG;
  auto* f = static_cast<Filter*>(platform::heapAlloc(sizeof(Filter)));
  if (!f) return E_OUTOFMEMORY;
  *f = Filter{kind, mode, nullptr, {nullptr, nullptr}};
  const HRESULT hr = createAllocator(kTrackingAllocator, &f->allocator);
  if (hr != S_OK) {
    platform::heapFree(f);
    return hr;
  }
  *out = reinterpret_cast<Q9DbFilter*>(f);
  return S_OK;
}

HRESULT addNode(Filter* f, void* node) {
  Block* block = nullptr;
  uint64_t index = 0;
  if (searchSorted(&f->list, &block, &index, node, compareNodes) == S_OK) return S_OK;
  return insertSorted(&filterLayout, f->allocator, &f->list, block, index, node);
}

// Resolves each id of a multi-string to its node; unknown ids are passed over.
template <typename Char, typename Widen>
HRESULT createIdList(Q9DbNode* db, int32_t mode, const Char* ids, Q9DbFilter** out, Widen widen) {
  HRESULT hr = createFilter(kIdListKind, mode, out);
  if (hr != S_OK || !db || !ids) return hr;
  auto* f = reinterpret_cast<Filter*>(*out);
  for (const Char* id = ids; *id; id += std::char_traits<Char>::length(id) + 1) {
    Q9DbNode* node = nullptr;
    if (Q9Db_findByElementId(db, widen(id), &node) != S_OK) continue;
    // A node that could not be added stays out; the filter itself is usable.
    if (addNode(f, node) != S_OK) hr = E_OUTOFMEMORY;
  }
  return hr;
}

// Whether `member` is `target` or holds it somewhere below; appending such a
// member would make matching run forever.
bool reaches(const Filter* member, const Filter* target) {
  if (member == target) return true;
  if (member->kind != kCombinationKind) return false;
  return !forEachPointer(member->list,
                         [&](void* inner) { return !reaches(static_cast<const Filter*>(inner), target); });
}

HRESULT match(const Filter* f, const void* node) {
  HRESULT result = S_FALSE;
  if (f->kind == kIdListKind) {
    Block* block = nullptr;
    uint64_t index = 0;
    result = searchSorted(const_cast<PagedList*>(&f->list), &block, &index, node, compareNodes) ==
                     S_OK
                 ? S_OK
                 : S_FALSE;
  } else {
    forEachPointer(f->list, [&](void* member) {
      result = match(static_cast<const Filter*>(member), node);
      return result != S_OK;  // the first member that passes decides
    });
  }
  if (f->mode == kInverted && (result == S_OK || result == S_FALSE))
    result = result == S_OK ? S_FALSE : S_OK;
  return result;
}

}  // namespace
}  // namespace q9

using namespace q9;

extern "C" {

Q9DB_API HRESULT Q9Db_createIdListFilterW(Q9DbNode* db, int32_t mode, const char16_t* ids,
                                          Q9DbFilter** out) {
  return createIdList(db, mode, ids, out, [](const char16_t* id) { return id; });
}

Q9DB_API HRESULT Q9Db_createIdListFilterA(Q9DbNode* db, int32_t mode, const char* ids,
                                          Q9DbFilter** out) {
  std::u16string wide;
  // Converting the ids may run out of memory.
  return platform::guarded([&] {
    return createIdList(db, mode, ids, out, [&wide](const char* id) {
      wide = platform::narrowToWide(id);
      return wide.c_str();
    });
  });
}

Q9DB_API HRESULT Q9Db_createCombinationFilter(int32_t mode, Q9DbFilter** out) {
  return createFilter(kCombinationKind, mode, out);
}

Q9DB_API HRESULT Q9Db_appendFilter(Q9DbFilter* combination, uint64_t count,
                                   Q9DbFilter* const* filters) {
  auto* f = const_cast<Filter*>(checked(combination));
  if (!f || f->kind != kCombinationKind || count == 0 || !filters) return E_INVALIDARG;
  for (uint64_t i = 0; i < count; ++i) {
    const Filter* member = checked(filters[i]);
    if (!member || reaches(member, f)) continue;
    const HRESULT hr =
        appendPointer(&filterLayout, f->allocator, &f->list, const_cast<Filter*>(member));
    if (hr != S_OK) return hr;
  }
  return S_OK;
}

Q9DB_API HRESULT Q9Db_filterNode(const Q9DbFilter* filter, const void* node) {
  const Filter* f = checked(filter);
  if (!f || !node) return E_INVALIDARG;
  return match(f, node);
}

Q9DB_API HRESULT Q9Db_destroyFilter(Q9DbFilter* filter) {
  auto* f = const_cast<Filter*>(checked(filter));
  if (!f) return E_INVALIDARG;
  f->allocator->destroy(f->allocator);
  f->kind = 0;
  platform::heapFree(f);
  return S_OK;
}

}  // extern "C"
