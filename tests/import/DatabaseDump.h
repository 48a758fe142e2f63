// A canonical text of a whole database, for tests that must show two ways of
// building a network give the same one: every node with its class, id,
// names, texts in every language, fields, and each link or list member in
// list order. Nodes are visited from the name index (sorted by id, so the
// order of creation doesn't matter) and then along their links; a node is
// named by its id, or by the number of its visit when it has none.
#pragma once

#include <cstdio>
#include <cstring>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "Q9Db.h"
#include "platform/WideText.h"
#include "store/Database.h"
#include "store/NodeClasses.h"
#include "store/StringStore.h"

namespace q9::testing {

class DatabaseDump {
 public:
  explicit DatabaseDump(Q9DbNode* handle) : db_(asDatabase(handle)) {}

  std::string run() {
    if (!db_) return "(no database)\n";
    auto* collections = static_cast<DatabaseCollections*>(db_->reference);
    forEach(collections->identElements->children, [&](void* node) { visit(node); });
    for (std::size_t i = 0; i < queue_.size(); ++i) describe(queue_[i]);
    return out_;
  }

 private:
  template <typename F>
  static void forEach(const PagedList& list, F f) {
    Block* first = list.head;
    if (!first) return;
    Block* b = first;
    do {
      for (uint64_t i = 0; i < b->count; ++i) f(b->pointers()[i]);
      b = b->next;
    } while (b != first);
  }
  template <typename F>
  static void forEachRecord(const PagedList& list, uint64_t size, F f) {
    Block* first = list.head;
    if (!first) return;
    Block* b = first;
    do {
      for (uint64_t i = 0; i < b->count; ++i) f(b->items() + i * size);
      b = b->next;
    } while (b != first);
  }

  void visit(const void* node) {
    if (!node || names_.count(node)) return;
    std::string name;
    if (isA<ElementId>(node) && as<ElementId>(node)->eid)
      name = platform::utf16ToUtf8(as<ElementId>(node)->eid);
    // Nodes without an id, or whose id an earlier node holds, by their visit.
    if (name.empty() || !used_.insert(name).second) name += "#" + std::to_string(queue_.size());
    names_.emplace(node, name);
    queue_.push_back(node);
  }

  std::string ref(const void* node) {
    if (!node) return "-";
    visit(node);
    return names_[node];
  }

  static std::string text(const char16_t* t) {
    return t ? "\"" + platform::utf16ToUtf8(t) + "\"" : "-";
  }

  std::string slot(const StringSlot* s) {
    if (!s) return "-";
    std::vector<uint32_t> languages;
    forEachRecord(db_->stringStore->textLanguages, 4, [&](unsigned char* r) {
      uint32_t id;
      std::memcpy(&id, r, 4);
      languages.push_back(id);
    });
    std::string result;
    uint64_t index = 0;
    forEach(s->texts, [&](void* t) {
      if (t)
        result += "[" + (index < languages.size() ? std::to_string(languages[index]) : "?") + "]" +
                  text(static_cast<const char16_t*>(t));
      ++index;
    });
    return result;
  }

  static std::string number(double d) {
    char b[40];
    std::snprintf(b, sizeof b, "%.17g", d);
    return b;
  }

  void field(const char* key, const std::string& value) {
    out_ += ' ';
    out_ += key;
    out_ += '=';
    out_ += value;
  }
  void field(const char* key, long long value) { field(key, std::to_string(value)); }
  void fieldU(const char* key, unsigned long long value) { field(key, std::to_string(value)); }
  void list(const char* key, const PagedList& l) {
    std::string members;
    forEach(l, [&](void* n) { members += (members.empty() ? "" : ",") + ref(n); });
    field(key, "[" + members + "]");
  }

