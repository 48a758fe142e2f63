// What the import targets check around Q9Db_importFile and
// Q9Db_importGetInfo: the reports a call hands to the client, the form of a
// failure's text, and a walk over the frames an import made, decoded with
// payloads taken from the input.
#pragma once

#include <sanitizer/asan_interface.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "FuzzSupport.h"
#include "Q9Db.h"

namespace q9::fuzz {

// A report's text is narrow from a script and wide from the host, whose
// one report ends a failed call; which one a record is shows only
// afterwards. So a record that may be the host's is read as wide text unit
// by unit, never past the end of the heap block that holds it, nor into
// memory the address checker marks: a narrow text read that way ends in
// garbage, never in a read out of bounds. (The last block of a heap region
// has no guard zone after it, so the marks alone are not enough.)
inline std::u16string wideCopy(const void* text) {
  std::u16string out;
  const char* p = static_cast<const char*>(text);
  const char* end = p + 2 * 65536;
  void* block = nullptr;
  size_t blockSize = 0;
  const char* kind = __asan_locate_address(const_cast<void*>(text), nullptr, 0, &block, &blockSize);
  if (kind && std::strcmp(kind, "heap") == 0 && block) end = static_cast<const char*>(block) + blockSize;
  for (; end - p >= 2 && !__asan_region_is_poisoned(const_cast<char*>(p), 2); p += 2) {
    char16_t unit;
    std::memcpy(&unit, p, 2);
    if (unit == 0) break;
    out += unit;
  }
  return out;
}

inline std::string narrow(const std::u16string& text) {
  std::string out;
  for (char16_t c : text) out += c < 0x80 ? char(c) : '?';
  return out;
}

struct Reports {
  std::string last;  // the last record that may be the host's, as ASCII

