// What the native DBC and LDF node builders share: element ids under one
// import's prefix, node creation that turns a failing factory into an
// exception the import entry catches, and texts in the database's form.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

#include "Q9Db.h"

namespace q9 {

std::u16string toUtf16(std::string_view utf8);

// A factory or setter answered a failure: the import stops with this text.
struct BuildFailure : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// The first of wanted, wanted#2, wanted#3... that no id of the database uses
// as its first path part. With wholeIds, an id without any '/' counts as a
// first part too.
std::string freePrefix(Q9DbNode* db, const std::string& wanted, bool wholeIds);

class NodeMaker {
 public:
  NodeMaker(Q9DbNode* db, std::string prefix, uint16_t language);

  Q9DbNode* db() const { return db_; }
  const std::string& prefix() const { return prefix_; }
  uint16_t language() const { return language_; }

  // "prefix/part/part..." as a wide text that lives until the next call.
  const char16_t* id(std::initializer_list<std::string_view> parts);
  // The same as UTF-8, for messages.
  std::string idUtf8(std::initializer_list<std::string_view> parts) const;
  // As id, with "#2", "#3"... added while the database has the id already.
  const char16_t* uniqueId(std::initializer_list<std::string_view> parts);
  // Whether the database already has this id (ids are checked only where a
  // file can repeat a name).
  bool taken(const char16_t* id) const;

  // Calls factory(db, args..., &out) and gives out; a failure throws with
  // the factory's name and status.
  template <typename Factory, typename... Given>
  Q9DbNode* make(const char* what, Factory factory, Given... given) {
    Q9DbNode* out = nullptr;
    const HRESULT status = factory(db_, given..., &out);
    if (FAILED(status) || !out) fail(status, what);
    return out;
  }

  // Anything but S_OK from a setter or list operation stops the import.
  static void check(HRESULT status, const char* what) {
    if (status != S_OK) fail(status, what);
  }
  [[noreturn]] static void fail(HRESULT status, const char* what);

  // Short name and description, each only when the text isn't empty.
  void name(Q9DbNode* node, std::string_view plain);
  void describe(Q9DbNode* node, std::string_view text);
  Q9DbStringSlot* slot(std::string_view text);
  void setParam(Q9DbNode* node, uint64_t param);

 private:
  Q9DbNode* db_;
  std::string prefix_;
  uint16_t language_;
  std::u16string idBuffer_;
  std::u16string textBuffer_;
};

}  // namespace q9
