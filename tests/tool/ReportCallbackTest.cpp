// Memory running out while the tool keeps an import's report: the library
// calls the tool back from inside its C frames, so the failure must stay on
// the tool's side and come back as an import error, not an abort.
#include <gtest/gtest.h>

#include <new>
#include <string>
#include <vector>

#include "Network.h"

namespace {

using namespace q9tool;

class OutOfMemoryCollector : public ReportCollector {
 public:
  using ReportCollector::ReportCollector;

 protected:
  void keep(ImportReport) override { throw std::bad_alloc(); }
};

TEST(ReportCallback, AnAllocationFailureBecomesAnImportError) {
  const std::string file = std::string(Q9DB_TEST_SOURCE_DIR) + "/tests/import/data/tolerant/comment_without_keyword.dbc";
  Network network;
  std::vector<ImportReport> reports;
  OutOfMemoryCollector failing(reports);
  std::string error;
  EXPECT_FALSE(network.import(file, error, &failing));
  EXPECT_EQ(error, file + ": out of memory while keeping the import's report");

  // The database is still usable, and the same file imports with a collector that works.
  error.clear();
  EXPECT_TRUE(network.import(file, error)) << error;
  int warnings = 0;
  for (const ImportReport& report : network.reports())
    if (report.first == 1) {
      ++warnings;
      EXPECT_NE(report.text.find(":8:5: comment names object 145 without BO_"), std::string::npos) << report.text;
    }
  EXPECT_EQ(warnings, 1);
}

}  // namespace
