// The room is one heap block carved by an atomic bump, so readers on several
// threads claim space without a lock. The one claim that runs over the end
// leaves a filler, so a change can still walk every block to empty its slot.
// Only changes grow the room (by doubling), never a reader.
#include "store/Accelerators.h"

#include <cstddef>

#include "platform/Heap.h"

namespace q9 {

std::atomic<uint64_t> acceleratorsTakenAway{0};

// Blocks lie one after the other from bytes[0]; used may run past capacity
// once claims fail.
struct AcceleratorRoom {
  uint64_t capacity;
  uint64_t used;
  uint64_t wanted;
  alignas(16) unsigned char bytes[1];
};

namespace {

constexpr uint64_t kAlignment = 16;
constexpr uint64_t kSmallestRoom = 4096;

uint64_t aligned(uint64_t size) { return (size + kAlignment - 1) & ~(kAlignment - 1); }

AcceleratorRoom* makeRoom(uint64_t capacity, uint64_t wanted) {
  auto* room = static_cast<AcceleratorRoom*>(platform::heapAlloc(offsetof(AcceleratorRoom, bytes) + capacity));
  if (!room) return nullptr;
  room->capacity = capacity;
  room->used = 0;
  room->wanted = wanted;
  return room;
}

// Empties every published slot; only a change calls this, with no reader about.
void takeAway(AcceleratorRoom& room) {
  const uint64_t end = room.used < room.capacity ? room.used : room.capacity;
  for (uint64_t at = 0; at < end;) {
    auto* block = reinterpret_cast<Accelerator*>(room.bytes + at);
    if (block->slot) __atomic_store_n(block->slot, nullptr, __ATOMIC_RELAXED);
    at += block->size;
  }
  room.used = 0;
  acceleratorsTakenAway.fetch_add(1, std::memory_order_relaxed);
}

}  // namespace

Accelerator* claimAccelerator(Q9Db* db, uint64_t size) {
  AcceleratorRoom* room = db->accelerators;
  if (!room) return nullptr;
  size = aligned(size);
  const uint64_t at = __atomic_fetch_add(&room->used, size, __ATOMIC_RELAXED);
  if (at >= room->capacity) return nullptr;
  auto* block = reinterpret_cast<Accelerator*>(room->bytes + at);
  if (room->capacity - at < size) {
    // The one claim that runs over the end leaves a block that covers the
    // rest, so that the room can still be walked block by block.
    block->size = room->capacity - at;
    block->slot = nullptr;
    return nullptr;
  }
  block->size = size;
  block->slot = nullptr;
  return block;
}

void* publishAccelerator(Accelerator* block, void** slot) {
  void* expected = nullptr;
  block->slot = slot;
  if (__atomic_compare_exchange_n(slot, &expected, static_cast<void*>(block), false, __ATOMIC_RELEASE,
                                  __ATOMIC_ACQUIRE))
    return block;
  block->slot = nullptr;
  return expected;
}

void noteChange(Q9Db* db, uint64_t roomWanted) {
  if (!db) return;
  AcceleratorRoom* room = db->accelerators;
  if (room && room->used) takeAway(*room);
  if (!roomWanted) return;
  const uint64_t wanted = (room ? room->wanted : 0) + roomWanted;
  if (room && wanted <= room->capacity) {
    room->wanted = wanted;
    return;
  }
  // Doubling keeps the growing cheap over a long run of changes.
  uint64_t capacity = room ? 2 * room->capacity : kSmallestRoom;
  if (capacity < wanted) capacity = aligned(wanted);
  AcceleratorRoom* larger = makeRoom(capacity, wanted);
  if (!larger) {
    if (room) room->wanted = wanted;
    return;
  }
  platform::heapFree(room);
  db->accelerators = larger;
}

void noteNodeChange(const void* node, uint64_t roomWanted) {
  if (isA<DatabaseRef>(node)) noteChange(as<DatabaseRef>(node)->databaseRef, roomWanted);
}

uint64_t roomForNode(uint32_t nodeType) {
  // What the decoder compiles from a node of the class, generously: a
  // frame triggering's plan head and its dense form's, a signal's fields, a coding's conversion,
  // a computation's step, a multiplexed part's table.
  switch (nodeType) {
    case IdentifierBasedTriggering::kNodeType:
    case MaskedIdentifierTriggering::kNodeType: return 256;
    case MultiplexedPDU::kNodeType:
    case MultiplexedPart::kNodeType: return 128;
    // A signal's field in the plan and in its dense form.
    case SignalInstance::kNodeType: return 144;
    case PDUInstance::kNodeType:
    case IdentityComputation::kNodeType:
    case LinearComputation::kNodeType:
    case MappedTextComputation::kNodeType:
    case MappedValueComputation::kNodeType: return 96;
    case Coding::kNodeType: return 64;
    default: return 0;
  }
}

void releaseAccelerators(Q9Db* db) {
  AcceleratorRoom* room = db->accelerators;
  if (!room) return;
  if (room->used) acceleratorsTakenAway.fetch_add(1, std::memory_order_relaxed);
  platform::heapFree(room);
  db->accelerators = nullptr;
}


}  // namespace q9
