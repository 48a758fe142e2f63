// The subcommands of q9db. Each answers the process's exit status:
// 0 done, 1 an input or output error (reported on standard error), 2 a
// usage error.
#ifndef Q9DB_TOOL_COMMANDS_H
#define Q9DB_TOOL_COMMANDS_H

#include <cstdint>
#include <string>
#include <vector>

#include "FrameFilter.h"
#include "FrameWriter.h"
#include "Network.h"

namespace CLI {
class App;
}

namespace q9tool {

constexpr int kExitOk = 0;
constexpr int kExitInputError = 1;
constexpr int kExitUsageError = 2;

// How decode writes timestamps: as logged, from the first frame, or from
// the frame before (candump's -t a, z, d).
enum class Timestamps { Absolute, FromFirst, Delta };

struct DecodeOptions {
  std::vector<std::string> files;     // descriptions of every bus
  std::vector<std::string> bindings;  // INTERFACE=FILE: a description of one bus
  std::string log;                    // empty or "-": standard input
  Format format = Format::Text;
  bool showUnknown = false;
  bool raw = false;  // the bytes beside the values
  Timestamps timestamps = Timestamps::Absolute;
  FilterOptions filters;
  bool j1939 = false;          // extended frames found by parameter group too
  unsigned maxReports = 10;    // reports of each kind of problem shown; 0: all
  ImportOptions import;        // quiet: counts only
};
int runDecode(const DecodeOptions& options);

struct SimulateOptions {
  std::vector<std::string> files;
  double duration = 0;               // seconds of bus time
  uint64_t stepMilliseconds = 1;     // clock step of the encoder
  std::vector<std::string> settings; // FRAME.SIGNAL=VALUE
  std::string script;                // Lua file with before_send(frame); empty: none
  std::string interface = "can0";
  uint64_t startMicroseconds = 1700000000000000;  // timestamp of the first step
  ImportOptions import;
};
int runSimulate(const SimulateOptions& options);

struct StatsOptions {
  std::vector<std::string> files;     // descriptions of every bus
  std::vector<std::string> bindings;  // INTERFACE=FILE: a description of one bus
  bool j1939 = false;                 // extended frames found by parameter group too
  std::string log;  // empty or "-": standard input
  Format format = Format::Text;
  uint32_t bitrate = 500000;       // nominal, bit/s
  uint32_t dataBitrate = 2000000;  // CAN FD data phase with bit rate switch
  ImportOptions import;
};
int runStats(const StatsOptions& options);
// Adds the stats subcommand, its help and options, to app.
CLI::App* addStatsCommand(CLI::App& app, StatsOptions& options);

int runDump(const std::vector<std::string>& files, const ImportOptions& options);
int runDot(const std::vector<std::string>& files, const std::string& output, const ImportOptions& options);
int runInfo(const std::string& file);
int runConvert(const std::string& input, const std::string& output, const ImportOptions& options);

}  // namespace q9tool

#endif
