// Which switch selects each signal of a DBC message (see DbcSwitches.cpp).
#pragma once

#include <vector>

#include "import/DbcModel.h"
#include "import/DbcNetwork.h"
#include "import/ImportReport.h"

namespace q9 {

// "M" marks the message's one switch, "m<n>" the signals its value n selects.
void selectBySwitchValues(DbcNetworkMessage& message, ImportReport& report);
// SG_MUL_VAL_ lines name each signal's switch and values.
void selectByRanges(DbcNetworkMessage& message, const std::vector<const DbcMultiplexRanges*>& lines,
                    ImportReport& report);

}  // namespace q9
