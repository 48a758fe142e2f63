// A name falls back from the short name to the element id to "?", so a user
// always sees something. Signals are collected through every part of a
// multiplexed PDU (static, dynamic and else), and a value text's value is
// the lower limit of its range.
#include "Nodes.h"

#include "Text.h"

namespace q9tool {

// Texts are looked up in language 0, the first the importers give; without
// it, the slot's first language is taken.
constexpr uint16_t kLanguage = 0;
constexpr uint16_t kNoFallback = 65535;

std::string displayName(Q9DbNode* node) {
  const char16_t* name = nullptr;
  if (Q9Db_getShortName(node, &name) == S_OK && name && *name) return utf8(name);
  name = nullptr;
  if (Q9Db_getElementId(node, &name) == S_OK && name && *name) return utf8(name);
  return "?";
}

std::string unitName(Q9DbNode* unitSpec) {
  const char16_t* name = nullptr;
  if (!unitSpec || Q9Db_getDisplayName(unitSpec, kLanguage, kNoFallback, &name) != S_OK) return {};
  return utf8(name);
}

std::string slotText(Q9DbNode* db, Q9DbStringSlot* slot) {
  const char16_t* text = nullptr;
  if (!slot || Q9Db_stringLookup(db, slot, kLanguage, kNoFallback, &text) != S_OK) return {};
  return utf8(text);
}

namespace {

// As deep as the decoder follows parts into parts; parts that lead back
// into each other must not recurse without end.
constexpr int kDeepestNesting = 63;

void collectSignals(Q9DbNode* pdu, std::vector<Q9DbNode*>& signals, int depth = 0) {
  if (depth > kDeepestNesting) return;
  if (Q9Db_getNodeType(pdu) != Q9_NODETYPE_MultiplexedPDU) {
    forEachNode(Q9Db_enumSignalInstances, pdu, [&](Q9DbNode* instance) {
      Q9DbNode* signal = nullptr;
      if (Q9Db_getReference(instance, &signal) == S_OK && signal) signals.push_back(signal);
    });
    return;
  }
  auto partSignals = [&](Q9DbNode* part) {
    Q9DbNode* carried = nullptr;
    if (part && Q9Db_getReference(part, &carried) == S_OK && carried) collectSignals(carried, signals, depth + 1);
  };
  Q9DbNode* part = nullptr;
  if (Q9Db_getStaticPart(pdu, &part) == S_OK) partSignals(part);
  forEachNode(Q9Db_enumDynamicParts, pdu, partSignals);
  part = nullptr;
  if (Q9Db_getElsePart(pdu, &part) == S_OK) partSignals(part);
}

}  // namespace

std::vector<Q9DbNode*> frameSignals(Q9DbNode* frame) {
  std::vector<Q9DbNode*> signals;
  forEachNode(Q9Db_enumPDUInstances, frame, [&](Q9DbNode* instance) {
    Q9DbNode* pdu = nullptr;
    if (Q9Db_getReference(instance, &pdu) == S_OK && pdu) collectSignals(pdu, signals);
  });
  return signals;
}

std::vector<ValueText> valueTexts(Q9DbNode* db, Q9DbNode* signal) {
  std::vector<ValueText> texts;
  Q9DbNode* coding = nullptr;
  if (Q9Db_getReference(signal, &coding) != S_OK || !coding) return texts;
  forEachNode(Q9Db_enumInternalToPhysicalComputations, coding, [&](Q9DbNode* computation) {
    if (Q9Db_getNodeType(computation) != Q9_NODETYPE_MappedTextComputation) return;
    const char16_t* text = nullptr;
    Q9Db_getTextValue(db, computation, kLanguage, kNoFallback, &text);
    double value = 0;
    forEachNode(Q9Db_enumRanges, computation, [&](Q9DbNode* range) { Q9Db_getLowerLimit(range, &value); });
    texts.push_back({value, utf8(text)});
  });
  return texts;
}

}  // namespace q9tool
