// A DBC file imported, exported and imported again: what the exporter
// writes must read back as the same network.
//
// The input is imported into a first database (a file that doesn't import
// ends the run: dbc_engine covers those); its CAN cluster is exported and
// the export imported, three times over. Checked:
//  - every export succeeds and the file it writes imports;
//  - every frame of the first database comes back under the same
//    identifier, frame type and length, and a few payloads decode there to
//    the same signals (by name) with the same raw values;
//  - from the second database on nothing changes: the second and third
//    exports are the same bytes, the networks they import dump the same
//    (through the C interface), and decode the same.
// The first trip may change what DBC can't say: the exporter leaves out
// and warns about what it can't write (the host gives an export no report
// function, so the warnings can't be read here), the ids of the first
// database and so their order aren't part of a DBC file, and attributes
// of a message whose identifier repeats go to the first. So a signal of the
// first database may be missing from the second, but one that is there must
// read the same bits; a file the exporter wrote itself holds nothing of that
// kind, so from there on the trip must be exact, except where identifiers
// repeat (see repeats below).
#include <algorithm>
#include <fstream>
#include <iterator>
#include <string>
#include <tuple>
#include <vector>

#include "FuzzSupport.h"
#include "ImportChecks.h"
#include "PublicDump.h"
#include "Q9Db.h"

