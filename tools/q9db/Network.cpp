#include "Network.h"

#include <cstdio>

#include "Nodes.h"
#include "Text.h"

namespace q9tool {

int32_t ReportCollector::collect(void* context, const FilterReportRecord* record) {
  auto* self = static_cast<ReportCollector*>(context);
  const char* bytes = static_cast<const char*>(record->text);
  if (!bytes) return 0;
  // Both forms come with 0 and 0 when the host closes a failed call, and a
  // script's summary may too. Host texts begin with a character below
  // U+0100, whose UTF-16 form has a zero second byte; no script's UTF-8
  // text is a single byte long.
  if (record->first == 0 && record->second == 0 && bytes[0] != 0 && bytes[1] == 0) {
    self->hostMessage = utf8(static_cast<const char16_t*>(record->text));
    return 0;
  }
  self->scriptReports->push_back({record->first, record->second, bytes});
  return 0;
}

Network::Network() { Q9Db_create(u"q9db", &db_); }

Network::~Network() {
  if (db_) Q9Db_destroy(db_);
}

bool Network::import(const std::string& path, std::string& error) {
  if (!db_) {
    error = path + ": no database could be made (out of memory)";
    return false;
  }
  ReportCollector collector{&reports_, {}};
  size_t before = reports_.size();
  std::u16string widePath = utf16(path);
  HRESULT status = Q9Db_importFile(db_, nullptr, widePath.c_str(), nullptr, &collector, &ReportCollector::collect);
  if (SUCCEEDED(status)) return true;
  std::string reason = collector.hostMessage;
  if (reason.empty() && reports_.size() > before) reason = reports_.back().text;
  char code[32];
  std::snprintf(code, sizeof code, "status 0x%08X", static_cast<unsigned>(status));
  error = path + ": import failed (" + code + ")" + (reason.empty() ? "" : ": " + reason);
  return false;
}

bool importFiles(Network& network, const std::vector<std::string>& files) {
  for (const std::string& file : files) {
    std::string error;
    if (!network.import(file, error)) {
      std::fprintf(stderr, "q9db: %s\n", error.c_str());
      return false;
    }
  }
  return true;
}

std::vector<Q9DbNode*> Network::canChannels() const {
  std::vector<Q9DbNode*> channels;
  forEachNode(Q9Db_enumClusters, db_, [&](Q9DbNode* cluster) {
    int32_t type = Q9_CLUSTERTYPE_INVALID;
    if (Q9Db_getClusterType(cluster, &type) != S_OK || type != Q9_CLUSTERTYPE_CAN) return;
    forEachNode(Q9Db_enumChildren, cluster, [&](Q9DbNode* child) {
      if (Q9Db_getNodeType(child) == Q9_NODETYPE_Channel) channels.push_back(child);
    });
  });
  return channels;
}

}  // namespace q9tool
