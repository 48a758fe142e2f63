// Ids follow the file's names and are made unique only where a name repeats.
// A coding puts its value texts before its scaling; an integer signal with
// factor one and a fractional offset is scaled by two negations so that the
// offset isn't cut, and the inverses round to the nearest raw value.
#include "import/DbcNodeBuilder.h"

#include <algorithm>
#include <cinttypes>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <limits>
#include <unordered_map>
#include <unordered_set>

#include "import/BuildSupport.h"
#include "import/DbcPduPlan.h"
#include "platform/WideText.h"
#include "store/NodeClasses.h"
#include "store/Nodes.h"

namespace q9 {
namespace {

constexpr uint32_t kRangeClosed = Q9_FLAG_VALID | 3u;  // valid, both limits closed
constexpr uint32_t kStaticPartCode = 0xFFFFFFFFu;
constexpr int32_t kNoUpdateBit = -1;
constexpr double kInfinity = std::numeric_limits<double>::infinity();

std::string wholeNumber(double value) { return formatText("%.0f", value); }

bool isInteger(double x) { return x == std::floor(x) && x > -9223372036854775808.0 && x < 9223372036854775808.0; }

class DbcBuilder {
 public:
  DbcBuilder(Q9DbNode* db, const DbcNetwork& network, const std::string& prefix, uint16_t language,
             ImportReport& report)
      : make_(db, prefix, language), network_(network), report_(report) {}

  void build(Q9DbNode* node, const std::string& plainName, DbcBuildCounts& counts) {
    target(node, plainName);
    for (const DbcNetworkEcu& ecu : network_.ecus) {
      Q9DbNode* group = make_.make("createECU", Q9Db_createECU, id({"ECU", *ecu.name}));
      make_.name(group, ecu.plainName);
      make_.describe(group, ecu.comment);
      ecus_.emplace(*ecu.name, group);
    }
    std::unordered_set<std::string_view> names;
    for (const DbcNetworkMessage& message : network_.messages) {
      if (message.skip) continue;
      // Only a repeated message name can give an id twice: names are words.
      repeated_ = !names.insert(message.name()).second;
      frame(message);
    }
    counts.frames = frames_;
    counts.signals = signals_;
  }

 private:
  const char16_t* id(std::initializer_list<std::string_view> parts) {
    return repeated_ ? make_.uniqueId(parts) : make_.id(parts);
  }

  // The cluster and channel to import into: the node given, or new ones.
  void target(Q9DbNode* node, const std::string& plainName) {
    if (!node) {
      Q9DbNode* cluster = make_.make("createCluster", Q9Db_createCluster, id({"cluster"}), int32_t(Q9_CLUSTERTYPE_CAN));
      make_.name(cluster, plainName);
      make_.describe(cluster, network_.comment);
      channel_ = make_.make("createChannel", Q9Db_createChannel, id({"channel"}), cluster);
      make_.name(channel_, plainName);
      return;
    }
    ObjectBase* cluster = nullptr;
    if (isExact<Channel>(node)) {
      channel_ = node;
      cluster = as<Channel>(node)->group;
    } else if (isExact<Cluster>(node)) {
      cluster = reinterpret_cast<ObjectBase*>(node);
      forEachPointer(as<Cluster>(node)->children, [&](void* child) {
        if (!isExact<Channel>(child)) return true;
        channel_ = static_cast<Q9DbNode*>(child);
        return false;
      });
    } else {
      const char* cls = classNameA(readTag(node));
      throw BuildFailure(formatText("a DBC file is imported into a cluster or a channel, not into a %s", cls ? cls : "node"));
    }
    if (cluster && isExact<Cluster>(cluster) && as<Cluster>(cluster)->clusterType != Q9_CLUSTERTYPE_CAN) {
      const char16_t* eid = as<Cluster>(cluster)->eid;
      throw BuildFailure(formatText("cluster %s is no CAN cluster", eid ? platform::utf16ToUtf8(eid).c_str() : "?"));
    }
    if (!channel_) {
      channel_ = make_.make("createChannel", Q9Db_createChannel, id({"channel"}), reinterpret_cast<Q9DbNode*>(cluster));
      make_.name(channel_, plainName);
    }
    if (!network_.comment.empty())
      report_.warn("the comment on the whole network is not imported: the file goes into an existing cluster");
  }

