// Numbers kept for pairs of pointers (a frame's triggering and a signal, a
// text slot and nothing), found again by the pair. Open addressing on a
// power-of-two table: decoding looks one up per signal of a log, and a
// lookup costs a multiply and mostly one probe.
#ifndef Q9DB_PYTHON_POINTERINDEX_H
#define Q9DB_PYTHON_POINTERINDEX_H

#include <cstdint>
#include <vector>

namespace q9py {

class PointerIndex {
 public:
  // The number kept for (a, b), or -1.
  int32_t find(const void* a, const void* b) const {
    if (slots_.empty()) return -1;
    const size_t mask = slots_.size() - 1;
    for (size_t i = slotOf(a, b, mask);; i = (i + 1) & mask) {
      const Slot& slot = slots_[i];
      if (slot.a == a && slot.b == b) return slot.value;
      if (slot.value < 0) return -1;
    }
  }

  // Keeps value for (a, b), replacing what was kept. value must be >= 0.
  void insert(const void* a, const void* b, int32_t value) {
    if (2 * (count_ + 1) > slots_.size()) grow();
    const size_t mask = slots_.size() - 1;
    for (size_t i = slotOf(a, b, mask);; i = (i + 1) & mask) {
      Slot& slot = slots_[i];
      if (slot.value < 0) {
        slot = {a, b, value};
        ++count_;
        return;
      }
      if (slot.a == a && slot.b == b) {
        slot.value = value;
        return;
      }
    }
  }

  void clear() {
    slots_.clear();
    count_ = 0;
  }

 private:
  struct Slot {
    const void* a = nullptr;
    const void* b = nullptr;
    int32_t value = -1;  // -1: free
  };

  static size_t slotOf(const void* a, const void* b, size_t mask) {
    uint64_t bits = uint64_t(reinterpret_cast<uintptr_t>(a)) * 0x9E3779B97F4A7C15ull ^
                    uint64_t(reinterpret_cast<uintptr_t>(b)) * 0xC2B2AE3D27D4EB4Full;
    return size_t(bits >> 29) & mask;
  }

  void grow() {
    std::vector<Slot> old(slots_.empty() ? 64 : 2 * slots_.size());
    old.swap(slots_);
    count_ = 0;
    for (const Slot& slot : old)
      if (slot.value >= 0) insert(slot.a, slot.b, slot.value);
  }

  std::vector<Slot> slots_;
  size_t count_ = 0;
};

}  // namespace q9py

#endif
