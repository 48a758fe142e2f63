// The statistics of a capture written out: a table for people, one CSV
// table (a row per identifier, interface and described frame not seen,
// told apart by their first field), or one JSON document.
#ifndef Q9DB_TOOL_STATSWRITER_H
#define Q9DB_TOOL_STATSWRITER_H

#include <cstdint>
#include <string>
#include <vector>

#include "BusLoad.h"
#include "DescribedFrames.h"
#include "FrameStatistics.h"
#include "FrameWriter.h"
#include "Io.h"

namespace q9tool {

struct StatsReport {
  const FrameStatistics& statistics;
  BitRates rates;
  std::vector<const DescribedFrame*> notSeen;  // described, and no frame of the capture had the identifier
  std::string log;                             // the capture's name
  uint64_t malformedLines = 0;
  uint64_t skippedFrames = 0;  // remote and error frames
};

void writeStats(Output& out, Format format, const StatsReport& report);

}  // namespace q9tool

#endif
