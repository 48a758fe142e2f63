// A canonical text of a database read through the C interface only, for
// targets that must show two databases are the same. The fuzz targets link
// the shared library, whose internals are hidden, so the tests' dump of the
// store can't be used here. Every element is visited from the id index
// (sorted by id), then along its links and member lists; each node gives
// its class, id, names, texts in language 0 and every field a getter
// answers for it. A node without an id is named by its place in the walk.
#pragma once

#include <cstdio>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "ImportChecks.h"
#include "Q9Db.h"

namespace q9::fuzz {

class PublicDump {
 public:
  explicit PublicDump(Q9DbNode* db) : db_(db) {}

  std::string run() {
    for (Q9DbNode* node : nodesOf(Q9Db_enumIdentElements, db_)) visit(node);
    for (size_t i = 0; i < queue_.size(); ++i) describe(queue_[i]);
    return out_;
  }

 private:
  using RefGetter = HRESULT (*)(Q9DbNode*, Q9DbNode**);
  using ListGetter = HRESULT (*)(Q9DbNode*, Q9DbEnumerator**);
  using IntGetter = HRESULT (*)(Q9DbNode*, int32_t*);
  using UintGetter = HRESULT (*)(Q9DbNode*, uint32_t*);
  using DoubleGetter = HRESULT (*)(Q9DbNode*, double*);
  using TextGetter = HRESULT (*)(Q9DbNode*, uint16_t, uint16_t, const char16_t**);

  static std::string utf8(const char16_t* text) {
    std::string out;
    for (; *text; ++text) {
      const char16_t c = *text;
      if (c < 0x80) {
        out += char(c);
      } else {
        char hex[12];
        std::snprintf(hex, sizeof hex, "\\u%04x", unsigned(c));
        out += hex;
      }
    }
    return out;
  }

  void visit(Q9DbNode* node) {
    if (!node || names_.count(node)) return;
    std::string name;
    const char16_t* id = nullptr;
    if (Q9Db_getElementId(node, &id) == S_OK && id) name = utf8(id);
    if (name.empty() || !used_.insert(name).second) name += "#" + std::to_string(queue_.size());
    names_.emplace(node, name);
    queue_.push_back(node);
  }

  std::string ref(Q9DbNode* node) {
    visit(node);
    return node ? names_[node] : "-";
  }

  void field(const char* key, const std::string& value) {
    out_ += ' ';
    out_ += key;
    out_ += '=';
    out_ += value;
  }

  static std::string number(double d) {
    char b[40];
    std::snprintf(b, sizeof b, "%.17g", d);
    return b;
  }

