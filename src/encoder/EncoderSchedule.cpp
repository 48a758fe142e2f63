// Everything the schedule needs lives in one block sized by Build, so a
// trigger never allocates. Heaps keep each record's slot current, so a
// record whose due time changes can be taken out of the middle; the records
// taken for a turn run from a heap keyed so that the newest active comes first.
#include "encoder/EncoderSchedule.h"

#include <cstring>
#include <initializer_list>

#include "platform/Heap.h"

namespace q9 {
namespace {

constexpr uint32_t kNone = UINT32_MAX;

// Offsets of the parts of the one block: entries, the level heaps' items,
// the taken records' items, the rules, the ready and the idle lists. Every
// part but the lists is 8-byte aligned.
struct Layout {
  size_t items, taken, rules, ready, idle, total;
};

Layout layoutFor(uint32_t records, uint32_t rules, size_t entrySize, size_t itemSize) {
  Layout at{};
  at.items = size_t(records) * entrySize;
  at.taken = at.items + size_t(records) * itemSize;
  at.rules = at.taken + size_t(records) * itemSize;
  at.ready = at.rules + size_t(rules) * sizeof(TimingRule);
  at.idle = at.ready + size_t(records) * sizeof(uint32_t);
  at.total = at.idle + size_t(records) * sizeof(uint32_t);
  return at;
}

uint64_t takenKey(uint64_t order) { return ~order; }

}  // namespace

HRESULT EncoderSchedule::Build(EncoderStore& pdus) {
  Free();
  const uint32_t count = pdus.Count();
  if (count == 0) return S_OK;
  uint32_t ruleTotal = 0;
  for (uint32_t i = 0; i < count; ++i) {
    bool allTimings = true;
    if (pdus.At(i).triggering) ruleTotal += readTimingRules(pdus.At(i).triggering, nullptr, &allTimings);
  }
  static_assert(sizeof(Entry) % 8 == 0 && sizeof(Item) % 8 == 0 && sizeof(TimingRule) % 8 == 0, "aligned parts");
  const Layout layout = layoutFor(count, ruleTotal, sizeof(Entry), sizeof(Item));
  block_ = platform::heapAlloc(layout.total);
  if (!block_) return E_OUTOFMEMORY;
  std::memset(block_, 0, layout.total);
  auto* bytes = static_cast<uint8_t*>(block_);
  entries_ = reinterpret_cast<Entry*>(bytes);
  auto* items = reinterpret_cast<Item*>(bytes + layout.items);
  taken_ = Heap{reinterpret_cast<Item*>(bytes + layout.taken), 0};
  rules_ = reinterpret_cast<TimingRule*>(bytes + layout.rules);
  auto* ready = reinterpret_cast<uint32_t*>(bytes + layout.ready);
  auto* idle = reinterpret_cast<uint32_t*>(bytes + layout.idle);
  records_ = &pdus.At(0);
  count_ = count;

  uint32_t perLevel[kEncoderLevels] = {};
  uint32_t rule = 0;
  for (uint32_t i = 0; i < count; ++i) {
    const EncoderRecord& r = records_[i];
    ++perLevel[r.level];
    Entry& e = entries_[i];
    e = Entry{0, kNone, rule, 0, kOutside, TimingSource::kUntimed};
    if (!r.triggering) continue;
    bool allTimings = true;
    e.ruleCount = readTimingRules(r.triggering, rules_ + rule, &allTimings);
    e.source = allTimings ? TimingSource::kRules : TimingSource::kWalker;
    rule += e.ruleCount;
  }
  for (uint32_t level = 0, base = 0; level < kEncoderLevels; base += perLevel[level++])
    queues_[level] = Queue{Heap{items + base, 0}, List{ready + base, 0}, List{idle + base, 0}};
  return S_OK;
}

void EncoderSchedule::Free() {
  platform::heapFree(block_);
  block_ = nullptr;
  records_ = nullptr;
  entries_ = nullptr;
  rules_ = nullptr;
  count_ = 0;
  for (Queue& queue : queues_) queue = Queue{};
  taken_ = Heap{};
  running_ = kNone;
  turnLevel_ = kNone;
}

uint16_t EncoderSchedule::DueKind(const EncoderRecord& r, uint64_t now) const {
  const Entry& e = entries_[IndexOf(r)];
  return dueKind(rules_ + e.firstRule, e.ruleCount, now, r.lastTime);
}

// Never earlier than now_: now_ itself when the record is due at once.
uint64_t EncoderSchedule::DueOf(uint32_t index) const {
  const Entry& e = entries_[index];
  const EncoderRecord& r = records_[index];
  switch (e.source) {
    case TimingSource::kUntimed:
      return r.changeMask ? now_ : kNever;
    case TimingSource::kRules:
      return nextSendTime(rules_ + e.firstRule, e.ruleCount, r.lastTime, r.changeMask != 0, now_);
    case TimingSource::kWalker:
      break;
  }
  return now_;
}

void EncoderSchedule::SetActive(EncoderRecord& r, bool on) {
  if (r.level == 0 || !entries_) return;
  const uint32_t index = IndexOf(r);
  Entry& e = entries_[index];
  if (on) {
    if (e.place != kOutside) return;
    e.order = nextOrder_++;
    Wait(index, DueOf(index));
  } else if (e.place == kLater || e.place == kReady || e.place == kIdle) {
    Unwait(index);
    e.place = kOutside;
  }
}

void EncoderSchedule::Reschedule(EncoderRecord& r) {
  if (!entries_) return;
  const uint32_t index = IndexOf(r);
  Entry& e = entries_[index];
  // Taken and running records are looked at in this turn anyway.
  if (e.place != kLater && e.place != kReady && e.place != kIdle) return;
  const uint64_t due = DueOf(index);
  if (e.place == kLater && queues_[r.level].later.items[e.slot].key == due) return;
  if (e.place == kReady && due <= now_) return;
  if (e.place == kIdle && due == kNever) return;
  Unwait(index);
  Wait(index, due);
}

void EncoderSchedule::SetNow(uint64_t now) {
  const bool back = now < now_;
  now_ = now;
  if (back) RekeyAll();
}

// Each heap is built anew with the new due times; then the listed records
// whose due time now calls for another place move there. A list's records
// from the end down stay put or move out, so the walk meets each once.
void EncoderSchedule::RekeyAll() {
  for (Queue& queue : queues_) {
    Heap& heap = queue.later;
    for (uint32_t at = 0; at < heap.size; ++at) heap.items[at].key = DueOf(heap.items[at].index);
    for (uint32_t at = heap.size / 2; at-- > 0;) SiftDown(heap, at);
    for (List* list : {&queue.ready, &queue.idle}) {
      for (uint32_t at = list->count; at-- > 0;) Reschedule(records_[list->items[at]]);
    }
  }
}

void EncoderSchedule::BeginLevel(uint32_t level) {
  turnLevel_ = level;
  running_ = kNone;
  if (!entries_ || level >= kEncoderLevels) return;
  Queue& queue = queues_[level];
  while (queue.ready.count != 0) Take(queue.ready.items[--queue.ready.count]);
  // kNever stands also for a due time at the very end of time.
  while (now_ == kNever && queue.idle.count != 0) Take(queue.idle.items[--queue.idle.count]);
  Heap& heap = queue.later;
  while (heap.size != 0 && heap.items[0].key <= now_) {
    const uint32_t index = heap.items[0].index;
    RemoveAt(heap, 0);
    Take(index);
  }
}

EncoderRecord* EncoderSchedule::Next() {
  if (running_ != kNone) {
    const uint32_t done = running_;
    // Even if due again at once, it waits for the next trigger, as the list
    // walk has passed it.
    running_ = kNone;
    Wait(done, DueOf(done));
  }
  if (taken_.size == 0) return nullptr;
  running_ = taken_.items[0].index;
  RemoveAt(taken_, 0);
  entries_[running_].place = kRunning;
  return &records_[running_];
}

void EncoderSchedule::EndLevel() {
  while (Next()) {
  }
  turnLevel_ = kNone;
}

void EncoderSchedule::Wait(uint32_t index, uint64_t due) {
  const EncoderRecord& r = records_[index];
  // A record of the running level that comes due behind the running one in
  // the active list joins this turn, as a walk along the list would reach it.
  Queue& queue = queues_[r.level];
  if (due == kNever) {
    Add(queue.idle, index, kIdle);
  } else if (due > now_) {
    entries_[index].place = kLater;
    Push(queue.later, Item{due, index});
  } else if (r.level == turnLevel_ && running_ != kNone && entries_[index].order < entries_[running_].order) {
    Take(index);
  } else {
    Add(queue.ready, index, kReady);
  }
}

void EncoderSchedule::Add(List& list, uint32_t index, Place place) {
  entries_[index].place = place;
  entries_[index].slot = list.count;
  list.items[list.count++] = index;
}

void EncoderSchedule::Remove(List& list, uint32_t at) {
  const uint32_t last = list.items[--list.count];
  list.items[at] = last;
  entries_[last].slot = at;
}

void EncoderSchedule::Take(uint32_t index) {
  entries_[index].place = kTaken;
  Push(taken_, Item{takenKey(entries_[index].order), index});
}

void EncoderSchedule::Unwait(uint32_t index) {
  Queue& queue = queues_[records_[index].level];
  const Entry& e = entries_[index];
  if (e.place == kLater)
    RemoveAt(queue.later, e.slot);
  else
    Remove(e.place == kReady ? queue.ready : queue.idle, e.slot);
}

void EncoderSchedule::Put(Heap& heap, uint32_t at, const Item& item) {
  heap.items[at] = item;
  entries_[item.index].slot = at;
}

void EncoderSchedule::SiftUp(Heap& heap, uint32_t at) {
  const Item item = heap.items[at];
  while (at > 0) {
    const uint32_t parent = (at - 1) / 2;
    if (heap.items[parent].key <= item.key) break;
    Put(heap, at, heap.items[parent]);
    at = parent;
  }
  Put(heap, at, item);
}

void EncoderSchedule::SiftDown(Heap& heap, uint32_t at) {
  const Item item = heap.items[at];
  for (;;) {
    uint32_t child = 2 * at + 1;
    if (child >= heap.size) break;
    if (child + 1 < heap.size && heap.items[child + 1].key < heap.items[child].key) ++child;
    if (item.key <= heap.items[child].key) break;
    Put(heap, at, heap.items[child]);
    at = child;
  }
  Put(heap, at, item);
}

void EncoderSchedule::Push(Heap& heap, const Item& item) {
  Put(heap, heap.size, item);
  SiftUp(heap, heap.size++);
}

void EncoderSchedule::RemoveAt(Heap& heap, uint32_t at) {
  const Item last = heap.items[--heap.size];
  if (at == heap.size) return;
  Put(heap, at, last);
  SiftUp(heap, at);
  SiftDown(heap, entries_[last.index].slot);
}

}  // namespace q9
