// What the tool works out once per node (names, units, texts), found again
// by the node's address. Open addressing on a power-of-two table: a lookup
// per decoded signal costs a multiply and, mostly, one probe.
#ifndef Q9DB_TOOL_NODECACHE_H
#define Q9DB_TOOL_NODECACHE_H

#include <cstdint>
#include <memory>
#include <vector>

namespace q9tool {

template <typename Key, typename Value>
class NodeCache {
 public:
  // The value for key, made by make(key) the first time.
  template <typename Make>
  const Value& get(Key* key, Make make) {
    if (2 * (count_ + 1) > slots_.size()) grow();
    size_t mask = slots_.size() - 1;
    for (size_t i = slotOf(key, mask);; i = (i + 1) & mask) {
      Slot& slot = slots_[i];
      if (slot.key == key) return *slot.value;
      if (!slot.key) {
        slot.key = key;
        slot.value = std::make_unique<Value>(make(key));
        ++count_;
        return *slot.value;
      }
    }
  }

 private:
  struct Slot {
    Key* key = nullptr;
    std::unique_ptr<Value> value;  // stays where it is when the table grows
  };

  static size_t slotOf(Key* key, size_t mask) {
    auto bits = static_cast<uint64_t>(reinterpret_cast<uintptr_t>(key));
    return static_cast<size_t>((bits * 0x9E3779B97F4A7C15ull) >> 32) & mask;
  }

  void grow() {
    std::vector<Slot> old(slots_.empty() ? 64 : 2 * slots_.size());
    old.swap(slots_);
    size_t mask = slots_.size() - 1;
    for (Slot& slot : old) {
      if (!slot.key) continue;
      size_t i = slotOf(slot.key, mask);
      while (slots_[i].key) i = (i + 1) & mask;
      slots_[i] = std::move(slot);
    }
  }

  std::vector<Slot> slots_;
  size_t count_ = 0;
};

}  // namespace q9tool

#endif
