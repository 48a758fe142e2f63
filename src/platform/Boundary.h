// The exception barrier: no C++ exception ever leaves the library, neither
// through an exported function nor through a callback the library hands to
// C code (Lua, libxml2), since the caller's frames are C and can't be
// unwound. The node store allocates through platform/Heap and answers null;
// what uses the standard library (strings, vectors, maps) can throw
// std::bad_alloc, and the few functions that do run that code through
// guarded() at the boundary, which turns the throw into a status:
// E_OUTOFMEMORY for std::bad_alloc, E_UNEXPECTED for anything else.
//
// Only code that can throw is wrapped: decoding, encoding and the bit
// primitives allocate nothing from the standard library and stay as they
// are, and a hot export that can throw on a rare slow path guards that path
// alone. A try block costs nothing until something is thrown.
#pragma once

#include <new>
#include <type_traits>
#include <utility>

#include "Q9Db.h"

namespace q9::platform {

// Runs work (returning an HRESULT, or nothing for S_OK) and answers its
// status, or the status of what it threw.
template <typename Work>
HRESULT guarded(Work&& work) noexcept {
  try {
    if constexpr (std::is_void_v<decltype(std::forward<Work>(work)())>) {
      std::forward<Work>(work)();
      return S_OK;
    } else {
      return std::forward<Work>(work)();
    }
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  } catch (...) {
    return E_UNEXPECTED;
  }
}

}  // namespace q9::platform