  static int32_t collect(void* context, const FilterReportRecord* record) {
    if (!record || !record->text) violated("a report without text");
    if (record->first == 0 && record->second == 0)
      static_cast<Reports*>(context)->last = narrow(wideCopy(record->text));
    return 0;
  }
};

// A Lua runtime error names its chunk and line: "...init.lua:57: ...".
inline bool isScriptRuntimeError(const std::string& text) {
  for (size_t at = text.find(".lua:"); at != std::string::npos; at = text.find(".lua:", at + 1)) {
    const size_t digit = at + 5;
    if (digit < text.size() && text[digit] >= '0' && text[digit] <= '9') return true;
  }
  return false;
}

// "path:line:column: what" or "path: what": the file first, so that a
// client can show where the input is wrong.
inline bool namesTheFile(const std::string& text, const std::string& path) {
  if (text.compare(0, path.size(), path) != 0 || text.size() < path.size() + 3) return false;
  size_t at = path.size();
  if (text.compare(at, 2, ": ") == 0) return text.size() > at + 2;
  for (int number = 0; number < 2; ++number) {
    if (text[at] != ':') return false;
    const size_t digits = ++at;
    while (at < text.size() && text[at] >= '0' && text[at] <= '9') ++at;
    if (at == digits) return false;
  }
  return text.compare(at, 2, ": ") == 0 && text.size() > at + 2;
}

// The status and, for a failure, the text of a call on the file at path.
inline void checkOutcome(HRESULT hr, const Reports& reports, const std::string& path, const char* call) {
  if (hr != S_OK && hr != E_FAIL) violated(call, "a status the host doesn't promise: " + std::to_string(hr));
  if (hr == S_OK) return;
  if (isScriptRuntimeError(reports.last))
    violated(call, "a script's runtime error instead of a message about the file: " + reports.last);
  if (!namesTheFile(reports.last, path)) violated(call, "a failure that doesn't name the file: " + reports.last);
}

inline std::vector<Q9DbNode*> nodesOf(HRESULT (*enumerate)(Q9DbNode*, Q9DbEnumerator**), Q9DbNode* owner) {
  std::vector<Q9DbNode*> nodes;
  Q9DbEnumerator* e = nullptr;
  if (enumerate(owner, &e) != S_OK) return nodes;
  Q9DbNode* node = nullptr;
  uint32_t fetched = 0;
  while (Q9Db_enumeratorNext(e, 1, &node, &fetched) == S_OK && fetched == 1) nodes.push_back(node);
  Q9Db_enumeratorDestroy(e);
  return nodes;
}

// The triggerings of a channel that a message can reach by identifier.
struct Addressed {
  Q9DbNode* triggering;
  uint32_t identifier;
  uint32_t flags;  // the message's flags: the frame type of the triggering
  int32_t length;
};

inline std::vector<Addressed> addressedTriggerings(Q9DbNode* channel, size_t most) {
  std::vector<Addressed> out;
  for (Q9DbNode* triggering : nodesOf(Q9Db_enumFrameTriggerings, channel)) {
    if (out.size() == most) break;
    uint32_t identifier = 0, flags = 0;
    if (Q9Db_getIdentifier(triggering, &identifier) != S_OK) Q9Db_getIdentifierCode(triggering, &identifier);
    Q9Db_getFlags(triggering, &flags);
    Q9DbNode* frame = nullptr;
    int32_t length = 0;
    if (Q9Db_getFrame(triggering, &frame) != S_OK || Q9Db_getLength(frame, &length) != S_OK || length < 0 ||
        length > 4096)
      continue;
    out.push_back({triggering, identifier, flags & ~uint32_t(Q9_FLAG_CANSTD_OR_EXT), length});
  }
  return out;
}

// One signal as a message delivered it: its instance and raw value (or
// text).
struct DecodedSignal {
  Q9DbNode* triggering;
  Q9DbNode* instance;
  Q9DbNode* signal;
  uint64_t raw;
  std::string text;
};

// Decodes one message, printing each numeric value as a client would.
inline std::vector<DecodedSignal> decode(Q9DbNode* db, Q9DbNode* channel, const Addressed& a,
                                         const uint8_t* payload) {
  std::vector<DecodedSignal> out;
  Q9DbDecodeEnum* walk = nullptr;
  if (Q9Db_decodeMessage(channel, a.identifier, a.flags, uint64_t(a.length), payload, &walk) != S_OK)
    violated("a message on an imported channel was refused");
  char text[64];
  while (SUCCEEDED(Q9Db_decodeNextFrametriggering(walk, nullptr))) {
    Q9DbDecodedSignal s{};
    s.textCapacity = sizeof text;
    s.textBuffer = text;
    HRESULT kind;
    while ((kind = Q9Db_decodeNextSignal(walk, nullptr, &s)) == Q9_NUMERICSIGNAL || kind == Q9_ASCIISIGNAL) {
      if (out.size() > 100000) violated("the walk doesn't end");
      out.push_back({s.triggering, s.instance, s.signal, s.value,
                     kind == Q9_ASCIISIGNAL ? std::string(text, s.textLength) : std::string()});
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
  return out;
}

// The payloads a frame is tried with: bytes of the input, and all ones.
inline std::vector<std::vector<uint8_t>> payloadsFor(int32_t length, int salt, const uint8_t* data, size_t size) {
  std::vector<uint8_t> mixed(static_cast<size_t>(length)), ones(static_cast<size_t>(length), 0xFF);
  for (size_t i = 0; i < mixed.size(); ++i) mixed[i] = size ? data[(i * 7 + size_t(salt)) % size] : 0;
  return {mixed, ones};
}

// A payload in a buffer of its exact size (never null), so that a read
// past its end is caught.
inline std::unique_ptr<uint8_t[]> exactCopy(const std::vector<uint8_t>& payload) {
  std::unique_ptr<uint8_t[]> exact(new uint8_t[payload.size()]);
  if (!payload.empty()) std::memcpy(exact.get(), payload.data(), payload.size());
  return exact;
}

// Up to eight frame triggerings of every channel, each decoded with the
// payloads above.
inline void decodeImported(Q9DbNode* db, const uint8_t* data, size_t size) {
  for (Q9DbNode* node : nodesOf(Q9Db_enumIdentElements, db)) {
    if (Q9Db_getNodeType(node) != Q9_NODETYPE_Channel) continue;
    int salt = 0;
    for (const Addressed& a : addressedTriggerings(node, 8)) {
      for (const auto& payload : payloadsFor(a.length, ++salt, data, size)) decode(db, node, a, exactCopy(payload).get());
    }
  }
}

}  // namespace q9::fuzz
