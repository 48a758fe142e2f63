// Two passes over each PDU's parents, the first counting and the second
// filling, so that all carriers fit in one block: where each record's
// carriers start, then the carriers themselves.
#include "encoder/PduCarriers.h"

#include <cstring>

#include "encoder/MemberWalk.h"
#include "platform/Heap.h"
#include "store/Nodes.h"

namespace q9 {

uint32_t PduCarriers::Collect(const EncoderRecord& pdu, EncoderStore& pdus, EncoderStore& frames, PduCarrier* out) {
  MemberWalk parents(Q9Db_enumParents, pdu.node);
  uint32_t count = 0;
  void* parent = nullptr;
  while (parents.next(&parent)) {
    PduCarrier carrier{nullptr, parent, false};
    if (isExact<PDUInstance>(parent)) {
      const void* frame = as<PDUInstance>(parent)->parent;
      carrier.target = isExact<Frame>(frame) ? frames.Find(frame) : nullptr;
    } else if (isExact<MultiplexedPart>(parent)) {
      const void* multiplexed = as<MultiplexedPart>(parent)->parent;
      carrier.target = isExact<MultiplexedPDU>(multiplexed) ? pdus.Find(multiplexed) : nullptr;
      carrier.isPart = true;
    }
    if (!carrier.target) continue;
    if (out) out[count] = carrier;
    ++count;
  }
  return count;
}

HRESULT PduCarriers::Build(EncoderStore& pdus, EncoderStore& frames) {
  Free();
  const uint32_t count = pdus.Count();
  if (count == 0) return S_OK;
  uint64_t total = 0;
  for (uint32_t i = 0; i < count; ++i) total += Collect(pdus.At(i), pdus, frames, nullptr);
  const size_t startsSize = (size_t(count) + 1) * sizeof(uint32_t);
  const size_t carriersAt = (startsSize + alignof(PduCarrier) - 1) / alignof(PduCarrier) * alignof(PduCarrier);
  if (total > UINT32_MAX) return E_OUTOFMEMORY;
  block_ = platform::heapAlloc(carriersAt + size_t(total) * sizeof(PduCarrier));
  if (!block_) return E_OUTOFMEMORY;
  starts_ = static_cast<uint32_t*>(block_);
  carriers_ = reinterpret_cast<PduCarrier*>(static_cast<uint8_t*>(block_) + carriersAt);
  records_ = &pdus.At(0);
  uint32_t filled = 0;
  for (uint32_t i = 0; i < count; ++i) {
    starts_[i] = filled;
    filled += Collect(pdus.At(i), pdus, frames, carriers_ + filled);
  }
  starts_[count] = filled;
  return S_OK;
}

void PduCarriers::Free() {
  platform::heapFree(block_);
  block_ = nullptr;
  records_ = nullptr;
  starts_ = nullptr;
  carriers_ = nullptr;
}

}  // namespace q9
