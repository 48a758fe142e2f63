// The only way to make a node. Every factory is the same skeleton (tests,
// allocation, values, out, registration, links); what differs is the values
// it copies and the links it makes, given to the skeleton as two functions.
#include "store/Accelerators.h"
#include "store/Database.h"
#include "store/Gathering.h"
#include "store/MemberLists.h"
#include "store/StringStore.h"

namespace q9 {
namespace {

Q9DbNode* handleOf(ObjectBase* node) { return reinterpret_cast<Q9DbNode*>(node); }
ObjectBase* nodeOf(Q9DbNode* handle) { return reinterpret_cast<ObjectBase*>(handle); }

constexpr auto noLinks = [](Q9Db*, auto&) { return S_OK; };
constexpr auto noValues = [](auto&) {};

enum class Registration { ById, None };

template <typename Node, Registration registration = Registration::ById, typename Fill,
          typename Link>
HRESULT makeNode(Q9DbNode* handle, const char16_t* id, Q9DbNode** out, Fill fill, Link link) {
  if (!out) return E_POINTER;
  Q9Db* db = asDatabase(handle);
  if (!db) return E_INVALIDARG;
  noteChange(db, roomForNode(Node::kNodeType));
  Node* node = allocNodeOf<Node>(db);
  if (!node) return E_OUTOFMEMORY;
  fill(*node);
  // From here on the node is the caller's, whatever the links answer.
  *out = handleOf(node);
  if constexpr (registration == Registration::ById) {
    const HRESULT hr = registerElementId(db, id, node);
    if (FAILED(hr)) return hr;
  }
  return link(db, *node);
}

// Sorted entry into one of the seven collection groups; needs an id.
HRESULT joinCollection(Q9Db* db, ElementGroup* DatabaseCollections::*field, ElementId& node) {
  if (!node.eid) return E_INVALIDARG;
  auto* collections = static_cast<DatabaseCollections*>(db->reference);
  if (!collections) return S_FALSE;
  if (db->gathering) return gatherMember(*db->gathering, collections->*field, &node);
  return insertChildSorted(collections->*field, &node, &childLayout);
}

// Arrival-order entry into a group given as an argument.
HRESULT joinGroup(ObjectBase* group, ObjectBase& node) {
  if (!group) return S_OK;
  if (!isA<ElementGroup>(group)) return E_INVALIDARG;
  return appendMember(place<ElementGroup, &ElementGroup::children, BackReference::Group>(), group,
                      &node);
}

template <typename Node>
Node* exactly(Q9DbNode* candidate) {
  return isExact<Node>(candidate) ? as<Node>(candidate) : nullptr;
}

// The channel and frame links of the three frame triggerings; arguments of
// another class are ignored.
HRESULT linkFrameTriggering(FrameTriggering& t, Q9DbNode* frame, Q9DbNode* channel) {
  if (Channel* c = exactly<Channel>(channel)) {
    const HRESULT hr = appendMember(place<Channel, &Channel::frameTriggerings, BackReference::Parent>(), c, &t);
    if (hr != S_OK) return hr;
  }
  if (Frame* f = exactly<Frame>(frame)) {
    return appendMember(place<Frame, &Frame::frameTriggerings, BackReference::Reference>(), f, &t);
  }
  return S_OK;
}

// The three frame triggerings differ only in their own values.
template <typename Node, typename FillOwn>
HRESULT makeFrameTriggering(Q9DbNode* db, const char16_t* id, uint32_t flags, Q9DbNode* frame,
                            Q9DbNode* sourceEcu, Q9DbNode* channel, Q9DbNode** out,
                            FillOwn fillOwn) {
  return makeNode<Node>(
      db, id, out,
      [&](Node& n) {
        fillOwn(n);
        n.flags = flags;
        n.sourceEcu = exactly<ElementGroup>(sourceEcu);
      },
      [&](Q9Db*, FrameTriggering& n) { return linkFrameTriggering(n, frame, channel); });
}

// A new PDU and the node that carries it (a PDU instance or multiplexed part).
HRESULT linkPduParent(PDU& pdu, Q9DbNode* parentHandle) {
  ObjectBase* parent = nodeOf(parentHandle);
  if (!parent) return S_OK;
  if (inClasses(parent, PDUInstance::kFirst, MultiplexedPart::kLast)) {
    const HRESULT hr = appendMember(place<PDU, &PDU::parents>(), &pdu, parent);
    if (hr != S_OK) return hr;
  }
  // A database's reference is its collections node and stays so.
  if (!isA<ElementReference>(parent) || isExact<Q9Db>(parent)) return E_INVALIDARG;
  static_cast<ElementReference*>(parent)->reference = &pdu;
  return S_OK;
}

// One end of a PDU triggering: a channel or a PDU.
HRESULT linkPduTriggeringEnd(PDUTriggering& t, ObjectBase* end) {
  if (!end) return S_OK;
  if (isExact<Channel>(end))
    return appendMember(place<Channel, &Channel::PDUTriggerings, BackReference::Parent>(), end, &t);
  if (isA<PDU>(end))
    return appendMember(place<PDU, &PDU::triggerings, BackReference::Reference>(), end, &t);
  return E_INVALIDARG;
}

// Both PDU classes join @PDUs, then their carrier.
HRESULT linkPdu(Q9Db* db, PDU& pdu, Q9DbNode* parent) {
  const HRESULT hr = joinCollection(db, &DatabaseCollections::PDUs, pdu);
  return FAILED(hr) ? hr : linkPduParent(pdu, parent);
}

// A reference argument is tested before anything is made.
template <typename Node, typename Link>
HRESULT makeReferringNode(Q9DbNode* handle, const char16_t* id, Q9DbNode* reference,
                          Q9DbNode** out, Link link) {
  if (!out) return E_POINTER;
  if (!asDatabase(handle)) return E_INVALIDARG;
  if (reference && !isA<ElementId>(reference)) return E_INVALIDARG;
  return makeNode<Node>(
      handle, id, out, [&](Node& n) { n.reference = nodeOf(reference); }, link);
}

}  // namespace
}  // namespace q9

