// A database filled from description files through the filter scripts, with
// what each file brought (its CAN channels, for binding a file to a bus) and
// what the import reported.
#ifndef Q9DB_TOOL_NETWORK_H
#define Q9DB_TOOL_NETWORK_H

#include <string>
#include <vector>

#include "Q9Db.h"

namespace q9tool {

// One report of a filter script: its two numbers and its text.
struct ImportReport {
  int32_t first;  // 1: a warning (what could not be taken as written)
  int32_t second;
  std::string text;
};

// Receives the reports of one filter host call. The host's own closing
// report of a failure is a wide text; the scripts' are UTF-8. keep() may
// throw (out of memory): the callback the library calls catches it and
// remembers, as no exception may pass through the library.
class ReportCollector {
 public:
  explicit ReportCollector(std::vector<ImportReport>& reports) : reports_(reports) {}
  virtual ~ReportCollector() = default;
  static int32_t collect(void* context, const FilterReportRecord* record);

  const std::string& hostMessage() const { return hostMessage_; }
  bool lostReports() const { return lostReports_; }

 protected:
  virtual void keep(ImportReport report) { reports_.push_back(std::move(report)); }

 private:
  std::vector<ImportReport>& reports_;
  std::string hostMessage_;
  bool lostReports_ = false;
};

class Network {
 public:
  Network();
  ~Network();
  Network(const Network&) = delete;
  Network& operator=(const Network&) = delete;

  Q9DbNode* db() const { return db_; }

  // Imports path into the database. On failure error holds a message that
  // names the file (and line and column where the reader gave them);
  // reports collects what the scripts said either way. A collector may be
  // given in place of the network's own.
  bool import(const std::string& path, std::string& error, ReportCollector* collector = nullptr);
  const std::vector<ImportReport>& reports() const { return reports_; }
  // The reports of the import of path that began with reports().size() at
  // first, each text naming the file; a failed import's last report is
  // left out when it is the failure itself (error says it).
  std::vector<ImportReport> reportsOf(const std::string& path, size_t first, bool imported,
                                      const std::string& error) const;

  // The channels of the CAN clusters, where frames of a capture are decoded.
  std::vector<Q9DbNode*> canChannels() const;
  // Those the import of path made (empty for a file not imported).
  std::vector<Q9DbNode*> canChannelsOf(const std::string& path) const;

 private:
  struct Imported {
    std::string path;
    std::vector<Q9DbNode*> channels;
  };
  Q9DbNode* db_ = nullptr;
  std::vector<ImportReport> reports_;
  std::vector<Imported> imported_;
};

// Whether import warnings are printed (--quiet turns them off).
struct ImportOptions {
  bool quiet = false;
};

// Imports every file in turn, printing each file's warnings on standard
// error unless quiet. The first file that fails is reported there too, and
// the answer is false.
bool importFiles(Network& network, const std::vector<std::string>& files, const ImportOptions& options = {});

}  // namespace q9tool

#endif
