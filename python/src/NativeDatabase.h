// A database filled from description files, each file serving every bus or
// one bus by name (as "q9db decode --bus can1=body.dbc" binds it), with
// the import reports kept per file. A failed import adds nothing and says
// why; what was imported before stays.
#ifndef Q9DB_PYTHON_NATIVEDATABASE_H
#define Q9DB_PYTHON_NATIVEDATABASE_H

#include <mutex>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <vector>

#include "Catalog.h"
#include "Network.h"

namespace q9py {

struct FileReport {
  int32_t first;  // 1: a warning
  int32_t second;
  std::string text;  // naming the file
};

// An import that failed: the message names the file (and line and column
// where the reader gave them); reports holds what the scripts said before.
class ImportFailure : public std::runtime_error {
 public:
  ImportFailure(const std::string& message, std::vector<FileReport> reports)
      : std::runtime_error(message), reports(std::move(reports)) {}
  std::vector<FileReport> reports;
};

class NativeDatabase {
 public:
  // Imports path, for bus alone when bus isn't empty. Returns the file's
  // reports; throws ImportFailure.
  std::vector<FileReport> load(const std::string& path, const std::string& bus);

  Q9DbNode* db() const { return network_.db(); }
  Catalog& catalog() { return catalog_; }

  // The channels (indexes into the catalog's) that decode frames of bus:
  // those of the files bound to it, else those of the files bound to no
  // bus; CAN channels only when canOnly. Empty: no description serves it.
  const std::vector<uint32_t>& channelsFor(const std::string& bus, bool canOnly);

  // Held while the database or its catalog is used: decoding runs without
  // Python's lock, and the catalog grows as it decodes.
  std::mutex& mutex() { return mutex_; }

 private:
  struct File {
    std::string path;
    std::string bus;
    std::vector<Q9DbNode*> channels;
  };
  q9tool::Network network_;
  Catalog catalog_;
  std::vector<File> files_;
  std::unordered_map<std::string, std::vector<uint32_t>> resolved_[2];  // by canOnly
  std::mutex mutex_;
};

}  // namespace q9py

#endif
