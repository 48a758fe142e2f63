// q9db dot, info and convert: one library call each on imported files.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "Commands.h"
#include "Io.h"
#include "Network.h"
#include "Text.h"

namespace q9tool {
namespace {

// A graph ends with its closing brace; a full disk cuts it short.
bool graphComplete(const std::string& path) {
  std::FILE* file = std::fopen(path.c_str(), "rb");
  if (!file) return false;
  char tail[3] = {};
  bool complete = std::fseek(file, -2, SEEK_END) == 0 && std::fread(tail, 1, 2, file) == 2 && tail[0] == '}';
  std::fclose(file);
  return complete;
}

}  // namespace

int runDot(const std::vector<std::string>& files, const std::string& output, const ImportOptions& options) {
  Network network;
  if (!importFiles(network, files, options)) return kExitInputError;
  // The library writes the graph to a scratch file and can't tell whether
  // every write arrived; the copy to the output can.
  const char* folder = std::getenv("TMPDIR");
  std::string scratchPath = std::string(folder && *folder ? folder : "/tmp") + "/q9db-graph-XXXXXX";
  std::vector<char> name(scratchPath.begin(), scratchPath.end());
  name.push_back('\0');
  int scratchFd = ::mkstemp(name.data());
  if (scratchFd < 0) {
    std::fprintf(stderr, "q9db: %s: cannot make a scratch file: %s\n", scratchPath.c_str(), std::strerror(errno));
    return kExitInputError;
  }
  ::close(scratchFd);
  std::string written(name.data());
  std::u16string path = utf16(written);
  std::string error;
  bool ok = Q9Db_dumpDot(network.db(), path.c_str(), 0, 65535) == S_OK && graphComplete(written);
  if (!ok) error = written + ": the graph could not be written whole";
  if (ok) {
    bool toStdout = output == "-";
    int fd = toStdout ? STDOUT_FILENO : ::open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (fd < 0) {
      ok = false;
      error = output + ": cannot write: " + std::strerror(errno);
    } else {
      ok = copyFile(written, fd, error);
      if (!ok) error = (toStdout ? "standard output" : output) + std::string(": ") + error;
      if (!toStdout && ::close(fd) != 0 && ok) {
        ok = false;
        error = output + ": " + std::strerror(errno);
      }
    }
  }
  ::unlink(written.c_str());
  if (!ok) {
    std::fprintf(stderr, "q9db: %s\n", error.c_str());
    return kExitInputError;
  }
  return kExitOk;
}

int runInfo(const std::string& file) {
  std::u16string path = utf16(file);
  HRESULT detected = Q9Db_importDetect(path.c_str());
  std::printf("file: %s\n", file.c_str());
  if (detected != S_OK) {
    std::fprintf(stderr, "q9db: %s: %s\n", file.c_str(),
                 detected == S_FALSE ? "no filter reads this kind of file" : "the filter scripts failed");
    return kExitInputError;
  }
  std::printf("readable: yes\n");
  BSTR id = nullptr;
  if (Q9Db_importGetDbId(path.c_str(), &id) == S_OK && id) {
    std::printf("database id: %s\n", utf8(id).c_str());
    SysFreeString(id);
  }
  Network network;
  std::vector<ImportReport> reports;
  ReportCollector collector(reports);
  HRESULT status = Q9Db_importGetInfo(network.db(), path.c_str(), &collector, &ReportCollector::collect);
  // Scripts number their reports: first 1 is a warning, second the depth
  // of what is reported (file, ECU, frame, signal).
  for (const ImportReport& report : reports)
    std::printf("%*s%s%s\n", 2 * (report.second > 0 && report.second < 8 ? report.second : 0), "",
                report.first == 1 ? "warning: " : "", report.text.c_str());
  if (FAILED(status)) {
    std::fprintf(stderr, "q9db: %s: %s\n", file.c_str(),
                 collector.hostMessage().empty() ? "the import report failed" : collector.hostMessage().c_str());
    return kExitInputError;
  }
  return kExitOk;
}

int runConvert(const std::string& input, const std::string& output, const ImportOptions& options) {
  Network network;
  if (!importFiles(network, {input}, options)) return kExitInputError;
  std::u16string path = utf16(output);
  std::vector<ImportReport> reports;
  ReportCollector collector(reports);
  HRESULT status = Q9Db_exportFileWithReport(network.db(), nullptr, path.c_str(), nullptr, &collector,
                                            &ReportCollector::collect);
  // What the format can't hold is left out with a warning.
  if (!options.quiet)
    for (const ImportReport& report : reports)
      if (report.first == 1) std::fprintf(stderr, "q9db: warning: %s: %s\n", output.c_str(), report.text.c_str());
  if (FAILED(status) || collector.lostReports()) {
    std::string reason = collector.lostReports() ? "out of memory while keeping the export's report"
                         : !collector.hostMessage().empty() ? collector.hostMessage()
                                                             : "the export failed";
    if (reason.compare(0, output.size(), output) != 0) reason = output + ": " + reason;
    std::fprintf(stderr, "q9db: %s\n", reason.c_str());
    return kExitInputError;
  }
  return kExitOk;
}

}  // namespace q9tool
