// The body of the engine targets: one input file through the filter host
// as a client runs it, twice. First a description of the file
// (Q9Db_importGetInfo) and an import into a new database; then an import
// into the channel of a cluster the client made, beside a frame of its own.
//
// Besides crashes this finds: a status the host doesn't promise; a failure
// whose text is a script's runtime error or doesn't name the file (with
// line and column where it has them); a description or a failed import
// that changed the database; the client's nodes lost; a decode walk on an
// imported channel that is refused, fails or doesn't end.
#pragma once

#include <string>

#include "FuzzSupport.h"
#include "ImportChecks.h"
#include "PublicDump.h"
#include "Q9Db.h"

namespace q9::fuzz {

// The client's own nodes: a cluster of the file's kind with one channel,
// and a frame sent on it.
struct ClientNetwork {
  Q9DbNode* cluster = nullptr;
  Q9DbNode* channel = nullptr;
  Q9DbNode* frame = nullptr;
  Q9DbNode* triggering = nullptr;

  ClientNetwork(Q9DbNode* db, int32_t clusterType) {
    if (Q9Db_createCluster(db, u"client", clusterType, &cluster) != S_OK ||
        Q9Db_createChannel(db, u"client/channel", cluster, &channel) != S_OK ||
        Q9Db_createFrame(db, u"client/frame", 8, &frame) != S_OK ||
        Q9Db_createIdentifierBasedTriggering(db, u"client/channel/frame", 0x12, 0, frame, nullptr, channel,
                                             &triggering) != S_OK)
      violated("the client's network can't be made");
  }

  void checkKept(Q9DbNode* db) const {
    const std::pair<const char16_t*, Q9DbNode*> kept[] = {{u"client", cluster},
                                                           {u"client/channel", channel},
                                                           {u"client/frame", frame},
                                                           {u"client/channel/frame", triggering}};
    for (const auto& [id, node] : kept) {
      Q9DbNode* found = nullptr;
      if (Q9Db_findByElementId(db, id, &found) != S_OK || found != node) violated("a node of the client's was lost");
    }
    Q9DbNode* linked = nullptr;
    if (Q9Db_getFrame(triggering, &linked) != S_OK || linked != frame ||
        Q9Db_getChannel(triggering, &linked) != S_OK || linked != channel)
      violated("the client's triggering lost a link");
  }
};

// One call that must leave the database as it was unless it succeeds
// (always, for a description).
template <typename Call>
HRESULT checkedCall(Q9DbNode* db, const InputFile& file, const char* what, bool changes, Call call) {
  const std::string before = dumpThroughInterface(db);
  Reports reports;
  const HRESULT hr = call(reports);
  checkOutcome(hr, reports, file.path(), what);
  if ((hr != S_OK || !changes) && dumpThroughInterface(db) != before)
    violated(what, hr == S_OK ? "the description changed the database" : "a failed import changed the database");
  return hr;
}

inline void runEngineInput(const InputFile& file, int32_t clusterType, const uint8_t* data, size_t size) {
  Q9DbNode* db = nullptr;
  if (Q9Db_create(u"fuzz", &db) != S_OK) violated("no database");
  checkedCall(db, file, "describe", false,
              [&](Reports& r) { return Q9Db_importGetInfo(db, file.widePath(), &r, &Reports::collect); });
  const HRESULT fresh = checkedCall(db, file, "import", true, [&](Reports& r) {
    return Q9Db_importFile(db, nullptr, file.widePath(), nullptr, &r, &Reports::collect);
  });
  if (fresh == S_OK) decodeImported(db, data, size);
  Q9Db_destroy(db);

  if (Q9Db_create(u"fuzz", &db) != S_OK) violated("no database");
  const ClientNetwork client(db, clusterType);
  const HRESULT into = checkedCall(db, file, "import into a channel", true, [&](Reports& r) {
    return Q9Db_importFile(db, client.channel, file.widePath(), nullptr, &r, &Reports::collect);
  });
  client.checkKept(db);
  if (into == S_OK) decodeImported(db, data, size);
  Q9Db_destroy(db);
}

}  // namespace q9::fuzz
