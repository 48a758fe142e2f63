// The native LDF import: the file read tolerantly, then built into the
// database under a prefix of its own, and one line of summary at the end.
#include <new>

#include "import/LdfBuild.h"
#include "import/NativeImport.h"
#include "import/TolerantLdfReader.h"
#include "store/Gathering.h"
#include "store/NodeClasses.h"

namespace q9 {
namespace {

// The file's name without folders and without its last extension.
std::string baseName(const std::string& path) {
  const std::size_t slash = path.find_last_of("/\\");
  std::string name = slash == std::string::npos || slash + 1 == path.size() ? path : path.substr(slash + 1);
  const std::size_t dot = name.find_last_of('.');
  if (dot != std::string::npos) name.erase(dot);
  return name;
}

// The name the import goes by: the option, else the channel's name, else
// the file's.
std::string importName(const LdfFile& file, const std::string& path, const ImportOptions& options) {
  if (options.prefix && !options.prefix->empty()) return *options.prefix;
  if (file.header.channelName && !file.header.channelName->empty()) return *file.header.channelName;
  return baseName(path);
}

void build(LdfBuild& b, Q9DbNode* node) {
  for (const LdfNodeAttributes& a : b.file.nodeAttributes)
    if (a.protocol) b.nodeProtocol[a.node] = versionNumber(*a.protocol);
  buildTarget(b, node);
  buildNodes(b);
  buildSignals(b);
  buildFrames(b);
  buildNodeAttributes(b);
  buildSchedules(b);
  buildSignalGroups(b);
}

}  // namespace

bool importLdfFile(Q9DbNode* db, Q9DbNode* node, const std::string& pathUtf8, const ImportOptions& options,
                   ImportReport& report) {
  try {
    LdfFile file;
    if (!readLdfFile(pathUtf8, file, report)) return false;
    if (node) {
      const uint32_t type = Q9Db_getNodeType(node);
      if (type != Q9_NODETYPE_Cluster && type != Q9_NODETYPE_Channel) {
        const NodeClassInfo* info = classByCode(type);
        report.fail({}, std::string("the node to import into must be a Cluster or a Channel, not ") +
                            (info && info->name ? info->name : "an unknown node"));
        return false;
      }
    }
    const std::string name = importName(file, pathUtf8, options);
    LdfBuild b(db, file, freePrefix(db, name, true), name, options.language, report);
    // New ids and texts are merged into the database's indexes in one pass.
    GatheringScope gathering(db);
    build(b, node);
    NodeMaker::check(gathering.finish(), "entering the ids");
    std::size_t frames = 0;
    for (const auto& entry : b.frames) frames += entry.second.sporadic ? 0 : 1;
    report.info(kSubjectFile, baseName(pathUtf8) + ": " + std::to_string(b.ecuOrder.size()) + " ECUs, " +
                                  std::to_string(frames) + " frames, " + std::to_string(b.signals.size()) +
                                  " signals, " + std::to_string(b.scheduleCount) +
                                  " schedule tables imported under the id prefix " + b.make.prefix());
    return true;
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::exception& failure) {
    report.fail({}, failure.what());
    return false;
  }
}

}  // namespace q9
