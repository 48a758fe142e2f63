// The database userdata: creating and finalising databases, the factories,
// lookups by id and qualified id, and the database's multi-language texts.
#include <algorithm>

#include "lua/ArgumentKinds.h"

namespace q9::lua {

int createEncoder(lua_State* L);  // with the rest of the encoder's face

namespace {

DatabaseUserdata* checkDatabaseUserdata(lua_State* L, int index) {
  return static_cast<DatabaseUserdata*>(luaL_checkudata(L, index, registryName(Meta::Database)));
}

int collect(lua_State* L) {
  DatabaseUserdata* d = checkDatabaseUserdata(L, 1);
  if (d->owner == 0 || !d->database) return 0;
  Q9Db_destroy(d->database);
  d->database = nullptr;
  return 0;
}

// createCoding refuses a missing or invalid encoding, after all node checks.
int createCoding(lua_State* L) {
  auto args = readArguments<Database, Text, Int, U32, NodeOf<UnitSpec>>(L);
  if (std::get<3>(args) == Q9_ENCODING_INVALID) luaL_argerror(L, 4, "invalid encoding constant");
  Q9DbNode* out = nullptr;
  const HRESULT hr = applyTo<Q9Db_createCoding>(L, args, &out);
  return hr == S_OK ? pushNode(L, out) : pushFailure(L, hr);
}

int getQualifiedId(lua_State* L) {
  BSTR id = nullptr;
  const HRESULT hr = callWith<Q9Db_getQualifiedId, NodeOf<ObjectBase>>(L, &id);
  if (hr != S_OK) {
    SysFreeString(id);
    return pushFailure(L, hr);
  }
  // Copy into Lua first: pushing may raise a memory error, and the BSTR must
  // not leak then, so it is staged in a Lua-owned buffer.
  const uint32_t length = SysStringLen(id);
  auto* staged = static_cast<char16_t*>(lua_newuserdata(L, (length + 1) * sizeof(char16_t)));
  std::copy(id, id + length, staged);
  SysFreeString(id);
  staged[length] = u'\0';
  pushWideTextOrEmpty(L, staged);
  return 1;
}

int splitQualifiedId(lua_State* L) {
  const char16_t* qualified = toWideText(L, 1);
  BSTR databaseId = nullptr, elementId = nullptr;
  const HRESULT hr = Q9Db_splitQualifiedId(qualified, &databaseId, &elementId);
  const uint32_t lengths[2] = {SysStringLen(databaseId), SysStringLen(elementId)};
  char16_t* staged[2] = {nullptr, nullptr};
  if (hr == S_OK) {
    // Stage both in Lua memory, then free the BSTRs before any push can raise.
    lua_checkstack(L, 4);
    for (int k = 0; k < 2; ++k) {
      staged[k] = static_cast<char16_t*>(lua_newuserdata(L, (lengths[k] + 1) * sizeof(char16_t)));
      const BSTR source = k == 0 ? databaseId : elementId;
      if (lengths[k]) std::copy(source, source + lengths[k], staged[k]);
      staged[k][lengths[k]] = u'\0';
    }
  }
  SysFreeString(databaseId);
  SysFreeString(elementId);
  if (hr != S_OK) return pushFailure(L, hr);
  pushWideTextOrEmpty(L, staged[0]);
  pushWideTextOrEmpty(L, staged[1]);
  return 2;
}

template <auto Create, class TextKind>
int createSlot(lua_State* L) {
  Q9DbStringSlot* slot = nullptr;
  const HRESULT hr = callWith<Create, Database, Language, TextKind>(L, &slot);
  pushStringSlot(L, hr == S_OK ? slot : nullptr);
  pushStatus(L, hr);
  return 2;
}

int stringLookup(lua_State* L) {
  const char16_t* text = nullptr;
  const HRESULT hr = callWith<Q9Db_stringLookup, Database, Slot, Language, Language>(L, &text);
  if (hr != S_OK) return pushFailure(L, hr);
  pushWideTextOrEmpty(L, text);
  return 1;
}

}  // namespace

Q9DbNode* checkDatabase(lua_State* L, int index) { return checkDatabaseUserdata(L, index)->database; }

int pushDatabase(lua_State* L, Q9DbNode* database, uint32_t owner) {
  auto* d = static_cast<DatabaseUserdata*>(lua_newuserdata(L, sizeof(DatabaseUserdata)));
  *d = DatabaseUserdata{database, owner};
  luaL_setmetatable(L, registryName(Meta::Database));
  return 1;
}

int createDb(lua_State* L) {
  const char16_t* id = toWideText(L, 1);
  Q9DbNode* db = nullptr;
  const HRESULT hr = Q9Db_create(id, &db);
  return hr == S_OK ? pushDatabase(L, db, 1) : pushFailure(L, hr);
}

using Ecu = NodeOf<ElementGroup>;

const luaL_Reg kDatabaseMethods[] = {
    {"__gc", collect},
    {"createCluster", nodeResult<Q9Db_createCluster, Database, Text, Int>},
    {"createChannel", nodeResult<Q9Db_createChannel, Database, Text, NodeOf<Cluster>>},
    {"createUnitSpec", nodeResult<Q9Db_createUnitSpec, Database, Text, Language, Text>},
    {"createFrame", nodeResult<Q9Db_createFrame, Database, Text, Int>},
    {"createAbsolutelyScheduledTriggering",
     nodeResult<Q9Db_createAbsolutelyScheduledTriggering, Database, Text, Int, Int, Int, Int, NodeOf<Frame>, Ecu,
                NodeOf<Channel>>},
    {"createIdentifierBasedTriggering",
     nodeResult<Q9Db_createIdentifierBasedTriggering, Database, Text, U32, U32, NodeOf<Frame>, Ecu, NodeOf<Channel>>},
    {"createMaskedIdentifierTriggering",
     nodeResult<Q9Db_createMaskedIdentifierTriggering, Database, Text, U32, U32, U32, NodeOf<Frame>, Ecu,
                NodeOf<Channel>>},
    {"createECU", nodeResult<Q9Db_createECU, Database, Text>},
    {"createSignalPDU", nodeResult<Q9Db_createSignalPDU, Database, Text, Int, NodeOf<ElementReference>>},
    {"createPDUInstance",
     nodeResult<Q9Db_createPDUInstance, Database, Text, Int, Int, Int, NodeOf<PDU>, ChannelOrFrame>},
    {"createPDUTriggering", nodeResult<Q9Db_createPDUTriggering, Database, Text, NodeOf<PDU>, NodeOf<Channel>>},
    {"createMultiplexedPart", nodeResult<Q9Db_createMultiplexedPart, Database, Text, Int, NodeOf<PDU>>},
    {"createMultiplexedPDU",
     nodeResult<Q9Db_createMultiplexedPDU, Database, Text, Int, Int, Int, Int, U32, NodeOf<ElementReference>>},
    {"createSignal", nodeResult<Q9Db_createSignal, Database, Text, U32, Num, Num, Num, NodeOf<Coding>>},
    {"createSignalInstance",
     nodeResult<Q9Db_createSignalInstance, Database, Text, Int, Int, Int, NodeOf<Signal>, NodeOf<SignalPDU>>},
    {"createCoding", createCoding},
    {"createIdentityComputation", nodeResult<Q9Db_createIdentityComputation, Database, Text>},
    {"createLinearComputation", nodeResult<Q9Db_createLinearComputation, Database, Text, Num, Num>},
    {"createMappedValueComputation", nodeResult<Q9Db_createMappedValueComputation, Database, Text, Num>},
    {"createMappedTextComputation", nodeResult<Q9Db_createMappedTextComputation, Database, Text, Slot>},
    {"createElementGroup",
     nodeResult<Q9Db_createElementGroup, Database, Text, NodeOf<ElementGroup>, NodeOf<ElementId>>},
    {"createElementReference", nodeResult<Q9Db_createElementReference, Database, Text, NodeOf<ElementId>>},
    {"createEventControlledTiming", nodeResult<Q9Db_createEventControlledTiming, Database, Int, TriggeringForTiming>},
    {"createCyclicTiming", nodeResult<Q9Db_createCyclicTiming, Database, U64, TriggeringForTiming>},
    {"findByElementId", nodeResult<Q9Db_findByElementId, Database, Text>},
    {"getQualifiedId", getQualifiedId},
    {"splitQualifiedId", splitQualifiedId},
    {"stringCreateSlot", createSlot<Q9Db_stringCreateSlot, Text>},
    {"stringCreateSlotA", createSlot<Q9Db_stringCreateSlotA, Bytes>},
    {"stringAddAlternative", statusResult<Q9Db_stringAddAlternative, Database, Slot, Language, Text>},
    {"stringAddAlternativeA", statusResult<Q9Db_stringAddAlternativeA, Database, Slot, Language, Bytes>},
    {"stringLookup", stringLookup},
    {"createEncoder", createEncoder},
    {nullptr, nullptr}};

}  // namespace q9::lua
