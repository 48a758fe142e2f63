// A database filled from description files through the filter scripts.
#ifndef Q9DB_TOOL_NETWORK_H
#define Q9DB_TOOL_NETWORK_H

#include <string>
#include <vector>

#include "Q9Db.h"

namespace q9tool {

// One report of a filter script: its two numbers and its text.
struct ImportReport {
  int32_t first;
  int32_t second;
  std::string text;
};

class Network {
 public:
  Network();
  ~Network();
  Network(const Network&) = delete;
  Network& operator=(const Network&) = delete;

  Q9DbNode* db() const { return db_; }

  // Imports path into the database. On failure error holds a message that
  // names the file; reports collects what the scripts said either way.
  bool import(const std::string& path, std::string& error);
  const std::vector<ImportReport>& reports() const { return reports_; }

  // The channels of the CAN clusters, where frames of a capture are decoded.
  std::vector<Q9DbNode*> canChannels() const;

 private:
  Q9DbNode* db_ = nullptr;
  std::vector<ImportReport> reports_;
};

// Imports every file in turn; the first that fails is reported on standard
// error, and the answer is false.
bool importFiles(Network& network, const std::vector<std::string>& files);

// Collects the reports of one filter host call. The host's own closing
// report of a failure is a wide text; the scripts' are UTF-8.
struct ReportCollector {
  std::vector<ImportReport>* scriptReports;
  std::string hostMessage;
  static int32_t collect(void* context, const FilterReportRecord* record);
};

}  // namespace q9tool

#endif
