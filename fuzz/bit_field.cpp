// The exported bit primitives against the bit-by-bit model, on buffers of
// their exact size (so a byte touched past either end shows), with any
// position and signed length.
//
// Input: operations one after the other, each
//   kind (1 byte), buffer size (1), second size (1), position (4),
//   second position (4), bit length (2, signed), second bit length (2),
//   value (8), then the buffers' bytes (zero past the input's end).
#include <algorithm>
#include <memory>
#include <string>

#include "FuzzSupport.h"
#include "Q9Db.h"
#include "codec/BitModel.h"

namespace {

using q9::fuzz::violated;
using q9::test::Bytes;
using q9::test::fieldInside;
using q9::test::modelExtract;
using q9::test::modelInsert;
using q9::test::modelLength;

// A heap copy of exactly size bytes.
struct Exact {
  explicit Exact(const Bytes& from) : size(from.size()), bytes(new uint8_t[size ? size : 1]) {
    std::copy(from.begin(), from.end(), bytes.get());
  }
  Bytes contents() const { return Bytes(bytes.get(), bytes.get() + size); }
  size_t size;
  std::unique_ptr<uint8_t[]> bytes;
};

Bytes imageOf(uint64_t value, size_t size) {
  Bytes image(size);
  for (size_t i = 0; i < size && i < 8; ++i) image[i] = uint8_t(value >> (8 * i));
  return image;
}

uint64_t wordOf(const Bytes& image) {
  uint64_t value = 0;
  for (size_t i = 0; i < image.size() && i < 8; ++i) value |= uint64_t(image[i]) << (8 * i);
  return value;
}

std::string describe(const char* what, uint64_t size, uint32_t pos, int32_t bits) {
  return std::string(what) + " size " + std::to_string(size) + " pos " + std::to_string(pos) + " bits " +
         std::to_string(bits);
}

size_t imageSize(int32_t bits) { return size_t((modelLength(bits) + 7) / 8); }

struct Operation {
  uint8_t kind;
  Bytes a, b;
  uint32_t pos, pos2;
  int32_t bits, bits2;
  uint64_t value;
};

void extract(const Operation& op) {
  if (!fieldInside(op.a.size(), op.pos, op.bits)) return;
  const size_t dstSize = op.b.size();
  const Exact src(op.a);
  Exact dst(op.b);
  Q9bit_extract(dst.bytes.get(), src.bytes.get(), dstSize, op.pos, op.bits);
  if (dst.contents() != modelExtract(op.a.data(), op.pos, op.bits, dstSize))
    violated("extract", describe("", op.a.size(), op.pos, op.bits));
}

void extractWord(const Operation& op) {
  const int32_t clamped = std::clamp(op.bits, -64, 64);
  if (!fieldInside(op.a.size(), op.pos, clamped)) return;
  const Exact src(op.a);
  if (Q9bit_extractbuf(src.bytes.get(), op.pos, op.bits) != wordOf(modelExtract(op.a.data(), op.pos, clamped, 8)))
    violated("extractbuf", describe("", op.a.size(), op.pos, op.bits));
}

void insert(const Operation& op) {
  Bytes image = op.b;
  image.resize(imageSize(op.bits));
  Bytes expected = op.a;
  const uint32_t stored = modelInsert(expected.data(), expected.size(), op.pos, op.bits, image.data());
  Exact dst(op.a);
  const Exact src(image);
  const uint32_t got = Q9bit_insert(dst.bytes.get(), src.bytes.get(), dst.size, op.pos, op.bits);
  if (got != stored || dst.contents() != expected) violated("insert", describe("", op.a.size(), op.pos, op.bits));
}

// The field's value is the first buffer's word; the word it goes into is
// the operation's value.
void insertWord(const Operation& op) {
  const int32_t clamped = std::clamp(op.bits, -64, 64);
  const uint64_t field = wordOf(op.a);
  Bytes expected = imageOf(op.value, 8);
  modelInsert(expected.data(), 8, op.pos, clamped, imageOf(field, 8).data());
  if (Q9bit_insertbuf(field, op.value, op.pos, op.bits) != wordOf(expected))
    violated("insertbuf", describe("", 8, op.pos, op.bits));
}

// Chunks of 64 bits, anchored at the least significant one: little-endian
// sides step up by 64, big-endian ones down; a big-endian side whose next
// chunk would start before bit 0 ends there (destination) or reads as zero
// (source).
void copy(const Operation& op) {
  if (op.bits == 0 || (op.bits < 0 && op.bits2 <= 0)) return;
  const uint64_t dstLength = modelLength(op.bits), srcLength = modelLength(op.bits2);
  Bytes expected = op.b;
  for (uint64_t done = 0; done < dstLength; done += 64) {
    if (op.bits < 0 && done > op.pos) break;
    Bytes chunk(8);
    const uint64_t take = srcLength > done ? std::min<uint64_t>(srcLength - done, 64) : 0;
    if (take && !(op.bits2 < 0 && done > op.pos2)) {
      const uint32_t from = uint32_t(op.bits2 < 0 ? op.pos2 - done : op.pos2 + done);
      const int32_t signedTake = op.bits2 < 0 ? -int32_t(take) : int32_t(take);
      if (uint64_t(from) != (op.bits2 < 0 ? op.pos2 - done : op.pos2 + done)) return;
      if (!fieldInside(op.a.size(), from, signedTake)) return;  // the source has no size: the caller's part
      chunk = modelExtract(op.a.data(), from, signedTake, 8);
    }
    const uint64_t to = op.bits < 0 ? op.pos - done : op.pos + done;
    if (to > UINT32_MAX) return;
    const int32_t put = int32_t(std::min<uint64_t>(dstLength - done, 64));
    modelInsert(expected.data(), expected.size(), uint32_t(to), op.bits < 0 ? -put : put, chunk.data());
  }
  const Exact src(op.a);
  Exact dst(op.b);
  Q9bit_copy(dst.bytes.get(), dst.size, op.pos, op.bits, src.bytes.get(), op.pos2, op.bits2);
  if (dst.contents() != expected)
    violated("copy", describe("", op.b.size(), op.pos, op.bits) + describe(" from", op.a.size(), op.pos2, op.bits2));
}

// Whatever the test calls inside must be inside; and a field that is inside
// must be called so, except where a big-endian field starts at bit 0.
void inside(const Operation& op) {
  const auto size = uint32_t(op.a.size());
  const auto pos = int32_t(op.pos);
  const int answer = Q9bit_insideBuffer(size, pos, op.bits);
  if (answer != 0 && answer != 1) violated("insideBuffer answers neither 0 nor 1");
  if (pos < 0) {
    if (answer) violated("a negative position inside", describe("", size, op.pos, op.bits));
    return;
  }
  const bool modelInside = fieldInside(size, uint32_t(pos), op.bits) && uint64_t(pos) < 8 * uint64_t(size);
  if (answer && !modelInside) violated("insideBuffer", describe("", size, op.pos, op.bits));
  if (!answer && modelInside && !(op.bits < 0 && pos == 0))
    violated("insideBuffer refuses", describe("", size, op.pos, op.bits));
}

void fill(const Operation& op, bool set) {
  const uint32_t count = uint32_t(op.pos2 % 4096);
  if (uint64_t(op.pos) + count > 8 * uint64_t(op.a.size())) return;
  Bytes expected = op.a;
  for (uint64_t n = op.pos; n < uint64_t(op.pos) + count; ++n) q9::test::setBitOf(expected.data(), n, set);
  Exact dst(op.a);
  (set ? Q9bit_set : Q9bit_reset)(dst.bytes.get(), dst.size, op.pos, count);
  if (dst.contents() != expected) violated(set ? "set" : "reset", describe("", op.a.size(), op.pos, int32_t(count)));
}

void shift(const Operation& op, bool left) {
  const uint64_t bitCount = 8 * uint64_t(op.a.size());
  Bytes expected(op.a.size());
  for (uint64_t n = 0; n < bitCount; ++n) {
    const uint64_t from = left ? n - op.pos : n + op.pos;
    if ((left && n < op.pos) || from >= bitCount) continue;
    q9::test::setBitOf(expected.data(), n, q9::test::bitOf(op.a.data(), from));
  }
  const Exact src(op.a);
  Exact dst(Bytes(op.a.size(), 0x5A));  // cleared first, whatever it held
  (left ? Q9bit_shiftleft : Q9bit_shiftright)(dst.bytes.get(), src.bytes.get(), dst.size, op.pos);
  if (dst.contents() != expected) violated(left ? "shiftleft" : "shiftright", describe("", dst.size, op.pos, 0));
}

void bytewise(const Operation& op) {
  const size_t count = std::min(op.a.size(), op.b.size());
  Bytes expected(count);
  for (size_t i = 0; i < count; ++i) {
    switch (op.kind % 3) {
      case 0: expected[i] = op.a[i] & op.b[i]; break;
      case 1: expected[i] = op.a[i] | op.b[i]; break;
      default: expected[i] = op.a[i] ^ op.b[i]; break;
    }
  }
  Exact a(op.a);
  const Exact b(op.b);
  // In place into a, or into a buffer of its own.
  const bool inPlace = op.value & 1;
  Exact separate{Bytes(count)};
  uint8_t* dst = inPlace ? a.bytes.get() : separate.bytes.get();
  void (*ops[])(uint8_t*, const uint8_t*, const uint8_t*, uint32_t) = {Q9byte_and, Q9byte_or, Q9byte_xor};
  ops[op.kind % 3](dst, a.bytes.get(), b.bytes.get(), uint32_t(count));
  if (!std::equal(expected.begin(), expected.end(), dst)) violated("byte operation");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  q9::fuzz::InputReader in(data, size);
  for (int n = 0; n < 32 && in.left() > 0; ++n) {
    Operation op;
    op.kind = in.take<uint8_t>();
    op.a.resize(in.take<uint8_t>() % 80);
    op.b.resize(in.take<uint8_t>() % 80);
    op.pos = in.take<uint32_t>();
    op.pos2 = in.take<uint32_t>();
    op.bits = in.take<int16_t>() % 1024;
    op.bits2 = in.take<int16_t>() % 1024;
    op.value = in.take<uint64_t>();
    // Mostly positions near the buffers; now and then anywhere.
    if (op.kind & 0x80) op.pos %= 1024, op.pos2 %= 1024;
    for (Bytes* buffer : {&op.a, &op.b}) {
      size_t got = 0;
      const uint8_t* bytes = in.takeBytes(buffer->size(), &got);
      std::copy(bytes, bytes + got, buffer->begin());
    }
    switch (op.kind & 0x0F) {
      case 0: extract(op); break;
      case 1: extractWord(op); break;
      case 2: insert(op); break;
      case 3: insertWord(op); break;
      case 4: copy(op); break;
      case 5: inside(op); break;
      case 6: fill(op, true); break;
      case 7: fill(op, false); break;
      case 8: shift(op, true); break;
      case 9: shift(op, false); break;
      default: bytewise(op); break;
    }
  }
  return 0;
}
