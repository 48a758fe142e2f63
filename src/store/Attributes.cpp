// Field accessors of nodes. The single-field ones are generated from
// AttributeTable.def; the few that read different places by class, or that do
// more than one field's work, are written out below.
#include <type_traits>

#include "store/Accelerators.h"
#include "store/BlockDirectory.h"
#include "store/Database.h"
#include "store/StringStore.h"

namespace q9 {
namespace {

template <typename Out, typename Field>
Out toOut(Field value) {
  if constexpr (std::is_pointer_v<Field> && std::is_same_v<Out, Q9DbNode*>)
    return reinterpret_cast<Q9DbNode*>(value);
  else
    return value;
}

template <typename Accepted, auto Member, typename Out>
HRESULT readField(const void* node, Out* out) {
  if (!out || !isA<Accepted>(node)) return E_INVALIDARG;
  *out = toOut<Out>(as<Accepted>(node)->*Member);
  return S_OK;
}

template <typename Accepted, auto Member, typename Value>
HRESULT writeField(void* node, Value value) {
  if (!isA<Accepted>(node)) return E_INVALIDARG;
  noteNodeChange(node);
  as<Accepted>(node)->*Member = value;
  return S_OK;
}

// A node-valued field whose value must be of ValueClass.
template <typename Accepted, auto Member, typename ValueClass, bool nullAllowed>
HRESULT writeLink(void* node, void* value, HRESULT wrongValue) {
  if (!isA<Accepted>(node)) return E_INVALIDARG;
  // A database's reference is its collections node, fixed at creation:
  // rewriting it would cut the database off from its own index.
  if (std::is_same_v<Accepted, ElementReference> && isExact<Q9Db>(node)) return E_INVALIDARG;
  if (!value && !nullAllowed) return E_INVALIDARG;
  if (value && !isA<ValueClass>(value)) return wrongValue;
  noteNodeChange(node);
  auto& field = as<Accepted>(node)->*Member;
  using FieldType = std::remove_reference_t<decltype(field)>;
  field = value ? static_cast<FieldType>(static_cast<ObjectBase*>(value)) : nullptr;
  return S_OK;
}

StringStore* storeOfNode(const DatabaseRef* node) {
  return node->databaseRef ? node->databaseRef->stringStore : nullptr;
}

template <typename Accepted, auto Member>
HRESULT readSlot(void* node, uint16_t language, uint16_t fallback, const char16_t** out) {
  if (!out || !isA<Accepted>(node)) return E_INVALIDARG;
  Accepted* n = as<Accepted>(node);
  StringStore* store = storeOfNode(n);
  if (!store) return E_UNEXPECTED;
  return lookupText(store, n->*Member, language, fallback, out);
}

enum NullText { Clear, Refuse };

template <typename Accepted, auto Member, NullText nullText>
HRESULT writeSlot(void* node, uint16_t language, const char16_t* text) {
  if (!isA<Accepted>(node)) return E_INVALIDARG;
  noteNodeChange(node);
  Accepted* n = as<Accepted>(node);
  if (!text) {
    if (nullText == Refuse) return E_INVALIDARG;
    n->*Member = nullptr;  // the slot stays in the store
    return S_OK;
  }
  StringStore* store = storeOfNode(n);
  if (!store) return E_UNEXPECTED;
  return setSlotText(store, &(n->*Member), language, text);
}

}  // namespace
}  // namespace q9

using namespace q9;

