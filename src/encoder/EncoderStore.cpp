// Records and the index slots share one zeroed block; Seal shrinks it to the
// count while nothing links to the records yet, and keeps the larger one if
// the smaller can't be had. Each record's image is a heap block of its own,
// and the lists are linked through the records themselves.
#include "encoder/EncoderStore.h"

#include <algorithm>
#include <cstring>
#include <functional>

#include "platform/Heap.h"

namespace q9 {
namespace {

constexpr uint64_t kSlotSize = sizeof(EncoderRecord) + sizeof(EncoderRecord*);

// Records and, behind them, the index slots, zeroed; null when too big.
EncoderRecord* allocateBlock(uint32_t capacity) {
  void* block = platform::heapAlloc(size_t(capacity * kSlotSize));
  if (block) std::memset(block, 0, size_t(capacity * kSlotSize));
  return static_cast<EncoderRecord*>(block);
}

EncoderRecord** slotsOf(EncoderRecord* records, uint32_t capacity) {
  return reinterpret_cast<EncoderRecord**>(records + capacity);
}

bool nodeBefore(const EncoderRecord* a, const EncoderRecord* b) {
  return std::less<const void*>()(a->node, b->node);
}

}  // namespace

HRESULT EncoderStore::Reserve(uint32_t capacity) {
  if (records_) return E_INVALIDARG;
  if (capacity == 0) return E_FAIL;
  records_ = allocateBlock(capacity);
  if (!records_) return E_OUTOFMEMORY;
  sorted_ = slotsOf(records_, capacity);
  capacity_ = capacity;
  count_ = 0;
  return S_OK;
}

HRESULT EncoderStore::Add(uint32_t bitLength, uint32_t level, void* triggering, void* node) {
  if (bitLength == 0 || level >= kEncoderLevels || count_ >= capacity_) return E_INVALIDARG;
  const uint32_t byteSize = uint32_t((uint64_t(bitLength) + 7) / 8);
  auto* image = static_cast<uint8_t*>(platform::heapAlloc(byteSize));
  if (!image) return E_OUTOFMEMORY;
  std::memset(image, 0, byteSize);

  EncoderRecord& record = records_[count_];
  platform::heapFree(record.image);
  record.level = uint8_t(level);
  record.node = node;
  record.triggering = triggering;
  record.bitLength = bitLength;
  record.byteSize = byteSize;
  record.image = image;
  // Kept in order as records arrive; of equal nodes the first added stays first.
  EncoderRecord** end = sorted_ + count_;
  EncoderRecord** at = std::upper_bound(sorted_, end, &record, nodeBefore);
  std::move_backward(at, end, end + 1);
  *at = &record;
  ++count_;
  return S_OK;
}

void EncoderStore::SortIndex() {
  for (uint32_t i = 0; i < count_; ++i) sorted_[i] = &records_[i];
  std::stable_sort(sorted_, sorted_ + count_, nodeBefore);
}

void EncoderStore::Seal() {
  if (count_ < capacity_) {
    // Nothing links to the records yet, so they may move.
    EncoderRecord* exact = count_ ? allocateBlock(count_) : nullptr;
    if (exact || count_ == 0) {
      std::copy(records_, records_ + count_, exact);
      platform::heapFree(records_);
      records_ = exact;
      sorted_ = exact ? slotsOf(exact, count_) : nullptr;
      SortIndex();
    }
    // Without memory for the smaller block the larger one serves on.
    capacity_ = count_;
  }
  for (Level& level : levels_) level.count = 0;
  highest_ = 0;
  for (uint32_t i = 0; i < count_; ++i) {
    ++levels_[records_[i].level].count;
    if (records_[i].level > highest_) highest_ = records_[i].level;
  }
}

EncoderRecord* EncoderStore::Find(const void* node) const {
  if (!sorted_) return nullptr;
  EncoderRecord key{};
  key.node = const_cast<void*>(node);
  EncoderRecord** end = sorted_ + count_;
  EncoderRecord** at = std::lower_bound(sorted_, end, &key, nodeBefore);
  return at != end && (*at)->node == node ? *at : nullptr;
}

EncoderRecord* EncoderStore::First(EncoderList list, uint32_t level) const {
  return level < kEncoderLevels ? levels_[level].heads[list] : nullptr;
}

bool EncoderStore::Linked(EncoderList list, const EncoderRecord* record) const {
  const EncoderLinks& links = record->links[list];
  return links.next || links.prev || levels_[record->level].heads[list] == record;
}

void EncoderStore::Link(EncoderList list, EncoderRecord* record) {
  EncoderRecord*& head = levels_[record->level].heads[list];
  record->links[list] = EncoderLinks{head, nullptr};
  if (head) head->links[list].prev = record;
  head = record;
}

void EncoderStore::Unlink(EncoderList list, EncoderRecord* record) {
  EncoderLinks& links = record->links[list];
  if (links.prev)
    links.prev->links[list].next = links.next;
  else
    levels_[record->level].heads[list] = links.next;
  if (links.next) links.next->links[list].prev = links.prev;
  links = EncoderLinks{nullptr, nullptr};
}

HRESULT EncoderStore::Mark(bool set, uint32_t mask, EncoderRecord* record) {
  if (!record || mask == 0) return E_FAIL;
  if (set) {
    if (record->changeMask != 0) {
      record->changeMask |= mask;
      return S_OK;
    }
    if (Linked(kChangedList, record)) return E_FAIL;
    record->changeMask = mask;
    Link(kChangedList, record);
    return S_OK;
  }
  if (record->changeMask == 0) return S_OK;
  record->changeMask &= ~mask;
  if (record->changeMask != 0) return E_FAIL;
  Unlink(kChangedList, record);
  return S_OK;
}

HRESULT EncoderStore::SetActive(const void* node, bool on) {
  EncoderRecord* record = Find(node);
  if (!record) return S_FALSE;
  if (on) {
    if (record->activeCount == UINT16_MAX) return S_FALSE;
    if (++record->activeCount == 1) Link(kActiveList, record);
  } else {
    if (record->activeCount == 0) return S_FALSE;
    if (--record->activeCount == 0) Unlink(kActiveList, record);
  }
  return S_OK;
}

void EncoderStore::Free() {
  for (uint32_t i = 0; i < count_; ++i) platform::heapFree(records_[i].image);
  platform::heapFree(records_);
  records_ = nullptr;
  sorted_ = nullptr;
  capacity_ = 0;
  count_ = 0;
  for (Level& level : levels_) level = Level{};
  highest_ = 0;
}

}  // namespace q9