namespace {

using q9::fuzz::Addressed;
using q9::fuzz::InputFile;
using q9::fuzz::Reports;
using q9::fuzz::violated;

std::string contents(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// The database the file imports into, or null with why in failure.
Q9DbNode* importInto(const InputFile& file, const char* what, std::string* failure = nullptr) {
  Q9DbNode* db = nullptr;
  if (Q9Db_create(u"fuzz", &db) != S_OK) violated("no database");
  Reports reports;
  const HRESULT hr = Q9Db_importFile(db, nullptr, file.widePath(), nullptr, &reports, &Reports::collect);
  q9::fuzz::checkOutcome(hr, reports, file.path(), what);
  if (hr != S_OK) {
    Q9Db_destroy(db);
    if (failure) *failure = reports.last;
    return nullptr;
  }
  return db;
}

// An export that doesn't import, with the reason and the file.
[[noreturn]] void exportRefused(const char* what, const std::string& failure, const std::string& text) {
  violated(what, failure + "\n" + text);
}

// Exports db's CAN cluster to file and answers what was written.
std::string exportTo(Q9DbNode* db, const InputFile& file, const char* what) {
  file.clear();
  Reports reports;
  const HRESULT hr = Q9Db_exportFile(db, nullptr, file.widePath(), nullptr, &reports, &Reports::collect);
  if (hr != S_OK) violated(what, "failed: " + reports.last);
  return contents(file.path());
}

Q9DbNode* onlyChannel(Q9DbNode* db) {
  Q9DbNode* found = nullptr;
  for (Q9DbNode* node : q9::fuzz::nodesOf(Q9Db_enumIdentElements, db)) {
    if (Q9Db_getNodeType(node) != Q9_NODETYPE_Channel) continue;
    if (found) violated("an import of a DBC file made more than one channel");
    found = node;
  }
  return found;
}

std::string nameOf(Q9DbNode* node) {
  const char16_t* text = nullptr;
  if (Q9Db_getShortName(node, &text) != S_OK || !text || !*text) Q9Db_getElementId(node, &text);
  return text ? q9::fuzz::narrow(text) : "?";
}

using Reading = std::tuple<std::string, uint64_t, std::string>;  // signal, raw value, text

std::vector<Reading> readings(Q9DbNode* db, Q9DbNode* channel, const Addressed& a, const uint8_t* payload) {
  std::vector<Reading> out;
  for (const auto& s : q9::fuzz::decode(db, channel, a, payload)) out.emplace_back(nameOf(s.signal), s.raw, s.text);
  std::sort(out.begin(), out.end());
  return out;
}

bool repeats(const std::vector<Addressed>& all, const Addressed& a) {
  return std::count_if(all.begin(), all.end(), [&](const Addressed& b) {
           return b.identifier == a.identifier && (b.flags & Q9_FLAG_CANEXTENDED) == (a.flags & Q9_FLAG_CANEXTENDED);
         }) > 1;
}

bool anyRepeats(Q9DbNode* db) {
  Q9DbNode* channel = onlyChannel(db);
  if (!channel) return false;
  const auto all = q9::fuzz::addressedTriggerings(channel, size_t(-1));
  return std::any_of(all.begin(), all.end(), [&](const Addressed& a) { return repeats(all, a); });
}

// The frames of first, decoded with a few payloads, read the same in
// second: every frame is there, and each signal second delivers is one
// first delivers, with the same value; when exact, nothing is missing.
// Frames whose identifier repeats are passed over: a DBC file gives
// attributes (frame format, long name) by identifier, so on import the
// attributes of all of them go to the first.
void compareDecoding(Q9DbNode* first, Q9DbNode* second, const uint8_t* data, size_t size, bool exact) {
  Q9DbNode* from = onlyChannel(first);
  Q9DbNode* to = onlyChannel(second);
  if (!from) return;
  if (!to) violated("the export's import has no channel");
  const auto targets = q9::fuzz::addressedTriggerings(to, size_t(-1));
  const auto sources = q9::fuzz::addressedTriggerings(from, size_t(-1));
  int salt = 0;
  for (const Addressed& a : q9::fuzz::addressedTriggerings(from, 16)) {
    if (repeats(sources, a)) continue;
    const bool there = std::any_of(targets.begin(), targets.end(), [&](const Addressed& b) {
      return b.identifier == a.identifier && b.flags == a.flags && b.length == a.length;
    });
    if (!there) violated("a frame was lost on the way", std::to_string(a.identifier));
    for (const auto& payload : q9::fuzz::payloadsFor(a.length, ++salt, data, size)) {
      const auto buffer = q9::fuzz::exactCopy(payload);
      const auto before = readings(first, from, a, buffer.get());
      const auto after = readings(second, to, a, buffer.get());
      for (const Reading& r : after)
        if (!std::binary_search(before.begin(), before.end(), r))
          violated("a signal reads differently after the trip", std::to_string(a.identifier) + " " + std::get<0>(r));
      if (exact && after != before) violated("a signal was lost on the second trip", std::to_string(a.identifier));
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static InputFile input(".dbc");
  // One name for every export: an import names its cluster after the file.
  static InputFile exported("_trip.dbc");
  input.write(data, size);
  Q9DbNode* first = importInto(input, "import of the input");
  if (!first) return 0;

  const std::string once = exportTo(first, exported, "export of the input's import");
  std::string failure;
  Q9DbNode* second = importInto(exported, "import of the export", &failure);
  if (!second) exportRefused("a file the exporter wrote doesn't import", failure, once);
  compareDecoding(first, second, data, size, false);

  const std::string twice = exportTo(second, exported, "export of the export's import");
  Q9DbNode* third = importInto(exported, "import of the second export", &failure);
  if (!third) exportRefused("the second export doesn't import", failure, twice);
  compareDecoding(second, third, data, size, true);
  // Frames that share an identifier share their attributes in the file, so
  // their names and formats are no fixed point (the exporter numbers their
  // names afresh on every trip).
  if (anyRepeats(first)) {
    for (Q9DbNode* db : {first, second, third}) Q9Db_destroy(db);
    return 0;
  }

  const std::string thrice = exportTo(third, exported, "export of the second export's import");
  if (thrice != twice) violated("the third export differs from the second", twice + "\n-----\n" + thrice);
  Q9DbNode* fourth = importInto(exported, "import of the third export", &failure);
  if (!fourth) exportRefused("the third export doesn't import", failure, thrice);
  if (q9::fuzz::dumpThroughInterface(third) != q9::fuzz::dumpThroughInterface(fourth))
    violated("the same file imported twice gives two networks");
  for (Q9DbNode* db : {first, second, third, fourth}) Q9Db_destroy(db);
  return 0;
}
