// The table of functions that Q9Db_GetCInterface hands out: its versions,
// and each row against the shared library's export of its name.
#include <gtest/gtest.h>
#include <dlfcn.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "Q9Db.h"

namespace {

// The interface as clients see it: row i of the table is the export named
// "Q9Db_" and the name here at position i.
const char* const kRowNames[] = {
    "create", "destroy", "stringCreateSlot", "stringCreateSlotA", "stringAddAlternative", "stringAddAlternativeA",
    "stringLookup", "isValidNode", "getNodeType", "isDerivedFrom", "findByElementId", "findChildByElementId",
    "getQualifiedId", "splitQualifiedId", "createCluster", "createChannel", "createFrame",
    "createAbsolutelyScheduledTriggering", "createIdentifierBasedTriggering", "createMaskedIdentifierTriggering",
    "createSignalPDU", "createPDUInstance", "createPDUTriggering", "createEventControlledTiming",
    "createCyclicTiming", "createMultiplexedPart", "createMultiplexedPDU", "createECU", "createSignal",
    "createSignalInstance", "createCoding", "createUnitSpec", "createIdentityComputation",
    "createLinearComputation", "createMappedValueComputation", "createMappedTextComputation", "createElementGroup",
    "createElementReference", "getElementId", "setElementId", "getGroup", "setGroup", "getParam", "setParam",
    "setShortName", "getShortName", "setLongName", "getLongName", "setDescription", "getDescription",
    "setElementDetail", "getElementDetail", "setParent", "getParent", "setReference", "getReference",
    "insertChildren", "appendChildren", "enumChildren", "getDatabaseCollections", "addSegment", "enumSegments",
    "addParents", "enumParents", "addSignalInstances", "enumSignalInstances", "setStaticPart", "setElsePart",
    "addDynamicParts", "getStaticPart", "getElsePart", "enumDynamicParts", "getSwitchByteOrder",
    "getSwitchPosition", "getSwitchLength", "getDefaultSwitchCode", "getSwitchCode", "setClusterType",
    "getClusterType", "addFrameTriggerings", "enumFrameTriggerings", "addPDUTriggerings", "enumPDUTriggerings",
    "addPDUInstances", "enumPDUInstances", "getDefaultValue", "getMinValue", "getMaxValue",
    "addInternalToPhysicalComputations", "addPhysicalToInternalComputations", "getUnit",
    "enumInternalToPhysicalComputations", "enumPhysicalToInternalComputations", "getEncoding", "setDisplayName",
    "getDisplayName", "addRange", "enumRanges", "getScale", "getOffset", "getTextValue", "getValue", "setFrame",
    "getFrame", "setSourceECU", "getSourceECU", "setChannel", "getChannel", "getSlotId", "getCycleOffset",
    "getRepetition", "getIdentifier", "getIdentifierMask", "getIdentifierCode", "getLength", "getBitPosition",
    "getUpdateBitPosition", "getBitLength", "getUnusedBytePattern", "setSignal", "getByteOrder", "getDebounceTime",
    "getCycletime", "getUpperLimit", "getLowerLimit", "getFlags", "addClusters", "addECUs", "addFrames",
    "addCodings", "addPDUs", "addSignals", "addViews", "enumClusters", "enumECUs", "enumFrames", "enumCodings",
    "enumPDUs", "enumSignals", "enumViews", "enumIdentElements", "enumeratorGetCount", "enumeratorReset",
    "enumeratorSkip", "enumeratorNext", "enumeratorDestroy", "enumeratorFindNext", "createIdListFilterA",
    "createIdListFilterW", "createCombinationFilter", "appendFilter", "filterNode", "destroyFilter",
    "internalToPhysical", "decodeNextSignal", "decodeNextFrametriggering", "decodeMessage", "getFrameTriggering",
    "destroyDecodeEnum", "valueToString", "checkValueInMinMax", "dumpDot", "importGetAvailableFilters",
    "importDetect", "importGetDbId", "importGetInfo", "importFile", "exportFile", "physicalToInternal",
    "encodeSignal", "encodeNextComputation", "encodeSignalInstance", "CreateEncoder", "DestroyEncoder",
    "EncoderRegister", "EncoderDeregister", "EncoderInsert", "EncoderDelete", "EncoderIsSignalCyclic",
    "EncoderChangeSignal", "EncoderChangeSignalEx", "EncoderTrigger", "EncoderGetChangedFrame",
    "EncoderSetSendMode", "EncoderGetSendMode", "getDatabaseRef",
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
    const std::string name = std::string("Q9Db_") + kRowNames[i];
    void* exported = dlsym(library, name.c_str());
    EXPECT_EQ(reinterpret_cast<void*>(table[i]), exported) << "row " << i << ": " << name;
    if (!exported) missing += " " + name;
  }
  // Rows whose functions the library doesn't have yet stay null.
  if (!missing.empty()) std::printf("rows still without a function:%s\n", missing.c_str());
  dlclose(library);
}

}  // namespace
