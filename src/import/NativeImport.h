// The native import engine: DBC and LDF files read tolerantly and built into
// a database's nodes in C++, for the filter scripts (which keep detection,
// options and the filter list) through the export Q9Db_importEngine.
//
// Every function reports through an ImportReport and throws nothing but
// std::bad_alloc, which the Lua binding turns into an error.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "Q9Db.h"
#include "import/ImportReport.h"

namespace q9 {

struct ImportOptions {
  std::optional<std::string> prefix;  // names the import instead of the file's own name
  uint16_t language = 0;              // of descriptions, units and value texts
};

// Imports a file into db: node null makes a new cluster and channel; a
// Channel takes the frames itself; into a Cluster, a DBC file goes to its
// first channel (a new one when it has none), an LDF file to a new channel.
// True on success; false with report.error() saying why, and then nothing
// was added to the database.
bool importDbcFile(Q9DbNode* db, Q9DbNode* node, const std::string& pathUtf8,
                   const ImportOptions& options, ImportReport& report);
bool importLdfFile(Q9DbNode* db, Q9DbNode* node, const std::string& pathUtf8,
                   const ImportOptions& options, ImportReport& report);

// What a file holds, as information records, without a database.
bool describeDbcFile(const std::string& pathUtf8, ImportReport& report);
bool describeLdfFile(const std::string& pathUtf8, ImportReport& report);

// The DBName attribute of a DBC file, if it has one and the file reads.
std::optional<std::string> dbcDatabaseId(const std::string& pathUtf8);

}  // namespace q9
