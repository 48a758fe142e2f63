/* Bit and byte buffer primitives and BCD conversions. Included by Q9Db.h. */
#ifndef Q9DB_BITS_H
#define Q9DB_BITS_H

#include "Q9Db/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Bit fields ---------------------------------------------------------
 * Bit n of a buffer is bit (n mod 8) of byte (n div 8), bit 0 being the
 * least significant. A field is a position and a signed bit length:
 *  - bits > 0: little-endian; pos is the least significant bit and the field
 *    runs upward through pos+bits-1.
 *  - bits < 0: big-endian field of -bits bits; pos is the most significant
 *    bit, the field walks down to bit 0 of its byte and continues at bit 7
 *    of the next byte.
 *  - bits == 0: an empty field.
 * A field's value outside the buffer is a little-endian image: byte 0 holds
 * the 8 least significant bits, whatever the field's byte order.
 * No function here reads or writes a byte that holds no bit of the field. */

/* Copies the field into the image dst of dstSize bytes. Bits above the
 * field's length and the bytes after the image are zero. A dst smaller than
 * the image receives its low-order bytes. */
Q9DB_API void Q9bit_extract(uint8_t *dst, const uint8_t *src, uint64_t dstSize, uint32_t pos, int32_t bits);
/* The field's value; lengths beyond 64 bits are taken as 64. */
Q9DB_API uint64_t Q9bit_extractbuf(const uint8_t *src, uint32_t pos, int32_t bits);
/* Stores the field from the image src into dst, keeping all other bits.
 * Bytes of the field at or past dstSize are skipped: a little-endian field
 * keeps its low-order part, a big-endian one its high-order part. Returns
 * the number of bits stored. */
Q9DB_API uint32_t Q9bit_insert(uint8_t *dst, const uint8_t *src, uint64_t dstSize, uint32_t pos, int32_t bits);
/* word, read as an 8-byte little-endian image, with the field set to the low
 * bits of value. Field bits outside the 64 bits are dropped; lengths beyond
 * 64 bits are taken as 64. */
Q9DB_API uint64_t Q9bit_insertbuf(uint64_t value, uint64_t word, uint32_t pos, int32_t bits);
/* Moves a field between buffers in 64-bit chunks; each side has its own byte
 * order and length. A shorter source pads with zero bits, a longer one is cut.
 * Big-endian fields longer than 64 bits are anchored at their least
 * significant chunk, whose most significant bit is the position; the more
 * significant chunks lie 64 bits lower each, and those that would begin
 * before bit 0 are left out. The destination is bounded as by Q9bit_insert. */
Q9DB_API void Q9bit_copy(uint8_t *dst, uint64_t dstSize, uint32_t dstPos, int32_t dstBits, const uint8_t *src,
                         uint32_t srcPos, int32_t srcBits);
/* 1 when the field lies inside a buffer of size bytes, else 0. A big-endian
 * field at position 0 counts as outside. */
Q9DB_API int Q9bit_insideBuffer(uint32_t size, int32_t pos, int32_t bits);
/* Set or clear count bits from pos upward, within the dstSize bytes. */
Q9DB_API void Q9bit_set(uint8_t *dst, uint64_t dstSize, uint32_t pos, uint32_t count);
Q9DB_API void Q9bit_reset(uint8_t *dst, uint64_t dstSize, uint32_t pos, uint32_t count);
/* Shift the size-byte little-endian number src by shift bits towards higher
 * (left) or lower (right) bit numbers into dst; vacated bits are zero. dst
 * may be src itself, but must not overlap it otherwise. */
Q9DB_API void Q9bit_shiftleft(uint8_t *dst, const uint8_t *src, uint64_t size, uint32_t shift);
Q9DB_API void Q9bit_shiftright(uint8_t *dst, const uint8_t *src, uint64_t size, uint32_t shift);
/* Reads the 8-byte little-endian image at value and reverses the byte order
 * of its low size bytes: size 2 swaps two bytes, 3 and 4 reverse four, 5 to 8
 * reverse all eight; any other size returns the value unchanged. */
Q9DB_API uint64_t Q9bit_buf_swap(const void *value, uint32_t size);

/* dst[i] = a[i] op b[i] for i in 0..count-1, in ascending order. */
Q9DB_API void Q9byte_and(uint8_t *dst, const uint8_t *a, const uint8_t *b, uint32_t count);
Q9DB_API void Q9byte_or(uint8_t *dst, const uint8_t *a, const uint8_t *b, uint32_t count);
Q9DB_API void Q9byte_xor(uint8_t *dst, const uint8_t *a, const uint8_t *b, uint32_t count);

/* ---- Binary-coded decimal -----------------------------------------------
 * A BCD field of bits bits has its lowest digit at the low end: packed
 * digits take 4 bits each, unpacked ones a whole byte (upper nibble zero).
 * Signed fields carry the sign in their top bit, bits-1; that top digit
 * position holds no digit when decoding. Signed fields need bits of at least
 * one digit position.
 *
 * Decoders: S_OK; E_INVALIDARG for a digit above 9, out left alone;
 * E_POINTER for a null pointer.
 * Encoders: S_OK; S_FALSE when digits were left over (the low digits stay
 * in out); E_POINTER for a null out. A signed encoder may store a digit in
 * the top position, and the sign bit is set on top of it. */
Q9DB_API HRESULT Q9Decode_FromUnsignedPackedBCD(uint64_t *out, const uint64_t *raw, uint32_t bits);
Q9DB_API HRESULT Q9Decode_FromUnsignedUnpackedBCD(uint64_t *out, const uint64_t *raw, uint32_t bits);
Q9DB_API HRESULT Q9Decode_FromSignedPackedBCD(int64_t *out, const uint64_t *raw, uint32_t bits);
Q9DB_API HRESULT Q9Decode_FromSignedUnpackedBCD(int64_t *out, const uint64_t *raw, uint32_t bits);
Q9DB_API HRESULT Q9Encode_ToUnsignedPackedBCD(uint64_t *out, uint64_t value, uint32_t bits);
Q9DB_API HRESULT Q9Encode_ToUnsignedUnpackedBCD(uint64_t *out, uint64_t value, uint32_t bits);
Q9DB_API HRESULT Q9Encode_ToSignedPackedBCD(uint64_t *out, int64_t value, uint32_t bits);
Q9DB_API HRESULT Q9Encode_ToSignedUnpackedBCD(uint64_t *out, int64_t value, uint32_t bits);

#ifdef __cplusplus
}
#endif

#endif /* Q9DB_BITS_H */
