// Room for what readers compile from a database's nodes to read it faster
// (the decoder's plans). Readers build into the room and publish in slots;
// every change to the database takes everything published away again, so a
// slot either is empty or agrees with the nodes.
//
// The room is set aside by the changes that create what will be compiled,
// so that a decode walk takes nothing from the heap. Readers may build at
// the same time; a change never overlaps a read of its database (readers run
// together only while nobody writes), so taking away needs no lock. What
// does not fit is simply not compiled: readers then read the nodes.
#pragma once

#include <atomic>
#include <cstdint>

#include "store/Nodes.h"

namespace q9 {

struct AcceleratorRoom;

// The head of every block in the room.
struct Accelerator {
  uint64_t size;  // bytes of the block, head included
  void** slot;    // where it is published; null until then
};

// The published block at slot, or null.
inline void* loadAccelerator(void* const* slot) { return __atomic_load_n(slot, __ATOMIC_ACQUIRE); }

// A block of size bytes (head included, aligned to 8) from the database's
// room, or null when the room is full. The caller fills it and publishes it.
Accelerator* claimAccelerator(Q9Db* db, uint64_t size);

// Publishes block at slot, unless another reader was first: the answer is
// what the slot holds afterwards. A block that lost stays unused in the room.
void* publishAccelerator(Accelerator* block, void** slot);

// Every change to a node of the database calls this before it changes
// anything: the published blocks are taken away. roomWanted is what the
// compiled form of a new node may need; the room grows to keep up.
void noteChange(Q9Db* db, uint64_t roomWanted = 0);
// The same for a node of any class; nodes without a database are skipped.
void noteNodeChange(const void* node, uint64_t roomWanted = 0);

// Bytes of room a new node of this class may need once compiled.
uint64_t roomForNode(uint32_t nodeType);
// Bytes of room a new value range or segment record may need.
constexpr uint64_t kRoomForRecord = 48;

// Frees the room of a database that goes away.
void releaseAccelerators(Q9Db* db);

// Counts every taking away in the process. A reader that keeps the address
// of a block between two calls keeps this count with it: while the count is
// the same, the block is still there.
extern std::atomic<uint64_t> acceleratorsTakenAway;
inline uint64_t acceleratorEpoch() { return acceleratorsTakenAway.load(std::memory_order_relaxed); }

}  // namespace q9
