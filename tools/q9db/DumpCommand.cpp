// q9db dump: what the imported files describe, readable at a glance.
#include <cstdio>
#include <string>
#include <vector>

#include "Commands.h"
#include "DescribedFrames.h"
#include "Network.h"
#include "Nodes.h"

namespace q9tool {
namespace {

const char* clusterTypeName(int32_t type) {
  switch (type) {
    case Q9_CLUSTERTYPE_CAN: return "CAN";
    case Q9_CLUSTERTYPE_LIN: return "LIN";
    case Q9_CLUSTERTYPE_FLEXRAY: return "FlexRay";
    default: return "unknown type";
  }
}

const char* encodingName(uint32_t encoding) {
  bool sign = encoding & Q9_ENCODING_SIGNED;
  switch (encoding & Q9_ENCODING_TYPEMASK) {
    case Q9_ENCODING_DIRECT: return sign ? "signed (sign and magnitude)" : "unsigned";
    case Q9_ENCODING_1COMPL: return "signed (ones' complement)";
    case Q9_ENCODING_2COMPL: return "signed";
    case Q9_ENCODING_IEEE: return "float";
    case Q9_ENCODING_UNPACKED_BCD: return sign ? "signed BCD (unpacked)" : "BCD (unpacked)";
    case Q9_ENCODING_PACKED_BCD: return sign ? "signed BCD" : "BCD";
    case Q9_ENCODING_ASCII: return "text";
    default: return "invalid encoding";
  }
}

const char* plural(int32_t count) { return count == 1 ? "" : "s"; }

class Dumper {
 public:
  explicit Dumper(Q9DbNode* db) : db_(db) {}

  void run() {
    forEachNode(Q9Db_enumClusters, db_, [&](Q9DbNode* cluster) {
      int32_t type = Q9_CLUSTERTYPE_INVALID;
      Q9Db_getClusterType(cluster, &type);
      std::printf("Cluster %s (%s)\n", displayName(cluster).c_str(), clusterTypeName(type));
      forEachNode(Q9Db_enumChildren, cluster, [&](Q9DbNode* channel) {
        if (Q9Db_getNodeType(channel) != Q9_NODETYPE_Channel) return;
        std::printf("  Channel %s\n", displayName(channel).c_str());
        forEachNode(Q9Db_enumFrameTriggerings, channel, [&](Q9DbNode* t) { triggering(t, type); });
      });
    });
    std::string ecus;
    forEachNode(Q9Db_enumECUs, db_, [&](Q9DbNode* ecu) { ecus += (ecus.empty() ? "" : ", ") + displayName(ecu); });
    std::printf("ECUs: %s\n", ecus.empty() ? "none" : ecus.c_str());
  }

 private:
  void triggering(Q9DbNode* t, int32_t clusterType) {
    Q9DbNode* frame = nullptr;
    Q9Db_getFrame(t, &frame);
    uint32_t flags = 0, identifier = 0;
    Q9Db_getFlags(t, &flags);
    std::string kind;
    if (Q9Db_getNodeType(t) == Q9_NODETYPE_MaskedIdentifierTriggering) {
      uint32_t mask = 0, code = 0;
      Q9Db_getIdentifierMask(t, &mask);
      Q9Db_getIdentifierCode(t, &code);
      char text[48];
      std::snprintf(text, sizeof text, "id 0x%X mask 0x%X", code, mask);
      kind = text;
    } else {
      Q9Db_getIdentifier(t, &identifier);
      char text[24];
      std::snprintf(text, sizeof text, "id 0x%X", identifier);
      kind = text;
    }
    if (clusterType == Q9_CLUSTERTYPE_CAN) {
      uint32_t frameType = flags & Q9_FLAGMASK_CAN_FRAMETYPE;
      kind += frameType == Q9_FLAG_CANEXTENDED ? " ext" : frameType == Q9_FLAG_CANSTD_OR_EXT ? " std/ext" : " std";
      if (flags & Q9_FLAG_CANFD_FRAME) kind += (flags & Q9_FLAG_CANFD_FASTDATA) ? " FD (bit rate switch)" : " FD";
    } else if (clusterType == Q9_CLUSTERTYPE_LIN) {
      kind += (flags & Q9_FLAG_LIN_ENH_CHECKSUM) ? " enhanced checksum" : " classic checksum";
    }
    int32_t length = 0;
    if (frame) Q9Db_getLength(frame, &length);
    Q9DbNode* sender = nullptr;
    Q9Db_getSourceECU(t, &sender);
    std::printf("    Frame %s  %s  %d byte%s  sender %s", frame ? displayName(frame).c_str() : "(none)", kind.c_str(),
                length, plural(length), sender ? displayName(sender).c_str() : "-");
    uint64_t cycle = frame ? frameCycleTime(frame) : 0;
    if (cycle) std::printf("  cycle %llu ms", static_cast<unsigned long long>(cycle));
    std::printf("\n");
    if (frame) forEachNode(Q9Db_enumPDUInstances, frame, [&](Q9DbNode* instance) { pduInstance(instance, 6); });
  }

  void pduInstance(Q9DbNode* instance, int indent) {
    Q9DbNode* pdu = nullptr;
    if (Q9Db_getReference(instance, &pdu) != S_OK || !pdu) return;
    int32_t offset = 0;
    Q9Db_getBitPosition(instance, &offset);
    pduSignals(pdu, indent, offset);
  }

  // A part's signals count their positions in the image its segments make;
  // the frame's position is what a reader checks against the file.
  struct Segment {
    int32_t order, position, length, start;  // start: where the segment begins in the part's image
  };

