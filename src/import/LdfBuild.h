// The state of building one LDF file into a database: what has been made so
// far, by the file's names, and the steps every part of the build shares.
// The parts run in a fixed order (nodes, signals, frames, node attributes,
// schedule tables, signal groups), each in its own file.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "Q9Db.h"
#include "import/BuildSupport.h"
#include "import/ImportReport.h"
#include "import/LdfModel.h"

namespace q9 {

struct LdfBuiltEncoding;

struct LdfBuiltSignal {
  Q9DbNode* node = nullptr;
  const LdfSignal* def = nullptr;
  int64_t size = 0;
};

// Frames of every kind by name; a sporadic frame is its group.
struct LdfBuiltFrame {
  Q9DbNode* node = nullptr;
  Q9DbNode* triggering = nullptr;
  Q9DbNode* pdu = nullptr;
  uint32_t flags = 0;  // the triggering's
  int64_t length = 0;
  int64_t ident = 0;
  bool unconditional = false;  // a frame of the Frames section
  bool sporadic = false;
  const LdfEventTriggeredFrame* event = nullptr;  // what an event-triggered frame was made of
};

class LdfBuild {
 public:
  LdfBuild(Q9DbNode* db, const LdfFile& file, std::string prefix, std::string clusterName,
           uint16_t language, ImportReport& report);
  ~LdfBuild();

  NodeMaker make;
  const LdfFile& file;
  ImportReport& report;
  const std::string clusterName;
  const double protocol;  // of the file head, as a number

  Q9DbNode* cluster = nullptr;  // none for a channel outside any cluster
  Q9DbNode* channel = nullptr;
  std::unordered_map<std::string, Q9DbNode*> ecus;
  std::vector<std::string> ecuOrder;
  const std::string* master = nullptr;
  std::unordered_map<std::string, LdfBuiltSignal> signals;
  std::unordered_map<std::string, LdfBuiltFrame> frames;
  std::unordered_set<std::string> frameNames;
  std::map<int64_t, std::string> usedIds;  // identifier -> the frame that has it
  std::unordered_map<std::string, double> nodeProtocol;
  std::unordered_map<std::string, Q9DbNode*> schedules;
  std::unordered_map<const LdfEncodingType*, std::unique_ptr<LdfBuiltEncoding>> encodings;
  Q9DbNode* sporadicGroup = nullptr;
  int scheduleCount = 0;

  Q9DbNode* db() const { return make.db(); }
  uint16_t language() const { return make.language(); }
  void warn(TextPosition at, const std::string& text) { report.warn(at, text); }

  // Calls factory(db, given..., &out) and gives out; a failure stops the
  // build with the factory's name and status.
  template <typename Factory, typename... Given>
  Q9DbNode* create(const char* what, Factory factory, Given... given) {
    Q9DbNode* out = nullptr;
    make.check(factory(db(), given..., &out), what);
    return out;
  }

  // The node with its short name (set also when empty, as a name of the file).
  Q9DbNode* named(Q9DbNode* node, std::string_view name);
  void describe(Q9DbNode* node, std::string_view text) { make.describe(node, text); }
  // A reference to `to` (which may be none), named, appended to owner.
  Q9DbNode* reference(Q9DbNode* owner, const char16_t* id, Q9DbNode* to, std::string_view name,
                      std::optional<uint64_t> param = std::nullopt);
  // A group under the cluster, referring to the channel, for one kind of element.
  Q9DbNode* container(std::string_view suffix, std::string_view name);
  // The encoding's computations, made when a signal first needs them.
  const LdfBuiltEncoding& encoding(const LdfEncodingType& type);
};

// The leading number of a version text ("2.1" -> 2.1); 0 when it has none.
double versionNumber(const std::string& text);

// The build's parts, in the order they run.
void buildTarget(LdfBuild& b, Q9DbNode* node);
void buildNodes(LdfBuild& b);
void buildSignals(LdfBuild& b);
void buildFrames(LdfBuild& b);
void buildNodeAttributes(LdfBuild& b);
void buildSchedules(LdfBuild& b);
void buildSignalGroups(LdfBuild& b);

}  // namespace q9
