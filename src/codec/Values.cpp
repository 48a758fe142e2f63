// Raw value <-> physical value: the encodings of a coding, the computation
// cascade, the limit check and printing. Pure reads of nodes; no allocation.
#include <cfloat>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "codec/LastDelivered.h"
#include "codec/ValueConversion.h"
#include "store/Database.h"

namespace q9 {

bool rangeHolds(const ValueRange& r, const Q9DbPhysicalValue& v) {
  if (v.valueType > Q9_VALUETYPE_INT64) return false;
  return limitsHold(r.lowerLimit, r.upperLimit, r.flags, valueAsDouble(v));
}

bool computationHolds(const Computation& c, const Q9DbPhysicalValue& v) {
  return !forEachRecord<const ValueRange>(c.ranges, [&](const ValueRange& r) { return !rangeHolds(r, v); });
}

namespace {


uint64_t signedConversion(const Q9DbPhysicalValue& v) {
  switch (v.valueType) {
    case Q9_VALUETYPE_DOUBLE: return signedBits(v.value.d);
    case Q9_VALUETYPE_UINT64:
    case Q9_VALUETYPE_INT64: return v.value.u;
    default: return 0;
  }
}

uint64_t unsignedConversion(const Q9DbPhysicalValue& v) {
  if (v.valueType == Q9_VALUETYPE_DOUBLE && v.value.d >= kTwo63 && v.value.d < 2.0 * kTwo63)
    return uint64_t(v.value.d - kTwo63) | kUnrepresentable;
  return signedConversion(v);
}

uint64_t lowBits(unsigned bits) { return bits >= 64 ? ~0ull : (1ull << bits) - 1; }

// Cut to L bits; lengths outside 1..63 leave the value whole.
uint64_t cut(uint64_t raw, int32_t length) {
  return length > 0 && length < 64 ? raw & lowBits(unsigned(length)) : raw;
}

unsigned signBit(int32_t length) { return length > 0 && length <= 64 ? unsigned(length) - 1 : 63; }


// Applies one selected computation; false for a class that is none.
bool apply(const ObjectBase* compu, Q9DbPhysicalValue& v) {
  switch (readTag(compu)) {
    case IdentityComputation::kNodeType:
      return true;
    case MappedTextComputation::kNodeType:
      v.text = reinterpret_cast<Q9DbStringSlot*>(as<MappedTextComputation>(compu)->textvalue);
      return true;
    case MappedValueComputation::kNodeType:
      v.valueType = Q9_VALUETYPE_DOUBLE;
      v.value.d = as<MappedValueComputation>(compu)->value;
      return true;
    case LinearComputation::kNodeType: {
      const auto* linear = as<LinearComputation>(compu);
      applyLinear(linearStep(linear->scale, linear->offset), v);
      return true;
    }
    default:
      return false;
  }
}

// Whether a range of the list holds x, the value as a double; the range test
// of rangeHolds with the conversion done once for all ranges.
bool someRangeHolds(const PagedList& ranges, double x) {
  return !forEachRecord<const ValueRange>(
      ranges, [&](const ValueRange& r) { return !limitsHold(r.lowerLimit, r.upperLimit, r.flags, x); });
}

HRESULT runCascade(const PagedList& computations, Q9DbPhysicalValue& v) {
  HRESULT result = S_FALSE;
  // No range holds a value of unknown type, and only an applied computation
  // changes the value, so its double is worked out again only then.
  bool comparable = v.valueType <= Q9_VALUETYPE_INT64;
  double x = valueAsDouble(v);
  forEachPointer(computations, [&](void* item) {
    const auto* compu = static_cast<const ObjectBase*>(item);
    if (!comparable || !isA<Computation>(compu) || !someRangeHolds(as<Computation>(compu)->ranges, x)) return;
    v.computation = reinterpret_cast<Q9DbNode*>(const_cast<ObjectBase*>(compu));
    result = apply(compu, v) ? S_OK : S_FALSE;
    comparable = v.valueType <= Q9_VALUETYPE_INT64;
    x = valueAsDouble(v);
  });
  return result;
}

template <typename Out>
uint64_t bcdDecoded(HRESULT (*decode)(Out*, const uint64_t*, uint32_t), uint64_t raw,
                    int32_t length) {
  Out value = 0;
  decode(&value, &raw, uint32_t(length));
  return uint64_t(value);
}

}  // namespace

HRESULT typedValue(int32_t length, uint32_t encoding, uint64_t raw, Q9DbPhysicalValue& v) {
  const bool signedFlag = encoding & Q9_ENCODING_SIGNED;
  // Most signals are plain unsigned: they need none of the sign work below.
  if ((encoding & Q9_ENCODING_TYPEMASK) == Q9_ENCODING_DIRECT && !signedFlag) {
    v.valueType = Q9_VALUETYPE_UINT64;
    v.value.u = cut(raw, length);
    return S_OK;
  }
  const bool negative = (raw >> signBit(length)) & 1;
  const uint64_t upperOnes = length > 0 && length < 64 ? ~lowBits(unsigned(length)) : 0;
  switch (encoding & Q9_ENCODING_TYPEMASK) {
    case Q9_ENCODING_DIRECT:
      if (!signedFlag) {
        v.valueType = Q9_VALUETYPE_UINT64;
        v.value.u = cut(raw, length);
      } else {
        const uint64_t magnitude = length == 1 ? raw : cut(raw, int32_t(signBit(length)));
        v.valueType = Q9_VALUETYPE_INT64;
        v.value.u = negative ? 0 - magnitude : magnitude;
      }
      return S_OK;
    case Q9_ENCODING_1COMPL:
      v.valueType = Q9_VALUETYPE_INT64;
      v.value.u = negative ? (raw | upperOnes) + 1 : cut(raw, length);
      return S_OK;
    case Q9_ENCODING_2COMPL:
      v.valueType = Q9_VALUETYPE_INT64;
      v.value.u = negative ? raw | upperOnes : cut(raw, length);
      return S_OK;
    case Q9_ENCODING_IEEE:
      v.valueType = Q9_VALUETYPE_DOUBLE;
      if (length == 32) {
        const uint32_t bits = uint32_t(raw);
        float f;
        std::memcpy(&f, &bits, sizeof f);
        v.value.d = f;
      } else if (length == 64) {
        std::memcpy(&v.value.d, &raw, sizeof raw);
      } else {
        return E_UNEXPECTED;
      }
      return S_OK;
    case Q9_ENCODING_UNPACKED_BCD:
    case Q9_ENCODING_PACKED_BCD: {
      const bool packed = (encoding & Q9_ENCODING_TYPEMASK) == Q9_ENCODING_PACKED_BCD;
      v.valueType = signedFlag ? Q9_VALUETYPE_INT64 : Q9_VALUETYPE_UINT64;
      v.value.u = signedFlag ? bcdDecoded(packed ? Q9Decode_FromSignedPackedBCD
                                                 : Q9Decode_FromSignedUnpackedBCD,
                                          raw, length)
                             : bcdDecoded(packed ? Q9Decode_FromUnsignedPackedBCD
                                                 : Q9Decode_FromUnsignedUnpackedBCD,
                                          raw, length);
      return S_OK;
    }
    default:
      return E_UNEXPECTED;
  }
}

namespace {

// A typed value to raw bits by the coding's encoding.
HRESULT encodeRaw(const Coding& coding, const Q9DbPhysicalValue& v, uint64_t& raw) {
  const int32_t length = coding.bitlen;
  const bool signedFlag = coding.encoding & Q9_ENCODING_SIGNED;
  const uint32_t bits = uint32_t(length);
  switch (coding.encoding & Q9_ENCODING_TYPEMASK) {
    case Q9_ENCODING_DIRECT:
      raw = cut(signedFlag ? signedConversion(v) : unsignedConversion(v), length);
      return S_OK;
    case Q9_ENCODING_1COMPL: {
      const uint64_t s = signedConversion(v);
      raw = int64_t(s) < 0 ? s - 1 : s;
      return S_OK;
    }
    case Q9_ENCODING_2COMPL:
      raw = signedConversion(v);
      return S_OK;
    case Q9_ENCODING_IEEE: {
      const double d = valueAsDouble(v);
      if (length == 32) {
        const float f = float(d);
        uint32_t low;
        std::memcpy(&low, &f, sizeof low);
        raw = (raw & 0xFFFFFFFF00000000ull) | low;
      } else if (length == 64) {
        std::memcpy(&raw, &d, sizeof d);
      } else {
        return E_UNEXPECTED;
      }
      return S_OK;
    }
    case Q9_ENCODING_UNPACKED_BCD:
    case Q9_ENCODING_PACKED_BCD: {
      const bool packed = (coding.encoding & Q9_ENCODING_TYPEMASK) == Q9_ENCODING_PACKED_BCD;
      uint64_t out = 0;
      // Overflow is not reported: the encoder's answer is dropped.
      if (signedFlag)
        (packed ? Q9Encode_ToSignedPackedBCD : Q9Encode_ToSignedUnpackedBCD)(
            &out, int64_t(signedConversion(v)), bits);
      else
        (packed ? Q9Encode_ToUnsignedPackedBCD : Q9Encode_ToUnsignedUnpackedBCD)(
            &out, unsignedConversion(v), bits);
      raw = out;
      return S_OK;
    }
    default:
      return E_UNEXPECTED;
  }
}

const Coding* codingOf(const Signal& s) {
  return isExact<Coding>(s.reference) ? as<Coding>(s.reference) : nullptr;
}

// Q9Db_internalToPhysical from the signal's nodes. Out of line, so that the
// compiled way needs no stack frame.
__attribute__((noinline)) HRESULT internalToPhysicalByNodes(const void* signalHandle, uint64_t raw,
                                                            Q9DbPhysicalValue* out) {
  if (!out || !isExact<Signal>(signalHandle)) return E_INVALIDARG;
  out->computation = nullptr;
  out->text = nullptr;
  const Coding* coding = codingOf(*as<Signal>(signalHandle));
  if (!coding) {
    out->valueType = Q9_VALUETYPE_UINT64;
    out->value.u = raw;
    return S_OK;
  }
  const HRESULT hr = typedValue(coding->bitlen, coding->encoding, raw, *out);
  if (hr != S_OK) return hr;
  return runCascade(coding->internalToPhysicalCompus, *out);
}

}  // namespace
}  // namespace q9