  Q9DbNode* unit(const std::string& text) {
    if (text.empty()) return nullptr;
    const auto found = units_.find(text);
    if (found != units_.end()) return found->second;
    Q9DbNode* unit = make_.make("createUnitSpec", Q9Db_createUnitSpec, make_.uniqueId({"unit", text}),
                                make_.language(), toUtf16(text).c_str());
    units_.emplace(text, unit);
    return unit;
  }

  Q9DbNode* linear(std::initializer_list<std::string_view> parts, double scale, double offset) {
    return make_.make("createLinearComputation", Q9Db_createLinearComputation, id(parts), scale, offset);
  }

  void range(Q9DbNode* computation, double low, double high, uint32_t flags) {
    make_.check(Q9Db_addRange(computation, low, high, flags), "adding a range");
  }

  // One text computation per value text, on the closed range of its raw value.
  void valueTexts(const DbcNetworkSignal& signal, std::vector<Q9DbNode*>& toPhysical) {
    const DbcNetworkMessage& message = *current_;
    std::unordered_set<double> rawSeen;
    for (const auto& [raw, text] : signal.rawValueTexts) {
      Q9DbStringSlot* slot = make_.slot(*text);
      const std::string rawText = wholeNumber(raw);
      const bool again = !rawSeen.insert(raw).second;
      const std::initializer_list<std::string_view> parts = {"compu", message.name(), signal.name(), "text", rawText};
      Q9DbNode* computation = make_.make("createMappedTextComputation", Q9Db_createMappedTextComputation,
                                         repeated_ || again ? make_.uniqueId(parts) : make_.id(parts), slot);
      range(computation, raw, raw, kRangeClosed);
      toPhysical.push_back(computation);
    }
  }

  Q9DbNode* coding(const DbcNetworkSignal& signal) {
    const DbcSignal& s = *signal.source;
    const std::string& m = current_->name();
    uint32_t encoding = Q9_ENCODING_DIRECT;
    if (signal.valueType != DbcValueType::Integer)
      encoding = Q9_ENCODING_IEEE;
    else if (s.isSigned)
      encoding = Q9_ENCODING_2COMPL;
    Q9DbNode* unitSpec = unit(s.unit);
    Q9DbNode* node = make_.make("createCoding", Q9Db_createCoding, id({"coding", m, s.name}), int32_t(s.bitLength),
                                encoding, unitSpec);
    make_.name(node, signal.plainName);

    const auto [low, high] = rawRangeOf(signal);
    std::vector<Q9DbNode*> toPhysical;
    // Texts first: they leave the raw value as it is for the scaling after them.
    if (signal.valueTexts) valueTexts(signal, toPhysical);
    if (signal.valueType == DbcValueType::Integer && s.scale == 1 && !isInteger(s.offset)) {
      // A factor of exactly one keeps integers integer and would cut the
      // fraction off the offset; negating twice gives a float with the whole
      // offset and no rounding.
      Q9DbNode* negate = linear({"compu", m, s.name, "negate"}, -1, 0);
      range(negate, low, high, kRangeClosed);
      Q9DbNode* scaled = linear({"compu", m, s.name, "linear"}, -1, s.offset);
      // An unsigned signal's lowest raw value is a whole zero, whose negation
      // stays +0.
      range(scaled, -high, 0.0 - low, kRangeClosed);
      toPhysical.push_back(negate);
      toPhysical.push_back(scaled);
    } else {
      Q9DbNode* scaled = linear({"compu", m, s.name, "linear"}, s.scale, s.offset);
      range(scaled, low, high, kRangeClosed);
      toPhysical.push_back(scaled);
    }
    make_.check(Q9Db_addInternalToPhysicalComputations(node, toPhysical.size(), toPhysical.data()),
                "adding a computation");
    return node;
  }

