// The stateless signal encoder: pick an encoding computation for a physical
// value, and write a raw value at a signal instance's place in a PDU image.
// The raw value itself comes from Q9Db_physicalToInternal.
#include <cstring>

#include "codec/BitField.h"
#include "codec/ListWalk.h"
#include "codec/ValueConversion.h"
#include "platform/Heap.h"

namespace q9 {
namespace {

constexpr uint32_t kEncodeMagic = fourCC("eEnc");
constexpr uint32_t kDestroyedStamp = 0xDEADBEEF;

Q9DbEncodeEnum* checked(Q9DbEncodeEnum* e) { return e && e->magic == kEncodeMagic ? e : nullptr; }

Q9DbPhysicalValue physicalValueOf(const Q9DbEncodeEnum& e) {
  Q9DbPhysicalValue v{};
  v.valueType = e.valueType;
  std::memcpy(&v.value, &e.value, sizeof v.value);
  return v;
}

}  // namespace
}  // namespace q9

using namespace q9;

extern "C" {

Q9DB_API HRESULT Q9Db_encodeSignal(Q9DbNode* signal, const Q9DbPhysicalValue* value, Q9DbEncodeEnum** pEnum) {
  if (!pEnum || !value || !isExact<Signal>(signal)) return E_INVALIDARG;
  Q9DbEncodeEnum* e = *pEnum;
  if (!e) {
    e = static_cast<Q9DbEncodeEnum*>(platform::heapAlloc(sizeof *e));
    if (!e) return E_OUTOFMEMORY;
    *pEnum = e;
  }
  std::memset(static_cast<void*>(e), 0, sizeof *e);
  e->magic = kEncodeMagic;
  e->valueType = value->valueType;
  std::memcpy(&e->value, &value->value, sizeof e->value);
  ObjectBase* coding = as<Signal>(signal)->reference;
  if (!isExact<Coding>(coding)) return S_FALSE;
  startWalk(e->computationWalk, as<Coding>(coding)->physicalToInternalCompus);
  return S_OK;
}

Q9DB_API HRESULT Q9Db_encodeNextComputation(Q9DbEncodeEnum* e, Q9DbNode** outComputation) {
  if (!checked(e) || !outComputation) return E_INVALIDARG;
  const Q9DbPhysicalValue v = physicalValueOf(*e);
  void* node = nullptr;
  while (nextItem(e->computationWalk, &node)) {
    if (isA<Computation>(node) && computationHolds(*as<Computation>(node), v)) {
      *outComputation = static_cast<Q9DbNode*>(node);
      return S_OK;
    }
  }
  return S_FALSE;
}

Q9DB_API HRESULT Q9Db_encodeSignalInstance(Q9DbNode* instanceHandle, uint64_t raw, uint8_t* payload,
                                           uint64_t length) {
  if (!payload || length == 0 || !isExact<SignalInstance>(instanceHandle)) return E_INVALIDARG;
  const auto* instance = as<SignalInstance>(instanceHandle);
  if (!isExact<Signal>(instance->reference)) return E_UNEXPECTED;
  const ObjectBase* coding = as<Signal>(instance->reference)->reference;
  if (!isExact<Coding>(coding)) return E_UNEXPECTED;
  const int32_t bitlen = as<Coding>(coding)->bitlen;
  // The value image holds 64 bits, and no payload bit lies before bit 0.
  if (bitlen < 0 || bitlen > 64 || instance->bitpos < 0) return E_UNEXPECTED;
  uint8_t image[8];
  storeLittleEndian(raw, image);
  const int32_t bits = instance->byteOrder == Q9_BYTEORDER_BIGENDIAN ? -bitlen : bitlen;
  Q9bit_insert(payload, image, length, uint32_t(instance->bitpos), bits);
  return S_OK;
}

Q9DB_API HRESULT Q9Db_destroyEncodeEnum(Q9DbEncodeEnum* e) {
  if (!checked(e)) return E_INVALIDARG;
  e->magic = kDestroyedStamp;
  platform::heapFree(e);
  return S_OK;
}

}  // extern "C"