using namespace q9;

extern "C" {

Q9DB_API HRESULT Q9Db_internalToPhysical(Q9DbNode* signalHandle, uint64_t raw,
                                         Q9DbPhysicalValue* out) {
  // The signal the decoder has just delivered: its coding, compiled.
  if (const PlannedField* field = deliveredFieldOf(signalHandle))
    if (out) return convertPlanned(*field, raw, *out);
  return internalToPhysicalByNodes(signalHandle, raw, out);
}

Q9DB_API HRESULT Q9Db_physicalToInternal(Q9DbNode* signalHandle, Q9DbNode* computation,
                                         const Q9DbPhysicalValue* value, uint64_t* outRaw) {
  if (!value || !outRaw || !isExact<Signal>(signalHandle)) return E_INVALIDARG;
  if (computation && !isA<Computation>(computation)) return E_INVALIDARG;
  const Coding* coding = codingOf(*as<Signal>(signalHandle));
  if (!coding) return E_UNEXPECTED;
  Q9DbPhysicalValue v = *value;
  if (isExact<LinearComputation>(computation)) {
    const auto* linear = as<LinearComputation>(computation);
    const double product = valueAsDouble(v) * linear->scale;
    v.value.d = product + linear->offset;
    v.valueType = Q9_VALUETYPE_DOUBLE;
  } else if (computation && !isExact<IdentityComputation>(computation)) {
    return S_FALSE;
  }
  uint64_t raw = *outRaw;  // an IEEE single leaves the upper half as it was
  const HRESULT hr = encodeRaw(*coding, v, raw);
  if (hr == S_OK) *outRaw = raw;
  return hr;
}

Q9DB_API HRESULT Q9Db_checkValueInMinMax(Q9DbNode* signalHandle, const Q9DbPhysicalValue* value) {
  if (!value || !isExact<Signal>(signalHandle)) return E_INVALIDARG;
  if (value->valueType > Q9_VALUETYPE_INT64) return Q9_INCOMPATIBLEVALUETYPE;
  const Signal* s = as<Signal>(signalHandle);
  const double v = valueAsDouble(*value);
  const bool lowerClosed = s->flags & Q9_FLAG_LOWERLIMIT_CLOSED;
  const bool upperClosed = s->flags & Q9_FLAG_UPPERLIMIT_CLOSED;
  if (lowerClosed ? s->minValue > v : s->minValue >= v) return Q9_VALUEBELOWRANGE;
  if (upperClosed ? v > s->maxValue : v >= s->maxValue) return Q9_VALUEABOVERANGE;
  return Q9_VALUEINRANGE;
}

Q9DB_API int32_t Q9Db_valueToString(const Q9DbPhysicalValue* value, char16_t* buffer,
                                    uint32_t capacity) {
  if (!value || !buffer) return -1;
  char text[400];
  int n;
  switch (value->valueType) {
    case Q9_VALUETYPE_DOUBLE: {
      // Not printf: the decimal point must not follow the client's locale.
      const auto r = std::to_chars(text, text + sizeof text - 1, value->value.d,
                                   std::chars_format::fixed, 3);
      if (r.ec != std::errc()) return -1;
      *r.ptr = 0;
      n = int(r.ptr - text);
      break;
    }
    case Q9_VALUETYPE_UINT64:
      n = std::snprintf(text, sizeof text, "0x%llX", static_cast<unsigned long long>(value->value.u));
      break;
    case Q9_VALUETYPE_INT64:
      n = std::snprintf(text, sizeof text, "%lld", static_cast<long long>(value->value.i));
      break;
    default: return -1;
  }
  if (n < 0 || std::size_t(n) >= sizeof text || uint32_t(n) >= capacity) return -1;
  for (int i = 0; i <= n; ++i) buffer[i] = char16_t(uint8_t(text[i]));
  return n;
}

}  // extern "C"
