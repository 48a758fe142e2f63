// The steps all parts of an LDF build share: names, references, the groups
// under the cluster, and encodings made once for all their signals.
#include "import/LdfBuild.h"

#include <cctype>

#include "import/LdfEncodings.h"
#include "import/ScriptNumbers.h"

namespace q9 {

double versionNumber(const std::string& text) {
  std::size_t start = 0;
  while (start < text.size() && std::isspace(static_cast<unsigned char>(text[start]))) ++start;
  std::size_t end = start;
  while (end < text.size() && (std::isdigit(static_cast<unsigned char>(text[end])) || text[end] == '.')) ++end;
  if (end == start) return 0;
  return numberOfText(std::string_view(text).substr(start, end - start)).value_or(0);
}

LdfBuild::LdfBuild(Q9DbNode* db, const LdfFile& file, std::string prefix, std::string clusterName,
                   uint16_t language, ImportReport& report)
    : make(db, std::move(prefix), language),
      file(file),
      report(report),
      clusterName(std::move(clusterName)),
      protocol(versionNumber(file.header.protocolVersion)) {}

LdfBuild::~LdfBuild() = default;

Q9DbNode* LdfBuild::named(Q9DbNode* node, std::string_view name) {
  const std::u16string wide = toUtf16(name);
  make.check(Q9Db_setShortName(node, wide.c_str()), "setting a short name");
  return node;
}

Q9DbNode* LdfBuild::reference(Q9DbNode* owner, const char16_t* id, Q9DbNode* to, std::string_view name,
                              std::optional<uint64_t> param) {
  Q9DbNode* ref = named(create("creating a reference", Q9Db_createElementReference, id, to), name);
  if (param) make.setParam(ref, *param);
  make.check(Q9Db_appendChildren(owner, 1, &ref), "appending a child");
  return ref;
}

Q9DbNode* LdfBuild::container(std::string_view suffix, std::string_view name) {
  return named(create("creating a group", Q9Db_createElementGroup, make.id({suffix}), cluster, channel), name);
}

const LdfBuiltEncoding& LdfBuild::encoding(const LdfEncodingType& type) {
  auto& slot = encodings[&type];
  if (!slot) slot = std::make_unique<LdfBuiltEncoding>(buildEncoding(*this, type));
  return *slot;
}

}  // namespace q9
