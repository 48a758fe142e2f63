// Q9Db_core: the six metatables and the core table that init.lua builds
// the module on.
#include <initializer_list>
#include <iterator>

#include "lua/Binding.h"
#include "lua/ModuleFolder.h"
#include "lua/XslTransform.h"

namespace q9::lua {
namespace {

int version(lua_State* L) {
  lua_pushliteral(L, "2.0.1026.0");
  return 1;
}

const luaL_Reg kModuleFunctions[] = {{"version", version},       {"createDb", createDb},
                                     {"importDBC", importDBC},   {"importLDF", importLDF},
                                     {"XSLtransform", Q9Lua_xslTransform}, {"attribs", attribs},
                                     {nullptr, nullptr}};

struct Constant {
  const char* name;
  uint32_t value;
};
#define Q9_CONSTANT(name) {#name, uint32_t(name)}
const Constant kConstants[] = {
    Q9_CONSTANT(Q9_NODETYPE_Q9Db), Q9_CONSTANT(Q9_NODETYPE_DatabaseCollections), Q9_CONSTANT(Q9_NODETYPE_Cluster),
    Q9_CONSTANT(Q9_NODETYPE_Channel), Q9_CONSTANT(Q9_NODETYPE_Frame), Q9_CONSTANT(Q9_NODETYPE_ElementGroup),
    Q9_CONSTANT(Q9_NODETYPE_ElementReference), Q9_CONSTANT(Q9_NODETYPE_AbsolutelyScheduledTriggering),
    Q9_CONSTANT(Q9_NODETYPE_IdentifierBasedTriggering), Q9_CONSTANT(Q9_NODETYPE_MaskedIdentifierTriggering),
    Q9_CONSTANT(Q9_NODETYPE_EventControlledTiming), Q9_CONSTANT(Q9_NODETYPE_CyclicTiming),
    Q9_CONSTANT(Q9_NODETYPE_Segment), Q9_CONSTANT(Q9_NODETYPE_ValueRange), Q9_CONSTANT(Q9_NODETYPE_Signal),
    Q9_CONSTANT(Q9_NODETYPE_SignalInstance), Q9_CONSTANT(Q9_NODETYPE_SignalPDU),
    Q9_CONSTANT(Q9_NODETYPE_MultiplexedPDU), Q9_CONSTANT(Q9_NODETYPE_MultiplexedPart),
    Q9_CONSTANT(Q9_NODETYPE_PDUInstance), Q9_CONSTANT(Q9_NODETYPE_PDUTriggering), Q9_CONSTANT(Q9_NODETYPE_Coding),
    Q9_CONSTANT(Q9_NODETYPE_UnitSpec), Q9_CONSTANT(Q9_NODETYPE_IdentityComputation),
    Q9_CONSTANT(Q9_NODETYPE_LinearComputation), Q9_CONSTANT(Q9_NODETYPE_MappedTextComputation),
    Q9_CONSTANT(Q9_NODETYPE_MappedValueComputation), Q9_CONSTANT(Q9_NODETYPE_InvalidNode),
    Q9_CONSTANT(Q9_BYTEORDER_LITTLEENDIAN), Q9_CONSTANT(Q9_BYTEORDER_BIGENDIAN), Q9_CONSTANT(Q9_FLAG_VALID),
    Q9_CONSTANT(Q9_FLAG_LOWERLIMIT_CLOSED), Q9_CONSTANT(Q9_FLAG_UPPERLIMIT_CLOSED),
    Q9_CONSTANT(Q9_FLAG_CONSTRAINT_VALID), Q9_CONSTANT(Q9_FLAG_INTERNALVALUES), Q9_CONSTANT(Q9_FLAG_SIGNALDEFAULT),
    Q9_CONSTANT(Q9_FLAG_CANSTANDARD), Q9_CONSTANT(Q9_FLAG_CANEXTENDED), Q9_CONSTANT(Q9_FLAG_CANSTD_OR_EXT),
    Q9_CONSTANT(Q9_FLAGMASK_CAN_FRAMETYPE), Q9_CONSTANT(Q9_FLAG_CANFD_FRAME), Q9_CONSTANT(Q9_FLAG_CANFD_FASTDATA),
    Q9_CONSTANT(Q9_FLAG_CANFD_ERRORSTATEIND), Q9_CONSTANT(Q9_FLAG_LIN_ENH_CHECKSUM),
    Q9_CONSTANT(Q9_ENCODING_INVALID), Q9_CONSTANT(Q9_ENCODING_DIRECT), Q9_CONSTANT(Q9_ENCODING_1COMPL),
    Q9_CONSTANT(Q9_ENCODING_2COMPL), Q9_CONSTANT(Q9_ENCODING_IEEE), Q9_CONSTANT(Q9_ENCODING_UNPACKED_BCD),
    Q9_CONSTANT(Q9_ENCODING_PACKED_BCD), Q9_CONSTANT(Q9_ENCODING_ASCII), Q9_CONSTANT(Q9_ENCODING_TYPEMASK),
    Q9_CONSTANT(Q9_ENCODING_SIGNED), Q9_CONSTANT(Q9_ENCODING_SIGNMASK), Q9_CONSTANT(Q9_VALUETYPE_DOUBLE),
    Q9_CONSTANT(Q9_VALUETYPE_UINT64), Q9_CONSTANT(Q9_VALUETYPE_INT64), Q9_CONSTANT(Q9_INCOMPATIBLEVALUETYPE),
    Q9_CONSTANT(Q9_VALUEINRANGE), Q9_CONSTANT(Q9_VALUEBELOWRANGE), Q9_CONSTANT(Q9_VALUEABOVERANGE),
    Q9_CONSTANT(Q9_CLUSTERTYPE_INVALID), Q9_CONSTANT(Q9_CLUSTERTYPE_CAN), Q9_CONSTANT(Q9_CLUSTERTYPE_FLEXRAY),
    Q9_CONSTANT(Q9_CLUSTERTYPE_LIN), Q9_CONSTANT(Q9_CLUSTERTYPE_MAX), Q9_CONSTANT(Q9_ENC_MODE_OFF),
    Q9_CONSTANT(Q9_ENC_MODE_ONCE), Q9_CONSTANT(Q9_ENC_MODE_PERIODIC), Q9_CONSTANT(Q9_NUMERICSIGNAL),
    Q9_CONSTANT(Q9_ASCIISIGNAL), Q9_CONSTANT(Q9_ENTITYCLASS_CLUSTER), Q9_CONSTANT(Q9_ENTITYCLASS_CHANNEL),
    Q9_CONSTANT(Q9_ENTITYCLASS_ECU), Q9_CONSTANT(Q9_ENTITYCLASS_FRAME), Q9_CONSTANT(Q9_ENTITYCLASS_SIGNAL),
    Q9_CONSTANT(Q9_ENTITYCLASS_MUXPDU), Q9_CONSTANT(Q9_ENTITYCLASS_MUXPART), Q9_CONSTANT(Q9_ENTITYCLASS_ELSEPART),
    Q9_CONSTANT(Q9_ENTITYCLASS_SIGNALPDU), Q9_CONSTANT(Q9_ENTITYCLASS_GLOBALS)};
static_assert(std::size(kConstants) == 82, "the script-visible constants");

struct GroupName {
  const char* name;
  const char16_t* text;
};
const GroupName kGroupNames[] = {
    {"Q9_GROUPNAME_CLUSTERS", u"@clusters"}, {"Q9_GROUPNAME_ECUS", u"@ECUs"},
    {"Q9_GROUPNAME_PDUS", u"@PDUs"},         {"Q9_GROUPNAME_FRAMES", u"@frames"},
    {"Q9_GROUPNAME_SIGNALS", u"@signals"},   {"Q9_GROUPNAME_CODINGS", u"@codings"},
    {"Q9_GROUPNAME_VIEWS", u"@views"},       {"Q9_VIEWNAME_ECUVIEW", u"ECUView"}};

// Makes (or refills) one metatable; `index` null means the metatable is its
// own __index. Function lists go in before anything can carry the table.
void defineMetatable(lua_State* L, Meta meta, std::initializer_list<const luaL_Reg*> functions,
                     lua_CFunction index) {
  luaL_newmetatable(L, registryName(meta));
  for (const luaL_Reg* list : functions) luaL_setfuncs(L, list, 0);
  if (index)
    lua_pushcclosure(L, index, 0);
  else
    lua_pushvalue(L, -1);
  lua_setfield(L, -2, "__index");
  if (meta == Meta::StringSlot) {
    lua_pushliteral(L, "StringSlot");
    lua_setfield(L, -2, "__metatable");
  }
  lua_pop(L, 1);
}

}  // namespace
}  // namespace q9::lua

