// The cluster and channel an LDF file goes into, its nodes as ECUs, and the
// node attributes that describe the slaves and refer to their signals and
// frames.
#include <unordered_map>

#include "import/LdfBuild.h"
#include "import/ScriptNumbers.h"
#include "platform/WideText.h"
#include "store/NodeClasses.h"
#include "store/Nodes.h"

namespace q9 {
namespace {

// Identifiers the channel's triggerings already use, by the frame's name.
void noteUsedIdentifiers(LdfBuild& b) {
  Q9DbEnumerator* walk = nullptr;
  if (Q9Db_enumFrameTriggerings(b.channel, &walk) != S_OK) return;
  struct Closer {
    Q9DbEnumerator* e;
    ~Closer() { Q9Db_enumeratorDestroy(e); }
  } closer{walk};
  Q9DbNode* triggering = nullptr;
  uint32_t fetched = 0;
  while (Q9Db_enumeratorNext(walk, 1, &triggering, &fetched) == S_OK && fetched == 1) {
    if (Q9Db_getNodeType(triggering) != Q9_NODETYPE_IdentifierBasedTriggering) continue;
    uint32_t identifier = 0;
    Q9Db_getIdentifier(triggering, &identifier);
    const char16_t* name = as<ElementDetail>(static_cast<void*>(triggering))->shortname;
    b.usedIds[int32_t(identifier)] = name ? platform::utf16ToUtf8(name) : "?";
  }
}

Q9DbNode* makeEcu(LdfBuild& b, const std::string& name, TextPosition at, const std::string& description) {
  if (b.ecus.count(name)) {
    b.warn(at, "node " + name + " is listed twice; the second is left out");
    return nullptr;
  }
  Q9DbNode* ecu = b.named(b.create("creating an ECU", Q9Db_createECU, b.make.id({"ECU", name})), name);
  b.describe(ecu, description);
  b.ecus.emplace(name, ecu);
  b.ecuOrder.push_back(name);
  return ecu;
}

void signalReference(LdfBuild& b, const LdfNodeAttributes& attributes, Q9DbNode* ecu, const std::string& signal,
                     const char16_t* id, const char* role) {
  const auto found = b.signals.find(signal);
  if (found == b.signals.end()) {
    b.warn(attributes.at, "node attributes of " + attributes.node + ": " + role + " " + signal + " is not defined");
    return;
  }
  b.reference(ecu, id, found->second.node, role);
}

// A second block for the same node names references that exist already.
bool referenceIsNew(LdfBuild& b, const LdfNodeAttributes& attributes, const char16_t* id, const char* role) {
  if (!b.make.taken(id)) return true;
  b.warn(attributes.at, "node attributes of " + attributes.node + ": " + role +
                            " is given in an earlier block already; this one is left out");
  return false;
}

std::string attributeDescription(const LdfNodeAttributes& a) {
  std::string text = "LIN slave, protocol " + (a.protocol ? *a.protocol : std::string("unknown"));
  text += "; configured NAD " + hexText(a.configuredNad.value_or(0));
  if (a.initialNad) text += "; initial NAD " + hexText(*a.initialNad);
  if (a.productId) {
    text += "; supplier " + hexText(a.productId->supplier, 4) + ", function " + hexText(a.productId->function, 4);
    if (a.productId->variant) text += ", variant " + numberText(double(*a.productId->variant));
  }
  const std::pair<const char*, const std::optional<double>*> timings[] = {
      {"P2_min", &a.p2Min}, {"ST_min", &a.stMin}, {"N_As_timeout", &a.nAsTimeout}, {"N_Cr_timeout", &a.nCrTimeout}};
  for (const auto& [label, value] : timings)
    if (*value) text += std::string("; ") + label + " " + numberText(**value) + " ms";
  return text;
}

}  // namespace

void buildTarget(LdfBuild& b, Q9DbNode* node) {
  bool made = true;
  if (!node) {
    b.cluster = b.named(b.create("creating the cluster", Q9Db_createCluster, b.make.id({"cluster"}),
                                    int32_t(Q9_CLUSTERTYPE_LIN)),
                        b.clusterName);
    b.channel = b.named(b.create("creating the channel", Q9Db_createChannel, b.make.id({"channel"}), b.cluster),
                        b.clusterName);
  } else if (Q9Db_getNodeType(node) == Q9_NODETYPE_Cluster) {
    b.cluster = node;
    b.channel = b.named(b.create("creating the channel", Q9Db_createChannel, b.make.id({"channel"}), node),
                        b.clusterName);
  } else {
    Q9DbNode* group = nullptr;
    Q9Db_getGroup(node, &group);
    b.cluster = group && Q9Db_getNodeType(group) == Q9_NODETYPE_Cluster ? group : nullptr;
    b.channel = node;
    made = false;
  }
  if (made) {
    const LdfHeader& head = b.file.header;
    b.make.setParam(b.channel, paramOf(thousandths(head.speed)));
    b.describe(b.channel, "LIN protocol " + head.protocolVersion + ", language " + head.languageVersion + ", " +
                              numberText(head.speed) + " kbps");
  }
  int32_t clusterType = 0;
  if (b.cluster && Q9Db_getClusterType(b.cluster, &clusterType) == S_OK && clusterType != Q9_CLUSTERTYPE_LIN)
    b.warn({}, "the cluster imported into is no LIN cluster");
  noteUsedIdentifiers(b);
}

void buildNodes(LdfBuild& b) {
  const LdfFile& file = b.file;
  if (file.master) {
    const LdfMaster& m = *file.master;
    makeEcu(b, m.name, m.at,
            "LIN master; time base " + numberText(m.timebase) + " ms, jitter " + numberText(m.jitter) + " ms");
    b.master = &m.name;
  }
  for (const LdfName& slave : file.slaves) makeEcu(b, slave.text, slave.at, "LIN slave");

  // LIN 1.x files give the slaves' addresses in a section of their own; a
  // node named twice takes the address written last.
  std::unordered_map<std::string, const LdfDiagnosticAddress*> last;
  for (const LdfDiagnosticAddress& entry : file.diagnosticAddresses) last[entry.node] = &entry;
  for (const LdfDiagnosticAddress& entry : file.diagnosticAddresses) {
    if (last[entry.node] != &entry) continue;
    const LdfDiagnosticAddress* it = &entry;
    const auto ecu = b.ecus.find(it->node);
    const auto nad = integerOfText(it->address);
    if (ecu != b.ecus.end() && nad)
      b.make.setParam(ecu->second, uint64_t(*nad));
    else
      b.warn(it->at, "diagnostic address of " + it->node + ": " +
                         (ecu != b.ecus.end() ? "not a number: " + it->address : std::string("no such node")));
  }

  if (!file.compositeConfigurations.empty()) {
    std::string names;
    for (const LdfCompositeConfiguration& c : file.compositeConfigurations)
      names += (names.empty() ? "" : ", ") + c.name;
    b.warn(file.compositeConfigurations.front().at, "composite node configurations are not mapped: " + names);
  }
}

void buildNodeAttributes(LdfBuild& b) {
  for (const LdfNodeAttributes& a : b.file.nodeAttributes) {
    const auto found = b.ecus.find(a.node);
    if (found == b.ecus.end()) {
      b.warn(a.at, "node attributes of " + a.node + ": no such node; they are left out");
      continue;
    }
    Q9DbNode* ecu = found->second;
    b.make.setParam(ecu, uint64_t(a.configuredNad.value_or(0)));
    b.describe(ecu, attributeDescription(a));

    if (a.responseError) {
      const char16_t* id = b.make.id({"ECU", a.node, "response_error"});
      if (referenceIsNew(b, a, id, "response_error"))
        signalReference(b, a, ecu, *a.responseError, id, "response_error");
    }
    for (std::size_t i = 0; i < a.faultStateSignals.size(); ++i) {
      const char16_t* id = b.make.id({"ECU", a.node, "fault_state_signal", std::to_string(i + 1)});
      if (referenceIsNew(b, a, id, "fault_state_signals"))
        signalReference(b, a, ecu, a.faultStateSignals[i], id, "fault_state_signals");
    }
    // param: the message id a LIN 2.0 file gives, else the frame's index.
    for (std::size_t i = 0; i < a.configurableFrames.size(); ++i) {
      const LdfConfigurableFrame& cf = a.configurableFrames[i];
      const auto frame = b.frames.find(cf.name);
      if (frame == b.frames.end() || frame->second.sporadic) {
        b.warn(cf.at, "node attributes of " + a.node + ": configurable frame " + cf.name + " is not defined");
        continue;
      }
      const char16_t* id = b.make.id({"ECU", a.node, "configurable_frame", std::to_string(i + 1)});
      if (referenceIsNew(b, a, id, "configurable_frames"))
        b.reference(ecu, id, frame->second.node, "configurable_frames",
                    uint64_t(cf.ident ? *cf.ident : int64_t(i)));
    }
  }
}

}  // namespace q9
