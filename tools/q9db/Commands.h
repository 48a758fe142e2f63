// The subcommands of q9db. Each answers the process's exit status:
// 0 done, 1 an input error (reported on standard error), 2 a usage error.
#ifndef Q9DB_TOOL_COMMANDS_H
#define Q9DB_TOOL_COMMANDS_H

#include <cstdint>
#include <string>
#include <vector>

#include "FrameWriter.h"

namespace q9tool {

constexpr int kExitOk = 0;
constexpr int kExitInputError = 1;
constexpr int kExitUsageError = 2;

struct DecodeOptions {
  std::vector<std::string> files;
  std::string log;  // empty or "-": standard input
  Format format = Format::Text;
  bool showUnknown = false;
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
};
int runSimulate(const SimulateOptions& options);

int runDump(const std::vector<std::string>& files);
int runDot(const std::vector<std::string>& files, const std::string& output);
int runInfo(const std::string& file);
int runConvert(const std::string& input, const std::string& output);

}  // namespace q9tool

#endif