  void describe(Q9DbNode* node) {
    const uint32_t type = Q9Db_getNodeType(node);
    out_ += names_[node] + " " + char(type >> 8) + char(type & 0xFF);
    const char16_t* text = nullptr;
    if (Q9Db_getShortName(node, &text) == S_OK && text) field("short", utf8(text));
    const std::pair<const char*, TextGetter> texts[] = {
        {"long", Q9Db_getLongName}, {"desc", Q9Db_getDescription}, {"display", Q9Db_getDisplayName}};
    for (const auto& [key, get] : texts) {
      text = nullptr;
      if (get(node, 0, 0xFFFF, &text) == S_OK && text) field(key, utf8(text));
    }
    text = nullptr;
    if (Q9Db_getTextValue(db_, node, 0, 0xFFFF, &text) == S_OK && text) field("text", utf8(text));
    uint64_t wide = 0;
    if (Q9Db_getParam(node, &wide) == S_OK) field("param", std::to_string(wide));
    if (Q9Db_getCycletime(node, &wide) == S_OK) field("cycle", std::to_string(wide));

    const std::pair<const char*, IntGetter> ints[] = {
        {"cluster", Q9Db_getClusterType}, {"slot", Q9Db_getSlotId}, {"base", Q9Db_getCycleOffset},
        {"repetition", Q9Db_getRepetition}, {"order", Q9Db_getByteOrder}, {"bit", Q9Db_getBitPosition},
        {"update", Q9Db_getUpdateBitPosition}, {"bits", Q9Db_getBitLength}, {"length", Q9Db_getLength},
        {"switchOrder", Q9Db_getSwitchByteOrder}, {"switchBit", Q9Db_getSwitchPosition},
        {"switchBits", Q9Db_getSwitchLength}, {"debounce", Q9Db_getDebounceTime}};
    for (const auto& [key, get] : ints) {
      int32_t v = 0;
      if (get(node, &v) == S_OK) field(key, std::to_string(v));
    }
    const std::pair<const char*, UintGetter> uints[] = {
        {"flags", Q9Db_getFlags}, {"identifier", Q9Db_getIdentifier}, {"mask", Q9Db_getIdentifierMask},
        {"code", Q9Db_getIdentifierCode}, {"encoding", Q9Db_getEncoding}, {"switchCode", Q9Db_getSwitchCode},
        {"unused", Q9Db_getUnusedBytePattern}, {"defaultCode", Q9Db_getDefaultSwitchCode}};
    for (const auto& [key, get] : uints) {
      uint32_t v = 0;
      if (get(node, &v) == S_OK) field(key, std::to_string(v));
    }
    const std::pair<const char*, DoubleGetter> doubles[] = {
        {"default", Q9Db_getDefaultValue}, {"min", Q9Db_getMinValue}, {"max", Q9Db_getMaxValue},
        {"scale", Q9Db_getScale}, {"offset", Q9Db_getOffset}, {"value", Q9Db_getValue},
        {"lower", Q9Db_getLowerLimit}, {"upper", Q9Db_getUpperLimit}};
    for (const auto& [key, get] : doubles) {
      double v = 0;
      if (get(node, &v) == S_OK) field(key, number(v));
    }
    const std::pair<const char*, RefGetter> refs[] = {
        {"group", Q9Db_getGroup}, {"parent", Q9Db_getParent}, {"ref", Q9Db_getReference},
        {"frame", Q9Db_getFrame}, {"channel", Q9Db_getChannel}, {"source", Q9Db_getSourceECU},
        {"static", Q9Db_getStaticPart}, {"else", Q9Db_getElsePart}, {"unit", Q9Db_getUnit}};
    for (const auto& [key, get] : refs) {
      Q9DbNode* target = nullptr;
      // The database handle is every node's root; naming it adds nothing.
      if (get(node, &target) == S_OK && target && target != db_) field(key, ref(target));
    }
    const std::pair<const char*, ListGetter> lists[] = {
        {"children", Q9Db_enumChildren}, {"frameTriggerings", Q9Db_enumFrameTriggerings},
        {"pduTriggerings", Q9Db_enumPDUTriggerings}, {"pduInstances", Q9Db_enumPDUInstances},
        {"signalInstances", Q9Db_enumSignalInstances}, {"parents", Q9Db_enumParents},
        {"dynamic", Q9Db_enumDynamicParts}, {"toPhysical", Q9Db_enumInternalToPhysicalComputations},
        {"toInternal", Q9Db_enumPhysicalToInternalComputations}, {"segments", Q9Db_enumSegments},
        {"ranges", Q9Db_enumRanges}};
    for (const auto& [key, get] : lists) {
      if (node == db_) break;
      std::string members;
      for (Q9DbNode* member : nodesOf(get, node)) members += (members.empty() ? "" : ",") + ref(member);
      if (!members.empty()) field(key, "[" + members + "]");
    }
    out_ += '\n';
  }

  Q9DbNode* db_;
  std::unordered_map<Q9DbNode*, std::string> names_;
  std::unordered_set<std::string> used_;
  std::vector<Q9DbNode*> queue_;
  std::string out_;
};

inline std::string dumpThroughInterface(Q9DbNode* db) { return PublicDump(db).run(); }

}  // namespace q9::fuzz
