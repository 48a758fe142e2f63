// EncoderSchedule: which active PDU records a trigger must look at. Each
// record of levels 1 and up that a client inserted waits in its level's
// queue by the earliest time at which a trigger may send it (its due time),
// computed from its timings, its last send and whether a change waits:
// records due at once (a change with nothing to wait for) in a plain list,
// those that only a change can make due in another, and the others in a
// binary heap by due time. A trigger takes from a level
// only the records due by its time and runs them in the order of the
// level's active list (most recently inserted first), so that it sends
// exactly what a walk over the whole list would send, in the same order, at
// the cost of the records that are due.
//
// Due times are lower bounds: a record taken early is merely looked at once
// more. They hold for triggers from the last trigger's time on; a trigger
// that goes back in time computes them all again first.
//
// Everything is allocated by Build, when the encoder starts; nothing after.
#pragma once

#include <cstdint>

#include "Q9Db.h"
#include "encoder/EncoderStore.h"
#include "encoder/TimingRules.h"

namespace q9 {

// What decides when a PDU record is sent.
enum class TimingSource : uint8_t {
  kUntimed,  // no PDU triggering: a change goes at the next trigger
  kRules,    // the triggering's timings, read into rules
  kWalker,   // a triggering with children other than timings: the walker decides
};

class EncoderSchedule {
 public:
  EncoderSchedule() = default;
  ~EncoderSchedule() { Free(); }
  EncoderSchedule(const EncoderSchedule&) = delete;
  EncoderSchedule& operator=(const EncoderSchedule&) = delete;

  // Reads the timings of every record's triggering, and makes room for
  // every record in the queues. The store must be sealed; its records stay
  // where they are from then on. E_OUTOFMEMORY.
  HRESULT Build(EncoderStore& pdus);
  void Free();

  TimingSource Source(const EncoderRecord& r) const { return entries_[IndexOf(r)].source; }
  // For kRules: the kind of the first timing due at now, 0 for none.
  uint16_t DueKind(const EncoderRecord& r, uint64_t now) const;

  // An insert made r active (on), or the last delete made it inactive.
  // Level 0 records never run, so they never wait.
  void SetActive(EncoderRecord& r, bool on);
  // r's change mask or last send changed: its due time follows.
  void Reschedule(EncoderRecord& r);

  // The time from which due times are computed: the time of the trigger
  // that runs, or ran last. Going back in time computes all of them again.
  void SetNow(uint64_t now);

  // One level's turn in a trigger: Begin takes the records due by now, Next
  // hands them out in active-list order, and each goes back into its queue
  // with the due time of its new state when the next one is asked for, or
  // at End.
  void BeginLevel(uint32_t level);
  EncoderRecord* Next();
  void EndLevel();

 private:
  // Where a record stands: in no queue; due later (in a level's heap), due
  // now (in its ready list) or waiting for a change (in its idle list);
  // taken by a level's turn; or running.
  enum Place : uint8_t { kOutside, kLater, kReady, kIdle, kTaken, kRunning };

  struct Entry {
    uint64_t order;      // activation number: later activations come first in the active list
    uint32_t slot;       // position in the heap or list it stands in
    uint32_t firstRule;  // into rules_
    uint32_t ruleCount;
    Place place;
    TimingSource source;
  };

  // A heap item carries its key, so that sifting reads one array: the due
  // time of a waiting record, or the inverted order of a taken one, whose
  // heap thus hands out the latest activation first.
  struct Item {
    uint64_t key;
    uint32_t index;
  };

  // A binary heap, smallest key first, over one of the item arrays.
  struct Heap {
    Item* items;
    uint32_t size;
  };

  // Record indices in no order.
  struct List {
    uint32_t* items;
    uint32_t count;
  };

  // A level's waiting records, each array with room for all of the level's.
  struct Queue {
    Heap later;
    List ready;
    List idle;
  };

  uint32_t IndexOf(const EncoderRecord& r) const { return uint32_t(&r - records_); }
  uint64_t DueOf(uint32_t index) const;
  // Into the level's queue by due time, or into the running turn.
  void Wait(uint32_t index, uint64_t due);
  void Take(uint32_t index);
  void Unwait(uint32_t index);
  void Add(List& list, uint32_t index, Place place);
  void Remove(List& list, uint32_t at);
  void RekeyAll();

  void Put(Heap& heap, uint32_t at, const Item& item);
  void SiftUp(Heap& heap, uint32_t at);
  void SiftDown(Heap& heap, uint32_t at);
  void Push(Heap& heap, const Item& item);
  void RemoveAt(Heap& heap, uint32_t at);

  EncoderRecord* records_ = nullptr;
  uint32_t count_ = 0;
  Entry* entries_ = nullptr;
  TimingRule* rules_ = nullptr;
  void* block_ = nullptr;
  Queue queues_[kEncoderLevels] = {};
  Heap taken_ = {};
  uint64_t now_ = 0;
  uint64_t nextOrder_ = 1;
  uint32_t running_ = UINT32_MAX;  // the record a level's turn handed out last
  uint32_t turnLevel_ = UINT32_MAX;
};

}  // namespace q9
