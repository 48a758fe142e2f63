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
// kind, so from there on the trip must be exact.
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

Q9DbNode* importInto(const InputFile& file, const char* what) {
  Q9DbNode* db = nullptr;
  if (Q9Db_create(u"fuzz", &db) != S_OK) violated("no database");
  Reports reports;
  const HRESULT hr = Q9Db_importFile(db, nullptr, file.widePath(), nullptr, &reports, &Reports::collect);
  q9::fuzz::checkOutcome(hr, reports, file.path(), what);
  if (hr != S_OK) {
    Q9Db_destroy(db);
    return nullptr;
  }
  return db;
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

// The frames of first, decoded with a few payloads, read the same in
// second: every frame is there, and each signal second delivers is one
// first delivers, with the same value; when exact, nothing is missing.
void compareDecoding(Q9DbNode* first, Q9DbNode* second, const uint8_t* data, size_t size, bool exact) {
  Q9DbNode* from = onlyChannel(first);
  Q9DbNode* to = onlyChannel(second);
  if (!from) return;
  if (!to) violated("the export's import has no channel");
  const auto targets = q9::fuzz::addressedTriggerings(to, size_t(-1));
  int salt = 0;
  for (const Addressed& a : q9::fuzz::addressedTriggerings(from, 16)) {
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
  Q9DbNode* second = importInto(exported, "import of the export");
  if (!second) violated("a file the exporter wrote doesn't import", once);
  compareDecoding(first, second, data, size, false);

  const std::string twice = exportTo(second, exported, "export of the export's import");
  Q9DbNode* third = importInto(exported, "import of the second export");
  if (!third) violated("the second export doesn't import", twice);
  compareDecoding(second, third, data, size, true);

  const std::string thrice = exportTo(third, exported, "export of the second export's import");
  if (thrice != twice) violated("the third export differs from the second", twice + "\n-----\n" + thrice);
  Q9DbNode* fourth = importInto(exported, "import of the third export");
  if (!fourth) violated("the third export doesn't import");
  if (q9::fuzz::dumpThroughInterface(third) != q9::fuzz::dumpThroughInterface(fourth))
    violated("the same file imported twice gives two networks");
  for (Q9DbNode* db : {first, second, third, fourth}) Q9Db_destroy(db);
  return 0;
}
