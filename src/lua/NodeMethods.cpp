// The methods every node carries: the accessors of ids, names, links and
// member lists, each a one-line wrapper of one exported operation.
#include "lua/ArgumentKinds.h"
#include "lua/ListIterators.h"
#include "store/NodeClasses.h"

namespace q9::lua {
namespace {

int getNodeType(lua_State* L) {
  lua_pushinteger(L, Q9Db_getNodeType(checkNode(L, 1, ObjectBase::kNodeType)));
  return 1;
}

int getParam(lua_State* L) {
  uint64_t param = 0;
  const HRESULT hr = callWith<Q9Db_getParam, NodeOf<ElementId>>(L, &param);
  if (hr != S_OK) return pushFailure(L, hr);
  lua_pushinteger(L, lua_Integer(param));
  return 1;
}

int getElementDetail(lua_State* L) {
  const char16_t* longName = nullptr;
  const char16_t* description = nullptr;
  const HRESULT hr = callWith<Q9Db_getElementDetail, NodeOf<ElementDetail>, Language, Language>(L, &longName, &description);
  if (hr != S_OK) return pushFailure(L, hr);
  pushWideTextOrEmpty(L, longName);
  pushWideTextOrEmpty(L, description);
  return 2;
}

// Segments and ranges are records, walked by the record iterator.
template <class Owner, PagedList Owner::*List, const BlockLayout* Layout>
int records(lua_State* L) {
  auto* owner = static_cast<Owner*>(checkNode(L, 1, Owner::kNodeType));
  if (!owner)
    luaL_argerror(L, 1, lua_pushfstring(L, "%s expected, got %s", classNameA(Owner::kNodeType), luaL_typename(L, 1)));
  pushRecordIterator(L, &(owner->*List), Layout);
  return 1;
}

template <HRESULT (*Add)(Q9DbNode*, uint64_t, Q9DbNode* const*), class Owner, class Member>
constexpr lua_CFunction add = addEach<Add, Owner, NodeOf<Member>>;
template <HRESULT (*Open)(Q9DbNode*, Q9DbEnumerator**), class Owner>
constexpr lua_CFunction walk = iteratorResult<Open, Owner>;

using Detail = NodeOf<ElementDetail>;
using Id = NodeOf<ElementId>;
using Group = NodeOf<ElementGroup>;
using Triggering = NodeOf<FrameTriggering>;
using MuxPdu = NodeOf<MultiplexedPDU>;
using Part = NodeOf<MultiplexedPart>;

}  // namespace

const luaL_Reg kNodeMethods[] = {
    {"getNodeType", getNodeType},
    {"findChildByElementId", nodeOrNothing<Q9Db_findChildByElementId, Group, Text>},
    {"getDatabaseRef", nodeResult<Q9Db_getDatabaseRef, NodeOf<DatabaseRef>>},
    {"getElementId", textResult<Q9Db_getElementId, Id>},
    {"setElementId", booleanResult<Q9Db_setElementId, Id, Text>},
    {"getGroup", nodeResult<Q9Db_getGroup, Id>},
    {"setGroup", booleanResult<Q9Db_setGroup, Id, Group>},
    {"getParam", getParam},
    {"setParam", booleanResult<Q9Db_setParam, Id, Int64>},
    {"setShortName", booleanResult<Q9Db_setShortName, Detail, Text>},
    {"getShortName", textResult<Q9Db_getShortName, Detail>},
    {"setLongName", booleanResult<Q9Db_setLongName, Detail, Language, At<4, Text>>},
    {"getLongName", textResult<Q9Db_getLongName, Detail, Language, Language>},
    {"setDescription", booleanResult<Q9Db_setDescription, Detail, Language, Text>},
    {"getDescription", textResult<Q9Db_getDescription, Detail, Language, Language>},
    {"setElementDetail", booleanResult<Q9Db_setElementDetail, Detail, Language, Text, Text>},
    {"getElementDetail", getElementDetail},
    {"setParent", statusResult<Q9Db_setParent, NodeOf<ElementChild>, Id>},
    {"getParent", nodeResult<Q9Db_getParent, NodeOf<ElementChild>>},
    {"setReference", statusResult<Q9Db_setReference, NodeOf<ElementReference>, Id>},
    {"getReference", nodeOrNothing<Q9Db_getReference, NodeOf<ElementReference>>},
    {"insertChildren", add<Q9Db_insertChildren, Group, ObjectBase>},
    {"appendChildren", add<Q9Db_appendChildren, Group, ObjectBase>},
    {"enumChildren", walk<Q9Db_enumChildren, Group>},
    {"addSegment", statusResult<Q9Db_addSegment, Part, Int, Int, Int>},
    {"enumSegments", records<MultiplexedPart, &MultiplexedPart::segments, &segmentLayout>},
    {"addParents", add<Q9Db_addParents, NodeOf<PDU>, ElementReference>},
    {"enumParents", walk<Q9Db_enumParents, NodeOf<PDU>>},
    {"addSignalInstances", add<Q9Db_addSignalInstances, NodeOf<SignalPDU>, SignalInstance>},
    {"enumSignalInstances", walk<Q9Db_enumSignalInstances, NodeOf<SignalPDU>>},
    {"setStaticPart", statusResult<Q9Db_setStaticPart, MuxPdu, Part>},
    {"setElsePart", statusResult<Q9Db_setElsePart, MuxPdu, Part>},
    {"addDynamicParts", add<Q9Db_addDynamicParts, MuxPdu, MultiplexedPart>},
    {"getStaticPart", nodeResult<Q9Db_getStaticPart, MuxPdu>},
    {"getElsePart", nodeResult<Q9Db_getElsePart, MuxPdu>},
    {"enumDynamicParts", walk<Q9Db_enumDynamicParts, MuxPdu>},
    {"addFrameTriggerings", add<Q9Db_addFrameTriggerings, NodeOf<Channel>, FrameTriggering>},
    {"enumFrameTriggerings", walk<Q9Db_enumFrameTriggerings, NodeOf<Channel>>},
    {"addPDUTriggerings", add<Q9Db_addPDUTriggerings, NodeOf<Channel>, PDUTriggering>},
    {"enumPDUTriggerings", walk<Q9Db_enumPDUTriggerings, NodeOf<Channel>>},
    {"addPDUInstances", add<Q9Db_addPDUInstances, ChannelOrFrame, PDUInstance>},
    {"enumPDUInstances", walk<Q9Db_enumPDUInstances, ChannelOrFrame>},
    {"addInternalToPhysicalComputations", add<Q9Db_addInternalToPhysicalComputations, NodeOf<Coding>, Computation>},
    {"addPhysicalToInternalComputations", add<Q9Db_addPhysicalToInternalComputations, NodeOf<Coding>, Computation>},
    {"getUnit", nodeResult<Q9Db_getUnit, Id>},
    {"enumInternalToPhysicalComputations", walk<Q9Db_enumInternalToPhysicalComputations, NodeOf<Coding>>},
    {"enumPhysicalToInternalComputations", walk<Q9Db_enumPhysicalToInternalComputations, NodeOf<Coding>>},
    {"setDisplayName", booleanResult<Q9Db_setDisplayName, NodeOf<UnitSpec>, Language, Text>},
    {"getDisplayName", textResult<Q9Db_getDisplayName, NodeOf<UnitSpec>, Language, Language>},
    {"addRange", statusResult<Q9Db_addRange, NodeOf<Computation>, Num, Num, Int>},
    {"enumRanges", records<Computation, &Computation::ranges, &rangeLayout>},
    {"setFrame", statusResult<Q9Db_setFrame, Triggering, NodeOf<Frame>>},
    {"getFrame", nodeResult<Q9Db_getFrame, Triggering>},
    {"setSourceECU", statusResult<Q9Db_setSourceECU, Triggering, Group>},
    {"getSourceECU", nodeResult<Q9Db_getSourceECU, Triggering>},
    {"setChannel", statusResult<Q9Db_setChannel, Triggering, NodeOf<Channel>>},
    {"getChannel", nodeResult<Q9Db_getChannel, Triggering>},
    {"setSignal", statusResult<Q9Db_setSignal, NodeOf<SignalInstance>, NodeOf<Signal>>},
    {nullptr, nullptr}};

}  // namespace q9::lua
