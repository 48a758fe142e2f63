// The walk keeps a stack of the segments of the parts it is in and maps a
// field back out level by level; a piece of a big-endian segment has no
// single place in the frame and keeps the one it has inside its part.
// Nesting stops where the decoder's does.
#include "SignalLayout.h"

#include <algorithm>

#include "Nodes.h"

namespace q9py {
namespace {

using q9tool::forEachNode;

int32_t readInt(HRESULT (*get)(Q9DbNode*, int32_t*), Q9DbNode* node) {
  int32_t value = 0;
  get(node, &value);
  return value;
}

// A field in the coordinates of some PDU.
struct Field {
  int32_t byteOrder;
  int32_t position;
  int32_t length;
};

struct Segment {
  Field field;    // where its bits come from, in the enclosing PDU
  int32_t start;  // where they stand in the part's image
};

// What a signal of the current part is selected by.
struct Selection {
  Q9DbNode* switchSignal = nullptr;
  bool selected = false;  // inside a dynamic or else part
  bool elsePart = false;
  uint32_t code = 0;
};

class Layout {
 public:
  std::vector<LaidSignal> run(Q9DbNode* frame) {
    forEachNode(Q9Db_enumPDUInstances, frame, [&](Q9DbNode* instance) {
      Q9DbNode* pdu = nullptr;
      if (Q9Db_getReference(instance, &pdu) != S_OK || !pdu) return;
      offset_ = readInt(Q9Db_getBitPosition, instance);
      walkPdu(pdu, Selection{});
    });
    return std::move(signals_);
  }

 private:
  // A part's PDU holds its segments one after the other from bit 0; a field
  // that is a whole segment (or a piece of a little-endian one) goes back to
  // where the segment lies, level by level out to the frame.
  Field inFrame(Field field) const {
    for (auto level = parts_.rbegin(); level != parts_.rend(); ++level) {
      if (level->empty()) continue;  // a part without segments reads the enclosing data
      const Segment* inside = nullptr;
      for (const Segment& s : *level)
        if (field.position >= s.start && field.position < s.start + s.field.length) inside = &s;
      if (!inside || field.byteOrder != Q9_BYTEORDER_LITTLEENDIAN) break;
      if (field.position == inside->start && field.length == inside->field.length) {
        field = inside->field;
      } else if (inside->field.byteOrder == Q9_BYTEORDER_LITTLEENDIAN) {
        field.position = inside->field.position + (field.position - inside->start);
      } else {
        break;  // a piece of a big-endian segment has no plain place
      }
    }
    field.position += offset_;
    return field;
  }

  void walkPdu(Q9DbNode* pdu, const Selection& selection) {
    if (Q9Db_getNodeType(pdu) != Q9_NODETYPE_MultiplexedPDU) {
      forEachNode(Q9Db_enumSignalInstances, pdu, [&](Q9DbNode* instance) { add(instance, selection); });
      return;
    }
    const Field switchField = inFrame({readInt(Q9Db_getSwitchByteOrder, pdu), readInt(Q9Db_getSwitchPosition, pdu),
                                       readInt(Q9Db_getSwitchLength, pdu)});
    const size_t before = signals_.size();
    Q9DbNode* part = nullptr;
    if (Q9Db_getStaticPart(pdu, &part) == S_OK && part) walkPart(part, selection);
    Selection switched;
    for (size_t i = before; i < signals_.size(); ++i) {
      LaidSignal& s = signals_[i];
      if (s.start == switchField.position && s.length == switchField.length && s.byteOrder == switchField.byteOrder) {
        s.isSwitch = true;
        switched.switchSignal = s.signal;
        break;
      }
    }
    switched.selected = true;
    forEachNode(Q9Db_enumDynamicParts, pdu, [&](Q9DbNode* dynamic) {
      Q9Db_getSwitchCode(dynamic, &switched.code);
      walkPart(dynamic, switched);
    });
    part = nullptr;
    if (Q9Db_getElsePart(pdu, &part) == S_OK && part) {
      switched.elsePart = true;
      walkPart(part, switched);
    }
  }

  void walkPart(Q9DbNode* part, const Selection& selection) {
    std::vector<Segment> segments;
    int32_t start = 0;
    forEachNode(Q9Db_enumSegments, part, [&](Q9DbNode* record) {
      Segment s{{readInt(Q9Db_getByteOrder, record), readInt(Q9Db_getBitPosition, record),
                 readInt(Q9Db_getBitLength, record)},
                start};
      start += s.field.length;
      segments.push_back(s);
    });
    Q9DbNode* pdu = nullptr;
    if (Q9Db_getReference(part, &pdu) != S_OK || !pdu || depth_ >= kDeepestNesting) return;
    parts_.push_back(std::move(segments));
    ++depth_;
    walkPdu(pdu, selection);
    --depth_;
    parts_.pop_back();
  }

  void add(Q9DbNode* instance, const Selection& selection) {
    Q9DbNode* signal = nullptr;
    Q9DbNode* coding = nullptr;
    if (Q9Db_getReference(instance, &signal) != S_OK || !signal) return;
    Q9Db_getReference(signal, &coding);
    auto known = std::find_if(signals_.begin(), signals_.end(), [&](const LaidSignal& s) { return s.signal == signal; });
    if (known == signals_.end()) {
      LaidSignal laid;
      laid.signal = signal;
      laid.coding = coding;
      Field field = inFrame({readInt(Q9Db_getByteOrder, instance), readInt(Q9Db_getBitPosition, instance),
                             coding ? readInt(Q9Db_getBitLength, coding) : 0});
      laid.start = field.position;
      laid.length = field.length;
      laid.byteOrder = field.byteOrder;
      laid.switchSignal = selection.switchSignal;
      signals_.push_back(std::move(laid));
      known = signals_.end() - 1;
    }
    if (!selection.selected || selection.elsePart) return;
    if (std::find(known->switchCodes.begin(), known->switchCodes.end(), selection.code) == known->switchCodes.end())
      known->switchCodes.push_back(selection.code);
  }

  static constexpr int kDeepestNesting = 63;  // as deep as the decoder goes
  std::vector<LaidSignal> signals_;
  std::vector<std::vector<Segment>> parts_;  // of the parts entered, outermost first
  int32_t offset_ = 0;
  int depth_ = 0;
};

}  // namespace

std::vector<LaidSignal> layOutSignals(Q9DbNode* frame) { return Layout().run(frame); }

}  // namespace q9py
