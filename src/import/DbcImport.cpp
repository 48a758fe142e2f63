// The DBC entries of the native import engine: a file read whole, its
// statements resolved, and the nodes built; or only summarised.
#include <cinttypes>
#include <cstdio>

#include "import/BuildSupport.h"
#include "import/DbcModel.h"
#include "import/DbcNetwork.h"
#include "import/DbcNodeBuilder.h"
#include "import/DbcPduPlan.h"
#include "import/NativeImport.h"
#include "import/SourceText.h"
#include "store/Gathering.h"

namespace q9 {
namespace {

// The file's name without folder and extension.
std::string baseName(const std::string& path) {
  const std::size_t slash = path.find_last_of("/\\");
  std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
  const std::size_t dot = name.rfind('.');
  if (dot != std::string::npos) name.erase(dot);
  return name;
}

// Reads and resolves a file; false with the report's error set when it
// can't be read or nothing in it is a DBC statement.
bool readNetwork(const std::string& path, DbcModel& model, DbcNetwork& network, ImportReport& report) {
  SourceText source;
  std::string reason;
  if (readSourceText(path, source, reason) != S_OK) {
    report.fail({}, reason);
    return false;
  }
  if (source.encoding != SourceEncoding::Ascii)
    report.info(kSubjectFile, baseName(path) + ": text read as " + sourceEncodingName(source.encoding));
  if (!readDbcModel(source.text, model, report)) return false;
  resolveDbcNetwork(model, network, report);
  return true;
}

}  // namespace

bool importDbcFile(Q9DbNode* db, Q9DbNode* node, const std::string& path, const ImportOptions& options,
                   ImportReport& report) {
  DbcBuildCounts counts;
  std::size_t ecus = 0;
  // New ids and texts are merged into the database's indexes in one pass,
  // once the file's model is gone, so that the two don't take memory at once.
  GatheringScope gathering(db);
  try {
    DbcModel model;
    DbcNetwork network;
    if (!readNetwork(path, model, network, report)) return false;
    ecus = network.ecus.size();
    buildDbcNodes(db, node, network, network.dbName.value_or(baseName(path)), options, report, counts);
  } catch (const BuildFailure& failure) {
    report.fail({}, failure.what());
    return false;
  }
  if (gathering.finish() != S_OK) {
    report.fail({}, "entering the ids failed: not enough memory");
    return false;
  }
  char summary[96];
  std::snprintf(summary, sizeof summary, ": %zu ECUs, %zu frames, %zu signals imported under the id prefix ", ecus,
                counts.frames, counts.signals);
  report.info(kSubjectFile, baseName(path) + summary + counts.prefix);
  return true;
}

bool describeDbcFile(const std::string& path, ImportReport& report) {
  DbcModel model;
  DbcNetwork network;
  if (!readNetwork(path, model, network, report)) return false;
  for (const DbcNetworkEcu& ecu : network.ecus) report.info(kSubjectEcu, ecu.plainName);
  std::size_t frames = 0, signals = 0;
  char line[160];
  for (const DbcNetworkMessage& message : network.messages) {
    if (message.skip) continue;
    ++frames;
    std::snprintf(line, sizeof line, ": identifier 0x%" PRIX32 "%s%s, %" PRIu32 " bytes, sent by ", message.identifier,
                  message.extended ? " (extended)" : "", message.fd ? ", CAN FD" : "", message.length);
    report.info(kSubjectFrame, message.plainName + line + message.source->sender);
    for (const DbcNetworkSignal& signal : message.signals) {
      report.info(kSubjectSignal, message.plainName + "." + signal.plainName);
      ++signals;
    }
    planDbcMessage(message, int32_t(message.length * 8), report);  // for what it reports
  }
  std::snprintf(line, sizeof line, ": %zu ECUs, %zu frames, %zu signals", network.ecus.size(), frames, signals);
  report.info(kSubjectFile, network.dbName.value_or(baseName(path)) + line);
  return true;
}

std::optional<std::string> dbcDatabaseId(const std::string& path) {
  ImportReport quiet(path);
  DbcModel model;
  DbcNetwork network;
  if (!readNetwork(path, model, network, quiet)) return std::nullopt;
  return network.dbName;
}

}  // namespace q9
