// EncoderStore: the images of one kind of thing (frames or PDUs) of an
// encoder. A fixed array of records, built once, a sorted index for lookup
// by node, and per level two intrusive lists: the changed list (records with
// a change mask) and the active list (records inserted by a client). Nothing
// here locks or, after Seal, allocates; the encoder's lock covers every call.
#pragma once

#include <cstdint>

#include "Q9Db.h"

namespace q9 {

// The lists a record can stand in, by number.
enum EncoderList : uint32_t { kChangedList = 0, kActiveList = 1 };

// Levels are walk depths; a store has room for this many.
constexpr uint32_t kEncoderLevels = 32;

struct EncoderRecord;

struct EncoderLinks {
  EncoderRecord* next;
  EncoderRecord* prev;  // null at the head
};

struct EncoderRecord {
  EncoderLinks links[2];  // by EncoderList
  uint8_t level;          // walk depth; 0 for frames
  uint16_t activeCount;   // inserts minus deletes
  uint32_t changeMask;    // app bits, and bit 31 for all clients
  uint64_t lastTime;      // time of the last send by timing
  void* node;             // the frame or PDU; the sort key
  void* triggering;       // the PDU's PDU triggering, or null
  uint32_t bitLength;
  uint32_t byteSize;
  uint8_t* image;  // byteSize bytes, owned
};

class EncoderStore {
 public:
  EncoderStore() = default;
  ~EncoderStore() { Free(); }
  EncoderStore(const EncoderStore&) = delete;
  EncoderStore& operator=(const EncoderStore&) = delete;

  // Room for capacity records. E_INVALIDARG once reserved, E_FAIL for 0,
  // E_OUTOFMEMORY.
  HRESULT Reserve(uint32_t capacity);
  // A record with a zeroed image of ceil(bitLength/8) bytes. E_INVALIDARG
  // for a bit length of 0, a level without a place, or no room left.
  HRESULT Add(uint32_t bitLength, uint32_t level, void* triggering, void* node);
  // Ends the adding: the block shrinks to the records added, and the
  // levels learn their counts.
  void Seal();

  // The record of a node; of two records with one node, always the same one.
  EncoderRecord* Find(const void* node) const;

  EncoderRecord* First(EncoderList list, uint32_t level) const;
  static EncoderRecord* Next(EncoderList list, const EncoderRecord* record) {
    return record ? record->links[list].next : nullptr;
  }
  // The deepest level that holds a record; 0 also for an empty store.
  uint32_t HighestLevel() const { return highest_; }

  // Set: adds mask's bits, linking the record at the head of its level's
  // changed list when it had none. Clear: takes them out, unlinking it when
  // none remain; E_FAIL if some remain. E_FAIL for a null record or mask 0.
  HRESULT Mark(bool set, uint32_t mask, EncoderRecord* record);
  // One more or one fewer insert of node. S_FALSE when node has no record,
  // or the count would leave its 16 bits (a delete of what isn't inserted).
  HRESULT SetActive(const void* node, bool on);

  void Free();

  uint32_t Count() const { return count_; }
  EncoderRecord& At(uint32_t index) { return records_[index]; }

 private:
  struct Level {
    uint32_t count;
    EncoderRecord* heads[2];  // by EncoderList
  };

  void SortIndex();
  void Link(EncoderList list, EncoderRecord* record);
  void Unlink(EncoderList list, EncoderRecord* record);
  bool Linked(EncoderList list, const EncoderRecord* record) const;

  uint32_t capacity_ = 0;
  uint32_t count_ = 0;
  EncoderRecord* records_ = nullptr;
  EncoderRecord** sorted_ = nullptr;  // in the records' block, behind them
  Level levels_[kEncoderLevels] = {};
  uint32_t highest_ = 0;  // learnt at Seal
};

}  // namespace q9
