// Conversions between binary-coded decimal fields and 64-bit integers.
// Packed fields hold a digit per nibble, unpacked ones a digit per byte;
// signed fields carry the sign in their top bit.
#include <algorithm>
#include <cstdint>
#include <limits>

#include "Q9Db.h"

namespace {

constexpr unsigned kPacked = 4;
constexpr unsigned kUnpacked = 8;

// Reads digits from the low end of word until limit bits are consumed, but
// always at least one; word is left shifted past them. All arithmetic wraps
// modulo 2^64. False for a digit above 9.
template <unsigned Step>
bool readDigits(uint64_t& word, int64_t limit, uint64_t& sum) {
  constexpr uint64_t kDigitMask = (uint64_t(1) << Step) - 1;
  uint64_t weight = 1;
  int64_t consumed = 0;
  sum = 0;
  // Once the word runs out of set bits only zero digits remain.
  do {
    const uint64_t digit = word & kDigitMask;
    if (digit > 9) return false;
    sum += digit * weight;
    weight *= 10;
    word >>= Step;
    consumed += Step;
  } while (consumed < limit && word != 0);
  return true;
}

template <unsigned Step, bool Signed, typename Out>
HRESULT decodeBcd(Out* out, const uint64_t* raw, uint32_t bits) {
  if (!out || !raw) return E_POINTER;
  uint64_t word = *raw;
  uint64_t sum = 0;
  // A signed field's top digit position holds the sign, not a digit.
  const int64_t limit = Signed ? int64_t(bits) - int64_t(Step) : int64_t(bits);
  if (!readDigits<Step>(word, limit, sum)) return E_INVALIDARG;
  const bool negative = Signed && ((word >> (Step - 1)) & 1) != 0;
  *out = Out(negative ? 0 - sum : sum);
  return S_OK;
}

// Stores the decimal digits of magnitude from the low end, one per Step
// bits, while positions below bits remain. Returns what did not fit.
template <unsigned Step>
uint64_t writeDigits(uint64_t& out, uint64_t magnitude, uint32_t bits) {
  const uint64_t room = std::min<uint64_t>(bits, 64);
  for (uint64_t i = 0; magnitude > 0 && i < room; i += Step) {
    out |= (magnitude % 10) << i;
    magnitude /= 10;
  }
  return magnitude;
}

template <unsigned Step>
HRESULT encodeUnsignedBcd(uint64_t* out, uint64_t value, uint32_t bits) {
  if (!out) return E_POINTER;
  uint64_t word = 0;
  const uint64_t left = writeDigits<Step>(word, value, bits);
  *out = word;
  return left == 0 ? S_OK : S_FALSE;
}

template <unsigned Step>
HRESULT encodeSignedBcd(uint64_t* out, int64_t value, uint32_t bits) {
  if (!out) return E_POINTER;
  uint64_t word = 0;
  uint64_t left = 1;
  // The most negative value has no positive counterpart: it keeps only its
  // sign and reports the overflow.
  if (value != std::numeric_limits<int64_t>::min())
    left = writeDigits<Step>(word, value < 0 ? uint64_t(-value) : uint64_t(value), bits);
  if (value < 0 && bits >= 1 && bits <= 64) word |= uint64_t(1) << (bits - 1);
  *out = word;
  return left == 0 ? S_OK : S_FALSE;
}

}  // namespace

Q9DB_API HRESULT Q9Decode_FromUnsignedPackedBCD(uint64_t* out, const uint64_t* raw, uint32_t bits) {
  return decodeBcd<kPacked, false>(out, raw, bits);
}

Q9DB_API HRESULT Q9Decode_FromUnsignedUnpackedBCD(uint64_t* out, const uint64_t* raw, uint32_t bits) {
  return decodeBcd<kUnpacked, false>(out, raw, bits);
}

Q9DB_API HRESULT Q9Decode_FromSignedPackedBCD(int64_t* out, const uint64_t* raw, uint32_t bits) {
  return decodeBcd<kPacked, true>(out, raw, bits);
}

Q9DB_API HRESULT Q9Decode_FromSignedUnpackedBCD(int64_t* out, const uint64_t* raw, uint32_t bits) {
  return decodeBcd<kUnpacked, true>(out, raw, bits);
}

Q9DB_API HRESULT Q9Encode_ToUnsignedPackedBCD(uint64_t* out, uint64_t value, uint32_t bits) {
  return encodeUnsignedBcd<kPacked>(out, value, bits);
}

Q9DB_API HRESULT Q9Encode_ToUnsignedUnpackedBCD(uint64_t* out, uint64_t value, uint32_t bits) {
  return encodeUnsignedBcd<kUnpacked>(out, value, bits);
}

Q9DB_API HRESULT Q9Encode_ToSignedPackedBCD(uint64_t* out, int64_t value, uint32_t bits) {
  return encodeSignedBcd<kPacked>(out, value, bits);
}

Q9DB_API HRESULT Q9Encode_ToSignedUnpackedBCD(uint64_t* out, int64_t value, uint32_t bits) {
  return encodeSignedBcd<kUnpacked>(out, value, bits);
}
