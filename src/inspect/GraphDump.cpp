// The whole node graph of a database as a Graphviz file: one record node per
// database node, one coloured edge per link, in depth-first order from the
// collections node. A child's lines stand before the edge that leads to it.
//
// The walk keeps its own stack instead of recursing, so a deep chain of
// nested groups can't exhaust the thread's stack.
#include <cstdio>
#include <unordered_set>
#include <vector>

#include "Q9Db.h"
#include "inspect/NodeLabel.h"
#include "platform/Boundary.h"
#include "platform/WideText.h"
#include "store/Database.h"

namespace q9 {
namespace {

// Links that a class has beyond the ones every family shares: a member list
// or a single node, visited in the colour of the row.
struct LinkRow {
  uint32_t nodeType;
  const char* colour;
  PagedList* (*list)(ObjectBase* node);
  ObjectBase* (*single)(ObjectBase* node);
};

template <typename Node, PagedList Node::*Field>
PagedList* listOf(ObjectBase* node) {
  return &(as<Node>(node)->*Field);
}

template <typename Node, typename Target, Target* Node::*Field>
ObjectBase* nodeOf(ObjectBase* node) {
  return as<Node>(node)->*Field;
}

constexpr auto sourceEcuOf = nodeOf<FrameTriggering, ElementGroup, &FrameTriggering::sourceEcu>;

const LinkRow kLinks[] = {
    {Coding::kNodeType, "yellow", listOf<Coding, &Coding::internalToPhysicalCompus>, nullptr},
    {Coding::kNodeType, "orange", listOf<Coding, &Coding::physicalToInternalCompus>, nullptr},
    {IdentifierBasedTriggering::kNodeType, "black", nullptr, sourceEcuOf},
    {MaskedIdentifierTriggering::kNodeType, "black", nullptr, sourceEcuOf},
    {AbsolutelyScheduledTriggering::kNodeType, "black", nullptr, sourceEcuOf},
    {Signal::kNodeType, "black", listOf<Signal, &Signal::signalInstances>, nullptr},
    {Channel::kNodeType, "black", listOf<Channel, &Channel::frameTriggerings>, nullptr},
    {Channel::kNodeType, "black", listOf<Channel, &Channel::PDUTriggerings>, nullptr},
    {Channel::kNodeType, "brown", listOf<Channel, &Channel::PDUInstances>, nullptr},
    {Frame::kNodeType, "brown", listOf<Frame, &Frame::PDUInstances>, nullptr},
    {Frame::kNodeType, "orange", listOf<Frame, &Frame::frameTriggerings>, nullptr},
    {SignalPDU::kNodeType, "orange", listOf<PDU, &PDU::triggerings>, nullptr},
    {SignalPDU::kNodeType, "red", listOf<PDU, &PDU::parents>, nullptr},
    {SignalPDU::kNodeType, "black", listOf<SignalPDU, &SignalPDU::signalInstances>, nullptr},
    {MultiplexedPDU::kNodeType, "orange", listOf<PDU, &PDU::triggerings>, nullptr},
    {MultiplexedPDU::kNodeType, "red", listOf<PDU, &PDU::parents>, nullptr},
    {MultiplexedPDU::kNodeType, "black", listOf<MultiplexedPDU, &MultiplexedPDU::dynamicParts>,
     nullptr},
    {MultiplexedPDU::kNodeType, "black", nullptr,
     nodeOf<MultiplexedPDU, MultiplexedPart, &MultiplexedPDU::staticPart>},
    {MultiplexedPDU::kNodeType, "black", nullptr,
     nodeOf<MultiplexedPDU, MultiplexedPart, &MultiplexedPDU::elsePart>},
};
constexpr const LinkRow* kLinksEnd = kLinks + sizeof kLinks / sizeof kLinks[0];

const LinkRow kChildrenLink{0, "cyan", listOf<ElementGroup, &ElementGroup::children>, nullptr};
const LinkRow kReferenceLink{0, "blue", nullptr,
                             nodeOf<ElementReference, ObjectBase, &ElementReference::reference>};

// Position in one member list, ring of blocks included.
struct ListPosition {
  PagedList* list = nullptr;
  Block* block = nullptr;
  uint64_t index = 0;

  void start(PagedList* l) { list = l, block = l->head, index = 0; }
  // The next item, null ones included; false at the end.
  bool next(ObjectBase** item) {
    while (block) {
      if (index < block->count) {
        *item = static_cast<ObjectBase*>(block->pointers()[index++]);
        return true;
      }
      block = block->next == list->head ? nullptr : block->next;
      index = 0;
    }
    return false;
  }
};

// One node being printed: its links are visited in stages, with the node's
// own line between the shared links and those of its class.
struct Frame {
  enum Stage { Children, Reference, OwnLine, ClassLinks, Done };
  ObjectBase* node;
  ObjectBase* parent;  // null for the root
  const char* colour;  // of the edge from parent
  Stage stage;
  const LinkRow* row;  // current row while in ClassLinks
  bool rowStarted;
  ListPosition position;
};

class DotWriter {
 public:
  DotWriter(std::FILE* out, uint16_t language, uint16_t fallback)
      : out_(out), language_(language), fallback_(fallback) {}

