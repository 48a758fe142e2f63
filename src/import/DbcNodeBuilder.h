// Builds database nodes from a resolved DBC network.
//
// Per message: a Frame, an IdentifierBasedTriggering on the channel, a PDU
// placed at bit 0 of the frame and, with a cycle time, a PDUTriggering with
// a CyclicTiming (milliseconds). A plain message carries a SignalPDU. A
// multiplexed one carries a MultiplexedPDU switched by its multiplexer; the
// static part holds the plain signals and the switch, each switch value has
// a dynamic part. A part's segments are its signals' own fields, so its PDU
// sees them one after the other, little-endian, from bit 0.
#pragma once

#include <cstddef>
#include <string>

#include "import/DbcNetwork.h"
#include "import/NativeImport.h"

namespace q9 {

struct DbcBuildCounts {
  std::string prefix;
  std::size_t frames = 0;
  std::size_t signals = 0;
};

// Throws BuildFailure when a node can't be made or the target is of the
// wrong class; plainName names a new cluster and is the default prefix.
void buildDbcNodes(Q9DbNode* db, Q9DbNode* node, const DbcNetwork& network,
                   const std::string& plainName, const ImportOptions& options,
                   ImportReport& report, DbcBuildCounts& counts);

}  // namespace q9
