// The encoder's set-up, its client table, the signal change path and the
// hand-out of changed frames.
#include "encoder/Encoder.h"

#include <algorithm>
#include <cstring>

#include "codec/BitField.h"
#include "encoder/HeapObjects.h"
#include "encoder/ImageWriting.h"
#include "encoder/MemberWalk.h"
#include "store/Nodes.h"

namespace q9 {
namespace {

using Hold = std::lock_guard<std::recursive_mutex>;

// The scopes a walk can start from, of the walker's own database.
bool validScope(const void* scope, const Q9DbNode* db) {
  if (!scope) return true;
  switch (Q9Db_getNodeType(scope)) {
    case Q9_NODETYPE_Signal:
    case Q9_NODETYPE_Channel:
    case Q9_NODETYPE_Cluster:
    case Q9_NODETYPE_Frame:
      return static_cast<const void*>(as<DatabaseRef>(scope)->databaseRef) == db;
    default:
      return false;
  }
}

// A record's bit length from a node's field; 0 for what can't have an image.
// Images stay within what a signed bit length of the bit helpers can name.
uint32_t imageBits(int64_t bits) { return bits > 0 && bits <= INT32_MAX ? uint32_t(bits) : 0; }

// The raw value of the signal's default, through the first encoding
// computation of a numeric coding.
bool defaultRaw(Signal& signal, uint64_t* raw) {
  if (!isExact<Coding>(signal.reference)) return false;
  const uint32_t type = as<Coding>(signal.reference)->encoding & Q9_ENCODING_TYPEMASK;
  if (type < Q9_ENCODING_DIRECT || type > Q9_ENCODING_PACKED_BCD) return false;
  MemberWalk computations(Q9Db_enumPhysicalToInternalComputations, signal.reference);
  void* computation = nullptr;
  if (!computations.next(&computation)) return false;
  Q9DbPhysicalValue value{};
  value.valueType = Q9_VALUETYPE_DOUBLE;
  value.value.d = signal.defaultValue;
  return Q9Db_physicalToInternal(reinterpret_cast<Q9DbNode*>(&signal), static_cast<Q9DbNode*>(computation), &value,
                                 raw) == S_OK;
}

}  // namespace

CEncode::~CEncode() {
  frameStore_.Free();
  pduStore_.Free();
  heapDelete(walker_);
}

HRESULT CEncode::Init(void* scope) {
  std::unique_lock<std::recursive_mutex> hold(lock_);
  if (!walker_ || !validScope(scope, walker_->Database())) return E_INVALIDARG;
  scope_ = scope;
  HRESULT hr = BuildFrameRecords();
  if (SUCCEEDED(hr)) hr = BuildPduRecords();
  if (SUCCEEDED(hr)) hr = schedule_.Build(pduStore_);
  if (SUCCEEDED(hr)) hr = carriers_.Build(pduStore_, frameStore_);
  if (FAILED(hr)) return hr;

  // The defaults go in as the changes of an app of the encoder's own, which
  // is gone again before any client can see the handle.
  hold.unlock();
  uint32_t app = 0;
  if (RegisterApp(&app) != S_OK) return S_OK;
  SetSendMode(app, Q9_ENC_MODE_PERIODIC);
  hold.lock();
  WriteDefaults(app);
  Trigger(kInitPhase, 0);
  Q9DbChangedFrame dropped;
  while (GetChangedFrame(&dropped) == S_OK) {
  }
  hold.unlock();
  DeregisterApp(app);
  return S_OK;
}

HRESULT CEncode::BuildFrameRecords() {
  const uint32_t count = walker_->CountFrames(scope_);
  if (count == 0) return S_OK;
  HRESULT hr = frameStore_.Reserve(count);
  for (uint32_t i = 0; SUCCEEDED(hr) && i < count; ++i) {
    void* frame = walker_->NthFrame(scope_, i);
    if (!frame) continue;
    // A frame without length has no image, and a client never gets it.
    if (frameStore_.Add(imageBits(8 * int64_t(as<Frame>(frame)->length)), 0, nullptr, frame) == E_OUTOFMEMORY)
      hr = E_OUTOFMEMORY;
  }
  frameStore_.Seal();
  return hr;
}

HRESULT CEncode::BuildPduRecords() {
  const uint32_t count = walker_->CountPDUs(scope_);
  if (count == 0) return S_OK;
  HRESULT hr = pduStore_.Reserve(count);
  for (uint32_t i = 0; SUCCEEDED(hr) && i < count; ++i) {
    uint32_t depth = 0;
    void* pdu = walker_->NthPDU(scope_, i, &depth);
    if (!pdu) continue;
    // PDUs without length, or nested deeper than the levels reach, get no
    // record: their signals answer Q9_ENC_NO_MATCH.
    const uint32_t bits = imageBits(as<PDU>(pdu)->bitlen);
    if (pduStore_.Add(bits, depth, walker_->FindPDUTriggering(pdu), pdu) == E_OUTOFMEMORY) hr = E_OUTOFMEMORY;
  }
  pduStore_.Seal();
  for (uint32_t i = 0; i < pduStore_.Count(); ++i) {
    EncoderRecord& record = pduStore_.At(i);
    std::memset(record.image, uint8_t(as<PDU>(record.node)->unusedBytePattern), record.byteSize);
  }
  return hr;
}

void CEncode::WriteDefaults(uint32_t app) {
  const uint32_t count = walker_->CountSignals(scope_);
  for (uint32_t i = 0; i < count; ++i) {
    void* signal = walker_->NthSignal(scope_, i, nullptr);
    uint64_t raw = 0;
    if (!signal || !defaultRaw(*as<Signal>(signal), &raw)) continue;
    uint8_t image[8];
    storeLittleEndian(raw, image);
    ChangeSignal(kInitPhase, app, signal, sizeof image, image);
  }
}

HRESULT CEncode::RegisterApp(uint32_t* app) {
  Hold hold(lock_);
  if (!app) return E_FAIL;
  for (uint32_t i = 0; i < kAppCount; ++i) {
    if (apps_[i].inUse) continue;
    apps_[i] = App{1, uint8_t(Q9_ENC_MODE_OFF)};
    onceMask_ &= ~(1u << i);
    *app = i;
    return S_OK;
  }
  return E_FAIL;
}

HRESULT CEncode::DeregisterApp(uint32_t app) {
  Hold hold(lock_);
  if (!Registered(app)) return E_FAIL;
  // Its bit stays in the marks of records already changed.
  SetSendMode(app, Q9_ENC_MODE_OFF);
  apps_[app].inUse = 0;
  return S_OK;
}

HRESULT CEncode::SetSendMode(uint32_t app, uint32_t mode) {
  Hold hold(lock_);
  if (!Registered(app)) return E_FAIL;
  apps_[app].mode = uint8_t(mode);
  // The stored byte decides, so that mode and mask never disagree.
  if (apps_[app].mode != Q9_ENC_MODE_OFF)
    activeMask_ |= 1u << app;
  else
    activeMask_ &= ~(1u << app);
  if (apps_[app].mode == Q9_ENC_MODE_ONCE)
    onceMask_ |= 1u << app;
  else
    onceMask_ &= ~(1u << app);
  return S_OK;
}

HRESULT CEncode::GetSendMode(uint32_t app, uint32_t* mode) {
  Hold hold(lock_);
  if (!Registered(app) || !mode) return E_FAIL;
  *mode = apps_[app].mode;
  return S_OK;
}

HRESULT CEncode::IsSignalCyclic(void* node) {
  Hold hold(lock_);
  return walker_ ? walker_->IsCyclic(node) : E_FAIL;
}

HRESULT CEncode::ChangeSignal(uint32_t phase, uint32_t app, void* signal, uint64_t size, const uint8_t* data) {
  Hold hold(lock_);
  if (!isExact<Signal>(signal)) return E_INVALIDARG;
  if (size != 0 && !data) return E_POINTER;
  const ObjectBase* coding = as<Signal>(signal)->reference;
  if (!isExact<Coding>(coding)) return Q9_ENC_NOT_FOUND;
  // The value passes through an 8-byte scratch image; longer codings (text)
  // can't be written this way.
  const int32_t length = as<Coding>(coding)->bitlen;
  if (length <= 0 || length > 64) return E_INVALIDARG;
  uint8_t scratch[8] = {};
  const int32_t given = int32_t(std::min<uint64_t>(8 * std::min<uint64_t>(size, 8), uint64_t(length)));
  if (given != 0) Q9bit_extract(scratch, data, sizeof scratch, 0, given);

  MemberWalk instances(Q9Db_enumSignalInstances, signal);
  HRESULT result = E_INVALIDARG;
  void* item = nullptr;
  while (instances.next(&item)) {
    if (!isExact<SignalInstance>(item)) continue;
    const auto& instance = *as<SignalInstance>(item);
    EncoderRecord* record = pduStore_.Find(instance.parent);
    // While running, only what a client inserted changes.
    if (!record || (phase != kInitPhase && record->activeCount == 0)) {
      result = Q9_ENC_NO_MATCH;
      continue;
    }
    writeField(*record, placeOf(instance), scratch, uint32_t(length));
    MarkPdu(1u << (app % 32), *record);
    result = S_OK;
  }
  return result;
}

void CEncode::MarkPdu(uint32_t mask, EncoderRecord& pdu) {
  const bool wasClean = pdu.changeMask == 0;
  pduStore_.Mark(true, mask, &pdu);
  // Only the first mark can bring the due time forward.
  if (wasClean && pdu.changeMask != 0) schedule_.Reschedule(pdu);
}

HRESULT CEncode::GetFrameCount(uint32_t* count) {
  Hold hold(lock_);
  if (!count || !scope_) return E_INVALIDARG;
  *count = walker_->CountFrames(scope_);
  return *count ? S_OK : E_INVALIDARG;
}

HRESULT CEncode::GetFrame(uint32_t index, void** frame) {
  Hold hold(lock_);
  if (!frame) return E_INVALIDARG;
  *frame = walker_->NthFrame(scope_, index);
  return *frame ? S_OK : E_INVALIDARG;
}

HRESULT CEncode::GetChangedFrame(Q9DbChangedFrame* out) {
  Hold hold(lock_);
  // Most recently marked first.
  for (EncoderRecord* r = frameStore_.First(kChangedList, 0); r; r = EncoderStore::Next(kChangedList, r)) {
    if ((r->changeMask & activeMask_) == 0) continue;
    if (!out) return S_FALSE;
    *out = Q9DbChangedFrame{static_cast<Q9DbNode*>(r->node), r->byteSize, r->image};
    // Marks of inactive apps stay until one of them becomes active again.
    frameStore_.Mark(false, activeMask_, r);
    return S_OK;
  }
  // The list ran dry: apps in mode once have seen all they get.
  activeMask_ &= ~onceMask_;
  return S_FALSE;
}

}  // namespace q9
