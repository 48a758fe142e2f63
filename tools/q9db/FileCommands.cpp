// q9db dot, info and convert: one library call each on imported files.
#include <cstdio>

#include "Commands.h"
#include "Network.h"
#include "Text.h"

namespace q9tool {
int runDot(const std::vector<std::string>& files, const std::string& output) {
  Network network;
  if (!importFiles(network, files)) return kExitInputError;
  std::u16string path = utf16(output);
  if (Q9Db_dumpDot(network.db(), path.c_str(), 0, 65535) != S_OK) {
    std::fprintf(stderr, "q9db: %s: cannot write the graph\n", output.c_str());
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
  ReportCollector collector{&reports, {}};
  HRESULT status = Q9Db_importGetInfo(network.db(), path.c_str(), &collector, &ReportCollector::collect);
  // Scripts number their reports: first 1 is a warning, second the depth
  // of what is reported (file, ECU, frame, signal).
  for (const ImportReport& report : reports)
    std::printf("%*s%s%s\n", 2 * (report.second > 0 && report.second < 8 ? report.second : 0), "",
                report.first == 1 ? "warning: " : "", report.text.c_str());
  if (FAILED(status)) {
    std::fprintf(stderr, "q9db: %s: %s\n", file.c_str(),
                 collector.hostMessage.empty() ? "the import report failed" : collector.hostMessage.c_str());
    return kExitInputError;
  }
  return kExitOk;
}

int runConvert(const std::string& input, const std::string& output) {
  Network network;
  if (!importFiles(network, {input})) return kExitInputError;
  std::u16string path = utf16(output);
  std::vector<ImportReport> reports;
  ReportCollector collector{&reports, {}};
  HRESULT status =
      Q9Db_exportFile(network.db(), nullptr, path.c_str(), nullptr, &collector, &ReportCollector::collect);
  if (FAILED(status)) {
    // The host's report says why: no cluster of the kind, or the OS's reason.
    std::fprintf(stderr, "q9db: %s: export failed (status 0x%08X)%s%s\n", output.c_str(),
                 static_cast<unsigned>(status), collector.hostMessage.empty() ? "" : ": ",
                 collector.hostMessage.c_str());
    return kExitInputError;
  }
  return kExitOk;
}

}  // namespace q9tool
