// The channels a file brought are those that weren't there before its
// import, which is how they are bound to the file's bus. Which channels serve
// a bus is worked out on first asking and kept until the next file; a failed
// import's last warning, being its failure, isn't repeated among the reports.
#include "NativeDatabase.h"

#include <algorithm>

#include "Nodes.h"

namespace q9py {
namespace {

std::vector<Q9DbNode*> allChannels(Q9DbNode* db) {
  std::vector<Q9DbNode*> channels;
  q9tool::forEachNode(Q9Db_enumClusters, db, [&](Q9DbNode* cluster) {
    q9tool::forEachNode(Q9Db_enumChildren, cluster, [&](Q9DbNode* child) {
      if (Q9Db_getNodeType(child) == Q9_NODETYPE_Channel) channels.push_back(child);
    });
  });
  return channels;
}

}  // namespace

std::vector<FileReport> NativeDatabase::load(const std::string& path, const std::string& bus) {
  const std::vector<Q9DbNode*> before = allChannels(db());
  const size_t reportsBefore = network_.reports().size();
  std::string error;
  const bool imported = network_.import(path, error);
  std::vector<FileReport> reports;
  for (q9tool::ImportReport& report : network_.reportsOf(path, reportsBefore, imported, error))
    reports.push_back({report.first, report.second, std::move(report.text)});
  if (!imported) throw ImportFailure(error, std::move(reports));
  File file{path, bus, {}};
  for (Q9DbNode* channel : allChannels(db()))
    if (std::find(before.begin(), before.end(), channel) == before.end()) file.channels.push_back(channel);
  files_.push_back(std::move(file));
  catalog_.build(db());
  for (auto& resolved : resolved_) resolved.clear();
  return reports;
}

const std::vector<uint32_t>& NativeDatabase::channelsFor(const std::string& bus, bool canOnly) {
  auto& resolved = resolved_[canOnly ? 1 : 0];
  auto known = resolved.find(bus);
  if (known != resolved.end()) return known->second;
  const bool bound = std::any_of(files_.begin(), files_.end(), [&](const File& f) { return !f.bus.empty() && f.bus == bus; });
  std::vector<uint32_t> channels;
  const std::vector<ChannelEntry>& entries = catalog_.channels();
  for (const File& file : files_) {
    if (bound ? file.bus != bus : !file.bus.empty()) continue;
    for (Q9DbNode* node : file.channels)
      for (uint32_t c = 0; c < entries.size(); ++c)
        if (entries[c].node == node && (!canOnly || entries[c].clusterType == Q9_CLUSTERTYPE_CAN)) channels.push_back(c);
  }
  return resolved.emplace(bus, std::move(channels)).first->second;
}

}  // namespace q9py
