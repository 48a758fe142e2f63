// The sections that name the nodes: Nodes, LIN 1.x Diagnostic_addresses and
// composite configurations.
#include "import/LdfReader.h"

namespace q9 {
namespace {

void readMaster(LdfReader& r) {
  const TextPosition at = r.token().at;
  r.label("the Master line");
  r.advance();
  r.expect(':');
  LdfMaster master;
  master.at = at;
  master.name = r.name("the master");
  r.expect(',');
  master.timebase = r.number("the time base");
  r.unit(ldf::ms, "the time base");
  if (r.at(';')) {
    r.warn(r.token().at, "the Master line gives no jitter; 0 ms is assumed");
  } else {
    r.expect(',');
    master.jitter = r.number("the jitter");
    r.unit(ldf::ms, "the jitter");
  }
  // Some files add further timing items, such as a bit length and a
  // tolerance; the format has no place for them.
  if (r.at(',')) {
    r.advance();
    const TextPosition extraAt = r.token().at;
    const char* start = r.token().begin;
    const char* end = start;
    while (!r.at(';') && !r.at('}') && !r.at(kTokenEnd)) {
      end = r.token().end;
      r.advance();
    }
    r.warn(extraAt, "the items '" + LdfReader::excerpt(start, end) +
                        "' behind the master's jitter are ignored");
  }
  r.endStatement("the Master line");
  if (r.file.master)
    r.warn(at, "a second Master line names " + master.name + "; the first one, " + r.file.master->name +
                   ", is kept");
  else
    r.file.master = std::move(master);
}

void readSlaves(LdfReader& r, bool again) {
  r.label("the Slaves line");
  if (again) r.warn(r.token().at, "a second Slaves line; its nodes are added to the first one's");
  r.advance();
  r.expect(':');
  while (r.atWord()) {
    const TextPosition at = r.token().at;
    r.file.slaves.push_back({at, r.name("a slave")});
    r.accept(',');
  }
  r.endStatement("the Slaves line");
}

}  // namespace

void readNodes(LdfReader& r) {
  bool slaves = false;
  r.block("Nodes", [&r, &slaves] {
    if (r.at(ldf::Master)) return readMaster(r);
    if (r.at(ldf::Slaves)) {
      readSlaves(r, slaves);
      slaves = true;
      return;
    }
    r.skipUnknown("the item of Nodes", r.token().at, r.token().begin);
  }, LdfReader::Ends::Semicolon);
}

void readDiagnosticAddresses(LdfReader& r) {
  r.block("Diagnostic_addresses", [&r] {
    LdfDiagnosticAddress entry;
    entry.at = r.token().at;
    entry.node = r.entryName("a node");
    r.label("the diagnostic address of " + entry.node);
    r.expect(':');
    if (r.at(';') || r.at('}') || r.at(kTokenEnd)) r.slip("the node's address");
    entry.address = std::string(r.token().text);
    r.advance();
    r.accept(';');  // the format lets it out here
    r.file.diagnosticAddresses.push_back(std::move(entry));
  }, LdfReader::Ends::Semicolon);
}

void readComposite(LdfReader& r) {
  r.block("composite", [&r] {
    const TextPosition at = r.token().at;
    if (!r.at(ldf::configuration)) return r.skipUnknown("the item of composite", at, r.token().begin);
    r.advance();
    LdfCompositeConfiguration configuration;
    configuration.at = at;
    configuration.name = r.name("a configuration");
    r.label("configuration " + configuration.name);
    r.block("a composite configuration", [&r, &configuration] {
      LdfCompositeNode node;
      node.at = r.token().at;
      node.name = r.entryName("a composite node");
      r.label("composite node " + node.name);
      r.expect('{');
      while (r.atWord()) {
        node.members.push_back(r.name("a member node"));
        r.accept(',');
      }
      r.endStatement("the member list");
      r.expect('}');
      configuration.nodes.push_back(std::move(node));
    });
    r.file.compositeConfigurations.push_back(std::move(configuration));
  });
}

}  // namespace q9
