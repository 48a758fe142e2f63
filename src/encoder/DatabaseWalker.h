// CQ9Db: a visitor over the database graph. One operation per node class,
// and a fixed walk that follows the graph's references and member lists,
// downward (descend set) from a container to what it holds, or upward
// (descend clear) from an instance to what carries it.
#pragma once

#include <cstdint>

#include "Q9Db.h"

namespace q9 {

// What an operation, a visit or a list walk answers.
enum WalkResult : uint32_t {
  kWalkSkip = 0,  // done with this node: don't go below it, go on with its siblings
  kWalkInto = 1,  // go on into this node
  kWalkStop = 2,  // end the whole walk
};

// The member lists a walk can take, by number.
enum class ListKind : uint32_t {
  Clusters = 0,
  ECUs = 1,
  PDUs = 2,
  Frames = 3,
  Signals = 4,
  Codings = 5,
  IdentElements = 6,
  Children = 257,
  PDUInstancesOrParents = 258,  // PDU instances downward, a PDU's parents upward
  SignalInstances = 259,
  FrameTriggerings = 260,
  PDUTriggerings = 261,
  Ranges = 262,
  Segments = 263,
  DynamicParts = 264,
  InternalToPhysical = 265,
  PhysicalToInternal = 266,
  ChildrenToo = 267,  // a second number for Children
};

// The class operations, in their fixed order after Visit. OnReserved has no
// caller; it keeps the place of a class that no longer exists.
#define Q9_WALKER_OPERATIONS(X)                                                                 \
  X(OnCluster) X(OnChannel) X(OnFrame) X(OnSignal) X(OnCoding) X(OnPDUInstance)                 \
  X(OnSignalInstance) X(OnMultiplexedPart) X(OnCyclicTiming) X(OnReserved) X(OnSignalPDU)      \
  X(OnMultiplexedPDU) X(OnPDUTriggering) X(OnIdentifierBasedTriggering)                        \
  X(OnAbsolutelyScheduledTriggering) X(OnEventControlledTiming) X(OnMappedValueComputation)    \
  X(OnMappedTextComputation) X(OnLinearComputation) X(OnIdentityComputation)

class CQ9Db {
 public:
  CQ9Db() = default;
  CQ9Db(const CQ9Db&) = delete;
  CQ9Db& operator=(const CQ9Db&) = delete;

  // The database whose collections the walks over Clusters ... IdentElements
  // open. Refuses anything but a database handle.
  HRESULT SetDatabase(Q9DbNode* db);
  Q9DbNode* Database() const { return database_; }

  // Calls the operation of node's class and, when it answers kWalkInto,
  // goes on by the class's fixed rule. Anything that is no node of a
  // visited class answers kWalkInto.
  virtual uint32_t Visit(uint32_t depth, uint32_t descend, void* node);

#define Q9_DECLARE_WALKER_OPERATION(name) \
  virtual uint32_t name(uint32_t /*depth*/, uint32_t /*descend*/, void* /*node*/) { return kWalkInto; }
  Q9_WALKER_OPERATIONS(Q9_DECLARE_WALKER_OPERATION)
#undef Q9_DECLARE_WALKER_OPERATION

  virtual ~CQ9Db() = default;

  // Visits each member of one of node's lists (or of the database's, for the
  // collection kinds) in order, until a visit answers kWalkStop. Answers the
  // last visit's result, or kWalkInto for an empty or unopenable list.
  uint32_t WalkList(uint32_t depth, uint32_t descend, ListKind kind, void* node);

 private:
  uint32_t Operation(uint32_t code, uint32_t depth, uint32_t descend, void* node);
  uint32_t Continue(uint32_t code, uint32_t depth, uint32_t descend, void* node);

  Q9DbNode* database_ = nullptr;
  uint32_t nesting_ = 0;  // visits in progress, against graphs that lead back into themselves
};

}  // namespace q9