  // Inverses from a physical value to the raw one. The library truncates
  // towards zero when it makes the raw value, so the offset carries half a
  // step towards the raw value's sign, which rounds to the nearest raw value
  // on both sides of zero.
  void inverse(Q9DbNode* codingNode, const DbcNetworkSignal& signal, double physicalDefault) {
    const DbcSignal& s = *signal.source;
    const std::string& m = current_->name();
    const double scale = s.scale, offset = s.offset;
    if (scale == 0) return;  // decoded, never encoded: reported with the signal
    const auto [low, high] = rawRangeOf(signal);
    const auto add = [&](const char* which, double rawLow, double rawHigh, bool lowClosed, bool highClosed,
                         double bias) {
      Q9DbNode* compu = linear({"compu", m, s.name, which}, 1 / scale, -offset / scale + bias);
      double a = rawLow * scale + offset, b = rawHigh * scale + offset;
      bool aClosed = lowClosed, bClosed = highClosed;
      if (scale < 0) std::swap(a, b), std::swap(aClosed, bClosed);
      range(compu, a, b, Q9_FLAG_VALID | (aClosed ? 1u : 0u) | (bClosed ? 2u : 0u));
      return compu;
    };
    const auto attach = [&](std::initializer_list<Q9DbNode*> list) {
      make_.check(Q9Db_addPhysicalToInternalComputations(codingNode, list.size(), list.begin()),
                  "adding a computation");
    };
    if (signal.valueType != DbcValueType::Integer) {
      attach({add("inverse", low, high, true, true, 0)});
      return;
    }
    Q9DbNode* positive = add("inverse", 0, high, true, true, 0.5);
    if (low >= 0) {
      attach({positive});
      return;
    }
    Q9DbNode* negative = add("inverse-negative", low, 0, true, false, -0.5);
    // The frame encoder sets start values through the first inverse, whatever
    // its range, so the one that holds the start value goes first.
    if ((physicalDefault - offset) / scale < 0)
      attach({negative, positive});
    else
      attach({positive, negative});
  }

  Q9DbNode* signal(const DbcNetworkSignal& signal) {
    const DbcSignal& s = *signal.source;
    Q9DbNode* codingNode = coding(signal);
    const double physicalDefault = signal.startValue.value_or(0) * s.scale + s.offset;
    // [0|0] means no limits in a DBC; open infinite limits let every value
    // pass the library's limit check.
    uint32_t flags = 0;
    double minimum = -kInfinity, maximum = kInfinity;
    if (!(s.minimum == 0 && s.maximum == 0)) flags = kRangeClosed, minimum = s.minimum, maximum = s.maximum;
    Q9DbNode* node = make_.make("createSignal", Q9Db_createSignal, id({"signal", current_->name(), s.name}), flags,
                                physicalDefault, minimum, maximum, codingNode);
    make_.name(node, signal.plainName);
    make_.describe(node, signal.comment);
    inverse(codingNode, signal, physicalDefault);
    ++signals_;
    return node;
  }

  // A signal's node is made where it first appears; a signal that several
  // switch values select has an instance in each of their parts.
  void instance(const PlannedField& field, Q9DbNode* pdu) {
    const DbcNetworkSignal& s = current_->signals[field.signal];
    Q9DbNode*& node = signalNodes_[field.signal];
    const bool again = node != nullptr;
    if (!node) node = signal(s);
    const std::initializer_list<std::string_view> parts = {"instance", current_->name(), s.name()};
    Q9DbNode* made = make_.make("createSignalInstance", Q9Db_createSignalInstance,
                                repeated_ || again ? make_.uniqueId(parts) : make_.id(parts), field.byteOrder,
                                field.position, kNoUpdateBit, node, pdu);
    make_.name(made, s.plainName);
  }

