// CQ9DbCMD: the walker as a small command interpreter. Each entry stores its
// arguments in the command fields, runs one walk whose operations read and
// write those fields, and reads the answer back. The encoder asks it every
// structural question, under the encoder's lock: one walk at a time.
#pragma once

#include "encoder/DatabaseWalker.h"

namespace q9 {

class CQ9DbCMD : public CQ9Db {
 public:
  // Command numbers. 3, 6 to 8, 12 and 14 belong to commands that nothing
  // starts (counting parts, the n-th cluster, channel or part); they are
  // left out, and their numbers stay free.
  enum Command : uint32_t {
    kNoCommand = 0,
    kFindPDUTriggering = 1,
    kCountFrames = 2,
    kCountPDUs = 4,
    kCountSignals = 5,
    kNthSignal = 9,
    kNthPDU = 10,
    kNthFrame = 11,
    kCheckTiming = 13,
    kMatchSourceECU = 15,
    kIsCyclic = 16,
  };

  // The first PDU triggering, over the whole database, that references pdu.
  void* FindPDUTriggering(void* pdu);

  // Counts under a scope: null (the whole database), a Signal, Channel,
  // Cluster or Frame. Each element counts once per instance the walk crosses.
  uint32_t CountFrames(void* scope);
  uint32_t CountPDUs(void* scope);
  uint32_t CountSignals(void* scope);

  // The element at index in the order of the count; null past the end.
  // depth (may be null) receives the walk depth of a found element.
  void* NthSignal(void* scope, uint32_t index, uint32_t* depth);
  void* NthPDU(void* scope, uint32_t index, uint32_t* depth);
  void* NthFrame(void* scope, uint32_t index);

  // Whether a timing of the PDU triggering is due at now, the last send
  // having been at last. S_OK due, E_FAIL not due, with kind the two-letter
  // code of the timing looked at last; 1 when the triggering has no timing.
  HRESULT CheckTiming(void* pduTriggering, uint64_t now, uint64_t last, uint16_t* kind);

  // S_OK when an identifier-based triggering of the scope (a Frame's or a
  // Channel's) has ecu as its source; else S_FALSE.
  HRESULT MatchSourceECU(void* scope, void* ecu);

  // S_OK when the climb from a signal's instances up to their frame passes a
  // PDU triggering with a cyclic timing; else S_FALSE.
  HRESULT IsCyclic(void* scope);

  uint32_t OnFrame(uint32_t depth, uint32_t descend, void* node) override;
  uint32_t OnSignal(uint32_t depth, uint32_t descend, void* node) override;
  uint32_t OnSignalPDU(uint32_t depth, uint32_t descend, void* node) override;
  uint32_t OnMultiplexedPDU(uint32_t depth, uint32_t descend, void* node) override;
  uint32_t OnPDUTriggering(uint32_t depth, uint32_t descend, void* node) override;
  uint32_t OnIdentifierBasedTriggering(uint32_t depth, uint32_t descend, void* node) override;
  uint32_t OnCyclicTiming(uint32_t depth, uint32_t descend, void* node) override;
  uint32_t OnEventControlledTiming(uint32_t depth, uint32_t descend, void* node) override;

 private:
  // Starts a walk at the scope's list; kWalkInto for a scope the walk
  // can't start from, which thus finds nothing.
  uint32_t WalkScope(void* scope, uint32_t descend);
  void Start(Command command, uint64_t target);
  void* FindNth(Command command, void* scope, uint32_t index, uint32_t* depth);
  uint32_t Countdown(uint32_t depth, void* node, uint32_t whileCounting);
  uint32_t Count();

  bool Flag() const { return (result_ >> 32) != 0; }
  void SetFlag(bool on) { result_ = (result_ & 0xFFFFFFFFu) | (on ? uint64_t(1) << 32 : 0); }
  HRESULT FlagAnswer(uint32_t walkResult) const;

  // The command fields. target holds an index in its low 32 bits or a node
  // pointer; result a count, a depth or a timing kind in its low 32 bits
  // and the flag (due, matched, cyclic) in its high 32.
  uint32_t command_ = kNoCommand;
  uint64_t target_ = 0;
  uint64_t now_ = 0;
  uint64_t last_ = 0;
  uint64_t result_ = 0;
  void* found_ = nullptr;
};

}  // namespace q9
