// A prefix or id that is taken gets "#2", "#3"... until one is free; the
// prefix is checked by a walk over the whole name index, so it sees every
// registered id. Ids are built in one reused buffer, and every failing call
// becomes a BuildFailure naming what was being done and the status.
#include "import/BuildSupport.h"

#include <cstdio>
#include <unordered_set>

#include "platform/WideText.h"
#include "store/Database.h"

namespace q9 {

std::u16string toUtf16(std::string_view utf8) { return platform::utf8ToUtf16(utf8); }

std::string freePrefix(Q9DbNode* handle, const std::string& wanted, bool wholeIds) {
  // The name index holds every registered id; a walk over its blocks sees
  // them all, also in a list a client has put out of order.
  std::unordered_set<std::u16string> used;
  if (Q9Db* db = asDatabase(handle)) {
    if (auto* collections = static_cast<DatabaseCollections*>(db->reference)) {
      PagedList& list = collections->identElements->children;
      forEachPointer(list, [&](void* element) {
        auto* eid = static_cast<const char16_t*>(elementIdOf(element));
        if (!eid) return;
        std::u16string_view text(eid);
        const std::size_t slash = text.find(u'/');
        if (slash != std::u16string_view::npos)
          used.emplace(text.substr(0, slash));
        else if (wholeIds)
          used.emplace(text);
      });
    }
  }
  const std::u16string base = toUtf16(wanted);
  if (!used.count(base)) return wanted;
  for (unsigned n = 2;; ++n) {
    const std::string suffix = "#" + std::to_string(n);
    if (!used.count(base + toUtf16(suffix))) return wanted + suffix;
  }
}

NodeMaker::NodeMaker(Q9DbNode* db, std::string prefix, uint16_t language)
    : db_(db), prefix_(std::move(prefix)), language_(language) {}

const char16_t* NodeMaker::id(std::initializer_list<std::string_view> parts) {
  // One resize to the longest the id can be, then the units written in place:
  // a UTF-8 byte never makes more than one UTF-16 unit.
  std::size_t most = prefix_.size();
  for (std::string_view part : parts) most += 1 + part.size();
  idBuffer_.resize(most);
  char16_t* out = idBuffer_.data();
  out += platform::utf8ToUtf16Into(prefix_, out);
  for (std::string_view part : parts) {
    *out++ = u'/';
    out += platform::utf8ToUtf16Into(part, out);
  }
  idBuffer_.resize(std::size_t(out - idBuffer_.data()));
  return idBuffer_.c_str();
}

const char16_t* NodeMaker::uniqueId(std::initializer_list<std::string_view> parts) {
  id(parts);
  if (!taken(idBuffer_.c_str())) return idBuffer_.c_str();
  const std::size_t length = idBuffer_.size();
  for (unsigned n = 2;; ++n) {
    idBuffer_.resize(length);
    platform::appendUtf8AsUtf16(idBuffer_, "#" + std::to_string(n));
    if (!taken(idBuffer_.c_str())) return idBuffer_.c_str();
  }
}

std::string NodeMaker::idUtf8(std::initializer_list<std::string_view> parts) const {
  std::string out = prefix_;
  for (std::string_view part : parts) {
    out += '/';
    out += part;
  }
  return out;
}

bool NodeMaker::taken(const char16_t* id) const {
  Q9DbNode* found = nullptr;
  return Q9Db_findByElementId(db_, id, &found) == S_OK;
}

void NodeMaker::fail(HRESULT status, const char* what) {
  char text[160];
  std::snprintf(text, sizeof text, "%s failed with status 0x%08X", what, unsigned(status));
  throw BuildFailure(text);
}

void NodeMaker::name(Q9DbNode* node, std::string_view plain) {
  if (plain.empty()) return;
  textBuffer_.clear();
  platform::appendUtf8AsUtf16(textBuffer_, plain);
  check(Q9Db_setShortName(node, textBuffer_.c_str()), "setting a short name");
}

void NodeMaker::describe(Q9DbNode* node, std::string_view text) {
  if (text.empty()) return;
  textBuffer_.clear();
  platform::appendUtf8AsUtf16(textBuffer_, text);
  check(Q9Db_setDescription(node, language_, textBuffer_.c_str()), "setting a description");
}

Q9DbStringSlot* NodeMaker::slot(std::string_view text) {
  textBuffer_.clear();
  platform::appendUtf8AsUtf16(textBuffer_, text);
  Q9DbStringSlot* out = nullptr;
  check(Q9Db_stringCreateSlot(db_, language_, textBuffer_.c_str(), &out), "making a text slot");
  return out;
}

void NodeMaker::setParam(Q9DbNode* node, uint64_t param) {
  check(Q9Db_setParam(node, param), "setting a parameter");
}

}  // namespace q9