  // The PDU of a plan, carried by parent (a multiplexed part) or by nothing
  // yet (the message's own, placed by its PDU instance).
  Q9DbNode* pdu(const PlannedPdu& plan, Q9DbNode* parent) {
    const std::string& m = current_->name();
    const char16_t* pduId = plan.label.empty() ? id({"PDU", m}) : id({"PDU", m, plan.label});
    if (!plan.multiplexed) {
      Q9DbNode* made = make_.make("createSignalPDU", Q9Db_createSignalPDU, pduId, plan.bits, parent);
      make_.name(made, current_->plainName);
      for (const PlannedField& field : plan.fields) instance(field, made);
      return made;
    }
    const PlannedField& sw = plan.switchField;
    Q9DbNode* mpdu = make_.make("createMultiplexedPDU", Q9Db_createMultiplexedPDU, pduId, plan.bits, sw.byteOrder,
                                sw.position, sw.length, 0u, parent);
    make_.name(mpdu, current_->plainName);
    for (const PlannedPart& p : plan.parts) {
      Q9DbNode* partNode = make_.make("createMultiplexedPart", Q9Db_createMultiplexedPart,
                                      id({"part", m, p.pdu->label}), p.isStatic ? kStaticPartCode : p.code, mpdu);
      for (const PlannedField& segment : p.segments)
        make_.check(Q9Db_addSegment(partNode, segment.byteOrder, segment.position, segment.length), "adding a segment");
      pdu(*p.pdu, partNode);
      if (p.isStatic)
        make_.check(Q9Db_setStaticPart(mpdu, partNode), "setting the static part");
      else
        make_.check(Q9Db_addDynamicParts(mpdu, 1, &partNode), "adding a dynamic part");
    }
    return mpdu;
  }

  void frame(const DbcNetworkMessage& message) {
    current_ = &message;
    Q9DbNode* frameNode = make_.make("createFrame", Q9Db_createFrame, id({"frame", message.name()}), int32_t(message.length));
    make_.name(frameNode, message.plainName);
    make_.describe(frameNode, message.comment);
    const uint32_t flags = (message.extended ? Q9_FLAG_CANEXTENDED : 0) | (message.fd ? Q9_FLAG_CANFD_FRAME : 0) |
                           (message.fastData ? Q9_FLAG_CANFD_FASTDATA : 0);
    const auto sender = ecus_.find(message.source->sender);
    Q9DbNode* triggering = make_.make("createIdentifierBasedTriggering", Q9Db_createIdentifierBasedTriggering,
                                      id({"triggering", message.name()}), message.identifier, flags, frameNode,
                                      sender == ecus_.end() ? nullptr : sender->second, channel_);
    make_.name(triggering, message.plainName);

    signalNodes_.assign(message.signals.size(), nullptr);
    Q9DbNode* pduNode = pdu(planDbcMessage(message, int32_t(message.length * 8), report_), nullptr);
    make_.make("createPDUInstance", Q9Db_createPDUInstance, id({"PDUInstance", message.name()}),
               int32_t(Q9_BYTEORDER_LITTLEENDIAN), 0, kNoUpdateBit, pduNode, frameNode);
    if (message.cycleTime) {
      Q9DbNode* pduTriggering = make_.make("createPDUTriggering", Q9Db_createPDUTriggering,
                                           id({"PDUTriggering", message.name()}), pduNode, channel_);
      make_.make("createCyclicTiming", Q9Db_createCyclicTiming, *message.cycleTime, pduTriggering);
    }
    ++frames_;
  }

  NodeMaker make_;
  const DbcNetwork& network_;
  ImportReport& report_;
  Q9DbNode* channel_ = nullptr;
  const DbcNetworkMessage* current_ = nullptr;
  bool repeated_ = false;
  std::vector<Q9DbNode*> signalNodes_;
  std::unordered_map<std::string, Q9DbNode*> units_;
  std::unordered_map<std::string_view, Q9DbNode*> ecus_;
  std::size_t frames_ = 0, signals_ = 0;
};

}  // namespace

void buildDbcNodes(Q9DbNode* db, Q9DbNode* node, const DbcNetwork& network, const std::string& plainName,
                   const ImportOptions& options, ImportReport& report, DbcBuildCounts& counts) {
  counts.prefix = freePrefix(db, options.prefix.value_or(plainName), false);
  DbcBuilder(db, network, counts.prefix, options.language, report).build(node, plainName, counts);
}

}  // namespace q9
