// The whole DBC import as a client runs it, on any file: the filter host,
// the scripts beside the library and the reader, into a database that
// already holds a node of the client's. Then a few messages for each
// imported frame triggering are decoded to physical values and printed.
//
// Besides crashes this finds: a node of the client's lost, a status the
// host doesn't promise, and failures whose message is a script's own
// runtime error (a position in a .lua file) rather than a statement about
// the input.
#include <sanitizer/asan_interface.h>

#include <memory>
#include <string>
#include <vector>

#include "FuzzSupport.h"
#include "Q9Db.h"

namespace {

using q9::fuzz::violated;

// A report's text is narrow from a script and wide from the host, whose
// one report ends a failed import; which one a record is shows only
// afterwards. So a record that may be the host's is read as wide text unit
// by unit, each unit checked to be addressable first: a narrow text read
// that way ends in garbage, never in a read out of bounds.
std::u16string wideCopy(const void* text) {
  std::u16string out;
  const char* p = static_cast<const char*>(text);
  for (; out.size() < 65536 && !__asan_region_is_poisoned(const_cast<char*>(p), 2); p += 2) {
    char16_t unit;
    std::memcpy(&unit, p, 2);
    if (unit == 0) break;
    out += unit;
  }
  return out;
}

struct Reports {
  std::u16string last;  // the last record that may be the host's

  static int32_t collect(void* context, const FilterReportRecord* record) {
    if (!record || !record->text) violated("a report without text");
    if (record->first == 0 && record->second == 0) static_cast<Reports*>(context)->last = wideCopy(record->text);
    return 0;
  }
};

std::string narrow(const std::u16string& text) {
  std::string out;
  for (char16_t c : text) out += c < 0x80 ? char(c) : '?';
  return out;
}

// A Lua runtime error names its chunk and line: "...dbc_import.lua:123: ...".
bool isScriptRuntimeError(const std::string& text) {
  for (size_t at = text.find(".lua:"); at != std::string::npos; at = text.find(".lua:", at + 1)) {
    const size_t digit = at + 5;
    if (digit < text.size() && text[digit] >= '0' && text[digit] <= '9') return true;
  }
  return false;
}

std::vector<Q9DbNode*> nodesOf(HRESULT (*enumerate)(Q9DbNode*, Q9DbEnumerator**), Q9DbNode* owner) {
  std::vector<Q9DbNode*> nodes;
  Q9DbEnumerator* e = nullptr;
  if (enumerate(owner, &e) != S_OK) return nodes;
  Q9DbNode* node = nullptr;
  uint32_t fetched = 0;
  while (Q9Db_enumeratorNext(e, 1, &node, &fetched) == S_OK && fetched == 1) nodes.push_back(node);
  Q9Db_enumeratorDestroy(e);
  return nodes;
}

void decode(Q9DbNode* db, Q9DbNode* channel, uint32_t identifier, uint32_t flags, const uint8_t* payload,
            uint64_t length) {
  Q9DbDecodeEnum* walk = nullptr;
  if (Q9Db_decodeMessage(channel, identifier, flags, length, payload, &walk) != S_OK)
    violated("a message on an imported channel was refused");
  char text[64];
  int signals = 0;
  while (SUCCEEDED(Q9Db_decodeNextFrametriggering(walk, nullptr))) {
    Q9DbDecodedSignal s{};
    s.textCapacity = sizeof text;
    s.textBuffer = text;
    HRESULT kind;
    while ((kind = Q9Db_decodeNextSignal(walk, nullptr, &s)) == Q9_NUMERICSIGNAL || kind == Q9_ASCIISIGNAL) {
      if (++signals > 100000) violated("the walk doesn't end");
      if (kind != Q9_NUMERICSIGNAL) continue;
      Q9DbPhysicalValue value{};
      if (FAILED(Q9Db_internalToPhysical(s.signal, s.value, &value))) continue;
      char16_t printed[400];
      Q9Db_valueToString(&value, printed, 400);
      const char16_t* label = nullptr;
      if (value.text) Q9Db_stringLookup(db, value.text, 0, 0, &label);
    }
    if (kind != Q9_E_NOT_FOUND) violated("a signal walk ended with a failure");
  }
  Q9Db_destroyDecodeEnum(walk);
}

// Up to eight frame triggerings of every channel, each with a payload of
// the input's bytes and one of all ones.
void decodeImported(Q9DbNode* db, const uint8_t* data, size_t size) {
  for (Q9DbNode* node : nodesOf(Q9Db_enumIdentElements, db)) {
    if (Q9Db_getNodeType(node) != Q9_NODETYPE_Channel) continue;
    int tried = 0;
    for (Q9DbNode* triggering : nodesOf(Q9Db_enumFrameTriggerings, node)) {
      if (tried++ == 8) break;
      uint32_t identifier = 0, flags = 0;
      if (Q9Db_getIdentifier(triggering, &identifier) != S_OK) Q9Db_getIdentifierCode(triggering, &identifier);
      Q9Db_getFlags(triggering, &flags);
      Q9DbNode* frame = nullptr;
      int32_t length = 0;
      if (Q9Db_getFrame(triggering, &frame) != S_OK || Q9Db_getLength(frame, &length) != S_OK || length < 0 ||
          length > 4096)
        continue;
      std::unique_ptr<uint8_t[]> payload(new uint8_t[size_t(length) + 1]);
      for (int32_t i = 0; i < length; ++i) payload[size_t(i)] = size ? data[(size_t(i) * 7 + size_t(tried)) % size] : 0;
      decode(db, node, identifier, flags & ~uint32_t(Q9_FLAG_CANSTD_OR_EXT), payload.get(), uint64_t(length));
      std::memset(payload.get(), 0xFF, size_t(length));
      decode(db, node, identifier, flags & ~uint32_t(Q9_FLAG_CANSTD_OR_EXT), payload.get(), uint64_t(length));
    }
  }
}

HRESULT import(Q9DbNode* db, const char16_t* path, Reports& reports) {
  return Q9Db_importFile(db, nullptr, path, nullptr, &reports, &Reports::collect);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static q9::fuzz::InputFile file(".dbc");
  file.write(data, size);
  Q9DbNode* db = nullptr;
  if (Q9Db_create(u"fuzz", &db) != S_OK) violated("no database");
  Q9DbNode* kept = nullptr;
  if (Q9Db_createFrame(db, u"client/frame", 8, &kept) != S_OK) violated("no frame");

  Reports reports;
  const HRESULT hr = import(db, file.widePath(), reports);
  if (hr != S_OK && hr != E_FAIL) violated("an import status the host doesn't promise", std::to_string(hr));
  if (hr == E_FAIL && isScriptRuntimeError(narrow(reports.last)))
    violated("a script's runtime error instead of a message about the file", narrow(reports.last));
  Q9DbNode* found = nullptr;
  if (Q9Db_findByElementId(db, u"client/frame", &found) != S_OK || found != kept)
    violated("the client's node was lost");
  decodeImported(db, data, size);
  Q9Db_destroy(db);
  return 0;
}