  void writeGraph(ObjectBase* root) {
    std::fputs("digraph sample { node[shape=record];\n", out_);
    if (root) {
      // The root goes into the set too: a link back to it draws an edge
      // instead of a second copy.
      visited_.insert(root);
      begin(root, nullptr, nullptr);
      run();
    }
    std::fputs("}\n", out_);
  }

 private:
  void edge(const void* from, const void* to, const char* colour) {
    std::fprintf(out_, "_%p -> _%p [color=%s];\n", from, to, colour ? colour : "black");
  }

  // Starts a node: the edges to its group and its parent, drawn without a
  // visit, then its frame on the stack.
  void begin(ObjectBase* node, ObjectBase* parent, const char* colour) {
    if (isA<ElementId>(node) && as<ElementId>(node)->group)
      edge(node, as<ElementId>(node)->group, "gray");
    if (isA<ElementChild>(node) && as<ElementChild>(node)->parent)
      edge(node, as<ElementChild>(node)->parent, "green");
    stack_.push_back(Frame{node, parent, colour, Frame::Children, nullptr, false, {}});
  }

  void ownLine(ObjectBase* node) {
    const dot::NodeLabel label = dot::labelOf(node, language_, fallback_);
    std::fprintf(out_, "_%p [label=\"%s\"", static_cast<void*>(node), label.text.c_str());
    if (label.fill) std::fprintf(out_, ", style=filled, color=%s", label.fill);
    std::fputs("];\n", out_);
  }

  // Next linked node of a row, starting the row on first use.
  static bool nextOfRow(Frame& f, const LinkRow& row, ObjectBase** item) {
    if (!f.rowStarted) {
      f.rowStarted = true;
      if (row.single) {
        *item = row.single(f.node);
        return *item != nullptr;
      }
      f.position.start(row.list(f.node));
    } else if (row.single) {
      return false;
    }
    for (ObjectBase* next = nullptr; f.position.next(&next);)
      if (next) return *item = next, true;
    return false;
  }

  // The next link of the frame's node, printing its own line on the way.
  bool nextLink(Frame& f, ObjectBase** child, const char** colour) {
    for (;;) {
      switch (f.stage) {
        case Frame::Children:
          if (isA<ElementGroup>(f.node) && nextOfRow(f, kChildrenLink, child))
            return *colour = kChildrenLink.colour, true;
          f.stage = Frame::Reference, f.rowStarted = false;
          break;
        case Frame::Reference:
          f.stage = Frame::OwnLine;
          if (isA<ElementReference>(f.node) && nextOfRow(f, kReferenceLink, child))
            return *colour = kReferenceLink.colour, true;
          break;
        case Frame::OwnLine:
          ownLine(f.node);
          f.stage = Frame::ClassLinks, f.row = kLinks, f.rowStarted = false;
          break;
        case Frame::ClassLinks:
          for (; f.row != kLinksEnd; ++f.row, f.rowStarted = false) {
            if (f.row->nodeType != readTag(f.node)) continue;
            if (nextOfRow(f, *f.row, child)) return *colour = f.row->colour, true;
          }
          f.stage = Frame::Done;
          break;
        case Frame::Done:
          return false;
      }
    }
  }

  void run() {
    while (!stack_.empty()) {
      ObjectBase* child = nullptr;
      const char* colour = nullptr;
      Frame& top = stack_.back();
      if (nextLink(top, &child, &colour)) {
        ObjectBase* parent = top.node;  // top dies with the push below
        if (visited_.insert(child).second)
          begin(child, parent, colour);
        else
          edge(parent, child, colour);
        continue;
      }
      const Frame done = top;
      stack_.pop_back();
      if (done.parent) edge(done.parent, done.node, done.colour);
    }
  }

  std::FILE* out_;
  uint16_t language_;
  uint16_t fallback_;
  std::unordered_set<const void*> visited_;
  std::vector<Frame> stack_;
};

}  // namespace
}  // namespace q9

using namespace q9;

extern "C" {

Q9DB_API HRESULT Q9Db_dumpDot(Q9DbNode* db, const char16_t* fileName, uint16_t language,
                              uint16_t fallback) {
  if (!asDatabase(db) || !fileName) return E_INVALIDARG;
  std::FILE* out = nullptr;
  if (platform::guarded([&] { out = std::fopen(platform::utf16ToUtf8(fileName).c_str(), "w"); }) != S_OK ||
      !out)
    return E_UNEXPECTED;
  Q9DbNode* collections = nullptr;
  Q9Db_getDatabaseCollections(db, &collections);
  // Out of memory midway leaves a graph that can't be written whole; the
  // documented answer for it, as for a file that can't be opened, is
  // E_UNEXPECTED rather than E_OUTOFMEMORY.
  const HRESULT written = platform::guarded([&] {
    DotWriter(out, language, fallback).writeGraph(static_cast<ObjectBase*>(static_cast<void*>(collections)));
  });
  // Write errors (a full disk, a failing fclose) are not looked at: the
  // answers are S_OK, E_INVALIDARG and E_UNEXPECTED for a file that can't be
  // opened, and the graph is a side output for people. A caller that needs
  // the whole file checks it: q9db's dot looks for the closing brace.
  std::fclose(out);
  return written == S_OK ? S_OK : E_UNEXPECTED;
}

}  // extern "C"