using namespace q9;

extern "C" {

Q9DB_API HRESULT Q9Db_createCluster(Q9DbNode* db, const char16_t* id, int32_t clusterType,
                                    Q9DbNode** out) {
  return makeNode<Cluster>(
      db, id, out, [&](Cluster& n) { n.clusterType = clusterType; },
      [](Q9Db* d, Cluster& n) { return joinCollection(d, &DatabaseCollections::clusters, n); });
}

Q9DB_API HRESULT Q9Db_createChannel(Q9DbNode* db, const char16_t* id, Q9DbNode* cluster,
                                    Q9DbNode** out) {
  return makeNode<Channel>(db, id, out, noValues,
                           [&](Q9Db*, Channel& n) { return joinGroup(nodeOf(cluster), n); });
}

Q9DB_API HRESULT Q9Db_createFrame(Q9DbNode* db, const char16_t* id, int32_t length,
                                  Q9DbNode** out) {
  return makeNode<Frame>(
      db, id, out, [&](Frame& n) { n.length = length; },
      [](Q9Db* d, Frame& n) { return joinCollection(d, &DatabaseCollections::frames, n); });
}

Q9DB_API HRESULT Q9Db_createAbsolutelyScheduledTriggering(
    Q9DbNode* db, const char16_t* id, int32_t slotId, int32_t baseCycle, int32_t repetition,
    uint32_t flags, Q9DbNode* frame, Q9DbNode* sourceEcu, Q9DbNode* channel, Q9DbNode** out) {
  return makeFrameTriggering<AbsolutelyScheduledTriggering>(
      db, id, flags, frame, sourceEcu, channel, out, [&](AbsolutelyScheduledTriggering& n) {
        n.slotId = slotId;
        n.baseCycle = baseCycle;
        n.repetition = repetition;
      });
}

Q9DB_API HRESULT Q9Db_createIdentifierBasedTriggering(Q9DbNode* db, const char16_t* id,
                                                      uint32_t identifier, uint32_t flags,
                                                      Q9DbNode* frame, Q9DbNode* sourceEcu,
                                                      Q9DbNode* channel, Q9DbNode** out) {
  return makeFrameTriggering<IdentifierBasedTriggering>(
      db, id, flags, frame, sourceEcu, channel, out,
      [&](IdentifierBasedTriggering& n) { n.identifier = identifier; });
}

Q9DB_API HRESULT Q9Db_createMaskedIdentifierTriggering(Q9DbNode* db, const char16_t* id,
                                                       uint32_t mask, uint32_t code,
                                                       uint32_t flags, Q9DbNode* frame,
                                                       Q9DbNode* sourceEcu, Q9DbNode* channel,
                                                       Q9DbNode** out) {
  return makeFrameTriggering<MaskedIdentifierTriggering>(
      db, id, flags, frame, sourceEcu, channel, out, [&](MaskedIdentifierTriggering& n) {
        n.mask = mask;
        n.code = code;
      });
}

Q9DB_API HRESULT Q9Db_createSignalPDU(Q9DbNode* db, const char16_t* id, int32_t bitlen,
                                     Q9DbNode* parent, Q9DbNode** out) {
  return makeNode<SignalPDU>(
      db, id, out, [&](SignalPDU& n) { n.bitlen = bitlen; },
      [&](Q9Db* d, PDU& n) { return linkPdu(d, n, parent); });
}

Q9DB_API HRESULT Q9Db_createMultiplexedPDU(Q9DbNode* db, const char16_t* id, int32_t bitlen,
                                          int32_t switchByteOrder, int32_t switchPosition,
                                          int32_t switchLength, uint32_t defaultSwitchCode,
                                          Q9DbNode* parent, Q9DbNode** out) {
  return makeNode<MultiplexedPDU>(
      db, id, out,
      [&](MultiplexedPDU& n) {
        n.bitlen = bitlen;
        n.switchByteOrder = switchByteOrder;
        n.switchPosition = switchPosition;
        n.switchLength = switchLength;
        n.defaultSwitchCode = defaultSwitchCode;
      },
      [&](Q9Db* d, PDU& n) { return linkPdu(d, n, parent); });
}

Q9DB_API HRESULT Q9Db_createMultiplexedPart(Q9DbNode* db, const char16_t* id, uint32_t switchCode,
                                           Q9DbNode* parent, Q9DbNode** out) {
  return makeNode<MultiplexedPart>(
      db, id, out, [&](MultiplexedPart& n) { n.switchCode = switchCode; },
      [&](Q9Db*, MultiplexedPart& n) {
        if (!parent) return S_OK;
        if (!isA<ElementId>(parent)) return E_INVALIDARG;
        n.parent = nodeOf(parent);
        return S_OK;
      });
}

Q9DB_API HRESULT Q9Db_createPDUInstance(Q9DbNode* db, const char16_t* id, int32_t byteOrder,
                                       int32_t bitpos, int32_t updateBitpos, Q9DbNode* pdu,
                                       Q9DbNode* owner, Q9DbNode** out) {
  return makeNode<PDUInstance>(
      db, id, out,
      [&](PDUInstance& n) {
        n.byteOrder = byteOrder;
        n.bitpos = bitpos;
        n.updateBitpos = updateBitpos;
      },
      [&](Q9Db*, PDUInstance& n) {
        HRESULT hr = S_OK;
        if (owner) {
          n.parent = nodeOf(owner);
          if (isExact<Frame>(owner))
            hr = appendMember(place<Frame, &Frame::PDUInstances>(), n.parent, &n);
          else if (isExact<Channel>(owner))
            hr = appendMember(place<Channel, &Channel::PDUInstances>(), n.parent, &n);
          else
            return E_INVALIDARG;
          if (hr != S_OK) return hr;
        }
        if (!pdu) return hr;
        if (isA<PDU>(pdu)) {
          hr = appendMember(place<PDU, &PDU::parents>(), nodeOf(pdu), &n);
          if (hr != S_OK) return hr;
        }
        if (!isA<ElementId>(pdu)) return E_INVALIDARG;
        n.reference = nodeOf(pdu);
        return S_OK;
      });
}

Q9DB_API HRESULT Q9Db_createPDUTriggering(Q9DbNode* db, const char16_t* id, Q9DbNode* first,
                                         Q9DbNode* second, Q9DbNode** out) {
  return makeNode<PDUTriggering>(
      db, id, out,
      [&](PDUTriggering& n) {
        n.reference = nodeOf(first);
        n.parent = nodeOf(second);
      },
      [&](Q9Db*, PDUTriggering& n) {
        const HRESULT hr = linkPduTriggeringEnd(n, nodeOf(first));
        return hr != S_OK ? hr : linkPduTriggeringEnd(n, nodeOf(second));
      });
}

Q9DB_API HRESULT Q9Db_createEventControlledTiming(Q9DbNode* db, int32_t debounceTime,
                                                 Q9DbNode* group, Q9DbNode** out) {
  return makeNode<EventControlledTiming, Registration::None>(
      db, nullptr, out, [&](EventControlledTiming& n) { n.debounceTime = debounceTime; },
      [&](Q9Db*, EventControlledTiming& n) { return joinGroup(nodeOf(group), n); });
}

Q9DB_API HRESULT Q9Db_createCyclicTiming(Q9DbNode* db, uint64_t cycleTime, Q9DbNode* group,
                                        Q9DbNode** out) {
  return makeNode<CyclicTiming, Registration::None>(
      db, nullptr, out, [&](CyclicTiming& n) { n.cycleTime = cycleTime; },
      [&](Q9Db*, CyclicTiming& n) { return joinGroup(nodeOf(group), n); });
}

Q9DB_API HRESULT Q9Db_createECU(Q9DbNode* db, const char16_t* id, Q9DbNode** out) {
  // Unlike the other factories, an ECU judges its handle before its out: a
  // missing handle is E_POINTER, a wrong tag E_INVALIDARG even when out is
  // missing too; only then does the skeleton test out.
  if (!db) return E_POINTER;
  if (!asDatabase(db)) return E_INVALIDARG;
  return makeNode<ElementGroup>(db, id, out, noValues, [](Q9Db* d, ElementGroup& n) {
    return joinCollection(d, &DatabaseCollections::ECUs, n);
  });
}

Q9DB_API HRESULT Q9Db_createSignal(Q9DbNode* db, const char16_t* id, uint32_t flags,
                                   double defaultValue, double minValue, double maxValue,
                                   Q9DbNode* coding, Q9DbNode** out) {
  return makeNode<Signal>(
      db, id, out,
      [&](Signal& n) {
        n.flags = flags;
        n.defaultValue = defaultValue;
        n.minValue = minValue;
        n.maxValue = maxValue;
        n.reference = exactly<Coding>(coding);
      },
      [](Q9Db* d, Signal& n) { return joinCollection(d, &DatabaseCollections::signals, n); });
}

Q9DB_API HRESULT Q9Db_createSignalInstance(Q9DbNode* db, const char16_t* id, int32_t byteOrder,
                                          int32_t bitpos, int32_t updateBitpos,
                                          Q9DbNode* signal, Q9DbNode* pdu, Q9DbNode** out) {
  // The signal is linked before registration, so a failed registration still
  // leaves the instance in its signal's list.
  HRESULT signalLink = S_OK;
  const HRESULT hr = makeNode<SignalInstance>(
      db, id, out,
      [&](SignalInstance& n) {
        if (Signal* s = exactly<Signal>(signal))
          signalLink = appendMember(place<Signal, &Signal::signalInstances, BackReference::Reference>(), s, &n);
        n.byteOrder = byteOrder;
        n.bitpos = bitpos;
        n.updateBitpos = updateBitpos;
      },
      [&](Q9Db*, SignalInstance& n) {
        if (FAILED(signalLink)) return signalLink;
        if (!pdu) return S_OK;
        if (isExact<SignalPDU>(pdu))
          return appendMember(place<SignalPDU, &SignalPDU::signalInstances, BackReference::Parent>(), nodeOf(pdu), &n);
        if (isExact<Signal>(pdu))
          return appendMember(place<Signal, &Signal::signalInstances, BackReference::Reference>(), nodeOf(pdu), &n);
        return E_INVALIDARG;
      });
  return hr;
}

Q9DB_API HRESULT Q9Db_createCoding(Q9DbNode* db, const char16_t* id, int32_t bitlen,
                                   uint32_t encoding, Q9DbNode* unit, Q9DbNode** out) {
  return makeNode<Coding>(
      db, id, out,
      [&](Coding& n) {
        n.bitlen = bitlen;
        n.encoding = encoding;
        n.reference = exactly<UnitSpec>(unit);
      },
      [](Q9Db* d, Coding& n) { return joinCollection(d, &DatabaseCollections::codings, n); });
}

Q9DB_API HRESULT Q9Db_createUnitSpec(Q9DbNode* db, const char16_t* id, uint16_t language,
                                     const char16_t* displayName, Q9DbNode** out) {
  return makeNode<UnitSpec>(db, id, out, noValues, [&](Q9Db* d, UnitSpec& n) {
    return setSlotText(d->stringStore, &n.displayName, language, displayName);
  });
}

Q9DB_API HRESULT Q9Db_createIdentityComputation(Q9DbNode* db, const char16_t* id,
                                                Q9DbNode** out) {
  return makeNode<IdentityComputation>(db, id, out, noValues, noLinks);
}

Q9DB_API HRESULT Q9Db_createLinearComputation(Q9DbNode* db, const char16_t* id, double scale,
                                              double offset, Q9DbNode** out) {
  return makeNode<LinearComputation>(
      db, id, out,
      [&](LinearComputation& n) {
        n.scale = scale;
        n.offset = offset;
      },
      noLinks);
}

Q9DB_API HRESULT Q9Db_createMappedValueComputation(Q9DbNode* db, const char16_t* id,
                                                   double value, Q9DbNode** out) {
  return makeNode<MappedValueComputation>(
      db, id, out, [&](MappedValueComputation& n) { n.value = value; }, noLinks);
}

Q9DB_API HRESULT Q9Db_createMappedTextComputation(Q9DbNode* db, const char16_t* id,
                                                  Q9DbStringSlot* textvalue, Q9DbNode** out) {
  return makeNode<MappedTextComputation>(
      db, id, out,
      [&](MappedTextComputation& n) { n.textvalue = reinterpret_cast<StringSlot*>(textvalue); },
      noLinks);
}

Q9DB_API HRESULT Q9Db_createElementGroup(Q9DbNode* db, const char16_t* id, Q9DbNode* parentGroup,
                                         Q9DbNode* reference, Q9DbNode** out) {
  return makeReferringNode<ElementGroup>(db, id, reference, out, [&](Q9Db*, ElementGroup& n) {
    return joinGroup(nodeOf(parentGroup), n);
  });
}

Q9DB_API HRESULT Q9Db_createElementReference(Q9DbNode* db, const char16_t* id,
                                             Q9DbNode* reference, Q9DbNode** out) {
  return makeReferringNode<ElementReference>(db, id, reference, out, noLinks);
}

}  // extern "C"