extern "C" {

#define Q9_GETTER(name, Accepted, Holder, field, Out) \
  Q9DB_API HRESULT name(Q9DbNode* node, Out* out) {  \
    return readField<Accepted, &Holder::field>(node, out); \
  }
#define Q9_SETTER(name, Accepted, Holder, field, Value) \
  Q9DB_API HRESULT name(Q9DbNode* node, Value value) { \
    return writeField<Accepted, &Holder::field>(node, value); \
  }
#define Q9_LINK_SETTER(name, Accepted, field, ValueClass, nullAllowed, wrongValue) \
  Q9DB_API HRESULT name(Q9DbNode* node, Q9DbNode* value) {                      \
    return writeLink<Accepted, &Accepted::field, ValueClass, nullAllowed>(node, value, wrongValue); \
  }
#define Q9_SLOT_GETTER(name, Accepted, field)                                               \
  Q9DB_API HRESULT name(Q9DbNode* node, uint16_t language, uint16_t fallback,               \
                        const char16_t** out) {                                             \
    return readSlot<Accepted, &Accepted::field>(node, language, fallback, out);             \
  }
#define Q9_SLOT_SETTER(name, Accepted, field, nullText)                              \
  Q9DB_API HRESULT name(Q9DbNode* node, uint16_t language, const char16_t* text) {   \
    return writeSlot<Accepted, &Accepted::field, nullText>(node, language, text);    \
  }
#include "store/AttributeTable.def"
#undef Q9_GETTER
#undef Q9_SETTER
#undef Q9_LINK_SETTER
#undef Q9_SLOT_GETTER
#undef Q9_SLOT_SETTER

Q9DB_API HRESULT Q9Db_setElementId(Q9DbNode* node, const char16_t* id) {
  if (!isA<ElementId>(node)) return E_INVALIDARG;
  noteNodeChange(node);
  auto* n = as<ElementId>(node);
  // The node may stand in sorted lists, which its new id can put out of order.
  if (n->databaseRef) forgetDirectories(n->databaseRef->directories);
  if (!id) {
    n->eid = nullptr;
    return S_OK;
  }
  StringStore* store = storeOfNode(n);
  if (!store) return E_UNEXPECTED;
  n->eid = internText(store, id);
  return n->eid ? S_OK : E_OUTOFMEMORY;
}

Q9DB_API HRESULT Q9Db_setShortName(Q9DbNode* node, const char16_t* name) {
  if (!isA<ElementDetail>(node)) return E_INVALIDARG;
  noteNodeChange(node);
  auto* n = as<ElementDetail>(node);
  if (!name) {
    n->shortname = nullptr;
    return S_OK;
  }
  StringStore* store = storeOfNode(n);
  if (!store) return E_UNEXPECTED;
  n->shortname = internText(store, name);
  return n->shortname ? S_OK : E_OUTOFMEMORY;
}

Q9DB_API HRESULT Q9Db_getShortName(Q9DbNode* node, const char16_t** out) {
  if (!out || !isA<ElementDetail>(node)) return E_INVALIDARG;
  auto* n = as<ElementDetail>(node);
  *out = n->shortname ? n->shortname : n->eid;
  return *out ? S_OK : S_FALSE;
}

Q9DB_API HRESULT Q9Db_setElementDetail(Q9DbNode* node, uint16_t language,
                                       const char16_t* longName, const char16_t* description) {
  if (!isA<ElementDetail>(node)) return E_INVALIDARG;
  noteNodeChange(node);
  auto* n = as<ElementDetail>(node);
  StringStore* store = storeOfNode(n);
  if (!store || !longName) return E_UNEXPECTED;
  HRESULT hr = setSlotText(store, &n->longname, language, longName);
  if (FAILED(hr) || !description) return hr;
  return setSlotText(store, &n->description, language, description);
}

Q9DB_API HRESULT Q9Db_getElementDetail(Q9DbNode* node, uint16_t language, uint16_t fallback,
                                       const char16_t** outLongName,
                                       const char16_t** outDescription) {
  if (!isA<ElementDetail>(node)) return E_INVALIDARG;
  auto* n = as<ElementDetail>(node);
  StringStore* store = storeOfNode(n);
  if (!store) return E_UNEXPECTED;
  HRESULT hr = E_UNEXPECTED;
  if (outLongName) hr = lookupText(store, n->longname, language, fallback, outLongName);
  if (outDescription) hr = lookupText(store, n->description, language, fallback, outDescription);
  return hr;
}

Q9DB_API HRESULT Q9Db_getTextValue(Q9DbNode* db, Q9DbNode* computation, uint16_t language,
                                   uint16_t fallback, const char16_t** out) {
  if (!out || !isExact<MappedTextComputation>(computation)) return E_INVALIDARG;
  StringStore* store = storeOf(db);
  if (!store) return E_INVALIDARG;
  return lookupText(store, as<MappedTextComputation>(computation)->textvalue, language, fallback,
                    out);
}

// Fields that several classes hold at different places: one switch each.

Q9DB_API HRESULT Q9Db_getByteOrder(Q9DbNode* node, int32_t* out) {
  if (!out) return E_INVALIDARG;
  if (isExact<SignalInstance>(node)) return *out = as<SignalInstance>(node)->byteOrder, S_OK;
  if (isExact<PDUInstance>(node)) return *out = as<PDUInstance>(node)->byteOrder, S_OK;
  if (isExact<Segment>(node)) return *out = as<Segment>(node)->byteOrder, S_OK;
  return E_INVALIDARG;
}

Q9DB_API HRESULT Q9Db_getBitPosition(Q9DbNode* node, int32_t* out) {
  if (!out) return E_INVALIDARG;
  if (isExact<SignalInstance>(node)) return *out = as<SignalInstance>(node)->bitpos, S_OK;
  if (isExact<PDUInstance>(node)) return *out = as<PDUInstance>(node)->bitpos, S_OK;
  if (isExact<Segment>(node)) return *out = as<Segment>(node)->bitpos, S_OK;
  return E_INVALIDARG;
}

Q9DB_API HRESULT Q9Db_getUpdateBitPosition(Q9DbNode* node, int32_t* out) {
  if (!out) return E_INVALIDARG;
  if (isExact<SignalInstance>(node)) return *out = as<SignalInstance>(node)->updateBitpos, S_OK;
  if (isExact<PDUInstance>(node)) return *out = as<PDUInstance>(node)->updateBitpos, S_OK;
  return E_INVALIDARG;
}

Q9DB_API HRESULT Q9Db_getBitLength(Q9DbNode* node, int32_t* out) {
  if (!out) return E_INVALIDARG;
  if (isExact<Coding>(node)) return *out = as<Coding>(node)->bitlen, S_OK;
  if (isA<PDU>(node)) return *out = as<PDU>(node)->bitlen, S_OK;
  if (isExact<Segment>(node)) return *out = as<Segment>(node)->bitlen, S_OK;
  return E_INVALIDARG;
}

Q9DB_API HRESULT Q9Db_getFlags(Q9DbNode* node, uint32_t* out) {
  if (!out) return E_INVALIDARG;
  if (isA<FrameTriggering>(node)) return *out = as<FrameTriggering>(node)->flags, S_OK;
  if (isExact<Signal>(node)) return *out = as<Signal>(node)->flags, S_OK;
  if (isExact<ValueRange>(node)) return *out = as<ValueRange>(node)->flags, S_OK;
  return E_INVALIDARG;
}

Q9DB_API HRESULT Q9Db_getUnit(Q9DbNode* node, Q9DbNode** out) {
  if (!out) return E_INVALIDARG;
  ObjectBase* unit;
  if (isExact<Coding>(node)) {
    unit = as<Coding>(node)->reference;
  } else if (isExact<UnitSpec>(node)) {
    unit = as<UnitSpec>(node);
  } else if (isA<ElementReference>(node)) {
    ObjectBase* target = as<ElementReference>(node)->reference;
    // The target's own reference: a signal's coding gives its unit.
    unit = isA<ElementReference>(target) ? as<ElementReference>(target)->reference : nullptr;
  } else {
    return E_INVALIDARG;
  }
  *out = reinterpret_cast<Q9DbNode*>(unit);
  return S_OK;
}

}  // extern "C"