extern "C" Q9DB_API int Q9Db_core(lua_State* L) {
  using namespace q9::lua;
  defineMetatable(L, Meta::UnsignedValue, {kUnsignedValueMethods}, nullptr);
  defineMetatable(L, Meta::SignedValue, {kSignedValueMethods}, nullptr);
  defineMetatable(L, Meta::StringSlot, {}, nullptr);
  defineMetatable(L, Meta::Node, {kNodeMethods, kCollectionMethods, kDecodeMethods}, nodeIndex);
  defineMetatable(L, Meta::Database, {kNodeMethods, kCollectionMethods, kDecodeMethods, kDatabaseMethods},
                  nodeIndex);
  defineMetatable(L, Meta::Encoder, {kEncoderMethods}, nullptr);
  luaL_checkversion_(L, LUA_VERSION_NUM, LUAL_NUMSIZES);

  lua_createtable(L, 0, 6);
  luaL_setfuncs(L, kModuleFunctions, 0);
  for (const Constant& c : kConstants) {
    lua_pushnumber(L, double(c.value));  // floats, so the large ones stay positive
    lua_setfield(L, -2, c.name);
  }
  for (const GroupName& g : kGroupNames) {
    pushWideText(L, g.text, 0);
    lua_setfield(L, -2, g.name);
  }
  pushModuleFolder(L);
  lua_setfield(L, -2, "ModuleFilePath");
  return 1;
}