  void describe(const void* p) {
    const auto* node = static_cast<const ObjectBase*>(p);
    const char* cls = classNameA(node->nodeType);
    out_ += names_[p] + " " + (cls ? cls : "?");
    if (isA<ElementId>(p)) {
      const auto* e = as<ElementId>(p);
      field("group", ref(e->group));
      fieldU("param", e->param);
    }
    if (isA<ElementDetail>(p)) {
      const auto* d = as<ElementDetail>(p);
      field("short", text(d->shortname));
      field("long", slot(d->longname));
      field("desc", slot(d->description));
    }
    if (isA<ElementChild>(p)) field("parent", ref(as<ElementChild>(p)->parent));
    if (isA<ElementReference>(p) && !isExact<Q9Db>(p))
      field("ref", ref(as<ElementReference>(p)->reference));
    if (isA<ElementGroup>(p)) list("children", as<ElementGroup>(p)->children);
    if (isExact<Cluster>(p)) field("type", as<Cluster>(p)->clusterType);
    if (isA<FrameTriggering>(p)) {
      const auto* t = as<FrameTriggering>(p);
      field("source", ref(t->sourceEcu));
      fieldU("flags", t->flags);
    }
    if (isExact<IdentifierBasedTriggering>(p))
      fieldU("identifier", as<IdentifierBasedTriggering>(p)->identifier);
    if (isExact<MaskedIdentifierTriggering>(p)) {
      fieldU("code", as<MaskedIdentifierTriggering>(p)->code);
      fieldU("mask", as<MaskedIdentifierTriggering>(p)->mask);
    }
    if (isExact<AbsolutelyScheduledTriggering>(p)) {
      const auto* a = as<AbsolutelyScheduledTriggering>(p);
      field("slot", a->slotId);
      field("base", a->baseCycle);
      field("repetition", a->repetition);
    }
    if (isExact<SignalInstance>(p) || isExact<PDUInstance>(p)) {
      // The two records share their layout after ElementReference.
      const auto* i = isExact<SignalInstance>(p)
                          ? reinterpret_cast<const int32_t*>(&as<SignalInstance>(p)->byteOrder)
                          : reinterpret_cast<const int32_t*>(&as<PDUInstance>(p)->byteOrder);
      field("order", i[0]);
      field("bit", i[1]);
      field("update", i[2]);
    }
    if (isExact<Signal>(p)) {
      const auto* s = as<Signal>(p);
      list("instances", s->signalInstances);
      fieldU("flags", s->flags);
      field("default", number(s->defaultValue));
      field("min", number(s->minValue));
      field("max", number(s->maxValue));
    }
    if (isExact<Coding>(p)) {
      const auto* c = as<Coding>(p);
      field("bits", c->bitlen);
      fieldU("encoding", c->encoding);
      list("toPhysical", c->internalToPhysicalCompus);
      list("toInternal", c->physicalToInternalCompus);
    }
    if (isExact<MultiplexedPart>(p)) {
      const auto* m = as<MultiplexedPart>(p);
      fieldU("code", m->switchCode);
      std::string segments;
      forEachRecord(m->segments, sizeof(Segment), [&](unsigned char* r) {
        const auto* s = reinterpret_cast<const Segment*>(r);
        segments += "(" + std::to_string(s->byteOrder) + "," + std::to_string(s->bitpos) + "," +
                    std::to_string(s->bitlen) + ")";
      });
      field("segments", segments);
    }
    if (isExact<Channel>(p)) {
      const auto* c = as<Channel>(p);
      list("frameTriggerings", c->frameTriggerings);
      list("pduTriggerings", c->PDUTriggerings);
      list("pduInstances", c->PDUInstances);
    }
    if (isExact<Frame>(p)) {
      const auto* f = as<Frame>(p);
      field("length", f->length);
      list("triggerings", f->frameTriggerings);
      list("pduInstances", f->PDUInstances);
    }
    if (isExact<UnitSpec>(p)) field("display", slot(as<UnitSpec>(p)->displayName));
    if (isA<Computation>(p)) {
      std::string ranges;
      forEachRecord(as<Computation>(p)->ranges, sizeof(ValueRange), [&](unsigned char* r) {
        const auto* v = reinterpret_cast<const ValueRange*>(r);
        ranges += "(" + number(v->lowerLimit) + "," + number(v->upperLimit) + "," +
                  std::to_string(v->flags) + ")";
      });
      field("ranges", ranges);
    }
    if (isExact<LinearComputation>(p)) {
      field("scale", number(as<LinearComputation>(p)->scale));
      field("offset", number(as<LinearComputation>(p)->offset));
    }
    if (isExact<MappedTextComputation>(p)) field("text", slot(as<MappedTextComputation>(p)->textvalue));
    if (isExact<MappedValueComputation>(p)) field("value", number(as<MappedValueComputation>(p)->value));
    if (isA<PDU>(p)) {
      const auto* d = as<PDU>(p);
      field("bits", d->bitlen);
      fieldU("unused", d->unusedBytePattern);
      list("triggerings", d->triggerings);
      list("parents", d->parents);
    }
    if (isExact<SignalPDU>(p)) list("instances", as<SignalPDU>(p)->signalInstances);
    if (isExact<MultiplexedPDU>(p)) {
      const auto* m = as<MultiplexedPDU>(p);
      field("switch", std::to_string(m->switchByteOrder) + "," + std::to_string(m->switchPosition) +
                          "," + std::to_string(m->switchLength));
      fieldU("defaultCode", m->defaultSwitchCode);
      list("dynamic", m->dynamicParts);
      field("static", ref(m->staticPart));
      field("else", ref(m->elsePart));
    }
    if (isExact<EventControlledTiming>(p)) field("debounce", as<EventControlledTiming>(p)->debounceTime);
    if (isExact<CyclicTiming>(p)) fieldU("cycle", as<CyclicTiming>(p)->cycleTime);
    out_ += '\n';
  }

  Q9Db* db_;
  std::unordered_map<const void*, std::string> names_;
  std::unordered_set<std::string> used_;
  std::vector<const void*> queue_;
  std::string out_;
};

inline std::string dumpDatabase(Q9DbNode* db) { return DatabaseDump(db).run(); }

}  // namespace q9::testing
