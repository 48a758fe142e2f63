// q9db decode: a capture in the Linux CAN tools' text forms, frame by frame.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "Commands.h"
#include "FrameDecoder.h"
#include "FrameLine.h"
#include "Io.h"
#include "Network.h"

namespace q9tool {
namespace {

// A progress line on a terminal, for logs large enough to wait for.
class Progress {
 public:
  Progress(int fd) {
    struct stat info {};
    if (isatty(STDERR_FILENO) && fstat(fd, &info) == 0 && S_ISREG(info.st_mode) && info.st_size > kWorthShowing)
      total_ = static_cast<unsigned long long>(info.st_size);
  }
  void update(const LineReader& reader) {
    if (!total_ || reader.lineNumber() % kLinesPerUpdate != 0) return;
    std::fprintf(stderr, "\r%3llu%%  %llu lines", reader.bytesRead() * 100 / total_, reader.lineNumber());
    shown_ = true;
  }
  ~Progress() {
    if (shown_) std::fprintf(stderr, "\r%*s\r", 40, "");
  }

 private:
  static constexpr long long kWorthShowing = 8 << 20;
  static constexpr unsigned long long kLinesPerUpdate = 1 << 16;
  unsigned long long total_ = 0;
  bool shown_ = false;
};

}  // namespace

int runDecode(const DecodeOptions& options) {
  Network network;
  if (!importFiles(network, options.files)) return kExitInputError;
  std::vector<Q9DbNode*> channels = network.canChannels();
  if (channels.empty()) {
    std::fprintf(stderr, "q9db: no CAN channel in %s\n", options.files.size() == 1 ? options.files[0].c_str() : "the files");
    return kExitInputError;
  }

  bool fromStdin = options.log.empty() || options.log == "-";
  std::string logName = fromStdin ? "<stdin>" : options.log;
  int fd = fromStdin ? STDIN_FILENO : ::open(options.log.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    std::fprintf(stderr, "q9db: %s: cannot open: %s\n", logName.c_str(), std::strerror(errno));
    return kExitInputError;
  }

  int status = kExitOk;
  {
    Output out(STDOUT_FILENO);
    FrameWriter writer(out, options.format);
    FrameDecoder decoder(network.db(), std::move(channels), writer, options.showUnknown);
    LineReader reader(fd, &out);
    Progress progress(fd);
    writer.begin();
    CanFrame frame;
    std::string_view line;
    while (reader.next(line) && out.good()) {
      LineResult result = parseFrameLine(line, frame);
      if (result.kind == LineKind::Frame) {
        decoder.decode(frame);
      } else if (result.kind == LineKind::Malformed) {
        out.flush();  // keep the report next to the frames around it
        constexpr size_t kShown = 80;  // enough of the line to find it
        std::fprintf(stderr, "q9db: %s:%llu: %.*s: %.*s%s\n", logName.c_str(), reader.lineNumber(),
                     static_cast<int>(result.problem.size()), result.problem.data(),
                     static_cast<int>(std::min(line.size(), kShown)), line.data(), line.size() > kShown ? "..." : "");
        status = kExitInputError;
      }
      progress.update(reader);
    }
    if (reader.failed()) {
      std::fprintf(stderr, "q9db: %s: read error after line %llu: %s\n", logName.c_str(), reader.lineNumber(),
                   std::strerror(errno));
      status = kExitInputError;
    }
    out.flush();
    // A reader that went away (head, a closed pipe) is no error of ours.
  }
  if (!fromStdin) ::close(fd);
  return status;
}

}  // namespace q9tool