  int32_t framePosition(int32_t position, int32_t offset) const {
    for (auto level = parts_.rbegin(); level != parts_.rend(); ++level) {
      if (level->empty()) continue;  // a part without segments reads the enclosing data
      const Segment* inside = nullptr;
      for (const Segment& s : *level)
        if (position >= s.start && position < s.start + s.length) inside = &s;
      if (!inside || inside->order == Q9_BYTEORDER_BIGENDIAN) return position + offset;  // no plain mapping: as is
      position = inside->position + (position - inside->start);
    }
    return position + offset;
  }

  void pduSignals(Q9DbNode* pdu, int indent, int32_t offset) {
    if (Q9Db_getNodeType(pdu) == Q9_NODETYPE_MultiplexedPDU) {
      int32_t position = 0, length = 0, order = 0;
      Q9Db_getSwitchPosition(pdu, &position);
      Q9Db_getSwitchLength(pdu, &length);
      Q9Db_getSwitchByteOrder(pdu, &order);
      std::printf("%*sMultiplexed by the switch at bit %d, %d bit%s, %s\n", indent, "", framePosition(position, offset), length, plural(length),
                  order == Q9_BYTEORDER_BIGENDIAN ? "big-endian" : "little-endian");
      Q9DbNode* part = nullptr;
      if (Q9Db_getStaticPart(pdu, &part) == S_OK && part) this->part(part, "always", indent, offset);
      forEachNode(Q9Db_enumDynamicParts, pdu, [&](Q9DbNode* dynamic) {
        uint32_t code = 0;
        Q9Db_getSwitchCode(dynamic, &code);
        this->part(dynamic, "switch " + std::to_string(code), indent, offset);
      });
      part = nullptr;
      if (Q9Db_getElsePart(pdu, &part) == S_OK && part) this->part(part, "any other switch value", indent, offset);
      return;
    }
    forEachNode(Q9Db_enumSignalInstances, pdu, [&](Q9DbNode* instance) { signal(instance, indent, offset); });
  }

  void part(Q9DbNode* part, const std::string& label, int indent, int32_t offset) {
    std::printf("%*s[%s]\n", indent, "", label.c_str());
    std::vector<Segment> segments;
    int32_t start = 0;
    forEachNode(Q9Db_enumSegments, part, [&](Q9DbNode* record) {
      Segment s{0, 0, 0, start};
      Q9Db_getByteOrder(record, &s.order);
      Q9Db_getBitPosition(record, &s.position);
      Q9Db_getBitLength(record, &s.length);
      start += s.length;
      segments.push_back(s);
    });
    parts_.push_back(std::move(segments));
    Q9DbNode* pdu = nullptr;
    if (Q9Db_getReference(part, &pdu) == S_OK && pdu) pduSignals(pdu, indent + 2, offset);
    parts_.pop_back();
  }

  void signal(Q9DbNode* instance, int indent, int32_t offset) {
    Q9DbNode* signal = nullptr;
    if (Q9Db_getReference(instance, &signal) != S_OK || !signal) return;
    int32_t position = 0, order = 0, length = 0;
    Q9Db_getBitPosition(instance, &position);
    Q9Db_getByteOrder(instance, &order);
    Q9DbNode* coding = nullptr;
    Q9Db_getReference(signal, &coding);
    uint32_t encoding = 0;
    if (coding) {
      Q9Db_getBitLength(coding, &length);
      Q9Db_getEncoding(coding, &encoding);
    }
    Q9DbNode* unit = nullptr;
    Q9Db_getUnit(signal, &unit);
    std::string unitText = unitName(unit);
    double minimum = 0, maximum = 0, initial = 0;
    Q9Db_getMinValue(signal, &minimum);
    Q9Db_getMaxValue(signal, &maximum);
    Q9Db_getDefaultValue(signal, &initial);
    std::printf("%*s%s  bit %d  %d bit%s  %s  %s", indent, "", displayName(signal).c_str(), framePosition(position, offset), length,
                plural(length),
                order == Q9_BYTEORDER_BIGENDIAN ? "big-endian" : "little-endian", encodingName(encoding));
    if (coding) {
      forEachNode(Q9Db_enumInternalToPhysicalComputations, coding, [&](Q9DbNode* computation) {
        if (Q9Db_getNodeType(computation) != Q9_NODETYPE_LinearComputation) return;
        double scale = 1, shift = 0;
        Q9Db_getScale(computation, &scale);
        Q9Db_getOffset(computation, &shift);
        std::printf("  scale %.15g offset %.15g", scale, shift);
      });
    }
    std::string values;
    for (const ValueText& text : valueTexts(db_, signal)) {
      char number[32];
      std::snprintf(number, sizeof number, "%.15g", text.value);
      values += (values.empty() ? "" : ", ") + std::string(number) + " \"" + text.text + "\"";
    }
    if (!unitText.empty()) std::printf("  unit %s", unitText.c_str());
    std::printf("  range %.15g .. %.15g  default %.15g\n", minimum, maximum, initial);
    if (!values.empty()) std::printf("%*s  values: %s\n", indent, "", values.c_str());
  }

  Q9DbNode* db_;
  std::vector<std::vector<Segment>> parts_;  // of the parts entered, outermost first
};

}  // namespace

int runDump(const std::vector<std::string>& files, const ImportOptions& options) {
  Network network;
  if (!importFiles(network, files, options)) return kExitInputError;
  Dumper(network.db()).run();
  return kExitOk;
}

}  // namespace q9tool
