// A file that can't be opened is said so before any script runs; a failed
// import is explained by the host's message, else by the script's last
// report, and out of memory overrides both. The channels a file brought are
// those that weren't there before its import.
#include "Network.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <new>
#include <unistd.h>

#include "Nodes.h"
#include "Text.h"

namespace q9tool {

int32_t ReportCollector::collect(void* context, const FilterReportRecord* record) {
  auto* self = static_cast<ReportCollector*>(context);
  const char* bytes = static_cast<const char*>(record->text);
  if (!bytes) return 0;
  try {
    // Both forms come with 0 and 0 when the host closes a failed call, and a
    // script's summary may too. Host texts begin with a character below
    // U+0100, whose UTF-16 form has a zero second byte; no script's UTF-8
    // text is a single byte long.
    if (record->first == 0 && record->second == 0 && bytes[0] != 0 && bytes[1] == 0) {
      self->hostMessage_ = utf8(static_cast<const char16_t*>(record->text));
      return 0;
    }
    self->keep({record->first, record->second, bytes});
  } catch (...) {
    self->lostReports_ = true;  // out of memory: said after the call
  }
  return 0;
}

Network::Network() { Q9Db_create(u"q9db", &db_); }

Network::~Network() {
  if (db_) Q9Db_destroy(db_);
}

namespace {

// The reader's messages begin with the file's name (and line and column);
// others get it put in front.
std::string namingTheFile(const std::string& path, const std::string& text) {
  if (text.compare(0, path.size(), path) == 0) return text;
  return path + ": " + text;
}

}  // namespace

bool Network::import(const std::string& path, std::string& error, ReportCollector* given) {
  if (!db_) {
    error = path + ": no database could be made (out of memory)";
    return false;
  }
  // A file that can't be opened is said so plainly, before any filter runs.
  int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    error = path + ": cannot open: " + std::strerror(errno);
    return false;
  }
  ::close(fd);
  std::vector<Q9DbNode*> before = canChannels();
  ReportCollector own(reports_);
  ReportCollector& collector = given ? *given : own;
  size_t reportsBefore = reports_.size();
  std::u16string widePath = utf16(path);
  HRESULT status = Q9Db_importFile(db_, nullptr, widePath.c_str(), nullptr, &collector, &ReportCollector::collect);
  if (collector.lostReports()) {
    error = path + ": out of memory while keeping the import's report";
    return false;
  }
  if (SUCCEEDED(status)) {
    Imported imported{path, {}};
    for (Q9DbNode* channel : canChannels())
      if (std::find(before.begin(), before.end(), channel) == before.end()) imported.channels.push_back(channel);
    imported_.push_back(std::move(imported));
    return true;
  }
  std::string reason = collector.hostMessage();
  if (reason.empty() && reports_.size() > reportsBefore) reason = reports_.back().text;
  if (status == E_OUTOFMEMORY) reason = "out of memory";
  if (reason.empty()) reason = "the import failed";
  error = namingTheFile(path, reason);
  return false;
}

std::vector<ImportReport> Network::reportsOf(const std::string& path, size_t first, bool imported,
                                             const std::string& error) const {
  std::vector<ImportReport> named;
  for (size_t i = first; i < reports_.size(); ++i) {
    ImportReport report{reports_[i].first, reports_[i].second, namingTheFile(path, reports_[i].text)};
    // The reader's last warning of an unusable file is the failure itself.
    if (!imported && i + 1 == reports_.size() && report.text.compare(0, error.size(), error) == 0) break;
    named.push_back(std::move(report));
  }
  return named;
}

bool importFiles(Network& network, const std::vector<std::string>& files, const ImportOptions& options) {
  for (const std::string& file : files) {
    std::string error;
    size_t before = network.reports().size();
    bool imported = network.import(file, error);
    if (!options.quiet)
      for (const ImportReport& report : network.reportsOf(file, before, imported, error))
        if (report.first == 1) std::fprintf(stderr, "q9db: warning: %s\n", report.text.c_str());
    if (!imported) {
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

std::vector<Q9DbNode*> Network::canChannelsOf(const std::string& path) const {
  for (const Imported& imported : imported_)
    if (imported.path == path) return imported.channels;
  return {};
}

}  // namespace q9tool
