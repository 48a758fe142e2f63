#include <gtest/gtest.h>
#include <dlfcn.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "Q9Db.h"

namespace {

// The interface as clients see it: row i of the table is the export named
// here at position i.
const char* const kRowNames[] = {
    "Q9Db_create", "Q9Db_destroy", "Q9Db_stringCreateSlot", "Q9Db_stringCreateSlotA",
    "Q9Db_stringAddAlternative", "Q9Db_stringAddAlternativeA", "Q9Db_stringLookup",
    "Q9Db_isValidNode", "Q9Db_getNodeType", "Q9Db_isDerivedFrom", "Q9Db_findByElementId",
    "Q9Db_findChildByElementId", "Q9Db_getQualifiedId", "Q9Db_splitQualifiedId",
    "Q9Db_createCluster", "Q9Db_createChannel", "Q9Db_createFrame",
    "Q9Db_createAbsolutelyScheduledTriggering", "Q9Db_createIdentifierBasedTriggering",
    "Q9Db_createMaskedIdentifierTriggering", "Q9Db_createSignalPDU", "Q9Db_createPDUInstance",
    "Q9Db_createPDUTriggering", "Q9Db_createEventControlledTiming", "Q9Db_createCyclicTiming",
    "Q9Db_createMultiplexedPart", "Q9Db_createMultiplexedPDU", "Q9Db_createECU",
    "Q9Db_createSignal", "Q9Db_createSignalInstance", "Q9Db_createCoding", "Q9Db_createUnitSpec",
    "Q9Db_createIdentityComputation", "Q9Db_createLinearComputation",
    "Q9Db_createMappedValueComputation", "Q9Db_createMappedTextComputation",
    "Q9Db_createElementGroup", "Q9Db_createElementReference", "Q9Db_getElementId",
    "Q9Db_setElementId", "Q9Db_getGroup", "Q9Db_setGroup", "Q9Db_getParam", "Q9Db_setParam",
    "Q9Db_setShortName", "Q9Db_getShortName", "Q9Db_setLongName", "Q9Db_getLongName",
    "Q9Db_setDescription", "Q9Db_getDescription", "Q9Db_setElementDetail", "Q9Db_getElementDetail",
    "Q9Db_setParent", "Q9Db_getParent", "Q9Db_setReference", "Q9Db_getReference",
    "Q9Db_insertChildren", "Q9Db_appendChildren", "Q9Db_enumChildren",
    "Q9Db_getDatabaseCollections", "Q9Db_addSegment", "Q9Db_enumSegments", "Q9Db_addParents",
    "Q9Db_enumParents", "Q9Db_addSignalInstances", "Q9Db_enumSignalInstances", "Q9Db_setStaticPart",
    "Q9Db_setElsePart", "Q9Db_addDynamicParts", "Q9Db_getStaticPart", "Q9Db_getElsePart",
    "Q9Db_enumDynamicParts", "Q9Db_getSwitchByteOrder", "Q9Db_getSwitchPosition",
    "Q9Db_getSwitchLength", "Q9Db_getDefaultSwitchCode", "Q9Db_getSwitchCode",
    "Q9Db_setClusterType", "Q9Db_getClusterType", "Q9Db_addFrameTriggerings",
    "Q9Db_enumFrameTriggerings", "Q9Db_addPDUTriggerings", "Q9Db_enumPDUTriggerings",
    "Q9Db_addPDUInstances", "Q9Db_enumPDUInstances", "Q9Db_getDefaultValue", "Q9Db_getMinValue",
    "Q9Db_getMaxValue", "Q9Db_addInternalToPhysicalComputations",
    "Q9Db_addPhysicalToInternalComputations", "Q9Db_getUnit",
    "Q9Db_enumInternalToPhysicalComputations", "Q9Db_enumPhysicalToInternalComputations",
    "Q9Db_getEncoding", "Q9Db_setDisplayName", "Q9Db_getDisplayName", "Q9Db_addRange",
    "Q9Db_enumRanges", "Q9Db_getScale", "Q9Db_getOffset", "Q9Db_getTextValue", "Q9Db_getValue",
    "Q9Db_setFrame", "Q9Db_getFrame", "Q9Db_setSourceECU", "Q9Db_getSourceECU", "Q9Db_setChannel",
    "Q9Db_getChannel", "Q9Db_getSlotId", "Q9Db_getCycleOffset", "Q9Db_getRepetition",
    "Q9Db_getIdentifier", "Q9Db_getIdentifierMask", "Q9Db_getIdentifierCode", "Q9Db_getLength",
    "Q9Db_getBitPosition", "Q9Db_getUpdateBitPosition", "Q9Db_getBitLength",
    "Q9Db_getUnusedBytePattern", "Q9Db_setSignal", "Q9Db_getByteOrder", "Q9Db_getDebounceTime",
    "Q9Db_getCycletime", "Q9Db_getUpperLimit", "Q9Db_getLowerLimit", "Q9Db_getFlags",
    "Q9Db_addClusters", "Q9Db_addECUs", "Q9Db_addFrames", "Q9Db_addCodings", "Q9Db_addPDUs",
    "Q9Db_addSignals", "Q9Db_addViews", "Q9Db_enumClusters", "Q9Db_enumECUs", "Q9Db_enumFrames",
    "Q9Db_enumCodings", "Q9Db_enumPDUs", "Q9Db_enumSignals", "Q9Db_enumViews",
    "Q9Db_enumIdentElements", "Q9Db_enumeratorGetCount", "Q9Db_enumeratorReset",
    "Q9Db_enumeratorSkip", "Q9Db_enumeratorNext", "Q9Db_enumeratorDestroy",
    "Q9Db_enumeratorFindNext", "Q9Db_createIdListFilterA", "Q9Db_createIdListFilterW",
    "Q9Db_createCombinationFilter", "Q9Db_appendFilter", "Q9Db_filterNode", "Q9Db_destroyFilter",
    "Q9Db_internalToPhysical", "Q9Db_decodeNextSignal", "Q9Db_decodeNextFrametriggering",
    "Q9Db_decodeMessage", "Q9Db_getFrameTriggering", "Q9Db_destroyDecodeEnum", "Q9Db_valueToString",
    "Q9Db_checkValueInMinMax", "Q9Db_dumpDot", "Q9Db_importGetAvailableFilters",
    "Q9Db_importDetect", "Q9Db_importGetDbId", "Q9Db_importGetInfo", "Q9Db_importFile",
    "Q9Db_exportFile", "Q9Db_physicalToInternal", "Q9Db_encodeSignal", "Q9Db_encodeNextComputation",
    "Q9Db_encodeSignalInstance", "Q9Db_CreateEncoder", "Q9Db_DestroyEncoder",
    "Q9Db_EncoderRegister", "Q9Db_EncoderDeregister", "Q9Db_EncoderInsert", "Q9Db_EncoderDelete",
    "Q9Db_EncoderIsSignalCyclic", "Q9Db_EncoderChangeSignal", "Q9Db_EncoderChangeSignalEx",
    "Q9Db_EncoderTrigger", "Q9Db_EncoderGetChangedFrame", "Q9Db_EncoderSetSendMode",
    "Q9Db_EncoderGetSendMode", "Q9Db_getDatabaseRef",
};
static_assert(sizeof kRowNames / sizeof kRowNames[0] == Q9DB_C_INTERFACE_ROWS, "186 rows");

// The build puts programs into bin/ and the library into lib/ next to it.
std::string sharedLibraryPath() {
  if (const char* buildDir = std::getenv("Q9DB_BUILD_DIR")) return std::string(buildDir) + "/lib/libQ9Db.so";
  char self[4096];
  const ssize_t length = readlink("/proc/self/exe", self, sizeof self - 1);
  std::string path = length > 0 ? std::string(self, std::size_t(length)) : std::string();
  path = path.substr(0, path.find_last_of('/'));
  return path.substr(0, path.find_last_of('/') + 1) + "lib/libQ9Db.so";
}

TEST(CInterfaceTest, OnlyVersionsOneAndTwoAnswer) {
  const Q9DbFunction* one = nullptr;
  const Q9DbFunction* two = nullptr;
  ASSERT_EQ(Q9Db_GetCInterface(1, &one), S_OK);
  ASSERT_EQ(Q9Db_GetCInterface(2, &two), S_OK);
  EXPECT_NE(one, nullptr);
  EXPECT_EQ(one, two);
  for (int32_t version : {0, 3, -1}) {
    const Q9DbFunction* untouched = one;
    EXPECT_EQ(Q9Db_GetCInterface(version, &untouched), E_NOTIMPL);
    EXPECT_EQ(untouched, one);
  }
  EXPECT_EQ(Q9Db_GetCInterface(1, nullptr), E_POINTER);
}

// Each row against the export of its name in the shared library, as a
// client that loads the library at run time would find it.
TEST(CInterfaceTest, EveryRowIsTheExportOfItsName) {
  const std::string path = sharedLibraryPath();
  void* library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(library, nullptr) << dlerror();
  using GetCInterface = HRESULT (*)(int32_t, const Q9DbFunction**);
  auto get = reinterpret_cast<GetCInterface>(dlsym(library, "Q9Db_GetCInterface"));
  ASSERT_NE(get, nullptr);
  const Q9DbFunction* table = nullptr;
  ASSERT_EQ(get(1, &table), S_OK);
  std::string missing;
  for (int i = 0; i < Q9DB_C_INTERFACE_ROWS; ++i) {
    void* exported = dlsym(library, kRowNames[i]);
    EXPECT_EQ(reinterpret_cast<void*>(table[i]), exported) << "row " << i << ": " << kRowNames[i];
    if (!exported) missing += std::string(" ") + kRowNames[i];
  }
  // Rows whose functions the library doesn't have yet stay null.
  if (!missing.empty()) std::printf("rows still without a function:%s\n", missing.c_str());
  dlclose(library);
}

}  // namespace
