// The subcommands of q9db. Each answers the process's exit status:
// 0 done, 1 an input error (reported on standard error), 2 a usage error.
#ifndef Q9DB_TOOL_COMMANDS_H
#define Q9DB_TOOL_COMMANDS_H

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

int runDump(const std::vector<std::string>& files);
int runDot(const std::vector<std::string>& files, const std::string& output);
int runInfo(const std::string& file);
int runConvert(const std::string& input, const std::string& output);

}  // namespace q9tool

#endif
