// The methods that work on a database and on its collections node alike:
// adding to the seven groups, walking them, and reaching the collections.
#include "lua/ArgumentKinds.h"

namespace q9::lua {
namespace {

template <HRESULT (*Add)(Q9DbNode*, uint64_t, Q9DbNode* const*), class Member>
constexpr lua_CFunction addTo = addEach<Add, DatabaseOrCollections, Member>;
template <HRESULT (*Open)(Q9DbNode*, Q9DbEnumerator**)>
constexpr lua_CFunction walk = iteratorResult<Open, DatabaseOrCollections>;

// The node pattern, with the failure status as a float.
int getCollections(lua_State* L) {
  Q9DbNode* out = nullptr;
  const HRESULT hr = callWith<Q9Db_getDatabaseCollections, DatabaseOrCollections>(L, &out);
  if (hr == S_OK) return pushNode(L, out);
  lua_pushnil(L);
  lua_pushnumber(L, hr);
  return 2;
}

}  // namespace

const luaL_Reg kCollectionMethods[] = {
    {"addClusters", addTo<Q9Db_addClusters, NodeOf<Cluster>>},
    {"addECUs", addTo<Q9Db_addECUs, NodeOf<ElementGroup>>},
    {"addFrames", addTo<Q9Db_addFrames, NodeOf<Frame>>},
    {"addPDUs", addTo<Q9Db_addPDUs, NodeOf<PDU>>},
    {"addSignals", addTo<Q9Db_addSignals, NodeOf<Signal>>},
    {"addCodings", addTo<Q9Db_addCodings, NodeOf<Coding>>},
    {"addViews", addTo<Q9Db_addViews, NodeOf<ElementGroup>>},
    {"enumIdentElements", walk<Q9Db_enumIdentElements>},
    {"enumClusters", walk<Q9Db_enumClusters>},
    {"enumECUs", walk<Q9Db_enumECUs>},
    {"enumFrames", walk<Q9Db_enumFrames>},
    {"enumCodings", walk<Q9Db_enumCodings>},
    {"enumPDUs", walk<Q9Db_enumPDUs>},
    {"enumSignals", walk<Q9Db_enumSignals>},
    {"enumViews", walk<Q9Db_enumViews>},
    {"getCollections", getCollections},
    // Accepts only a database userdata, also where a collections node carries it.
    {"dumpDot", statusResult<Q9Db_dumpDot, Database, Text, Language, Language>},
    {nullptr, nullptr}};

}  // namespace q9::lua
